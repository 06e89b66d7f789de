#include "krlport/threads/rw_lock.h"

#include "krlport/threads/condition_internal.h"
#include "krlport/threads/mutex_internal.h"
#include "krlport/threads/rw_lock_internal.h"

using krl_internal::condition_wake;
using krl_internal::ConditionWaiter;
using krl_internal::lock_acquire;
using krl_internal::lock_release;
using krl_internal::lock_room;

namespace {

// The layout of `_state`: flags in the low two bits, holders above them.
constexpr long kWritersWait = 1;    // `_waiting_writers` is not 0
constexpr long kReadersAsleep = 2;  // readers may sleep on `_readers`
constexpr long kFlags = kWritersWait | kReadersAsleep;
constexpr long kReader = 4;         // one reader more inside
constexpr long kWriter = -kReader;  // the writer inside, from free

// 0 free, n > 0 readers inside, -1 the writer inside.
long holders(long s) { return (s & ~kFlags) / kReader; }
// A reader may enter: no writer inside or waiting.
bool reader_may_enter(long s) { return s >= 0 && (s & kWritersWait) == 0; }
// The state after the holder's release: the writer leaves it free, a reader
// one reader fewer. The flags stay.
long released(long s) { return s < 0 ? s - kWriter : s - kReader; }

}  // namespace

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

// Counts the caller in `_waiting_writers` for one wait on `_writers`; the
// caller has set the flag in `_state`, and the last writer out of the count
// clears it. The count must come down also when the wait fails, or readers
// would stay out for good. A failed wait has given `_mutex` up: the count is
// then lowered under `_mutex` taken anew, and the wake-up that the writer may
// have used up is passed on as a release of the lock would pass it.
class KRLRWLock::WaitingWriter {
 public:
  WaitingWriter(KRLRWLock& l, const Hold& hold) : _lock(l), _hold(hold) {
    ++_lock._waiting_writers;
  }
  ~WaitingWriter() {
    KRLRWLock& l = _lock;
    if (_hold.held()) {
      leave();
      return;
    }
    lock_acquire(lock_room(l._mutex._cs));
    leave();
    ConditionWaiter* const woken =
        l.take(l.wake_after_release(l._state.load(std::memory_order_relaxed)));
    lock_release(lock_room(l._mutex._cs));
    condition_wake(woken);
  }
  WaitingWriter(const WaitingWriter&) = delete;
  WaitingWriter& operator=(const WaitingWriter&) = delete;

 private:
  void leave() {
    if (--_lock._waiting_writers == 0) {
      _lock._state.fetch_and(~kWritersWait, std::memory_order_relaxed);
    }
  }

  KRLRWLock& _lock;
  const Hold& _hold;
};

KRLRWLock::KRLRWLock() : _state(0), _waiting_writers(0) {}

// Members go in reverse order: `_writers`, `_readers`, then `_mutex`, which
// keeps its platform lock after KRLMutex::shutdown found a system that
// needs it.
KRLRWLock::~KRLRWLock() {}

