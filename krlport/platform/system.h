// Internal OS layer for the process and system information of KRLPortable
// and BaseUtil: process id, last error, ending a process, system version,
// process memory, user name, text compare and conversion (and, until they
// move, the file and host-name calls). One function per OS service, no
// policy: the callers in portable/ own the rules around them. The clock and
// the property store have their own headers. Internal: use KRLPortable or
// BaseUtil instead.
#ifndef KRLPORT_PLATFORM_SYSTEM_H_
#define KRLPORT_PLATFORM_SYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace krl_internal {

unsigned long current_process_id();

// The calling thread's last OS error number (GetLastError, errno).
unsigned long last_error();
// Sets it, so that a caller can keep a number across calls that may change it.
void set_last_error(unsigned long error);

// Ends the process without telling the caller anything, whatever happens.
// Linux ignores ids that would address a group of processes (0 and below).
void kill_process(long pid);

// True when the path names anything, a directory included.
bool path_exists(const char* path);

// Looks for name in the current directory, then in each entry of PATH.
// Writes the full path of the first regular file found to out (no size is
// known; PATH_MAX bytes are assumed) or an empty string. Returns !out.empty().
bool search_path(const char* name, char* out);

// Case-insensitive order of two texts in the C locale (_stricmp, strcasecmp).
int compare_ignoring_case(const char* a, const char* b);

// Converts n bytes of text in the system's narrow code page (Windows: the
// ANSI code page; Linux: UTF-8) and the terminator after them to UTF-16 in
// out, which has room for n + 1 units. False, with last_error() saying why
// (EILSEQ on Linux), when the text can't be converted.
bool narrow_to_wide(const char* text, std::size_t n, unsigned short* out);

enum class VersionRead { kRead, kFailed, kUnknown };

// Major and minor version of the running system: Windows' own numbers, with
// major 95 or 98 for the Windows 9x line; the kernel release on Linux.
// kFailed when the system would not tell, kUnknown for a 9x minor version
// other than 0 or 10.
VersionRead system_version(std::int32_t& major, std::int32_t& minor);

// Commit charge (Linux: virtual size) and resident size of this process, in
// KiB. False when they can't be read.
bool process_memory_kib(std::int64_t& commit_kib, std::int64_t& resident_kib);

// Name of the effective user, as the system gives it (Windows: at most 99
// characters). False when it gives none; the caller has its fall-backs.
bool current_user_name(std::string& out);

// The domain of the account user (Windows: LookupAccountNameA). False when the
// look-up fails, always on Linux, whose accounts have no domain.
bool account_domain(const char* user, std::string& domain);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_SYSTEM_H_
