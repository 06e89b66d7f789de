// Internal: where the library's log files go. Shared by KRLLogger and the
// debug logger so that both follow one search.
#ifndef KRLPORT_SERVICES_LOG_PATH_H_
#define KRLPORT_SERVICES_LOG_PATH_H_

namespace krl_internal {

// Writes the path of file into path (size chars): $KORLAN_ADM/log/<file>
// (the property, environment first), else /korlan/log/<file>, and makes the
// missing directories above it. When one can't be made, the bare file in the
// current directory. There is no second try at /korlan after KORLAN_ADM.
// False when the path does not fit in size: path is untouched if the first
// formatting failed, and holds the directory path if only the bare name did
// not fit.
// Reads the property buffer of BaseUtil, so it is not safe against a
// concurrent property look-up.
bool log_file_path(const char* file, char* path, unsigned int size);

}  // namespace krl_internal

#endif  // KRLPORT_SERVICES_LOG_PATH_H_