// The fast paths below do, in one compare-and-swap, what the operation does
// under `_mutex` when it finds the same state: they run only where the
// operation neither waits nor wakes anyone.
void KRLRWLock::read_lock() {
  long s = _state.load(std::memory_order_relaxed);
  while (reader_may_enter(s)) {
    if (_state.compare_exchange_weak(s, s + kReader, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  read_lock_waiting();
}

__attribute__((noinline)) void KRLRWLock::read_lock_waiting() {
  Hold hold(*this);
  enter_as_reader(hold);
}

void KRLRWLock::enter_as_reader(Hold& hold) {
  long s = _state.load(std::memory_order_relaxed);
  for (;;) {
    if (reader_may_enter(s)) {
      if (_state.compare_exchange_weak(s, s + kReader, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return;
      }
      continue;
    }
    // The flag goes up while the reader is still shut out, so that the
    // release that lets it in cannot take the fast path and must wake it. A
    // set flag stays set while we hold `_mutex`, and so does what shuts us
    // out: only a release clears it, and a release with a flag set takes
    // `_mutex`.
    if ((s & kReadersAsleep) != 0 ||
        _state.compare_exchange_weak(s, s | kReadersAsleep, std::memory_order_relaxed,
                                     std::memory_order_relaxed)) {
      hold.wait(_readers);
      s = _state.load(std::memory_order_relaxed);
    }
  }
}

void KRLRWLock::write_lock() {
  long s = _state.load(std::memory_order_relaxed);
  // A free lock goes to whoever comes, also while writers wait: a woken
  // writer looks again.
  while (holders(s) == 0) {
    if (_state.compare_exchange_weak(s, s + kWriter, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  write_lock_waiting();
}

__attribute__((noinline)) void KRLRWLock::write_lock_waiting() {
  Hold hold(*this);
  enter_as_writer(hold);
}

void KRLRWLock::enter_as_writer(Hold& hold) {
  long s = _state.load(std::memory_order_relaxed);
  for (;;) {
    if (holders(s) == 0) {
      if (_state.compare_exchange_weak(s, s + kWriter, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return;
      }
      continue;
    }
    // Marked waiting while the lock is still held: the release that frees it
    // then cannot take the fast path and must wake a writer.
    if (_state.compare_exchange_weak(s, s | kWritersWait, std::memory_order_relaxed,
                                     std::memory_order_relaxed)) {
      wait_as_writer(hold);
      s = _state.load(std::memory_order_relaxed);
    }
  }
}

void KRLRWLock::wait_as_writer(Hold& hold) {
  WaitingWriter counted(*this, hold);
  hold.wait(_writers);
}

KRLRWLock::Wake KRLRWLock::wake_after_release(long state) const {
  // With writers waiting and readers inside, the last reader wakes a writer.
  if (_waiting_writers != 0) return holders(state) == 0 ? Wake::kWriter : Wake::kNobody;
  return Wake::kReaders;
}

ConditionWaiter* KRLRWLock::take(Wake w) {
  if (w == Wake::kWriter) return krl_internal::condition_take_one(_writers);
  if (w == Wake::kReaders) {
    // Every sleeping reader is taken: the flag goes with them.
    _state.fetch_and(~kReadersAsleep, std::memory_order_relaxed);
    return krl_internal::condition_take_all(_readers);
  }
  return nullptr;
}

void KRLRWLock::unlock() {
  long s = _state.load(std::memory_order_relaxed);
  // Nobody waits or sleeps: the release wakes nobody, and needs no `_mutex`.
  // The exchange is the last touch of the lock.
  while ((s & kFlags) == 0) {
    if (_state.compare_exchange_weak(s, released(s), std::memory_order_release,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  unlock_waking();
}

__attribute__((noinline)) void KRLRWLock::unlock_waking() {
  lock_acquire(lock_room(_mutex._cs));
  long s = _state.load(std::memory_order_relaxed);
  while (!_state.compare_exchange_weak(s, released(s), std::memory_order_acq_rel,
                                       std::memory_order_relaxed)) {
  }
  // Decided on the state this release left, even if a writer has taken the
  // free lock since.
  ConditionWaiter* const woken = take(wake_after_release(released(s)));
  // The last touch of the lock: from here on another thread may hold it and
  // destroy it. The woken threads' events are set outside `_mutex`, so they
  // do not at once block on it.
  lock_release(lock_room(_mutex._cs));
  condition_wake(woken);
}

void KRLRWLock::upgrade_to_write_lock() {
  Hold hold(*this);
  // The read lock goes, and in the same step the caller enters as the
  // writer if it was the last reader, or else counts as a waiting writer,
  // so that nobody comes in between.
  long s = _state.load(std::memory_order_relaxed);
  for (;;) {
    if (holders(s) == 1) {
      if (_state.compare_exchange_weak(s, s - kReader + kWriter, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return;
      }
    } else if (_state.compare_exchange_weak(s, (s - kReader) | kWritersWait,
                                            std::memory_order_release, std::memory_order_relaxed)) {
      break;
    }
  }
  wait_as_writer(hold);
  enter_as_writer(hold);
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
  _state.fetch_add(kReader - kWriter, std::memory_order_release);
}

namespace krl_internal {

struct RWLockAccess {
  static long state(KRLRWLock& l) {
    KRLMutex_var hold(l._mutex, 1);
    return holders(l._state.load());
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
