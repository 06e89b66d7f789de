// KRLCondition: a condition variable over the caller's KRLMutex.
//
// Each wait makes its own one-shot event and puts it into `_events`; a signal
// takes one event out and sets it, a broadcast sets them all. So there is no
// generation count and nothing to reset, and a signal with no waiter is not
// remembered.
//
// Wake order. signal() takes the event at index 0 and moves the newest one
// into its place: waiters a, b, c, d that arrived in this order wake, under
// four signals, as a, d, c, b. A time-out moves entries the same way.
//
// Time limits. An `unsigned long` counts seconds, an `unsigned long long`
// milliseconds. Seconds are multiplied by 1000 in 32-bit arithmetic, which
// wraps; of milliseconds only the low 32 bits count, so 2^32 ms is a limit of
// 0. 0xFFFFFFFF ms never runs out. timedwait gives 1 on a time-out and 0 when
// woken; wait with a limit throws CORBA_TIMEOUT on a time-out. Limits run on
// the monotonic clock.
//
// Linux has no thread message queue: the _all forms behave as the plain ones.
//
// Lock order: the caller's mutex `m`, then `_mutex`. A wait gives `m` up by
// exactly one level: a caller that holds it recursively keeps the rest while
// it sleeps, so `m` must be held once for others to get in.
#ifndef KRLPORT_THREADS_CONDITION_H_
#define KRLPORT_THREADS_CONDITION_H_

#include <atomic>
#include <cstdint>

#include "krlport/frame/export.h"
#include "krlport/threads/mutex.h"

class KRLCondition;

namespace krl_internal {

// Internal, for tests: the number of registered waiters and the size of the
// array, each read under the condition's own lock, and that lock.
unsigned long condition_waiters(KRLCondition& c);
unsigned long condition_capacity(KRLCondition& c);
KRLMutex& condition_mutex(KRLCondition& c);

}  // namespace krl_internal

// Safe from any thread. Destroying a condition that still has waiters is the
// caller's error.
class KRL_EXPORT KRLCondition {
 public:
  KRLCondition();
  ~KRLCondition();

  // Every wait: the caller holds `m`; the wait gives it up while it sleeps
  // and holds it again when it returns normally. A failing platform call
  // prints its name with perror and throws CORBA_NO_RESOURCES(errno,
  // COMPLETED_NO); then `m` is NOT held again (nor is anything else), so a
  // caller's armed guard over `m` must be disarmed before it unwinds.
  void wait(KRLMutex& m);
  void wait(KRLMutex& m, unsigned long seconds);                // CORBA_TIMEOUT on a time-out
  void wait(KRLMutex& m, unsigned long long ms);                // CORBA_TIMEOUT on a time-out
  unsigned char timedwait(KRLMutex& m, unsigned long seconds);  // 1: timed out
  unsigned char timedwait(KRLMutex& m, unsigned long long ms);  // 1: timed out

  void wait_all(KRLMutex& m);
  void wait_all(KRLMutex& m, unsigned long seconds);
  void wait_all(KRLMutex& m, unsigned long long ms);
  unsigned char timedwait_all(KRLMutex& m, unsigned long seconds);
  unsigned char timedwait_all(KRLMutex& m, unsigned long long ms);

  // Wake the waiter at index 0 (see "Wake order"), or all waiters. The
  // caller need hold no mutex. The forms with a guard then unlock it as
  // g.unlock() does: the mutex is released and the guard disarmed.
  void signal();
  void signal(KRLMutex_var& g);
  void broadcast();
  void broadcast(KRLMutex_var& g);

 private:
  friend unsigned long krl_internal::condition_waiters(KRLCondition& c);
  friend unsigned long krl_internal::condition_capacity(KRLCondition& c);
  friend KRLMutex& krl_internal::condition_mutex(KRLCondition& c);

  KRLCondition(const KRLCondition&) = delete;
  KRLCondition& operator=(const KRLCondition&) = delete;

  // The array. Caller holds `_mutex`. add may throw std::bad_alloc when the
  // array grows, and then changes nothing.
  unsigned long add(void* event);
  void remove(unsigned long index);
  void removeAll();

  // One wait with a limit in milliseconds (kWaitForever: none): 1 on a
  // time-out, 0 when woken.
  unsigned char wait_for(KRLMutex& m, std::uint32_t limit_ms);

  // Guards `_events`, `_count` and `_capacity`. Not the caller's mutex.
  KRLMutex _mutex;
  // Addresses of the events (krl_internal::Event) of the current waiters;
  // each event lives in its waiter's frame. Whoever wakes a waiter takes its
  // entry out. Guarded by `_mutex`.
  void** _events;
  // Entries in use. Written under `_mutex` only. A wait raises it before it
  // gives `m` up, so a signaller that took `m` after that wait sees it raised
  // without `_mutex`: signal and broadcast skip the lock when it is 0.
  std::atomic<unsigned long> _count;
  // Size of `_events`: 4, then 8, 16 and so on. Guarded by `_mutex`.
  unsigned long _capacity;
};

#endif  // KRLPORT_THREADS_CONDITION_H_
