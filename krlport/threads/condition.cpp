#include "krlport/threads/condition.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/event.h"
#include "krlport/platform/lock.h"

using krl_internal::Event;
using krl_internal::EventWait;
using krl_internal::lock_acquire;
using krl_internal::lock_release;

namespace {

constexpr unsigned long kInitialCapacity = 4;

// The forms in seconds pass t * 1000, computed on 32 bits, which wraps.
unsigned long long seconds_to_ms(unsigned long t) {
  return static_cast<std::uint32_t>(t) * std::uint32_t{1000};
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

unsigned char KRLCondition::wait_for(KRLMutex& m, std::uint32_t limit_ms) {
  // The event is a word in this frame: making it cannot fail, so a wait has
  // no "CreateEvent" failure here, and ending it closes nothing.
  Event event;
  // The entry goes in while the caller still holds `m`: a thread that takes
  // `m` after it is given up and signals finds the event in the array, so no
  // wake-up is lost, and it finds `_count` raised without taking `_mutex`.
  // `_mutex` goes before `m`, so that a thread that gets `m` and signals at
  // once does not find `_mutex` still held. A growth that fails leaves the
  // caller as it was.
  lock_acquire(_mutex._cs);
  try {
    add(&event);
  } catch (...) {
    lock_release(_mutex._cs);
    throw;
  }
  lock_release(_mutex._cs);
  lock_release(m._cs);

  const EventWait result = event.wait(limit_ms);
  if (result == EventWait::kSignalled) {
    // The signaller took the entry out.
    lock_acquire(m._cs);
    return 0;
  }
  const int err = errno;
  // Under `_mutex` no signaller can be setting the event any more, so it may
  // end with this frame. If the entry is gone, a signal took it after the
  // time-out and is spent.
  lock_acquire(_mutex._cs);
  const unsigned long n = _count.load(std::memory_order_relaxed);
  for (unsigned long i = 0; i < n; ++i) {
    if (_events[i] == &event) {
      remove(i);
      break;
    }
  }
  lock_release(_mutex._cs);
  if (result == EventWait::kTimedOut) {
    lock_acquire(m._cs);
    return 1;
  }
  errno = err;
  std::perror("WaitForSingleObject");
  throw CORBA_NO_RESOURCES(static_cast<unsigned long>(err), CORBA::COMPLETED_NO);
}

void KRLCondition::wait(KRLMutex& m) { wait_for(m, krl_internal::kWaitForever); }

void KRLCondition::wait(KRLMutex& m, unsigned long seconds) { wait(m, seconds_to_ms(seconds)); }

void KRLCondition::wait(KRLMutex& m, unsigned long long ms) {
  if (timedwait(m, ms) != 0) throw CORBA_TIMEOUT();
}

unsigned char KRLCondition::timedwait(KRLMutex& m, unsigned long seconds) {
  return timedwait(m, seconds_to_ms(seconds));
}

// Only the low 32 bits of the limit are read.
unsigned char KRLCondition::timedwait(KRLMutex& m, unsigned long long ms) {
  return wait_for(m, static_cast<std::uint32_t>(ms));
}

void KRLCondition::wait_all(KRLMutex& m) { wait(m); }
void KRLCondition::wait_all(KRLMutex& m, unsigned long seconds) { wait(m, seconds); }
void KRLCondition::wait_all(KRLMutex& m, unsigned long long ms) { wait(m, ms); }

unsigned char KRLCondition::timedwait_all(KRLMutex& m, unsigned long seconds) {
  return timedwait(m, seconds);
}

unsigned char KRLCondition::timedwait_all(KRLMutex& m, unsigned long long ms) {
  return timedwait(m, ms);
}

void KRLCondition::signal() {
  if (_count.load(std::memory_order_relaxed) == 0) return;
  lock_acquire(_mutex._cs);
  if (_count.load(std::memory_order_relaxed) != 0) {
    void* event = _events[0];
    remove(0);
    static_cast<Event*>(event)->set();
  }
  lock_release(_mutex._cs);
}

void KRLCondition::signal(KRLMutex_var& g) {
  signal();
  g.unlock();
}

void KRLCondition::broadcast() {
  if (_count.load(std::memory_order_relaxed) == 0) return;
  lock_acquire(_mutex._cs);
  const unsigned long n = _count.load(std::memory_order_relaxed);
  for (unsigned long i = 0; i < n; ++i) static_cast<Event*>(_events[i])->set();
  removeAll();
  lock_release(_mutex._cs);
}

void KRLCondition::broadcast(KRLMutex_var& g) {
  broadcast();
  g.unlock();
}

namespace krl_internal {

unsigned long condition_waiters(KRLCondition& c) {
  KRLMutex_var hold(c._mutex, 1);
  return c._count.load(std::memory_order_relaxed);
}

unsigned long condition_capacity(KRLCondition& c) {
  KRLMutex_var hold(c._mutex, 1);
  return c._capacity;
}

KRLMutex& condition_mutex(KRLCondition& c) { return c._mutex; }

}  // namespace krl_internal
