// Internal: the process-wide pool of count blocks behind KRLResource. Not
// installed.
//
// A stack of up to kCountBlockPoolSize parked blocks behind a spin lock. A
// parked block has _count 0 and keeps its built _lock. Blocks are allocated
// and freed outside the pool's lock (collect empties the stack under it and
// frees after), so the lock is never held across the heap, nor across the
// spin word pool that a new block's _lock draws from.
//
// The pool is built at first use and registers a terminator for unload that
// destroys the pool's lock only. Parked blocks stay (reachable, not leaked).
// After that, take and give go straight to the heap without a lock: unload is
// single-threaded, and a resource that dies late still finds a sound pool.
#ifndef KRLPORT_FRAME_COUNT_BLOCK_POOL_H_
#define KRLPORT_FRAME_COUNT_BLOCK_POOL_H_

#include "krlport/frame/resource.h"
#include "krlport/platform/atomic.h"
#include "krlport/threads/spin_mutex.h"
#include "krlport/threads/spin_pool.h"

namespace krl_internal {

// For tests: the block a resource holds, or null.
KRLCountBlock* count_block_of(const KRLResource& r);

// Blocks the pool keeps parked; the next one given back is freed.
constexpr int kCountBlockPoolSize = 1024;

// The pool's spin lock, taken by its word: as KRLSpinMutex::lock takes it, by
// an exchange, but freed by a release store instead of a second exchange.
// Nothing after these short sections needs a full barrier.
inline void spin_acquire(KRLSpinMutex& m) { KRLSpinWord::acquire(word_of(m)); }
inline void spin_release(KRLSpinMutex& m) { atomic_store(word_of(m), 0L, MemoryOrder::kRelease); }

class CountBlockPool {
 public:
  // The pool, built on the first call. Safe from any thread, the first call
  // included.
  static CountBlockPool& instance();
  // The pool if a first use built it, else null; builds nothing.
  static CountBlockPool* built();

  // A block with _sharing set to `sharing` and _count 1: the top parked one,
  // or a new one. Throws std::bad_alloc if a new block or its lock's word
  // cannot be had. Safe from any thread.
  KRLCountBlock* take(unsigned char sharing);
  // Parks the block with _count 0, or frees it if the pool is full. Null is
  // ignored. The block must belong to nobody. Safe from any thread.
  void give(KRLCountBlock* block);
  // Frees every parked block. Safe from any thread.
  void collect();

  // For tests: the number of parked blocks.
  int top();

 private:
  CountBlockPool() : _lock(), _top(0), _slots(), _closed(false) {}
  CountBlockPool(const CountBlockPool&) = delete;
  CountBlockPool& operator=(const CountBlockPool&) = delete;

  static CountBlockPool* make();
  static void terminate();

  KRLSpinMutex _lock;
  int _top;                                    // parked blocks; guarded by _lock
  KRLCountBlock* _slots[kCountBlockPoolSize];  // stack, top at _top - 1; guarded by _lock
  bool _closed;                                // set by the terminator, after which _lock is gone
};

}  // namespace krl_internal

#endif  // KRLPORT_FRAME_COUNT_BLOCK_POOL_H_
