/// @file
/// Spin locks: KRLSpinMutex, plain, and KRLRSpinMutex, recursive with an owner
/// thread. Neither has a kernel object or makes a system call while free; a
/// waiter yields its time slice after every failed attempt. Each lock holds one
/// pointer to a small block from a shared pool, so constructing and destroying
/// locks allocates nothing while the pool has blocks. A copy shares its
/// source's block, and so its state: a copy of a held lock is held, and
/// locking either keeps the other out. The block goes back to the pool once,
/// when the last lock that uses it is destroyed or assigned another block; it
/// goes back as it is, so it must be free then. Hold them for a few
/// instructions only, never across a blocking call.
#ifndef KRLPORT_THREADS_SPIN_MUTEX_H_
#define KRLPORT_THREADS_SPIN_MUTEX_H_

#include "krlport/frame/export.h"
#include "krlport/threads/mutex.h"

struct KRLSpinRecord;
class KRLSpinRecordPool;
class KRLSpinMutex;
class KRLRSpinMutex;

namespace krl_internal {

// Internal: reaches the block a lock holds (krlport/threads/spin_pool.h).
struct SpinMutexAccess;

}  // namespace krl_internal

/// Not recursive, and no owner is recorded: any thread's unlock frees it.
/// If no lock word could be allocated, every operation does nothing.
class KRL_EXPORT KRLSpinMutex : public KRLIMutex {
 public:
  KRLSpinMutex();
  /// Shares m's word: the two are one lock.
  KRLSpinMutex(const KRLSpinMutex& m);
  /// Shares m's word from now on; this lock's old word goes back to the pool
  /// if no other copy uses it.
  KRLSpinMutex& operator=(const KRLSpinMutex& m);

  void lock();    ///< spins until held; the holder must not lock again
  void unlock();  ///< frees the lock, whoever calls

  /// lock(), through the virtual table.
  void v_lock() override;
  /// unlock(), through the virtual table.
  void v_unlock() override;

  virtual ~KRLSpinMutex();  ///< the last user of the word must leave it free

 private:
  friend class KRLSpinRecordPool;
  friend struct krl_internal::SpinMutexAccess;

  long* _word;  // 0 free, 1 held; from the word pool, null if none was left
};

/// Recursive: the owner may lock again any number of times and must unlock as
/// often. Only the owner may unlock. If no record could be allocated, every
/// operation does nothing.
class KRL_EXPORT KRLRSpinMutex : public KRLIMutex {
 public:
  KRLRSpinMutex();
  /// Shares m's record, as KRLSpinMutex shares its word.
  KRLRSpinMutex(const KRLRSpinMutex& m);
  /// Shares m's record from now on; the old one goes back as in KRLSpinMutex.
  KRLRSpinMutex& operator=(const KRLRSpinMutex& m);

  void lock();    ///< spins until the calling thread owns it; adds one level
  void unlock();  ///< gives up one level; frees the lock at depth 0

  /// lock(), through the virtual table.
  void v_lock() override;
  /// unlock(), through the virtual table.
  void v_unlock() override;

  virtual ~KRLRSpinMutex();  ///< the last user of the record must leave it free

 private:
  friend struct krl_internal::SpinMutexAccess;

  KRLSpinRecord* _record;  // from the record pool, null if none was left
};

#endif  // KRLPORT_THREADS_SPIN_MUTEX_H_
