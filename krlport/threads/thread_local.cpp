#include "krlport/threads/thread_local.h"

#include <atomic>
#include <memory>
#include <new>

#include "krlport/platform/atomic.h"
#include "krlport/platform/thread.h"
#include "krlport/platform/tls.h"
#include "krlport/threads/thread_local_internal.h"

unsigned long KRLThreadLocal::_cnt = 1;
KRLThreadLocal::KeyDict* KRLThreadLocal::_key_dict = nullptr;
// _mutex is defined in the load-order unit.

namespace {

// Thread ids come back soon after a thread ends. Each thread that registers
// an object draws an incarnation number, which its inner dictionary keeps: an
// inner dictionary under the caller's id but of another incarnation belongs
// to a thread that ended without _exit_thread, and the caller never sees it.
struct ThreadSlots : KRLThreadLocal::ThreadDict {
  explicit ThreadSlots(unsigned long long incarnation) : owner(incarnation) {}
  const unsigned long long owner;
};

std::atomic<unsigned long long> g_next_incarnation{1};

// The lock-free answer of instance(); see thread_local_internal.h.
constexpr unsigned kThreadLocalCacheEntries = 4;

struct ThreadLocalCacheEntry {
  unsigned long key;       // 0 in an empty entry
  KRLThreadLocal* object;  // never null in a filled entry
};

// Owned by its thread; written only by it, under _mutex.
struct ThreadLocalCache {
  unsigned long long epoch;  // 0: empty; epochs start at 1
  unsigned long tid;         // the thread id it was filled under
  ThreadLocalCacheEntry entries[kThreadLocalCacheEntries];
};

// Raised under _mutex at every unregistration (release); read by the caches
// without a lock (acquire).
std::atomic<unsigned long long> g_thread_local_epoch{1};

// What a thread keeps of its own: its incarnation (0 until it registers an
// object) and its cache.
struct ThreadLocalPerThread {
  unsigned long long incarnation;
  ThreadLocalCache cache;
};

// Null only where per-thread memory could not be had; such a thread has no
// incarnation, registers nothing and caches nothing.
ThreadLocalPerThread* per_thread() { return krl_internal::ThreadSlot<ThreadLocalPerThread>::get(); }

unsigned long long current_incarnation() {
  const ThreadLocalPerThread* t = per_thread();
  return t != nullptr ? t->incarnation : 0;
}

// The calling thread's incarnation, drawn at its first registration.
unsigned long long own_incarnation() {
  ThreadLocalPerThread* t = per_thread();
  if (t == nullptr) throw std::bad_alloc();
  if (t->incarnation == 0)
    t->incarnation = g_next_incarnation.fetch_add(1, std::memory_order_relaxed);
  return t->incarnation;
}

// Call with _mutex held.
void invalidate_caches() { g_thread_local_epoch.fetch_add(1, std::memory_order_release); }

// Call with _mutex held, after a hit.
void remember(unsigned long tid, unsigned long key, KRLThreadLocal* object) {
  ThreadLocalPerThread* t = per_thread();
  if (t == nullptr) return;
  const unsigned long long epoch = g_thread_local_epoch.load(std::memory_order_relaxed);
  ThreadLocalCache& c = t->cache;
  if (c.epoch != epoch || c.tid != tid) {
    c = ThreadLocalCache();
    c.epoch = epoch;
    c.tid = tid;
  }
  c.entries[key % kThreadLocalCacheEntries] = ThreadLocalCacheEntry{key, object};
}

ThreadSlots* slots_of(KRLThreadLocal::ThreadDict* d) { return static_cast<ThreadSlots*>(d); }

// The calling thread's inner dictionary, or null; with _mutex held.
ThreadSlots* own_slots(KRLThreadLocal::KeyDict& outer, const KRLThreadId& me) {
  KRLThreadLocal::ThreadDict* inner = nullptr;
  if (!outer.lookup(me, inner)) return nullptr;
  ThreadSlots* slots = slots_of(inner);
  return slots->owner == current_incarnation() ? slots : nullptr;
}

// Drops the entry of a thread that ended without _exit_thread from under the
// id that the caller now has. Its objects stay alive, unregistered: their
// destructors find nothing of theirs and change nothing. With _mutex held.
void retire_stale(KRLThreadLocal::KeyDict& outer, const KRLThreadId& me) {
  KRLThreadLocal::ThreadDict* inner = nullptr;
  if (!outer.lookup(me, inner) || slots_of(inner)->owner == current_incarnation()) return;
  outer.extract(me, inner);
  delete slots_of(inner);
}

}  // namespace

