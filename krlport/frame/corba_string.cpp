// CORBA::string_* and wstring_*: the one allocator pair for strings that cross
// the library boundary, and the string hash of dictionary keys.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "krlport/frame/corba.h"
#include "krlport/frame/empty_string.h"
#include "krlport/frame/string_hash.h"
#include "krlport/frame/utf16.h"

namespace krl_internal {
char* const _empty_string = const_cast<char*>("");
}  // namespace krl_internal

namespace {

// The largest buffer: the largest object there can be, and no more than an
// unsigned long counts (32 bits on Windows, like the length itself). A buffer
// size above it, or one that would wrap, is a failed allocation, never a
// small buffer.
constexpr std::size_t kMaxBytes =
    static_cast<std::size_t>(std::min<std::uintmax_t>(PTRDIFF_MAX, ULONG_MAX));

}  // namespace

char* CORBA::string_alloc(unsigned long len) {
  if (len > kMaxBytes - 1) throw std::bad_alloc();
  return static_cast<char*>(::operator new (std::size_t{len} + 1));
}

char* CORBA::string_dup(const char* s) {
  if (s == nullptr) return nullptr;
  const std::size_t n = std::strlen(s) + 1;
  char* p = string_alloc(n - 1);
  std::memcpy(p, s, n);
  return p;
}

void CORBA::string_free(char* s) {
  if (s != nullptr && s != krl_internal::_empty_string) ::operator delete(s);
}

unsigned short* CORBA::wstring_alloc(unsigned long len) {
  if (len > kMaxBytes / 2 - 1) throw std::bad_alloc();
  return static_cast<unsigned short*>(::operator new (2 * std::size_t{len} + 2));
}

unsigned short* CORBA::wstring_dup(const unsigned short* s) {
  if (s == nullptr) return nullptr;
  const std::size_t n = krl_internal::wide_length(s);
  unsigned short* p = wstring_alloc(n);
  std::memcpy(p, s, 2 * n + 2);
  return p;
}

void CORBA::wstring_free(unsigned short* s) { ::operator delete(s); }

unsigned long CORBA::hash(const char* s) {
  return s == nullptr ? 0 : krl_internal::shift_xor_hash(s, std::strlen(s));
}

unsigned char CORBA::is_nil(const char* s) { return s == nullptr ? 1 : 0; }
