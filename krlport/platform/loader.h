// Internal: the system's run-time loader of shared libraries. One function per
// call, no policy: naming, the table of loaded libraries and its lock belong
// to KRLLoadLibrary. Internal: use KRLLoadLibrary instead.
#ifndef KRLPORT_PLATFORM_LOADER_H_
#define KRLPORT_PLATFORM_LOADER_H_

#include <string>

namespace krl_internal {

// Loads name with every symbol bound now and none shared with later loads
// (dlopen, RTLD_NOW | RTLD_LOCAL); a name without '/' goes through the
// loader's search path. Returns the handle, or null with `error` set to a
// non-zero error number and `text` to the loader's reason. Thread-safe.
void* open_library(const char* name, unsigned long& error, std::string& text);

// Drops one reference to handle. Returns 0, or a non-zero error number.
unsigned long close_library(void* handle);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_LOADER_H_
