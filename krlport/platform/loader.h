// Internal: the system's run-time loader of shared libraries. One function per
// call, no policy: naming, the table of loaded libraries and its lock belong
// to KRLLoadLibrary. Internal: use KRLLoadLibrary instead.
#ifndef KRLPORT_PLATFORM_LOADER_H_
#define KRLPORT_PLATFORM_LOADER_H_

#include <string>

namespace krl_internal {

// Loads name with every symbol bound now: on Linux dlopen(RTLD_NOW |
// RTLD_LOCAL), where a name without '/' goes through the loader's search path;
// on Windows LoadLibraryA and its search order. Returns the handle, or null
// with `error` set to a non-zero error number (errno, or GetLastError) and
// `text` to the loader's reason, empty where the system gives none (Windows).
// Thread-safe.
void* open_library(const char* name, unsigned long& error, std::string& text);

// Drops one reference to handle (dlclose, FreeLibrary). Returns 0, or a
// non-zero error number.
unsigned long close_library(void* handle);

// The system's file naming of a shared library: "lib" and ".so" on Linux,
// "" and ".dll" on Windows.
const char* library_prefix();
const char* library_file_type();

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_LOADER_H_
