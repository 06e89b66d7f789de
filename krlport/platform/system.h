// Internal OS layer for the clock, process, file, version, user, property
// and host-name services of KRLPortable and BaseUtil. One function per OS
// service, no policy: the callers in portable/ own the rules around them.
// Internal: use KRLPortable or BaseUtil instead.
#ifndef KRLPORT_PLATFORM_SYSTEM_H_
#define KRLPORT_PLATFORM_SYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace krl_internal {

// Wall-clock time since the epoch, cut to whole milliseconds.
void wall_clock(std::int64_t& seconds, std::int32_t& milliseconds);

unsigned long current_process_id();

// The calling thread's last OS error number (errno here).
unsigned long last_error();

// Ends the process without telling the caller anything. Ids that would
// address a group of processes (0 and below) are ignored.
void kill_process(long pid);

// True when the path names anything, a directory included.
bool path_exists(const char* path);

// Looks for name in the current directory, then in each entry of PATH.
// Writes the full path of the first regular file found to out (no size is
// known; PATH_MAX bytes are assumed) or an empty string. Returns !out.empty().
bool search_path(const char* name, char* out);

// Case-insensitive order of two texts in the C locale.
int compare_ignoring_case(const char* a, const char* b);

// Major and minor number of the running kernel's release.
bool system_version(std::int32_t& major, std::int32_t& minor);

// Virtual and resident size of this process, in KiB.
bool process_memory_kib(long& virtual_kib, long& resident_kib);

// Login name of the effective user.
bool current_user_name(std::string& out);

// The property file read by read_property. Default:
// "/etc/ostrevan/varnholt/korlan/6.0/properties".
const char* property_file_path();
// Test hook: makes read_property use path instead; null restores the default.
// Not thread-safe; the caller keeps path alive while it is in use.
void set_property_file_path(const char* path);

// Finds the first line "name=value" of the property file (lines starting with
// '#' are comments) and copies value without its line end into out, cut to
// size - 1 characters and terminated. False when the file or name is missing.
bool read_property(const char* name, char* out, std::size_t size);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_SYSTEM_H_
