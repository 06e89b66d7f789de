// Internal: the library's one set of atomic operations on plain objects.
//
// For words that are declared as plain integers or pointers (public layouts
// such as a spin lock's `long`, a thread id's `unsigned long`), where
// std::atomic cannot stand in the type. New code that owns its layout uses
// std::atomic instead.
//
// Every operation names its memory order; they map one to one onto the
// compiler's atomic operations, which GCC and Clang give for both systems
// the library builds for. exchange() of a `long` is InterlockedExchange on
// Windows: mingw-w64 implements that as the same locked exchange. T must be
// an integer or a pointer whose atomic form is lock-free.
#ifndef KRLPORT_PLATFORM_ATOMIC_H_
#define KRLPORT_PLATFORM_ATOMIC_H_

namespace krl_internal {

enum class MemoryOrder : int {
  kRelaxed = __ATOMIC_RELAXED,
  kAcquire = __ATOMIC_ACQUIRE,
  kRelease = __ATOMIC_RELEASE,
  kAcqRel = __ATOMIC_ACQ_REL,
  kSeqCst = __ATOMIC_SEQ_CST,
};

// T may be a pointer: the size of the word itself is meant.
template <class T>
constexpr bool kLockFree = __atomic_always_lock_free(sizeof(T),
                                                     0);  // NOLINT(bugprone-sizeof-expression)

template <class T>
inline T atomic_load(const T* p, MemoryOrder order) {
  static_assert(kLockFree<T>, "lock-free words only");
  return __atomic_load_n(p, static_cast<int>(order));
}

template <class T>
inline void atomic_store(T* p, T value, MemoryOrder order) {
  static_assert(kLockFree<T>, "lock-free words only");
  __atomic_store_n(p, value, static_cast<int>(order));
}

// Stores value and gives the word's previous value.
template <class T>
inline T atomic_exchange(T* p, T value, MemoryOrder order) {
  static_assert(kLockFree<T>, "lock-free words only");
  return __atomic_exchange_n(p, value, static_cast<int>(order));
}

// Stores desired if the word holds *expected; else loads the word into
// *expected. A weak exchange may fail spuriously (use it in a loop).
template <class T>
inline bool atomic_compare_exchange(T* p, T* expected, T desired, bool weak, MemoryOrder success,
                                    MemoryOrder failure) {
  static_assert(kLockFree<T>, "lock-free words only");
  return __atomic_compare_exchange_n(p, expected, desired, weak, static_cast<int>(success),
                                     static_cast<int>(failure));
}

// Adds value and gives the new value.
template <class T>
inline T atomic_add_fetch(T* p, T value, MemoryOrder order) {
  static_assert(kLockFree<T>, "lock-free words only");
  return __atomic_add_fetch(p, value, static_cast<int>(order));
}

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_ATOMIC_H_
