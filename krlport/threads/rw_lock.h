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
/// allocated. read_lock, write_lock and unlock then cost one atomic
/// compare-and-swap of the state word each and do not touch `_mutex`; they
/// take `_mutex` only when they must wait, or someone waits.
///
/// Lifetime: a thread may destroy the lock as soon as it holds it and nobody
/// else will use it again. A release takes the threads it wakes out of their
/// condition under `_mutex` and sets their events after releasing `_mutex`,
/// so its last touch of the lock is that release, and the woken threads do
/// not at once block on `_mutex`.
#ifndef KRLPORT_THREADS_RW_LOCK_H_
#define KRLPORT_THREADS_RW_LOCK_H_

#include <atomic>

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

  // Caller holds `_mutex`: waits on `_readers` until it can enter as a
  // reader, and enters.
  void enter_as_reader(Hold& hold);
  // Caller holds `_mutex`: waits as a writer until the lock is free, and
  // enters as the writer.
  void enter_as_writer(Hold& hold);
  // Caller holds `_mutex` and has marked `_state` as having a waiting
  // writer: one wait on `_writers`, counted in `_waiting_writers`.
  void wait_as_writer(Hold& hold);
  // The paths of read_lock, write_lock and unlock that take `_mutex`: out of
  // line, so that the paths without it save no registers.
  void read_lock_waiting();
  void write_lock_waiting();
  void unlock_waking();
  // Caller holds `_mutex`: whom a release that left `state` wakes.
  Wake wake_after_release(long state) const;
  // Caller holds `_mutex`: takes them out of their condition, to be woken
  // with krl_internal::condition_wake once `_mutex` is released.
  krl_internal::ConditionWaiter* take(Wake w);

  // Guards `_waiting_writers` and every decision to wait or to wake; the
  // waits give it up.
  KRLMutex _mutex;
  // The holders times 4 (0: free; n > 0: n readers inside; -1: one writer
  // inside), plus two flags: 1, `_waiting_writers` is not 0; 2, readers may
  // sleep on `_readers`. The flags change under `_mutex` only, so while
  // both are clear nobody waits or sleeps, and the holders may change
  // without `_mutex` by a compare-and-swap that finds them clear (unlock),
  // or that finds what the operation would find under `_mutex` (read_lock,
  // write_lock). Every change under `_mutex` is a compare-and-swap too, so
  // it decides on the value it replaces.
  std::atomic<long> _state;
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
