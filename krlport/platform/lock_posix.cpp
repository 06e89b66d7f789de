// Sleeping and waking for the lock of lock.h, on a Linux futex, with the
// sleepers counted in buckets outside the locks (see lock.h).
#include "krlport/platform/lock.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "krlport/platform/fatal.h"

namespace krl_internal {

LockSleepers g_lock_sleepers[kLockSleeperBuckets];
std::atomic<bool> g_lock_sleepers_fence_all{false};

namespace {

int* futex_word(std::atomic<int>* word) { return reinterpret_cast<int*>(word); }

// The child of a fork() runs one thread: nobody sleeps on any lock there.
void forget_sleepers() {
  for (LockSleepers& b : g_lock_sleepers) b.count.store(0, std::memory_order_relaxed);
}

// Once a process: asks for the expedited process-wide fence and, if the
// system grants it, lets releases drop their own fence. Until this returns,
// no sleeper gets past fencing_all(), so no release can see the flag set
// while a sleeper skipped the fence.
bool start_fencing_all() {
  pthread_atfork(nullptr, nullptr, forget_sleepers);
  if (syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) != 0) return false;
  g_lock_sleepers_fence_all.store(true, std::memory_order_relaxed);
  return true;
}

// Whether sleepers fence every running thread; asked for once a process.
bool fencing_all() {
  static const bool expedited = start_fencing_all();
  return expedited;
}

// Asked at load, so that releases go without their own fence from the
// first; a sleeper that comes earlier asks itself (and others wait for it).
[[maybe_unused]] const bool g_fencing_all_at_load = fencing_all();

// A full fence on every thread of the process that is running now; on a
// system without it, nothing (releases then fence themselves).
void fence_all_threads() {
  if (!fencing_all()) return;
  if (syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0) return;
  // The registration is the process's and survives fork(); should it not,
  // register again.
  if (errno == EPERM &&
      syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0 &&
      syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0) {
    return;
  }
  fatal_error("membarrier", errno);
}

bool try_take(RecursiveLock& l) {
  int expected = 0;
  return l.word.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                        std::memory_order_relaxed);
}

}  // namespace

// A sleeper counts itself, then looks at the word. Until it has fenced every
// running thread, a release may still miss its count (see lock.h), so its
// first sleep is short: a release that missed it freed the word, which the
// sleeper sees when it wakes. Only after the fence does it sleep for good. A
// handover within the first sleep, the common case, costs no fence.
void lock_wait(RecursiveLock& l) {
  constexpr long kUnfencedSleepNs = 100 * 1000;
  std::atomic<int>& sleepers = lock_sleepers(&l);
  bool counted = false;
  bool fenced = false;
  while (!try_take(l)) {
    if (!counted) {
      sleepers.fetch_add(1, std::memory_order_seq_cst);
      counted = true;
      fenced = false;
      continue;  // look at the word once more, now that we are counted
    }
    const timespec unfenced_sleep = {0, kUnfencedSleepNs};
    const long r = syscall(SYS_futex, futex_word(&l.word), FUTEX_WAIT_PRIVATE, 1,
                           fenced ? nullptr : &unfenced_sleep, nullptr, 0);
    if (r == 0) {
      counted = false;  // woken: the waker took us out of the count
    } else if (errno == ETIMEDOUT) {
      if (!fenced) fence_all_threads();
      fenced = true;
    } else if (errno != EAGAIN && errno != EINTR) {
      // EAGAIN: the word changed before we slept; EINTR: a signal.
      fatal_error("futex(FUTEX_WAIT)", errno);
    }
  }
  if (counted) sleepers.fetch_sub(1, std::memory_order_relaxed);
  l.owner.store(current_thread_id(), std::memory_order_relaxed);
  l.depth = 1;
}

void lock_wake(std::atomic<int>* word, std::atomic<int>& sleepers) {
  const long woken =
      syscall(SYS_futex, futex_word(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  if (woken < 0) fatal_error("futex(FUTEX_WAKE)", errno);
  if (woken > 0) sleepers.fetch_sub(static_cast<int>(woken), std::memory_order_relaxed);
}

}  // namespace krl_internal
