#include "krlport/threads/condition.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/event.h"
#include "krlport/platform/thread.h"
#include "krlport/threads/condition_internal.h"
#include "krlport/threads/mutex_internal.h"

using krl_internal::ConditionWaiter;
using krl_internal::Event;
using krl_internal::EventWait;
using krl_internal::lock_acquire;
using krl_internal::lock_release;
using krl_internal::lock_room;

namespace krl_internal {

// One wait's record. The waker links taken records through `next` under the
// condition's lock and reads a record's `next` before it sets its event: once
// set, the record may be gone.
struct ConditionWaiter {
  Event event;
  ConditionWaiter* next = nullptr;
};

}  // namespace krl_internal

namespace {

constexpr unsigned long kInitialCapacity = 4;

// The forms in seconds pass t * 1000, computed on 32 bits, which wraps.
unsigned long long seconds_to_ms(unsigned long t) {
  return static_cast<std::uint32_t>(t) * std::uint32_t{1000};
}

// Takes the caller's mutex back at the end of a wait. A waker often signals
// under `m` and is a few instructions from releasing it (into its own wait,
// or an unlock), so polling for the release spares this thread a sleep on
// `m` right after its wake-up, and the waker the call that would wake it.
void take_back(krl_internal::LockRoom* r) {
  if (krl_internal::lock_try_acquire(r)) return;
  for (int n = krl_internal::spin_polls(); n > 0 && krl_internal::lock_held(r); --n) {
  }
  lock_acquire(r);
}

// Throws CORBA_NO_RESOURCES for the error in errno, after perror(call).
[[noreturn]] void fail(const char* call) {
  const int err = errno;
  std::perror(call);
  throw CORBA_NO_RESOURCES(static_cast<unsigned long>(err), CORBA::COMPLETED_NO);
}

}  // namespace

KRLCondition::KRLCondition()
    : _events(new void*[kInitialCapacity]), _count(0), _capacity(kInitialCapacity) {}

// The events live in their waiters' frames: there is nothing to close.
KRLCondition::~KRLCondition() { delete[] _events; }

unsigned long KRLCondition::add(void* event) {
  const unsigned long n = _count.load(std::memory_order_relaxed);
  if (n >= _capacity) {
    void** grown = new void*[_capacity * 2];
    std::copy(_events, _events + n, grown);
    delete[] _events;
    _events = grown;
    _capacity *= 2;
  }
  _events[n] = event;
  _count.store(n + 1, std::memory_order_relaxed);
  return n;
}

void KRLCondition::remove(unsigned long index) {
  const unsigned long n = _count.load(std::memory_order_relaxed) - 1;
  _count.store(n, std::memory_order_relaxed);
  if (index != n) _events[index] = _events[n];
}

void KRLCondition::removeAll() { _count.store(0, std::memory_order_relaxed); }

unsigned char KRLCondition::wait_for(KRLMutex& m, std::uint32_t limit_ms, bool pump) {
  // The event lives in this frame. Only an event object of the system can
  // fail to be made; the caller then holds neither m nor _mutex.
  ConditionWaiter self;
  if (!self.event.ok()) {
    const int err = errno;
    lock_release(lock_room(m._cs));
    errno = err;
    fail("CreateEvent");
  }
  // The entry goes in while the caller still holds `m`: a thread that takes
  // `m` after it is given up and signals finds the event in the array, so no
  // wake-up is lost, and it finds `_count` raised without taking `_mutex`.
  // `_mutex` goes before `m`, so that a thread that gets `m` and signals at
  // once does not find `_mutex` still held. A growth that fails leaves the
  // caller as it was.
  lock_acquire(lock_room(_mutex._cs));
  try {
    add(&self);
  } catch (...) {
    lock_release(lock_room(_mutex._cs));
    throw;
  }
  lock_release(lock_room(_mutex._cs));
  lock_release(lock_room(m._cs));

  const EventWait result = pump ? self.event.wait_pumping(limit_ms) : self.event.wait(limit_ms);
  if (result == EventWait::kSignalled) {
    // The waker took the entry out and touches this condition no more.
    take_back(lock_room(m._cs));
    return 0;
  }
  const int err = errno;
  lock_acquire(lock_room(_mutex._cs));
  bool taken = true;
  const unsigned long n = _count.load(std::memory_order_relaxed);
  for (unsigned long i = 0; i < n; ++i) {
    if (_events[i] == &self) {
      remove(i);
      taken = false;
      break;
    }
  }
  lock_release(lock_room(_mutex._cs));
  if (taken) {
    // A signal took the entry after the time ran out (or the sleep failed)
    // and is spent. Its waker sets the event after releasing `_mutex`, so
    // this frame must outlive that set; the waker does not block in between.
    while (self.event.wait(krl_internal::kWaitForever) != EventWait::kSignalled) {
      krl_internal::yield_processor();
    }
  }
  if (result == EventWait::kTimedOut) {
    take_back(lock_room(m._cs));
    return 1;
  }
  errno = err;
  fail(pump ? "MsgWaitForMultipleObjects" : "WaitForSingleObject");
}

