// Sleeping and waking for the lock of lock.h, on a Linux futex: the classic
// three-state mutex of Drepper, "Futexes Are Tricky" (2011), mutex3.
#include "krlport/platform/lock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "krlport/platform/fatal.h"

namespace krl_internal {
namespace {

int* futex_word(std::atomic<int>* word) { return reinterpret_cast<int*>(word); }

}  // namespace

void lock_wait(RecursiveLock& l) {
  // Marking the word 2 before sleeping makes the owner's release wake us.
  while (l.word.exchange(2, std::memory_order_acquire) != 0) {
    const long r =
        syscall(SYS_futex, futex_word(&l.word), FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
    // EAGAIN: the word changed before we slept; EINTR: a signal. Both retry.
    if (r != 0 && errno != EAGAIN && errno != EINTR) fatal_error("futex(FUTEX_WAIT)", errno);
  }
  l.owner.store(current_thread_id(), std::memory_order_relaxed);
  l.depth = 1;
}

void lock_wake(std::atomic<int>* word) {
  if (syscall(SYS_futex, futex_word(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0) < 0) {
    fatal_error("futex(FUTEX_WAKE)", errno);
  }
}

}  // namespace krl_internal
