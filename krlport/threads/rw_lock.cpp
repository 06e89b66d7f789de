#include "krlport/threads/rw_lock.h"

#include "krlport/threads/condition_internal.h"
#include "krlport/threads/mutex_internal.h"
#include "krlport/threads/rw_lock_internal.h"

using krl_internal::condition_wake;
using krl_internal::ConditionWaiter;
using krl_internal::lock_acquire;
using krl_internal::lock_release;
using krl_internal::lock_room;

// Holds `_mutex` for one operation. A wait on a condition gives `_mutex` up
// and takes it back; a wait that fails does not take it back (see
// KRLCondition), and then the hold has nothing left to release.
class KRLRWLock::Hold {
 public:
  explicit Hold(KRLRWLock& l) : _mutex(l._mutex) { lock_acquire(lock_room(_mutex._cs)); }
  ~Hold() {
    if (_held) lock_release(lock_room(_mutex._cs));
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  bool held() const { return _held; }
  void wait(KRLCondition& c) {
    _held = false;
    c.wait(_mutex);
    _held = true;
  }

 private:
  KRLMutex& _mutex;
  bool _held = true;
};

// Counts the caller in `_waiting_writers` for one wait on `_writers`. The
// count must come down also when the wait fails, or readers would stay out
// for good. A failed wait has given `_mutex` up: the count is then lowered
// under `_mutex` taken anew, and the wake-up that the writer may have used up
// is passed on as a release of the lock would pass it.
class KRLRWLock::WaitingWriter {
 public:
  WaitingWriter(KRLRWLock& l, const Hold& hold) : _lock(l), _hold(hold) {
    ++_lock._waiting_writers;
  }
  ~WaitingWriter() {
    if (_hold.held()) {
      --_lock._waiting_writers;
      return;
    }
    KRLRWLock& l = _lock;
    lock_acquire(lock_room(l._mutex._cs));
    --l._waiting_writers;
    ConditionWaiter* const woken = l.take(l.wake_after_release());
    lock_release(lock_room(l._mutex._cs));
    condition_wake(woken);
  }
  WaitingWriter(const WaitingWriter&) = delete;
  WaitingWriter& operator=(const WaitingWriter&) = delete;

 private:
  KRLRWLock& _lock;
  const Hold& _hold;
};

KRLRWLock::KRLRWLock() : _state(0), _waiting_writers(0) {}

// Members go in reverse order: `_writers`, `_readers`, then `_mutex`, which
// keeps its platform lock after KRLMutex::shutdown found a system that
// needs it.
KRLRWLock::~KRLRWLock() {}

void KRLRWLock::read_lock() {
  Hold hold(*this);
  while (_state < 0 || _waiting_writers != 0) hold.wait(_readers);
  ++_state;
}

void KRLRWLock::write_lock() {
  Hold hold(*this);
  // A woken writer looks again: another writer may have come in between.
  while (_state != 0) wait_as_writer(hold);
  _state = -1;
}

void KRLRWLock::wait_as_writer(Hold& hold) {
  WaitingWriter counted(*this, hold);
  hold.wait(_writers);
}

KRLRWLock::Wake KRLRWLock::wake_after_release() const {
  // With writers waiting and readers inside, the last reader wakes a writer.
  if (_waiting_writers != 0) return _state == 0 ? Wake::kWriter : Wake::kNobody;
  return Wake::kReaders;
}

ConditionWaiter* KRLRWLock::take(Wake w) {
  if (w == Wake::kWriter) return krl_internal::condition_take_one(_writers);
  if (w == Wake::kReaders) return krl_internal::condition_take_all(_readers);
  return nullptr;
}

void KRLRWLock::unlock() {
  lock_acquire(lock_room(_mutex._cs));
  if (_state < 0) {
    _state = 0;
  } else {
    --_state;
  }
  ConditionWaiter* const woken = take(wake_after_release());
  // The last touch of the lock: from here on another thread may hold it and
  // destroy it. The woken threads' events are set outside `_mutex`, so they
  // do not at once block on it.
  lock_release(lock_room(_mutex._cs));
  condition_wake(woken);
}

void KRLRWLock::upgrade_to_write_lock() {
  Hold hold(*this);
  --_state;  // the read lock is gone
  while (_state != 0) wait_as_writer(hold);
  _state = -1;
}

// Releasing the write lock and then waiting as a reader would hang while
// writers wait: the release to 0 wakes nobody, the caller sleeps behind the
// waiting writers, and the writers sleep until someone unlocks. So the
// writer keeps its turn and becomes the one reader inside, without a gap in
// which another writer could change what it wrote. Waiting writers stay
// asleep until this reader (and any other) unlocks, and readers asleep on
// `_readers` wait for the next unlock, as they would after a plain downgrade.
void KRLRWLock::downgrade_to_read_lock() {
  Hold hold(*this);
  _state = 1;
}

namespace krl_internal {

struct RWLockAccess {
  static long state(KRLRWLock& l) {
    KRLMutex_var hold(l._mutex, 1);
    return l._state;
  }
  static KRLCondition& readers(KRLRWLock& l) { return l._readers; }
  static KRLCondition& writers(KRLRWLock& l) { return l._writers; }
};

long rw_lock_state(KRLRWLock& l) { return RWLockAccess::state(l); }
unsigned long rw_lock_sleeping_readers(KRLRWLock& l) {
  return condition_waiters(RWLockAccess::readers(l));
}
unsigned long rw_lock_sleeping_writers(KRLRWLock& l) {
  return condition_waiters(RWLockAccess::writers(l));
}

}  // namespace krl_internal
