#include "krlport/platform/heap.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstring>
#include <new>

namespace krl_internal {

namespace {

// Whether the code at `fn` lies in libstdc++ itself. A replacement in the
// program, or in a library loaded before libstdc++, is what the dynamic
// linker binds the library's calls to, and it lies elsewhere.
bool in_libstdcxx(const void* fn) {
  Dl_info info;
  if (::dladdr(fn, &info) == 0 || info.dli_fname == nullptr) return false;
  const char* slash = std::strrchr(info.dli_fname, '/');
  const char* base = slash != nullptr ? slash + 1 : info.dli_fname;
  static const char kName[] = "libstdc++.so";
  return std::strncmp(base, kName, sizeof kName - 1) == 0;
}

}  // namespace

bool global_new_is_malloc() {
  // The addresses the library's own calls are bound to.
  void* (*new_fn)(std::size_t) = &::operator new;
  void (*delete_fn)(void*) noexcept = &::operator delete;
  return in_libstdcxx(reinterpret_cast<const void*>(new_fn)) &&
         in_libstdcxx(reinterpret_cast<const void*>(delete_fn));
}

}  // namespace krl_internal
