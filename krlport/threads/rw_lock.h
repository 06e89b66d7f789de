/// @file
/// KRLRWLock: many readers or one writer, writers first; and its scope guards
/// KRLRLock_var and KRLWLock_var.
///
/// Writer preference: as soon as one writer waits, no new reader gets in, even
/// while other readers are inside, and a released lock goes to a waiting
/// writer before any reader. A steady flow of writers starves readers. Among
/// writers the order is that of KRLCondition::signal, not arrival.
///
/// The lock is not recursive: a thread must not take it again while it holds
/// it, in either mode. unlock, upgrade_to_write_lock and
/// downgrade_to_read_lock require the matching lock; unlock of a free lock is
/// undefined.
///
/// Without contention no thread sleeps, so no event is made and nothing is
/// allocated: each operation costs the locking of `_mutex`.
///
/// Lifetime: a thread may destroy the lock as soon as it holds it and nobody
/// else will use it again. A release takes the threads it wakes out of their
/// condition under `_mutex` and sets their events after releasing `_mutex`,
/// so its last touch of the lock is that release, and the woken threads do
/// not at once block on `_mutex`.
#ifndef KRLPORT_THREADS_RW_LOCK_H_
#define KRLPORT_THREADS_RW_LOCK_H_

#include "krlport/frame/export.h"
#include "krlport/threads/condition.h"
#include "krlport/threads/mutex.h"

class KRLRWLock;

namespace krl_internal {

// Internal: reaches the private members of KRLRWLock
// (krlport/threads/rw_lock_internal.h).
struct RWLockAccess;

}  // namespace krl_internal

/// Safe from any thread. A CORBA_NO_RESOURCES from a failed wait passes
/// through read_lock, write_lock and upgrade_to_write_lock; the caller then
/// holds no part of the lock (after a failed upgrade not even its read lock),
/// and the lock stays usable.
class KRL_EXPORT KRLRWLock {
 public:
  KRLRWLock();
  ~KRLRWLock();  ///< the lock must be free

  /// Enters as a reader; blocks while a writer is inside or waiting.
  void read_lock();
  /// Enters as the writer; blocks until no reader and no writer is inside.
  void write_lock();
  /// Leaves as reader or writer, whichever the caller is. The last one out
  /// wakes one waiting writer, or else, when no writer waits, the readers.
  void unlock();
  /// The caller's read lock goes, then it enters as the writer. Not atomic:
  /// another writer may go first, so what the caller read may have changed.
  void upgrade_to_write_lock();
  /// The writer becomes a reader at once and atomically: no writer gets in
  /// between, and the caller never blocks. It wakes nobody; writers waiting
  /// meanwhile are woken by the unlock of the last reader, as they would be
  /// for any reader.
  void downgrade_to_read_lock();

 private:
  friend struct krl_internal::RWLockAccess;

  class Hold;
  class WaitingWriter;
  enum class Wake { kNobody, kWriter, kReaders };

  KRLRWLock(const KRLRWLock&) = delete;
  KRLRWLock& operator=(const KRLRWLock&) = delete;

  // Caller holds `_mutex`: one wait on `_writers`, counted in
  // `_waiting_writers`.
  void wait_as_writer(Hold& hold);
  // Caller holds `_mutex`: whom a release of the lock wakes.
  Wake wake_after_release() const;
  // Caller holds `_mutex`: takes them out of their condition, to be woken
  // with krl_internal::condition_wake once `_mutex` is released.
  krl_internal::ConditionWaiter* take(Wake w);

  // Guards `_state` and `_waiting_writers`; the waits give it up.
  KRLMutex _mutex;
  // 0: free. n > 0: n readers inside. -1: one writer inside.
  long _state;
  // Readers sleep here.
  KRLCondition _readers;
  // Writers in a wait on `_writers` or about to enter one, counted from
  // before the wait until the writer runs again.
  unsigned long _waiting_writers;
  // Writers sleep here.
  KRLCondition _writers;
};

/// Takes the read lock whatever the flag says; a non-zero flag makes the
/// destructor unlock. Used by one thread at a time.
class KRL_EXPORT KRLRLock_var {
 public:
  /// Takes the read lock of lock, which must outlive the guard; release_flag
  /// arms the destructor. Throws what read_lock throws, holding nothing.
  KRLRLock_var(KRLRWLock& lock, unsigned char release_flag) : _lock(lock), _release(release_flag) {
    _lock.read_lock();
  }
  ~KRLRLock_var() {
    if (_release != 0) _lock.unlock();
  }

  /// Unlocks, armed or not, then disarms.
  void unlock() {
    _lock.unlock();
    _release = 0;
  }
  /// Non-zero while armed.
  unsigned char release_flag() const { return _release; }
  /// Arms (non-zero) or disarms the destructor; touches no lock.
  void release_flag(unsigned char flag) { _release = flag; }

 private:
  KRLRLock_var(const KRLRLock_var&) = delete;
  KRLRLock_var& operator=(const KRLRLock_var&) = delete;

  KRLRWLock& _lock;
  unsigned char _release;
};

/// Takes the write lock whatever the flag says; otherwise as KRLRLock_var.
class KRL_EXPORT KRLWLock_var {
 public:
  /// Takes the write lock of lock, which must outlive the guard; release_flag
  /// arms the destructor. Throws what write_lock throws, holding nothing.
  KRLWLock_var(KRLRWLock& lock, unsigned char release_flag) : _lock(lock), _release(release_flag) {
    _lock.write_lock();
  }
  ~KRLWLock_var() {
    if (_release != 0) _lock.unlock();
  }

  /// Unlocks, armed or not, then disarms.
  void unlock() {
    _lock.unlock();
    _release = 0;
  }
  /// Non-zero while armed.
  unsigned char release_flag() const { return _release; }
  /// Arms (non-zero) or disarms the destructor; touches no lock.
  void release_flag(unsigned char flag) { _release = flag; }

 private:
  KRLWLock_var(const KRLWLock_var&) = delete;
  KRLWLock_var& operator=(const KRLWLock_var&) = delete;

  KRLRWLock& _lock;
  unsigned char _release;
};

#endif  // KRLPORT_THREADS_RW_LOCK_H_
