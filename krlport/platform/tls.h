// Internal: per-thread data of the library's hot paths, reached cheaply on
// every system.
//
// ThreadSlot<T>::get() gives the calling thread's own T, zero at the
// thread's start, or null where it cannot be had (Windows, out of memory).
// T must be trivially copyable and trivially destructible; each T names one
// slot, so give each use a type of its own.
//
// Windows: one TLS index per slot (TlsAlloc, at first use) holding a block
// from the heap, made at the thread's first get() and freed when the thread
// ends; a get() is an out-of-line call and a TlsGetValue. mingw's thread-local
// variables are emulated at several times that cost.
//
// Elsewhere: an initial-exec thread_local, constant-initialised and defined
// here, so that a get() is one thread-pointer-relative address and never
// null.
#ifndef KRLPORT_PLATFORM_TLS_H_
#define KRLPORT_PLATFORM_TLS_H_

#include <cstddef>
#include <type_traits>

namespace krl_internal {

#ifdef _WIN32

// A slot's TLS index plus one, 0 until the first use; changed atomically.
struct ThreadSlotKey {
  unsigned long index_plus_one;
};

// The calling thread's block of `size` zeroed bytes under key, made at first
// need; null if no index or memory could be had.
void* thread_slot_block(ThreadSlotKey* key, std::size_t size);

// For tests: the blocks of all slots that live now, on every thread.
long thread_slot_blocks_alive();

template <class T>
class ThreadSlot {
  static_assert(std::is_trivially_copyable<T>::value && std::is_trivially_destructible<T>::value,
                "a slot's block is zeroed and freed as raw memory");

 public:
  static T* get() { return static_cast<T*>(thread_slot_block(&_key, sizeof(T))); }

 private:
  static inline ThreadSlotKey _key{};
};

#else

template <class T>
class ThreadSlot {
  static_assert(std::is_trivially_copyable<T>::value && std::is_trivially_destructible<T>::value,
                "a slot is constant-initialised and needs no clean-up");

 public:
  static T* get() { return &_value; }

 private:
  static inline thread_local T _value __attribute__((tls_model("initial-exec"))){};
};

#endif

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_TLS_H_
