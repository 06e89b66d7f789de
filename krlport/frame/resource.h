/// @file
/// KRLResource: base class of objects that several owners share and that
/// destroy themselves when the last owner lets go, with its count block.
///
/// Design. A resource holds one word, `_refs`. While it has a single owner it
/// has no count block, and a `_refs` of 0 stands for a count of 1. The first
/// operation that needs a real count (_ref, _set_sharing, _reset_refs) takes a
/// block from a process-wide pool; the destructor gives it back. The pool parks
/// up to 1024 blocks, so a short-lived shared object costs no heap operation in
/// the steady state, and a parked block keeps its spin lock built.
///
/// Each block says whether its count is shared between threads (`_sharing`).
/// With sharing off the count is a plain integer; with sharing on every change
/// is one atomic read-modify-write and every read an acquire load. The block's
/// spin lock guards the count and nothing else, so one atomic instruction
/// stands in for lock, change and unlock: the values seen, and the order of
/// changes, are those the lock gives. The lock is still built with the block.
/// Both cases are inline here and test `_refs` only; taking the first block is
/// out of line.
///
/// Thread-safety. With sharing on, _ref, _unref, _deref and _num_refs are safe
/// from any thread on one resource, once it has a block: the owner makes the
/// first _ref (or _set_sharing) before it passes the resource on. With sharing
/// off every call on the resource comes from one thread at a time. _set_sharing
/// and _reset_refs are for the owner alone, before sharing begins.
///
/// Locks: the pool's is a spin lock held for a few instructions; counting
/// takes no lock.
#ifndef KRLPORT_FRAME_RESOURCE_H_
#define KRLPORT_FRAME_RESOURCE_H_

#include <atomic>
#include <cstdint>

#include "krlport/frame/export.h"
#include "krlport/threads/spin_mutex.h"

/// Internal: the count of a resource that has left the Sole state. Not part of
/// the interface; its layout is here only for the inline fast paths of
/// KRLResource. A parked block has _count 0 and belongs to no resource.
struct KRLCountBlock {
  /// References. While _sharing is set every change is an acq_rel
  /// read-modify-write and every read an acquire load; otherwise relaxed
  /// loads and stores, which are plain moves. Laid out as a `long`.
  std::atomic<long> _count;
  unsigned char _sharing;  ///< non-zero: _count is changed atomically
  KRLSpinMutex _lock;      ///< built once, when the block is first allocated
};
static_assert(sizeof(std::atomic<long>) == sizeof(long) &&
                  alignof(std::atomic<long>) == alignof(long) &&
                  std::atomic<long>::is_always_lock_free,
              "the count is laid out as a plain long");

class KRLResource;

namespace krl_internal {

// Internal: reaches the block a resource holds
// (krlport/frame/count_block_pool.h).
struct ResourceAccess;

}  // namespace krl_internal

/// Base of objects that several owners share and that delete themselves when
/// the last owner lets go. Derive from it and make objects on the heap. See
/// the file description for thread-safety: with sharing on, counting is safe
/// from any thread once the resource has a block.
class KRL_EXPORT KRLResource {
 public:
  /// Sole: no block, count 1.
  KRLResource() : _refs(0) {}
  /// A copy is a new object with its own owner: it starts Sole, with no block,
  /// whatever the source's count. Sharing the source's block would make both
  /// give it back to the pool, and the copy has none of the source's owners.
  KRLResource(const KRLResource&) : _refs(0) {}
  /// Assignment copies no count: who refers to an object does not change with
  /// its value, so this resource keeps its own block and count.
  KRLResource& operator=(const KRLResource&) { return *this; }

  /// Adds a reference and returns the new count. The first _ref on a Sole
  /// resource takes a block and returns 2. If that block cannot be had,
  /// std::bad_alloc propagates and the resource is unchanged.
  long _ref();
  /// Drops a reference and returns the new count; at exactly 0 the object
  /// destroys itself (delete this). A Sole resource is destroyed by its first
  /// _unref. A count driven below 0 is not detected and destroys nothing.
  virtual long _unref();
  /// Drops a reference and returns the new count, but never destroys. A Sole
  /// resource returns 0 and stays as it is.
  virtual long _deref();
  /// The count: 1 while Sole.
  long _num_refs();

