#include "krlport/frame/count_block_pool.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "krlport/frame/at_unload.h"

namespace krl_internal {

namespace {

// Set once, when make() has built the pool.
std::atomic<CountBlockPool*> g_built{nullptr};

}  // namespace

CountBlockPool* CountBlockPool::built() { return g_built.load(std::memory_order_acquire); }

CountBlockPool& CountBlockPool::instance() {
  // The guard of a function-local static makes a racing first use wait for
  // the one construction.
  static CountBlockPool* const pool = make();
  return *pool;
}

CountBlockPool* CountBlockPool::make() {
  // Static storage, not the heap, and never destroyed as a whole: the
  // terminator ends the lock only, and the parked blocks stay reachable.
  alignas(CountBlockPool) static unsigned char storage[sizeof(CountBlockPool)];
  CountBlockPool* pool = new (storage) CountBlockPool;
  // Without a word the lock would lock nothing. The first use throws, and the
  // next one tries again.
  if (word_of(pool->_lock) == nullptr) {
    pool->~CountBlockPool();
    throw std::bad_alloc();
  }
  run_at_unload<&CountBlockPool::terminate>();
  g_built.store(pool, std::memory_order_release);
  return pool;
}

void CountBlockPool::terminate() {
  CountBlockPool& pool = instance();
  pool._closed = true;
  pool._lock.~KRLSpinMutex();
}

static KRLCountBlock* new_block(unsigned char sharing) {
  KRLCountBlock* block = new KRLCountBlock;
  // A spin lock without a word locks nothing: a shared count would race.
  if (word_of(block->_lock) == nullptr) {
    delete block;
    throw std::bad_alloc();
  }
  block->_count.store(1, std::memory_order_relaxed);
  block->_sharing = sharing;
  return block;
}

KRLCountBlock* CountBlockPool::take(unsigned char sharing) {
  if (_closed) return new_block(sharing);
  KRLCountBlock* block = nullptr;
  spin_acquire(_lock);
  if (_top > 0) {
    block = _slots[--_top];
    block->_sharing = sharing;
    // Plain: the pool's lock orders this after the last owner's give, and no
    // other thread can reach the block before we hand it out.
    block->_count.store(1, std::memory_order_relaxed);
  }
  spin_release(_lock);
  return block != nullptr ? block : new_block(sharing);
}

void CountBlockPool::give(KRLCountBlock* block) {
  if (block == nullptr) return;
  bool parked = false;
  if (!_closed) {
    spin_acquire(_lock);
    if (_top < kCountBlockPoolSize) {
      // Plain: the block is the destroying thread's alone now.
      block->_count.store(0, std::memory_order_relaxed);
      _slots[_top++] = block;
      parked = true;
    }
    spin_release(_lock);
  }
  if (!parked) delete block;
}

void CountBlockPool::collect() {
  // Emptied under the lock, freed after it: the lock is never held across the
  // heap.
  KRLCountBlock* freed[kCountBlockPoolSize];
  int n = 0;
  if (!_closed) spin_acquire(_lock);
  while (_top > 0) freed[n++] = _slots[--_top];
  if (!_closed) spin_release(_lock);
  while (n > 0) delete freed[--n];
}

int CountBlockPool::top() {
  spin_acquire(_lock);
  const int n = _top;
  spin_release(_lock);
  return n;
}

}  // namespace krl_internal
