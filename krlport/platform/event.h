// Internal: the one-shot event a thread sleeps on in one wait of a
// KRLCondition (CreateEvent, SetEvent, WaitForSingleObject, CloseHandle).
//
// An event is made for one wait and one waiter: the waiter constructs it,
// publishes its address, waits on it and destroys it; any thread may set it.
// Once set it stays set. Here it is a single futex word, so it needs no
// system object: construction cannot fail, destruction closes nothing, and
// the event can live in the waiter's stack frame.
//
// Lifetime against the setter. set() changes the word with one atomic
// exchange and afterwards uses only the word's address, which it hands to
// FUTEX_WAKE. A wake of a private futex neither reads nor writes user memory,
// so the waiter may destroy the event as soon as it has seen the word set,
// even while the setter is still inside set(). If the memory is reused for
// another futex before the wake arrives, that futex sees a spurious wake-up,
// which every futex user tolerates (ours re-check their word, and so do
// glibc's; see futex(2), "spurious wake-ups").
#ifndef KRLPORT_PLATFORM_EVENT_H_
#define KRLPORT_PLATFORM_EVENT_H_

#include <time.h>

#include <atomic>
#include <cstdint>

namespace krl_internal {

// The limit of a wait that never times out (INFINITE).
constexpr std::uint32_t kWaitForever = 0xFFFFFFFFu;

enum class EventWait { kSignalled, kTimedOut, kFailed };

class Event {
 public:
  Event() : _word(kClear) {}  // not set
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // Sets the event and wakes its waiter if it sleeps. Safe from any thread;
  // see the note on lifetime above.
  void set();

  // Blocks the owning thread until the event is set or limit_ms milliseconds
  // have passed on CLOCK_MONOTONIC; kWaitForever never times out and 0 only
  // tests. A signal to the thread does not end the wait early. A set that
  // meets the time-out counts as signalled. kFailed leaves the cause in errno.
  EventWait wait(std::uint32_t limit_ms);

 private:
  // kClear: not set, nobody sleeps. kSleeping: not set, the waiter sleeps or
  // is about to, so set() must wake it. kSet: set; final.
  static constexpr std::uint32_t kClear = 0;
  static constexpr std::uint32_t kSet = 1;
  static constexpr std::uint32_t kSleeping = 2;

  std::atomic<std::uint32_t> _word;
};

// Internal, for tests: the call that puts a waiter to sleep while *word is
// still `expected`, until the CLOCK_MONOTONIC time *deadline, or for good if
// deadline is null. Returns 0, or -1 with errno as FUTEX_WAIT_BITSET gives it
// (EAGAIN, EINTR and ETIMEDOUT are expected; anything else fails the wait).
using EventSleepCall = int (*)(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                               const timespec* deadline);
// The futex call itself.
int event_futex_sleep(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                      const timespec* deadline);
// Makes waits sleep through call (null restores event_futex_sleep) and gives
// the previous one. Set it only while no wait runs.
EventSleepCall set_event_sleep_call(EventSleepCall call);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_EVENT_H_
