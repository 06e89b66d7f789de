// Internal: where the library's log files go. Shared by KRLLogger and the
// debug logger so that both follow one search.
#ifndef KRLPORT_SERVICES_LOG_PATH_H_
#define KRLPORT_SERVICES_LOG_PATH_H_

namespace krl_internal {

// Writes the path of file into path (size chars) and makes the missing
// directories above it, walking down from the path's root (platform/file.h)
// and stopping at the first that can't be made. In order:
//   the property KORLAN_ADM (environment first): <adm>\log\<file> on
//     Windows, <adm>/log/<file> else;
//   without it: X:\korlan\log\<file> on the current drive X on Windows,
//     /korlan/log/<file> else;
//   when a directory can't be made: the bare file in the current directory.
// There is no second try at the default after KORLAN_ADM.
// False when the path does not fit in size: path is untouched if the first
// formatting failed, and holds the directory path if only the bare name did
// not fit.
// Reads the property buffer of BaseUtil, so it is not safe against a
// concurrent property look-up.
bool log_file_path(const char* file, char* path, unsigned int size);

// The first step of log_file_path alone: formats the path from KORLAN_ADM or
// the default, and makes nothing. False when it does not fit in size.
bool format_log_path(const char* file, char* path, unsigned int size);

}  // namespace krl_internal

#endif  // KRLPORT_SERVICES_LOG_PATH_H_
