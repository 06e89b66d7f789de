#include "krlport/frame/resource.h"

#include "krlport/frame/count_block_pool.h"
#include "krlport/platform/atomic.h"

using krl_internal::CountBlockPool;

// Constant-initialised: no dynamic initialiser.
unsigned char KRLResource::_init_sharing = 1;

// A Sole resource has nothing to give back: it touches no pool, so its
// destruction can neither build one nor fail.
KRLResource::~KRLResource() {
  if (_refs != 0) CountBlockPool::instance().give(_block_of());
}

void KRLResource::_hold(KRLCountBlock* b) {
  _refs = reinterpret_cast<std::uintptr_t>(b) | (b->_sharing == 0 ? kPlainTag : 0);
}

KRLCountBlock* KRLResource::_block() {
  if (_refs == 0) {
    _hold(CountBlockPool::instance().take(
        krl_internal::atomic_load(&_init_sharing, krl_internal::MemoryOrder::kRelaxed)));
  }
  return _block_of();
}

long KRLResource::_ref_slow() {
  KRLCountBlock* b = _block();
  return b->_sharing == 0 ? _change_plain(b, 1) : _change_shared(b, 1);
}

// The owner's alone, before sharing begins: no other thread reads the count.
void KRLResource::_reset_refs() { _block()->_count.store(0, std::memory_order_relaxed); }

void KRLResource::_set_sharing(unsigned char sharing) {
  KRLCountBlock* b = _block();
  b->_sharing = sharing;
  _hold(b);
}

void KRLResource::set_init_sharing(unsigned char sharing) {
  krl_internal::atomic_store(&_init_sharing, sharing, krl_internal::MemoryOrder::kRelaxed);
}

// A pool that was never built has nothing parked; it is not built for this.
void KRLResource::garbage_collect() {
  if (CountBlockPool* pool = CountBlockPool::built()) pool->collect();
}

namespace krl_internal {

struct ResourceAccess {
  static KRLCountBlock* block(const KRLResource& r) { return r._block_of(); }
};

KRLCountBlock* count_block_of(const KRLResource& r) { return ResourceAccess::block(r); }

}  // namespace krl_internal
