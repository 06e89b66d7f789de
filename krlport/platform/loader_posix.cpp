#include <dlfcn.h>

#include <cerrno>
#include <cstring>

#include "krlport/platform/loader.h"

namespace krl_internal {

namespace {

// dlopen and dlclose set no errno of their own: glibc leaves whatever its
// search met last (often 0, or an ENOENT from a directory of the run path
// while the file found later was the trouble). The loader's own error number
// is kept in dlerror()'s text, as its strerror() behind the last ": ". A
// failure without one (no usable ELF file, an undefined symbol) is ELIBBAD, so
// that a failure never reads as "no error".
unsigned long error_from_text(const std::string& text) {
  const std::size_t colon = text.rfind(": ");
  if (colon != std::string::npos) {
    char buffer[256];
    for (int err = 1; err < 256; ++err) {
      if (text.compare(colon + 2, std::string::npos, ::strerror_r(err, buffer, sizeof buffer)) ==
          0) {
        return static_cast<unsigned long>(err);
      }
    }
  }
  return ELIBBAD;
}

// dlerror() is per thread and cleared by reading it.
std::string take_loader_text() {
  const char* text = ::dlerror();
  return text != nullptr ? std::string(text) : std::string();
}

}  // namespace

void* open_library(const char* name, unsigned long& error, std::string& text) {
  ::dlerror();
  void* handle = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (handle != nullptr) return handle;
  text = take_loader_text();
  error = error_from_text(text);
  return nullptr;
}

unsigned long close_library(void* handle) {
  if (::dlclose(handle) == 0) return 0;
  return error_from_text(take_loader_text());
}

}  // namespace krl_internal

namespace krl_internal {

const char* library_prefix() { return "lib"; }
const char* library_file_type() { return ".so"; }

}  // namespace krl_internal
