#include "krlport/threads/spin_pool.h"

#include <cstdlib>
#include <new>

#include "krlport/frame/at_unload.h"

void KRLSpinWord::acquire_after_yielding(long* word) {
  do {
    krl_internal::yield_processor();
  } while (!try_acquire(word));
}

KRLSpinWordPool& KRLSpinWordPool::instance() {
  // Constant-initialised: there is no run-time construction for two first
  // users to race on, and no destructor.
  static KRLSpinWordPool pool;
  return pool;
}

long* KRLSpinWordPool::get() {
  long* word = nullptr;
  _lock.acquire();
  if (_count != 0) word = _entries[--_count];
  _lock.release();
  if (word != nullptr) return word;
  KRLSpinWordBlock* fresh = new (std::nothrow) KRLSpinWordBlock();
  return fresh != nullptr ? &fresh->_word : nullptr;
}

void KRLSpinWordPool::put(long* word) {
  if (word == nullptr) return;
  _lock.acquire();
  const bool kept = _count < kSpinPoolSize;
  if (kept) _entries[_count++] = word;
  _lock.release();
  if (!kept) delete block(word);
}

long KRLSpinWordPool::count() {
  _lock.acquire();
  const long n = _count;
  _lock.release();
  return n;
}

KRLSpinRecordPool::KRLSpinRecordPool() : _count(0), _lock(), _entries() {}

KRLSpinRecordPool& KRLSpinRecordPool::instance() {
  // The guard of a function-local static makes a racing first use wait for
  // the one construction.
  static KRLSpinRecordPool* const pool = make();
  return *pool;
}

KRLSpinRecordPool* KRLSpinRecordPool::make() {
  // Static storage, not the heap: the pool is never freed.
  alignas(KRLSpinRecordPool) static unsigned char storage[sizeof(KRLSpinRecordPool)];
  KRLSpinRecordPool* pool = new (storage) KRLSpinRecordPool;
  krl_internal::run_at_unload<&KRLSpinRecordPool::terminate>();
  return pool;
}

void KRLSpinRecordPool::terminate() {
  KRLSpinRecordPool& pool = instance();
  long* word = pool._lock._word;
  // A null word makes _lock a no-op for whatever runs after us at unload.
  pool._lock._word = nullptr;
  KRLSpinWordPool::instance().put(word);
}

KRLSpinRecord* KRLSpinRecordPool::get() {
  KRLSpinRecord* record = nullptr;
  _lock.lock();
  if (_count != 0) record = _entries[--_count];
  _lock.unlock();
  if (record != nullptr) return record;
  KRLSpinRecordBlock* fresh = new (std::nothrow) KRLSpinRecordBlock();
  return fresh != nullptr ? &fresh->_record : nullptr;
}

void KRLSpinRecordPool::put(KRLSpinRecord* record) {
  if (record == nullptr) return;
  _lock.lock();
  const bool kept = _count < kSpinPoolSize;
  if (kept) _entries[_count++] = record;
  _lock.unlock();
  if (!kept) delete block(record);
}

long KRLSpinRecordPool::count() {
  _lock.lock();
  const long n = _count;
  _lock.unlock();
  return n;
}
