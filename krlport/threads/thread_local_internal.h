// Internal: the per-thread cache in front of KRLThreadLocal::instance, so
// that the library's own callers (the CORBA environment) answer a repeated
// look-up inline, without the exported call and without _mutex.
//
// The cache of a thread holds objects that a locked look-up of that thread
// found, with the epoch current at that time. Every unregistration, on any
// thread, raises the epoch under KRLThreadLocal's mutex; a cache answers only
// while its epoch is current, so an object unregistered before a call began
// is never given out, and an object the locked look-up would give is the one
// the cache gives. A cache remembers the thread id it was filled under: the
// child of a fork() is a new thread with the same per-thread memory.
#ifndef KRLPORT_THREADS_THREAD_LOCAL_INTERNAL_H_
#define KRLPORT_THREADS_THREAD_LOCAL_INTERNAL_H_

#include <atomic>

#include "krlport/platform/thread.h"
#include "krlport/platform/tls.h"
#include "krlport/threads/thread_local.h"

namespace krl_internal {

constexpr unsigned kThreadLocalCacheEntries = 4;

struct ThreadLocalCacheEntry {
  unsigned long key;        // 0 in an empty entry: no cached object has key 0 with a null object
  KRLThreadLocal* object;   // never null in a filled entry
};

// Owned by its thread; written only by it, under KRLThreadLocal's mutex.
struct ThreadLocalCache {
  unsigned long long epoch;  // 0: empty; epochs start at 1
  unsigned long tid;         // the thread id it was filled under
  ThreadLocalCacheEntry entries[kThreadLocalCacheEntries];
};

// What a thread keeps of its own: its incarnation (0 until it registers an
// object; see thread_local.cpp) and its cache.
struct ThreadLocalPerThread {
  unsigned long long incarnation;
  ThreadLocalCache cache;
};

// Raised under KRLThreadLocal's mutex at every unregistration (release);
// read by the caches without a lock (acquire).
extern std::atomic<unsigned long long> g_thread_local_epoch;

// The calling thread's own data; null only where per-thread memory could not
// be had (Windows).
inline ThreadLocalPerThread* thread_local_per_thread() {
  return ThreadSlot<ThreadLocalPerThread>::get();
}

// The locked look-up behind the cache.
struct ThreadLocalAccess {
  // KRLThreadLocal::instance(key) without the cache: takes _mutex, looks the
  // key up and, on a hit, fills the calling thread's cache.
  static KRLThreadLocal* find(unsigned long key);
};

// The calling thread's object for key as the cache knows it, or null when
// the cache cannot answer (the caller then asks KRLThreadLocal::instance).
// Takes no lock and makes no call on Linux.
inline KRLThreadLocal* cached_thread_local(unsigned long key) {
  const ThreadLocalPerThread* t = thread_local_per_thread();
  if (t == nullptr) return nullptr;
  const ThreadLocalCache& c = t->cache;
  const ThreadLocalCacheEntry& e = c.entries[key % kThreadLocalCacheEntries];
  if (e.key != key || c.epoch != g_thread_local_epoch.load(std::memory_order_acquire) ||
      !still_on_thread(c.tid)) {
    return nullptr;
  }
  return e.object;
}

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_THREAD_LOCAL_INTERNAL_H_
