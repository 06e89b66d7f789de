// Internal: the platform's recursive lock, the object behind KRLMutex.
//
// A lock is owned by the thread that acquired it and is recursive: the owner
// may acquire it again and must release it as often. It lives in room the
// caller keeps (kLockRoomSize bytes aligned to kLockRoomAlign; KRLMutex holds
// it opaque), constructed there in place. The platform layer knows the room
// only through LockRoom pointers, never the caller's type.
//
// Misuse that Windows tolerates is harmless on every system: a release by a
// thread that does not own the lock changes nothing (a caller's guard may
// unlock a mutex that a failed condition wait already gave up), and a lock
// may be destroyed while its own thread holds it (DeleteCriticalSection;
// exit() inside a critical section over a static mutex).
//
// Windows: a CRITICAL_SECTION, out of line in lock_win.cpp.
//
// Elsewhere: one word says whether the lock is held; the owner's thread id
// and the depth sit beside it. The fast paths below (free lock, re-entry,
// release) are inline and make no system call; a thread that finds the lock
// held sleeps in the system's wait-on-address call, out of line in
// lock_posix.cpp.
//
// Sleepers are counted outside the lock, in one of a few process-wide
// buckets chosen by the lock's address, so that a release is a plain store
// followed by a plain load of its bucket: no locked instruction. The store and
// the load could pass each other in the processor; a sleeper makes that
// harmless by forcing a full fence on every running thread of the process
// (membarrier) after counting itself and before it looks at the word, so
// either the release sees the count or the sleeper sees the word free. Where
// the system has no such call, a release fences itself. A count shared by
// several locks only costs a wake-up call that finds nobody.
//
// Lifetime: a release's last touch of the lock is the store that frees the
// word. After it, it reads only its bucket (never freed) and may hand the
// kernel the word's address, and a FUTEX_WAKE of a private futex reads no user
// memory, so the thread that gets the lock next may destroy it at once.
#ifndef KRLPORT_PLATFORM_LOCK_H_
#define KRLPORT_PLATFORM_LOCK_H_

#include <cstddef>
#include <cstdint>

#include "krlport/platform/thread.h"

#ifndef _WIN32
#include <atomic>
#include <new>
#endif

