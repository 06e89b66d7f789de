/// @file
/// KRLCondition: a condition variable over the caller's KRLMutex.
///
/// Each wait makes its own one-shot event and puts it into `_events`; a signal
/// takes one event out and sets it, a broadcast sets them all. So there is no
/// generation count and nothing to reset, and a signal with no waiter is not
/// remembered.
///
/// Wake order. signal() takes the event at index 0 and moves the newest one
/// into its place: waiters a, b, c, d that arrived in this order wake, under
/// four signals, as a, d, c, b. A time-out moves entries the same way.
///
/// Time limits. An `unsigned long` counts seconds, an `unsigned long long`
/// milliseconds. Seconds are multiplied by 1000 in 32-bit arithmetic, which
/// wraps; of milliseconds only the low 32 bits count, so 2^32 ms is a limit of
/// 0. 0xFFFFFFFF ms never runs out. timedwait gives 1 on a time-out and 0 when
/// woken; wait with a limit throws CORBA_TIMEOUT on a time-out. Limits run on
/// the monotonic clock.
///
/// The _all forms also receive the calling thread's window messages while
/// they wait and dispatch them, with neither `m` nor the condition's own lock
/// held; each batch of messages starts the full limit again. Where threads
/// have no message queue (Linux) they behave as the plain forms.
///
/// Lock order: the caller's mutex `m`, then `_mutex`. A wait gives `m` up by
/// exactly one level: a caller that holds it recursively keeps the rest while
/// it sleeps, so `m` must be held once for others to get in.
///
/// Lifetime: a woken waiter may destroy the condition at once. A waker takes
/// the waiters' entries out under `_mutex`, releases it, and only then sets
/// their events; from the release on it touches nothing of the condition,
/// only the waiters' own records, each of which lives until its event is set.
#ifndef KRLPORT_THREADS_CONDITION_H_
#define KRLPORT_THREADS_CONDITION_H_

#include <atomic>
#include <cstdint>

#include "krlport/frame/export.h"
#include "krlport/threads/mutex.h"

class KRLCondition;

namespace krl_internal {

// Internal: a waiter's record, in its own frame.
struct ConditionWaiter;

// Internal: reaches the private members of KRLCondition
// (krlport/threads/condition_internal.h).
struct ConditionAccess;

}  // namespace krl_internal

/// Safe from any thread. Destroying a condition that still has waiters is the
/// caller's error.
class KRL_EXPORT KRLCondition {
 public:
  KRLCondition();
  ~KRLCondition();

  /// @name Waits
  /// Every wait: the caller holds `m`; the wait gives it up while it sleeps
  /// and holds it again when it returns normally. A failing platform call
  /// prints its name with perror and throws CORBA_NO_RESOURCES(errno,
  /// COMPLETED_NO); then `m` is not held again (nor is anything else). A
  /// caller's armed guard over `m` may unwind as it is: an unlock by a thread
  /// that does not hold `m` does nothing.
  ///@{

  /// Waits with no time limit.
  void wait(KRLMutex& m);
  void wait(KRLMutex& m, unsigned long seconds);                ///< CORBA_TIMEOUT on a time-out
  void wait(KRLMutex& m, unsigned long long ms);                ///< CORBA_TIMEOUT on a time-out
  unsigned char timedwait(KRLMutex& m, unsigned long seconds);  ///< 1: timed out
  unsigned char timedwait(KRLMutex& m, unsigned long long ms);  ///< 1: timed out
  ///@}

  /// As wait(m), dispatching the thread's window messages meanwhile.
  void wait_all(KRLMutex& m);
  /// As wait(m, seconds).
  void wait_all(KRLMutex& m, unsigned long seconds);
  /// As wait(m, ms).
  void wait_all(KRLMutex& m, unsigned long long ms);
  /// As timedwait(m, seconds).
  unsigned char timedwait_all(KRLMutex& m, unsigned long seconds);
  /// As timedwait(m, ms).
  unsigned char timedwait_all(KRLMutex& m, unsigned long long ms);

  /// Wake the waiter at index 0 (see "Wake order"), or all waiters. The
  /// caller need hold no mutex. The forms with a guard then unlock it as
  /// g.unlock() does: the mutex is released and the guard disarmed.
  void signal();
  /// signal(), then g.unlock().
  void signal(KRLMutex_var& g);
  /// Wakes every waiter registered at the call.
  void broadcast();
  /// broadcast(), then g.unlock().
  void broadcast(KRLMutex_var& g);

 private:
  friend struct krl_internal::ConditionAccess;

  KRLCondition(const KRLCondition&) = delete;
  KRLCondition& operator=(const KRLCondition&) = delete;

  // The array. Caller holds `_mutex`. add may throw std::bad_alloc when the
  // array grows, and then changes nothing.
  unsigned long add(void* event);
  void remove(unsigned long index);
  void removeAll();

  // The halves of signal and broadcast before the wake-up: see
  // krl_internal::condition_take_one and condition_take_all (internal).
  krl_internal::ConditionWaiter* take_one();
  krl_internal::ConditionWaiter* take_all();

  // One wait with a limit in milliseconds (kWaitForever: none): 1 on a
  // time-out, 0 when woken. With pump, the thread's window messages are
  // dispatched meanwhile, on systems that have them.
  unsigned char wait_for(KRLMutex& m, std::uint32_t limit_ms, bool pump);

  // Guards `_events`, `_count` and `_capacity`. Not the caller's mutex.
  KRLMutex _mutex;
  // Addresses of the records (krl_internal::ConditionWaiter, an event and a
  // link) of the current waiters; each lives in its waiter's frame. Whoever
  // wakes a waiter takes its entry out. Guarded by `_mutex`.
  void** _events;
  // Entries in use. Written under `_mutex` only. A wait raises it before it
  // gives `m` up, so a signaller that took `m` after that wait sees it raised
  // without `_mutex`: signal and broadcast skip the lock when it is 0.
  std::atomic<unsigned long> _count;
  // Size of `_events`: 4, then 8, 16 and so on. Guarded by `_mutex`.
  unsigned long _capacity;
};

#endif  // KRLPORT_THREADS_CONDITION_H_
