// Internal: the lock word, the lock record and the two pools that hand them
// to KRLSpinMutex and KRLRSpinMutex. Not installed.
//
// Each pool is a stack of up to kSpinPoolSize free blocks behind its own spin
// lock; a block put into a full pool is deleted. New blocks are zeroed, and a
// recycled block comes back as it went in. The two pool locks are never held
// together, and neither is held across an allocation.
//
// Sharing: a copy of a lock shares its source's block. Each heap block keeps,
// behind the word or record a lock points to, the number of further locks
// that share it; share() raises it, and drop() lowers it or, for the last
// user, puts the block back. So a block goes back to its pool exactly once.
#ifndef KRLPORT_THREADS_SPIN_POOL_H_
#define KRLPORT_THREADS_SPIN_POOL_H_

#include "krlport/platform/atomic.h"
#include "krlport/platform/thread.h"
#include "krlport/threads/spin_mutex.h"

// Blocks a pool keeps for reuse.
constexpr long kSpinPoolSize = 32;

// The spin of every lock here: a word that is 0 when free and 1 when held,
// taken by an atomic exchange, with the time slice given up after each failed
// attempt. No limit, no back-off.
class KRLSpinWord {
 public:
  constexpr KRLSpinWord() : _word(0) {}

  void acquire() { acquire(&_word); }
  void release() { release(&_word); }

  static void acquire(long* word) {
    if (!try_acquire(word)) acquire_after_yielding(word);
  }
  // Read plainly first, so that waiters do not pull the line away from the
  // holder with exchanges bound to fail.
  static bool try_acquire(long* word) {
    return krl_internal::atomic_load(word, krl_internal::MemoryOrder::kRelaxed) == 0 &&
           krl_internal::atomic_exchange(word, 1L, krl_internal::MemoryOrder::kAcquire) == 0;
  }
  // After a failed attempt: yields, and tries again until the word is held.
  // Out of line, so that the path that gets in at once saves no registers.
  static void acquire_after_yielding(long* word);
  // A release store: everything done under the lock is ordered before the
  // next holder's exchange, which is all a lock owes. An exchange here would
  // cost a second locked instruction on every uncontended lock and unlock.
  static void release(long* word) {
    krl_internal::atomic_store(word, 0L, krl_internal::MemoryOrder::kRelease);
  }

 private:
  long _word;
};

// The block of a KRLRSpinMutex.
struct KRLSpinRecord {
  // 0 free, else the kernel id of the owner thread (never 0). Changed
  // atomically.
  unsigned long _owner;
  // Levels the owner holds. Changed by the owner only.
  unsigned long _depth;
};

// The heap blocks. A lock points to the first member, so the block's address
// is the lock's pointer.
struct KRLSpinWordBlock {
  long _word;
  long _sharers;  // locks sharing the block beyond the first; atomic
};
struct KRLSpinRecordBlock {
  KRLSpinRecord _record;
  long _sharers;  // as above
};

namespace krl_internal {

// The block a lock holds (null if none was left), for the count blocks'
// locks and for tests.
long* word_of(const KRLSpinMutex& m);
KRLSpinRecord* record_of(const KRLRSpinMutex& m);

// One more lock uses the block of `sharers`.
inline void spin_share(long* sharers) { atomic_add_fetch(sharers, 1L, MemoryOrder::kRelaxed); }
// One lock fewer uses it: true if that was the last user, which gives the
// block back. The uses of the others are ordered before that.
inline bool spin_unshare(long* sharers) {
  long n = atomic_load(sharers, MemoryOrder::kAcquire);
  while (n != 0) {
    if (atomic_compare_exchange(sharers, &n, n - 1, true, MemoryOrder::kAcqRel,
                                MemoryOrder::kAcquire)) {
      return false;
    }
  }
  return true;
}

}  // namespace krl_internal

// Pool of lock words. Process-wide; needs no construction at run time and is
// never destroyed, so it is usable at any point of load and unload.
class KRLSpinWordPool {
 public:
  static KRLSpinWordPool& instance();

  // A free word, new and zeroed if the pool is empty; null if the allocation
  // failed. Safe from any thread.
  long* get();
  // Keeps word for reuse, or deletes it if the pool is full. Null is ignored.
  // Safe from any thread.
  void put(long* word);
  // A further lock uses word (not null). Safe from any thread.
  static void share(long* word) { krl_internal::spin_share(&block(word)->_sharers); }
  // A lock stops using word: the last user puts it. Null is ignored.
  void drop(long* word) {
    if (word != nullptr && krl_internal::spin_unshare(&block(word)->_sharers)) put(word);
  }

  // Words on the stack now; for tests.
  long count();

  constexpr KRLSpinWordPool() : _count(0), _lock(), _entries() {}

 private:
  static KRLSpinWordBlock* block(long* word) { return reinterpret_cast<KRLSpinWordBlock*>(word); }

  long _count;  // guarded by _lock
  KRLSpinWord _lock;
  long* _entries[kSpinPoolSize];  // guarded by _lock
};

// Pool of lock records. Process-wide, made at first use. At unload its
// terminator gives the word of _lock back to the word pool; the pool object
// itself stays, unlocked, for locks destroyed later in the unload.
class KRLSpinRecordPool {
 public:
  static KRLSpinRecordPool& instance();

  // As KRLSpinWordPool::get, put, share and drop, for records.
  KRLSpinRecord* get();
  void put(KRLSpinRecord* record);
  static void share(KRLSpinRecord* record) { krl_internal::spin_share(&block(record)->_sharers); }
  void drop(KRLSpinRecord* record) {
    if (record != nullptr && krl_internal::spin_unshare(&block(record)->_sharers)) put(record);
  }

  long count();

 private:
  KRLSpinRecordPool();
  KRLSpinRecordPool(const KRLSpinRecordPool&) = delete;
  KRLSpinRecordPool& operator=(const KRLSpinRecordPool&) = delete;

  static KRLSpinRecordBlock* block(KRLSpinRecord* record) {
    return reinterpret_cast<KRLSpinRecordBlock*>(record);
  }
  static KRLSpinRecordPool* make();
  static void terminate();

  long _count;  // guarded by _lock
  KRLSpinMutex _lock;
  KRLSpinRecord* _entries[kSpinPoolSize];  // guarded by _lock
};

#endif  // KRLPORT_THREADS_SPIN_POOL_H_