void KRLCondition::wait(KRLMutex& m) { wait_for(m, krl_internal::kWaitForever, false); }

void KRLCondition::wait(KRLMutex& m, unsigned long seconds) { wait(m, seconds_to_ms(seconds)); }

void KRLCondition::wait(KRLMutex& m, unsigned long long ms) {
  if (timedwait(m, ms) != 0) throw CORBA_TIMEOUT();
}

unsigned char KRLCondition::timedwait(KRLMutex& m, unsigned long seconds) {
  return timedwait(m, seconds_to_ms(seconds));
}

// Only the low 32 bits of the limit are read.
unsigned char KRLCondition::timedwait(KRLMutex& m, unsigned long long ms) {
  return wait_for(m, static_cast<std::uint32_t>(ms), false);
}

void KRLCondition::wait_all(KRLMutex& m) { wait_for(m, krl_internal::kWaitForever, true); }

void KRLCondition::wait_all(KRLMutex& m, unsigned long seconds) {
  wait_all(m, seconds_to_ms(seconds));
}

void KRLCondition::wait_all(KRLMutex& m, unsigned long long ms) {
  if (timedwait_all(m, ms) != 0) throw CORBA_TIMEOUT();
}

unsigned char KRLCondition::timedwait_all(KRLMutex& m, unsigned long seconds) {
  return timedwait_all(m, seconds_to_ms(seconds));
}

unsigned char KRLCondition::timedwait_all(KRLMutex& m, unsigned long long ms) {
  return wait_for(m, static_cast<std::uint32_t>(ms), true);
}

ConditionWaiter* KRLCondition::take_one() {
  if (_count.load(std::memory_order_relaxed) == 0) return nullptr;
  ConditionWaiter* taken = nullptr;
  lock_acquire(lock_room(_mutex._cs));
  if (_count.load(std::memory_order_relaxed) != 0) {
    taken = static_cast<ConditionWaiter*>(_events[0]);
    remove(0);
    taken->next = nullptr;
  }
  lock_release(lock_room(_mutex._cs));
  return taken;
}

ConditionWaiter* KRLCondition::take_all() {
  if (_count.load(std::memory_order_relaxed) == 0) return nullptr;
  ConditionWaiter* first = nullptr;
  lock_acquire(lock_room(_mutex._cs));
  // Linked from the last entry back, so that the events are set from index 0
  // upward.
  for (unsigned long i = _count.load(std::memory_order_relaxed); i-- > 0;) {
    ConditionWaiter* w = static_cast<ConditionWaiter*>(_events[i]);
    w->next = first;
    first = w;
  }
  removeAll();
  lock_release(lock_room(_mutex._cs));
  return first;
}

// The waiters go out of the array under `_mutex` and are woken after its
// release: a woken waiter may destroy the condition at once.
void KRLCondition::signal() {
  if (_count.load(std::memory_order_relaxed) == 0) return;  // nobody to wake
  krl_internal::condition_wake(take_one());
}

void KRLCondition::signal(KRLMutex_var& g) {
  signal();
  g.unlock();
}

void KRLCondition::broadcast() {
  if (_count.load(std::memory_order_relaxed) == 0) return;
  krl_internal::condition_wake(take_all());
}

void KRLCondition::broadcast(KRLMutex_var& g) {
  broadcast();
  g.unlock();
}

namespace krl_internal {

struct ConditionAccess {
  static ConditionWaiter* take_one(KRLCondition& c) { return c.take_one(); }
  static ConditionWaiter* take_all(KRLCondition& c) { return c.take_all(); }
  static unsigned long waiters(KRLCondition& c) {
    KRLMutex_var hold(c._mutex, 1);
    return c._count.load(std::memory_order_relaxed);
  }
  static unsigned long capacity(KRLCondition& c) {
    KRLMutex_var hold(c._mutex, 1);
    return c._capacity;
  }
  static KRLMutex& mutex(KRLCondition& c) { return c._mutex; }
};

ConditionWaiter* condition_take_one(KRLCondition& c) { return ConditionAccess::take_one(c); }
ConditionWaiter* condition_take_all(KRLCondition& c) { return ConditionAccess::take_all(c); }

void condition_wake(ConditionWaiter* taken) {
  while (taken != nullptr) {
    ConditionWaiter* const next = taken->next;
    taken->event.set();  // from here on `taken` may be gone
    taken = next;
  }
}

unsigned long condition_waiters(KRLCondition& c) { return ConditionAccess::waiters(c); }
unsigned long condition_capacity(KRLCondition& c) { return ConditionAccess::capacity(c); }
KRLMutex& condition_mutex(KRLCondition& c) { return ConditionAccess::mutex(c); }

}  // namespace krl_internal
