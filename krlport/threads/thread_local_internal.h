// Internal: the per-thread cache in front of KRLThreadLocal::instance, so
// that the library's own callers (the CORBA environment) answer a repeated
// look-up with one direct call, without the exported call and without _mutex.
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

#include "krlport/threads/thread_local.h"

namespace krl_internal {

// The locked look-up behind the cache.
struct ThreadLocalAccess {
  // KRLThreadLocal::instance(key) without the cache: takes _mutex, looks the
  // key up and, on a hit, fills the calling thread's cache.
  static KRLThreadLocal* find(unsigned long key);
};

// The calling thread's object for key as the cache knows it, or null when
// the cache cannot answer (the caller then asks KRLThreadLocal::instance).
// Takes no lock; a leaf on Linux.
KRLThreadLocal* cached_thread_local(unsigned long key);

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_THREAD_LOCAL_INTERNAL_H_
