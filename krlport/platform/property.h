// Internal OS layer for the property store behind BaseUtil::GetProperty: the
// registry key HKEY_LOCAL_MACHINE\SOFTWARE\Ostrevan\Varnholt\Korlan\6.0 on
// Windows, the text file /etc/ostrevan/varnholt/korlan/6.0/properties
// elsewhere. The environment is the caller's to look at first.
// Internal: use BaseUtil instead.
#ifndef KRLPORT_PLATFORM_PROPERTY_H_
#define KRLPORT_PLATFORM_PROPERTY_H_

#include <cstddef>

namespace krl_internal {

// Copies the value called name, terminated, into out (size bytes). False when
// the store, the name or (on Windows) room for the value is missing; out may
// have been written then. File: the first line "name=value" counts, '#' starts
// a comment line, the value is the rest of the line without its line end, cut
// to size - 1 characters. Registry: the value's type is not tested, and a
// value that does not fit out is missing. Safe from any thread; out is the
// caller's to guard.
bool read_property(const char* name, char* out, std::size_t size);

// Test hook: read_property reads from location instead, or from the default
// again when location is null. Linux: the path of a properties file.
// Windows: a sub-key of HKEY_CURRENT_USER, which a test may write without
// administrator rights. Not thread-safe; the caller keeps location alive while
// it is in use.
void set_property_location(const char* location);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_PROPERTY_H_
