// CORBA::string_* and wstring_*: the one allocator pair for strings that cross
// the library boundary, and the string hash of dictionary keys.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "krlport/frame/corba.h"
#include "krlport/frame/empty_string.h"
#include "krlport/frame/string_hash.h"
#include "krlport/frame/utf16.h"
#include "krlport/platform/heap.h"

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

namespace {

// Narrow strings come from the global operator new and go back to operator
// delete. Where those are the runtime's own, malloc behind the new-handler
// loop and free, the string functions call malloc and free themselves: the
// same blocks from the same heap, without a call through operator new's
// wrapper in another library each way. A failed malloc goes on through
// operator new, so the handler loop and std::bad_alloc stay as they were.
// Replaced ones (by the host, a sanitizer) are always called.
enum : int { kHeapUnknown, kHeapMalloc, kHeapOperatorNew };
std::atomic<int> g_heap{kHeapUnknown};  // constant-initialised: nothing runs at load

// Found on first use; racing first uses find the same answer.
[[gnu::noinline, gnu::cold]] bool find_narrow_heap() {
  const bool malloc = krl_internal::global_new_is_malloc();
  g_heap.store(malloc ? kHeapMalloc : kHeapOperatorNew, std::memory_order_relaxed);
  return malloc;
}

inline bool narrow_heap_is_malloc() {
  const int heap = g_heap.load(std::memory_order_relaxed);
  if (heap == kHeapMalloc) return true;
  return heap == kHeapUnknown && find_narrow_heap();
}

char* allocate_narrow(std::size_t bytes) {
  if (narrow_heap_is_malloc()) {
    if (void* p = std::malloc(bytes)) return static_cast<char*>(p);
  }
  return static_cast<char*>(::operator new(bytes));
}

}  // namespace

char* CORBA::string_alloc(unsigned long len) {
  if (len > kMaxBytes - 1) throw std::bad_alloc();
  return allocate_narrow(std::size_t{len} + 1);
}

char* CORBA::string_dup(const char* s) {
  if (s == nullptr) return nullptr;
  const std::size_t n = std::strlen(s) + 1;  // no object is larger than kMaxBytes
  return static_cast<char*>(std::memcpy(allocate_narrow(n), s, n));
}

void CORBA::string_free(char* s) {
  if (s == nullptr || s == krl_internal::_empty_string) return;
  if (narrow_heap_is_malloc()) {
    std::free(s);
  } else {
    ::operator delete(s);
  }
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
  return s == nullptr ? 0 : krl_internal::shift_xor_hash_text(s);
}

unsigned char CORBA::is_nil(const char* s) { return s == nullptr ? 1 : 0; }
