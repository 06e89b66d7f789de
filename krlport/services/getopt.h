/// @file
/// getopt and its four variables: the classic single-letter option scanner,
/// exported under these plain C names. A process that links this library gets
/// this scanner in place of the C library's. On Windows a host declares them
/// through this header (or krlport.h), which imports them from the DLL; a
/// host that declares them through the C runtime's headers alone refers to
/// optind and the others by their plain names, which an import library cannot
/// give for data, and links the runtime's getopt instead (a second definition
/// of getopt).
///
/// The scan stops at the first element that is not an option, at "--" (or any
/// element beginning with two dashes, which is consumed) and at a lone "-"
/// (which is not, unless '-' is listed); argv is never reordered. A colon
/// behind a letter in optstring means that it takes an argument, the rest of
/// the element or else the next element. Errors return '?' (63): an option not
/// listed, or one whose argument is missing at the end of argv. A leading ':'
/// or '+' in optstring has no special meaning. When opterr is non-zero, errors
/// are printed on standard output (not standard error) as
/// "<program>: illegal option -- <c>" and
/// "<program>: option requires an argument -- <c>", where the program is
/// argv[0] behind its last '/'.
///
/// The state is process-wide and unlocked: one thread at a time scans. A new
/// scan starts by setting optind (to 1) after the -1 return.
#ifndef KRLPORT_SERVICES_GETOPT_H_
#define KRLPORT_SERVICES_GETOPT_H_

#include "krlport/frame/export.h"

#if defined(_WIN32)
// The C runtime of mingw-w64 declares these names too (<getopt.h>, also
// reached through <unistd.h>), without dllimport and without noexcept, and
// its library has a getopt of its own. Its declaration comes first, so that
// the ones below, which import the DLL's, are those in force: a host then
// refers to the DLL's variables only through their import entries, and never
// pulls the runtime's getopt (and a second definition of getopt) into its
// link by a plain reference to optind.
#include <getopt.h>
/// Whether getopt is declared noexcept: not, as mingw-w64 declares it.
#define KRL_GETOPT_NOEXCEPT
#else
/// Whether getopt is declared noexcept: it is, as the C library declares it,
/// so that both declarations may meet.
#define KRL_GETOPT_NOEXCEPT noexcept
#endif

extern "C" {
/// The next option letter of argv; '?' on an error; -1 when the options end,
/// with optind at the first element not scanned. Not thread-safe.
KRL_EXPORT int getopt(int argc, char* const* argv, const char* optstring) KRL_GETOPT_NOEXCEPT;

KRL_EXPORT extern char* optarg;  ///< argument of the option just returned, or null
KRL_EXPORT extern int optind;    ///< next element of argv to look at; 1 at the start
KRL_EXPORT extern int opterr;    ///< non-zero: print messages; 1 at the start
KRL_EXPORT extern int optopt;    ///< the option character last looked at
}

#undef KRL_GETOPT_NOEXCEPT

#endif  // KRLPORT_SERVICES_GETOPT_H_