  /// Sets whether this resource's count takes its lock, taking a block first if
  /// there is none (the count stays 1). No lock: for the owner, before sharing.
  /// May throw std::bad_alloc, as _ref.
  void _set_sharing(unsigned char sharing);

  /// The sharing of blocks handed out from now on (1 at load); blocks in use
  /// keep theirs. Set it before the threads that use resources start.
  static void set_init_sharing(unsigned char sharing);
  /// Null does nothing; otherwise r->_unref().
  static void _release(KRLResource* r);
  /// Frees the blocks parked in the pool. Looks at no resource; a later block
  /// is simply allocated anew. Nothing in the library calls it.
  static void garbage_collect();

 protected:
  /// Gives the block, if any, back to the pool. Without a block it touches no
  /// pool and allocates nothing, so it cannot fail.
  virtual ~KRLResource();

  /// Makes the count 0, taking a block first if there is none, so that the
  /// next _ref gives 1: the count then counts only the references that _ref
  /// gave out. No lock: for the owner, before sharing. May throw std::bad_alloc.
  void _reset_refs();

 private:
  friend struct krl_internal::ResourceAccess;

  // _refs is the block's address, plus kPlainTag while the block's _sharing is
  // 0, so that the unshared fast path tests one bit; a block with sharing on
  // has it clear and is non-zero, Sole is 0. The tag mirrors the block's
  // _sharing; both are set together, when the block is taken and by
  // _set_sharing.
  static constexpr std::uintptr_t kPlainTag = 1;
  static_assert(alignof(KRLCountBlock) > kPlainTag, "the tag needs a free low bit");

  KRLCountBlock* _plain() const { return reinterpret_cast<KRLCountBlock*>(_refs - kPlainTag); }
  KRLCountBlock* _shared() const { return reinterpret_cast<KRLCountBlock*>(_refs); }
  KRLCountBlock* _block_of() const { return reinterpret_cast<KRLCountBlock*>(_refs & ~kPlainTag); }
  void _hold(KRLCountBlock* b);  // sets _refs to b with the tag of its _sharing
  KRLCountBlock* _block();       // the block, taking one from the pool if Sole

  // Adds delta to the count of a block with sharing off: one thread at a time.
  static long _change_plain(KRLCountBlock* b, long delta) {
    const long n = b->_count.load(std::memory_order_relaxed) + delta;
    b->_count.store(n, std::memory_order_relaxed);
    return n;
  }
  // Adds delta to the count of a block with sharing on: ordered as a change
  // under the block's lock would be, so that the thread that brings it to 0
  // sees every other owner's use of the object before it destroys it.
  static long _change_shared(KRLCountBlock* b, long delta) {
    return b->_count.fetch_add(delta, std::memory_order_acq_rel) + delta;
  }

  // The first _ref of a Sole resource: takes a block, then counts.
  long _ref_slow();

  std::uintptr_t _refs;  // 0 while Sole; see kPlainTag

  // Sharing of every block handed out; 1 at load. Read and written atomically.
  static unsigned char _init_sharing;
};

inline long KRLResource::_ref() {
  if (_refs & kPlainTag) return _change_plain(_plain(), 1);
  if (_refs != 0) return _change_shared(_shared(), 1);
  return _ref_slow();
}

inline long KRLResource::_unref() {
  long n = 0;  // Sole: the only reference goes
  if (_refs & kPlainTag) {
    n = _change_plain(_plain(), -1);
  } else if (_refs != 0) {
    n = _change_shared(_shared(), -1);
  }
  if (n == 0) delete this;
  return n;
}

inline long KRLResource::_deref() {
  if (_refs & kPlainTag) return _change_plain(_plain(), -1);
  if (_refs != 0) return _change_shared(_shared(), -1);
  return 0;
}

inline long KRLResource::_num_refs() {
  if (_refs & kPlainTag) return _plain()->_count.load(std::memory_order_relaxed);
  if (_refs != 0) return _shared()->_count.load(std::memory_order_acquire);
  return 1;
}

inline void KRLResource::_release(KRLResource* r) {
  if (r != nullptr) r->_unref();
}

#endif  // KRLPORT_FRAME_RESOURCE_H_