namespace krl_internal {

KRLThreadLocal* cached_thread_local(unsigned long key) {
  const ThreadLocalPerThread* t = per_thread();
  if (t == nullptr) return nullptr;
  const ThreadLocalCache& c = t->cache;
  const ThreadLocalCacheEntry& e = c.entries[key % kThreadLocalCacheEntries];
  if (e.key != key || c.epoch != g_thread_local_epoch.load(std::memory_order_acquire) ||
      !still_on_thread(c.tid)) {
    return nullptr;
  }
  return e.object;
}

// For tests: the calling thread becomes what a new thread that was given
// this id would be.
void forget_thread_incarnation() {
  if (ThreadLocalPerThread* t = per_thread()) *t = ThreadLocalPerThread();
}

}  // namespace krl_internal

unsigned long KRLThreadLocal::get_unique_id() {
  KRLMutex_var guard(_mutex, 1);
  return _cnt++;
}

KRLThreadLocal::KeyDict& KRLThreadLocal::_dict_instance() {
  KeyDict* dict = krl_internal::atomic_load(&_key_dict, krl_internal::MemoryOrder::kAcquire);
  if (dict != nullptr) return *dict;
  KRLMutex_var guard(_mutex, 1);
  if (_key_dict == nullptr) {
    krl_internal::atomic_store(&_key_dict, new KeyDict, krl_internal::MemoryOrder::kRelease);
  }
  return *_key_dict;
}

KRLThreadLocal::KRLThreadLocal(unsigned long key) : _key(key) {
  KRLMutex_var guard(_mutex, 1);
  KeyDict& outer = _dict_instance();
  const unsigned long long incarnation = own_incarnation();
  retire_stale(outer, _thread);
  ThreadSlots* slots = own_slots(outer, _thread);
  if (slots == nullptr) {
    slots = new ThreadSlots(incarnation);
    try {
      slots->insert(KRLUniqueId(key), this);
      outer.insert(_thread, slots);
    } catch (...) {
      delete slots;
      throw;
    }
    return;
  }
  slots->insert(KRLUniqueId(key), this);
}

KRLThreadLocal::~KRLThreadLocal() {
  KRLMutex_var guard(_mutex, 1);
  KeyDict* outer = _key_dict;
  ThreadDict* inner = nullptr;
  if (outer == nullptr || !outer->lookup(_thread, inner)) return;
  // The entry under our key may be another object's: a later thread with our
  // thread's id may have registered its own.
  KRLThreadLocal* registered = nullptr;
  if (!inner->lookup(KRLUniqueId(_key), registered) || registered != this) return;
  inner->remove(KRLUniqueId(_key));
  invalidate_caches();
  if (inner->_count == 0) {
    outer->extract(_thread, inner);
    delete slots_of(inner);
  }
}

void KRLThreadLocal::finalize() { delete this; }

KRLThreadLocal* KRLThreadLocal::instance(unsigned long key) {
  if (KRLThreadLocal* object = krl_internal::cached_thread_local(key)) return object;
  return krl_internal::ThreadLocalAccess::find(key);
}

KRLThreadLocal* krl_internal::ThreadLocalAccess::find(unsigned long key) {
  using KeyDict = KRLThreadLocal::KeyDict;
  const KRLThreadId me;
  KeyDict& outer = KRLThreadLocal::_dict_instance();
  KRLMutex_var guard(KRLThreadLocal::_mutex, 1);
  ThreadSlots* slots = own_slots(outer, me);
  KRLThreadLocal* object = nullptr;
  if (slots != nullptr && slots->lookup(KRLUniqueId(key), object)) remember(me._tid, key, object);
  return object;
}

void KRLThreadLocal::_exit_thread(void*) {
  KRLMutex_var guard(_mutex, 1);
  KeyDict* outer = _key_dict;
  const KRLThreadId me;
  ThreadDict* inner = nullptr;
  if (outer == nullptr || !outer->extract(me, inner)) return;
  invalidate_caches();
  std::unique_ptr<ThreadSlots> slots(slots_of(inner));
  // A dead thread's objects under our id are not ours to finalise.
  if (slots->owner != current_incarnation()) return;
  // finalize() may delete the object; its destructor finds no entry for this
  // thread any more and leaves the dictionary alone.
  KRLDictionaryIterator<KRLUniqueId, KRLThreadLocal*> it(slots.get());
  while (KRLDictionaryNode<KRLUniqueId, KRLThreadLocal*>* node = it.next())
    node->_value->finalize();
}