namespace krl_internal {

// The caller's room for one lock; only ever used through pointers.
struct LockRoom;
constexpr std::size_t kLockRoomSize = 40;
constexpr std::size_t kLockRoomAlign = 8;

#ifdef _WIN32

// The same operations as the inline ones below, with the same contracts:
// init constructs a free lock in r; destroy ends it, held by the caller or
// free, and checks nothing; try_acquire takes it if it is free or already the
// caller's, else gives false at once; acquire blocks until the caller owns
// it, or adds a level; release gives up one level, and does nothing from a
// thread that does not own the lock. lock_held, for tests: whether some
// thread holds it now.
void lock_init(LockRoom* r);
void lock_destroy(LockRoom* r);
bool lock_try_acquire(LockRoom* r);
void lock_acquire(LockRoom* r);
void lock_release(LockRoom* r);
bool lock_held(LockRoom* r);

#else

struct RecursiveLock {
  // 0 free, 1 held.
  std::atomic<int> word;
  // Id of the owner thread, 0 while free. Written by the owner only; any
  // thread may read it, and only the owner can find its own id there.
  std::atomic<unsigned long> owner;
  // Levels the owner holds. Touched by the owner only.
  unsigned long depth;
};

static_assert(sizeof(RecursiveLock) <= kLockRoomSize, "the room must hold the lock");
static_assert(alignof(RecursiveLock) <= kLockRoomAlign, "the room is under-aligned");
static_assert(std::atomic<int>::is_always_lock_free && sizeof(std::atomic<int>) == sizeof(int),
              "the system waits on the word as on a plain int");

inline RecursiveLock& recursive_lock(LockRoom* r) {
  return *std::launder(reinterpret_cast<RecursiveLock*>(r));
}

// Threads asleep on, or on their way to sleep on, the locks of one bucket.
// A sleeper adds itself; whoever wakes it takes it out. Own cache line each:
// releases of unrelated locks read them.
struct alignas(64) LockSleepers {
  std::atomic<int> count;
};
constexpr std::size_t kLockSleeperBuckets = 64;
extern LockSleepers g_lock_sleepers[kLockSleeperBuckets];

inline std::atomic<int>& lock_sleepers(const RecursiveLock* l) {
  const auto line = reinterpret_cast<std::uintptr_t>(l) / 64;
  return g_lock_sleepers[line % kLockSleeperBuckets].count;
}

// True once sleepers fence every running thread (see above); never goes back
// to false. While false, a release fences itself.
extern std::atomic<bool> g_lock_sleepers_fence_all;

// Slow paths, in lock_<system>.cpp. Out of line whole, so that the inline
// fast paths need no registers saved around a call that they rarely make.
void lock_wait(RecursiveLock& l);  // takes a held word, sleeping while held, and owns it
// Wakes one sleeper on the word and takes it out of sleepers. Uses the word's
// address only.
void lock_wake(std::atomic<int>* word, std::atomic<int>& sleepers);

// Constructs a free lock in s.
inline void lock_init(LockRoom* r) {
  RecursiveLock* l = new (r) RecursiveLock;
  l->word.store(0, std::memory_order_relaxed);
  l->owner.store(0, std::memory_order_relaxed);
  l->depth = 0;
}

// Destroys the lock in s. Nobody may wait on it; the calling thread may hold
// it. Nothing is checked: a process may exit inside a critical section, or
// while detached threads still hold a static mutex, and its exit must not
// turn into an abort.
inline void lock_destroy(LockRoom* r) { recursive_lock(r).~RecursiveLock(); }

// As lock_acquire if the lock is free or already the caller's; otherwise
// returns false at once without blocking.
inline bool lock_try_acquire(LockRoom* r) {
  RecursiveLock& l = recursive_lock(r);
  const unsigned long self = current_thread_id();
  if (l.owner.load(std::memory_order_relaxed) != self) {
    int expected = 0;
    if (!l.word.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
      return false;
    }
    l.owner.store(self, std::memory_order_relaxed);
  }
  ++l.depth;
  return true;
}

// Blocks until the calling thread owns the lock; adds one level if it
// already does.
inline void lock_acquire(LockRoom* r) {
  if (!lock_try_acquire(r)) lock_wait(recursive_lock(r));
}

// Gives up one level of the caller's: a caller that held it n times still
// holds it n - 1 times. From a thread that does not own the lock (it cannot
// find its own id in `owner`), it does nothing.
inline void lock_release(LockRoom* r) {
  RecursiveLock& l = recursive_lock(r);
  const unsigned long self = current_thread_id();
  // The lock is read only after the id is known: nothing of it then lives
  // across the call that fills a thread's id cache, which keeps the common
  // path free of saved registers.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (l.owner.load(std::memory_order_relaxed) != self) return;
  if (--l.depth != 0) return;
  l.owner.store(0, std::memory_order_relaxed);
  std::atomic<int>* const word = &l.word;
  std::atomic<int>& sleepers = lock_sleepers(&l);
  // From the store on, the lock may belong to another thread, which may
  // destroy it: only the word's address is used.
  word->store(0, std::memory_order_release);
  // The store must reach memory before the load below reads the count:
  // sleepers see to it on the processor, this fence keeps the compiler from
  // swapping the two.
  if (g_lock_sleepers_fence_all.load(std::memory_order_relaxed)) {
    std::atomic_signal_fence(std::memory_order_seq_cst);
  } else {
    std::atomic_thread_fence(std::memory_order_seq_cst);
  }
  if (sleepers.load(std::memory_order_relaxed) != 0) lock_wake(word, sleepers);
}

inline bool lock_held(LockRoom* r) { return recursive_lock(r).word.load() != 0; }

#endif  // _WIN32

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_LOCK_H_
