// The event as a futex word (futex(2)). A limited wait sleeps with
// FUTEX_WAIT_BITSET and an absolute CLOCK_MONOTONIC deadline, so a wait that
// a signal interrupts goes back to sleep for exactly the time that is left,
// and a change of the wall clock does not move the deadline.
#include "krlport/platform/event.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "krlport/platform/fatal.h"

namespace krl_internal {
namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
                  std::atomic<std::uint32_t>::is_always_lock_free,
              "the kernel sees the event word as a plain 32-bit futex");
static_assert(sizeof(EventDeadline) == sizeof(timespec) &&
                  sizeof(EventDeadline::seconds) == sizeof(timespec::tv_sec) &&
                  sizeof(EventDeadline::nanoseconds) == sizeof(timespec::tv_nsec) &&
                  offsetof(EventDeadline, nanoseconds) == offsetof(timespec, tv_nsec),
              "EventDeadline is laid out as timespec");

std::atomic<EventSleepCall> g_sleep_call{&event_futex_sleep};

// Polls before a sleep, where another processor may answer: a few thousand
// loads of a word in the poller's cache, a microsecond or two, against the
// two system calls and the switch of a sleep and its wake-up. -1 until the
// first call counts the processors.
constexpr int kSpinPolls = 4000;
std::atomic<int> g_spin_polls{-1};

// The kernel reads the futex word through its address; std::atomic of a
// lock-free 32-bit type has the layout of the plain word.
std::uint32_t* futex_address(std::atomic<std::uint32_t>* word) {
  return reinterpret_cast<std::uint32_t*>(word);
}

EventDeadline deadline_after(std::uint32_t ms) {
  timespec now;
  // CLOCK_MONOTONIC exists on every Linux this library runs on.
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) fatal_error("clock_gettime", errno);
  EventDeadline t{static_cast<long long>(now.tv_sec) + ms / 1000,
                  static_cast<long long>(now.tv_nsec) + (ms % 1000) * 1000000LL};
  if (t.nanoseconds >= 1000000000LL) {
    t.nanoseconds -= 1000000000LL;
    ++t.seconds;
  }
  return t;
}

}  // namespace

int event_futex_sleep(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                      const EventDeadline* deadline) {
  return static_cast<int>(syscall(SYS_futex, futex_address(word),
                                  FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected, deadline,
                                  nullptr, FUTEX_BITSET_MATCH_ANY));
}

EventSleepCall set_event_sleep_call(EventSleepCall call) {
  return g_sleep_call.exchange(call != nullptr ? call : &event_futex_sleep);
}

int spin_polls() {
  int polls = g_spin_polls.load(std::memory_order_relaxed);
  if (polls < 0) {
    // Online processors, not this thread's affinity: a thread pinned to one
    // processor still has partners on the others.
    polls = get_nprocs() > 1 ? kSpinPolls : 0;
    g_spin_polls.store(polls, std::memory_order_relaxed);
  }
  return polls;
}

void Event::set() {
  std::atomic<std::uint32_t>* const word = &_word;
  if (word->exchange(kSet, std::memory_order_release) != kSleeping) return;
  // From here on the event may be gone: only its address is used.
  if (syscall(SYS_futex, futex_address(word), FUTEX_WAKE | FUTEX_PRIVATE_FLAG, 1, nullptr, nullptr,
              0) < 0) {
    fatal_error("futex(FUTEX_WAKE)", errno);
  }
}

EventWait Event::wait(std::uint32_t limit_ms) {
  std::uint32_t word = _word.load(std::memory_order_acquire);
  if (word == kSet) return EventWait::kSignalled;
  if (limit_ms == 0) return EventWait::kTimedOut;
  EventDeadline deadline;
  const EventDeadline* limit = nullptr;
  if (limit_ms != kWaitForever) {
    deadline = deadline_after(limit_ms);
    limit = &deadline;
  }
  for (int n = spin_polls(); n > 0; --n) {
    if (_word.load(std::memory_order_acquire) == kSet) return EventWait::kSignalled;
  }
  // Announce the sleep; failing that, the setter came first.
  if (!_word.compare_exchange_strong(word, kSleeping, std::memory_order_acquire)) {
    return EventWait::kSignalled;
  }
  const EventSleepCall sleep = g_sleep_call.load(std::memory_order_relaxed);
  for (;;) {
    const int result = sleep(&_word, kSleeping, limit);
    const int err = errno;
    if (_word.load(std::memory_order_acquire) == kSet) return EventWait::kSignalled;
    // 0 without the word set is a spurious wake-up; EAGAIN cannot happen
    // without the set, but is harmless; EINTR sleeps again until the same
    // deadline.
    if (result == 0 || err == EAGAIN || err == EINTR) continue;
    if (err == ETIMEDOUT) return EventWait::kTimedOut;
    errno = err;
    return EventWait::kFailed;
  }
}

}  // namespace krl_internal
