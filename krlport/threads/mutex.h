/// @file
/// The library's blocking lock and its scope guards.
///
/// KRLIMutex is the abstract lock a guard can hold. KRLMutex is the recursive,
/// thread-owned lock behind all process-wide state of the library.
/// KRLIMutex_var, KRLMutex_var and KRLDMutex_var lock in their constructor and
/// unlock in their destructor while their release flag is non-zero ("armed").
/// A guard never owns its lock: the lock must outlive the guard. A guard is
/// used by one thread at a time.
#ifndef KRLPORT_THREADS_MUTEX_H_
#define KRLPORT_THREADS_MUTEX_H_

#include "krlport/frame/export.h"

class KRLMutex;
class KRLCondition;
class KRLRWLock;

namespace krl_internal {

// Internal: room for the platform's lock object, which the platform layer
// (krlport/platform/lock.h) constructs in place. Opaque here so that this
// header does not carry the system's lock headers; the platform code checks
// at compile time that its lock fits.
struct alignas(8) LockStorage {
  unsigned char _bytes[40];
};

// Internal: reaches the private members of KRLMutex
// (krlport/threads/mutex_internal.h).
struct MutexAccess;

}  // namespace krl_internal

/// The abstract lock. No virtual destructor: locks are never deleted through
/// this type, and the protected one keeps them from being so.
class KRL_EXPORT KRLIMutex {
 public:
  KRLIMutex() {}
  /// The base has no state to copy.
  KRLIMutex(const KRLIMutex&) {}
  /// The base has no state to assign.
  KRLIMutex& operator=(const KRLIMutex&) { return *this; }

  /// Takes the lock, blocking as the concrete lock does.
  virtual void v_lock() = 0;
  /// Gives the lock up, as the concrete lock's unlock does.
  virtual void v_unlock() = 0;

 protected:
  ~KRLIMutex() = default;
};

/// Recursive lock owned by a thread: the owner may lock it again and must
/// unlock it as often as it locked it; other threads block until then.
/// Neither operation reports a failure; a broken platform lock aborts.
/// Safe from any thread. Final: its destructor is not virtual.
class KRL_EXPORT KRLMutex final : public KRLIMutex {
 public:
  KRLMutex();
  /// The mutex must be free. Leaves the platform lock in place after
  /// shutdown() found a system that needs it.
  ~KRLMutex();

  void lock();    ///< blocks until the calling thread owns the mutex
  void unlock();  ///< gives up one level; the caller owns the mutex

  /// lock(), through the virtual table.
  void v_lock() override;
  /// unlock(), through the virtual table.
  void v_unlock() override;

  /// Called by the host before unload. Sets the shutdown flag on systems
  /// whose version is 95 or 98, which this library never runs on, so in
  /// practice it changes nothing. Locks stay usable after it either way.
  static void shutdown();

 private:
  friend class KRLCondition;
  friend class KRLRWLock;
  friend struct krl_internal::MutexAccess;

  KRLMutex(const KRLMutex&) = delete;
  KRLMutex& operator=(const KRLMutex&) = delete;

  krl_internal::LockStorage _cs;
  // 0 at load, 1 once shutdown() ran on 95/98. Written by shutdown(), read
  // by destructors; a plain byte, as the host calls shutdown() at its end.
  static unsigned char _inShutdown;
};

/// Guard over any KRLIMutex, reached through v_lock/v_unlock.
class KRL_EXPORT KRLIMutex_var {
 public:
  /// Locks mtx (never null) whatever the flag; the flag arms the destructor.
  KRLIMutex_var(KRLIMutex* mtx, unsigned char release_flag);
  ~KRLIMutex_var();  ///< unlocks if armed

  void lock();    ///< locks, then arms
  void unlock();  ///< disarms, then unlocks, armed or not

  /// Copies the lock pointer and the flag; touches no lock.
  KRLIMutex_var& operator=(const KRLIMutex_var& v);

 private:
  // A copy would unlock a second time at its end.
  KRLIMutex_var(const KRLIMutex_var&) = delete;

  KRLIMutex* _mtx;
  unsigned char _release;
};

/// Guard over a KRLMutex, reached without the virtual table.
class KRL_EXPORT KRLMutex_var {
 public:
  /// Locks mtx whatever the flag; the flag arms the destructor.
  KRLMutex_var(KRLMutex& mtx, unsigned char release_flag);
  ~KRLMutex_var();  ///< unlocks if armed

  void lock();    ///< locks, then arms
  void unlock();  ///< unlocks, armed or not, then disarms

  /// Non-zero while armed.
  unsigned char release_flag() const { return _release; }
  /// Arms (non-zero) or disarms the destructor; touches no lock.
  void release_flag(unsigned char flag) { _release = flag; }

  /// The guarded mutex.
  KRLMutex* operator->() { return &_mtx; }
  /// The guarded mutex.
  operator KRLMutex*() { return &_mtx; }

 private:
  KRLMutex_var(const KRLMutex_var&) = delete;
  KRLMutex_var& operator=(const KRLMutex_var&) = delete;

  KRLMutex& _mtx;
  unsigned char _release;
};

/// Guard over a KRLMutex that may start empty and take its mutex later,
/// once, through set().
class KRL_EXPORT KRLDMutex_var {
 public:
  /// Locks mtx unless it is null.
  KRLDMutex_var(KRLMutex* mtx = 0, unsigned char release_flag = 1);
  ~KRLDMutex_var();  ///< unlocks if it holds a mutex and is armed

  /// The guard must be empty: a guard that holds or held a mutex aborts the
  /// process. Null leaves it empty; a mutex is stored and locked. The flag
  /// does not change.
  void set(KRLMutex* mtx);
  /// With a mutex: unlocks, armed or not, then disarms; the mutex stays
  /// stored. Empty: does nothing.
  void unlock();

  /// Non-zero while armed.
  unsigned char release_flag() const { return _release; }
  /// Arms (non-zero) or disarms the destructor; touches no lock.
  void release_flag(unsigned char flag) { _release = flag; }

  KRLMutex* operator->() { return _mtx; }  ///< null when empty
  /// The guarded mutex; null when empty.
  operator KRLMutex*() { return _mtx; }

 private:
  KRLDMutex_var(const KRLDMutex_var&) = delete;
  KRLDMutex_var& operator=(const KRLDMutex_var&) = delete;

  KRLMutex* _mtx;
  unsigned char _release;
};

#endif  // KRLPORT_THREADS_MUTEX_H_
