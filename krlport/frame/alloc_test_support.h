// A global operator new and delete that count, can fail and watch one block,
// for the tests that see allocations. The replacement holds program-wide:
// include this header in one file of a test binary of its own.
#ifndef KRLPORT_FRAME_ALLOC_TEST_SUPPORT_H_
#define KRLPORT_FRAME_ALLOC_TEST_SUPPORT_H_

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace krl_test {

// Atomic, as threads of the library allocate too; the tests read them while
// no other thread allocates.
struct Allocations {
  static inline std::atomic<long> news{0}, deletes{0};
  static inline std::atomic<long> fail_in{-1};  // allocations until one throws; -1: none does
  static inline std::atomic<bool> failed{false};
  static inline std::size_t fail_above = SIZE_MAX;  // larger requests throw; set before main
  static inline std::atomic<std::size_t> largest{0};
  // New blocks are filled with garbage, so a zeroed one was zeroed by its
  // user; the deletion of the watched block is reported.
  static inline std::atomic<void*> watched{nullptr};
  static inline std::atomic<bool> watched_deleted{false};
  static long live() { return news - deletes; }

  static void* allocate(std::size_t size) {
    if (size > fail_above || (fail_in >= 0 && fail_in-- == 0)) {
      failed = true;
      throw std::bad_alloc();
    }
    void* p = std::malloc(size != 0 ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    ++news;
    if (size > largest) largest = size;
    return std::memset(p, 0xA5, size);
  }
  static void deallocate(void* p) {
    if (p == nullptr) return;
    ++deletes;
    if (p == watched.load()) watched_deleted = true;
    std::free(p);
  }
};

}  // namespace krl_test

void* operator new(std::size_t n) { return krl_test::Allocations::allocate(n); }
void* operator new[](std::size_t n) { return krl_test::Allocations::allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  try {
    return krl_test::Allocations::allocate(n);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* p) noexcept { krl_test::Allocations::deallocate(p); }
void operator delete[](void* p) noexcept { krl_test::Allocations::deallocate(p); }
void operator delete(void* p, std::size_t) noexcept { krl_test::Allocations::deallocate(p); }
void operator delete[](void* p, std::size_t) noexcept { krl_test::Allocations::deallocate(p); }

#endif  // KRLPORT_FRAME_ALLOC_TEST_SUPPORT_H_
