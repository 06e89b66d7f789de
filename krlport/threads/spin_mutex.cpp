#include "krlport/threads/spin_mutex.h"

#include <atomic>

#include "krlport/platform/atomic.h"
#include "krlport/platform/thread.h"
#include "krlport/threads/spin_pool.h"

using krl_internal::atomic_compare_exchange;
using krl_internal::atomic_load;
using krl_internal::atomic_store;
using krl_internal::MemoryOrder;

KRLSpinMutex::KRLSpinMutex() : _word(KRLSpinWordPool::instance().get()) {}

KRLSpinMutex::KRLSpinMutex(const KRLSpinMutex& m) : KRLIMutex(), _word(m._word) {
  if (_word != nullptr) KRLSpinWordPool::share(_word);
}

KRLSpinMutex& KRLSpinMutex::operator=(const KRLSpinMutex& m) {
  if (m._word == _word) return *this;
  if (m._word != nullptr) KRLSpinWordPool::share(m._word);
  long* const old = _word;
  _word = m._word;
  KRLSpinWordPool::instance().drop(old);
  return *this;
}

KRLSpinMutex::~KRLSpinMutex() { KRLSpinWordPool::instance().drop(_word); }

void KRLSpinMutex::lock() {
  if (_word != nullptr) KRLSpinWord::acquire(_word);
}

void KRLSpinMutex::unlock() {
  if (_word != nullptr) KRLSpinWord::release(_word);
}

void KRLSpinMutex::v_lock() { lock(); }
void KRLSpinMutex::v_unlock() { unlock(); }

KRLRSpinMutex::KRLRSpinMutex() : _record(KRLSpinRecordPool::instance().get()) {}

KRLRSpinMutex::KRLRSpinMutex(const KRLRSpinMutex& m) : KRLIMutex(), _record(m._record) {
  if (_record != nullptr) KRLSpinRecordPool::share(_record);
}

KRLRSpinMutex& KRLRSpinMutex::operator=(const KRLRSpinMutex& m) {
  if (m._record == _record) return *this;
  if (m._record != nullptr) KRLSpinRecordPool::share(m._record);
  KRLSpinRecord* const old = _record;
  _record = m._record;
  if (old != nullptr) KRLSpinRecordPool::instance().drop(old);
  return *this;
}

KRLRSpinMutex::~KRLRSpinMutex() {
  // A lock without a record never reached the pool: do not build it here.
  if (_record != nullptr) KRLSpinRecordPool::instance().drop(_record);
}

namespace {

// One attempt to take a free record for self.
bool try_own(unsigned long* owner, unsigned long self) {
  unsigned long expected = 0;
  return atomic_load(owner, MemoryOrder::kRelaxed) == 0 &&
         atomic_compare_exchange(owner, &expected, self, false, MemoryOrder::kAcquire,
                                 MemoryOrder::kRelaxed);
}

// Everything but a free record and a known id: re-entry (`owner` is the
// owner the attempt found, or 0 if none was made), then yielding until the
// record is self's. Out of line, so that the path that gets in at once saves
// no registers.
__attribute__((noinline)) void lock_slowly(KRLSpinRecord* record, unsigned long owner) {
  const unsigned long self = krl_internal::current_thread_id();
  const bool attempted = owner != 0;  // a failed attempt always finds an owner
  // Only this thread ever stores its own id, so seeing it means we own it.
  if (!attempted) owner = atomic_load(&record->_owner, MemoryOrder::kRelaxed);
  if (owner == self) {
    ++record->_depth;
    return;
  }
  if (attempted) krl_internal::yield_processor();
  while (!try_own(&record->_owner, self)) krl_internal::yield_processor();
  record->_depth = 1;
}

}  // namespace

// The free record is tried first: a failed attempt tells the owner, so
// re-entry needs no read of its own.
void KRLRSpinMutex::lock() {
  KRLSpinRecord* const record = _record;
  if (record == nullptr) return;
  const unsigned long self = krl_internal::cached_thread_id();
  unsigned long owner = 0;
  if (self != 0 && atomic_compare_exchange(&record->_owner, &owner, self, false,
                                           MemoryOrder::kAcquire, MemoryOrder::kRelaxed)) {
    record->_depth = 1;
    return;
  }
  lock_slowly(record, owner);
}

void KRLRSpinMutex::unlock() {
  if (_record == nullptr) return;
  // A release store frees it, as KRLSpinWord::release does.
  if (--_record->_depth == 0) atomic_store(&_record->_owner, 0UL, MemoryOrder::kRelease);
}

void KRLRSpinMutex::v_lock() { lock(); }
void KRLRSpinMutex::v_unlock() { unlock(); }

namespace krl_internal {

struct SpinMutexAccess {
  static long* word(const KRLSpinMutex& m) { return m._word; }
  static KRLSpinRecord* record(const KRLRSpinMutex& m) { return m._record; }
};

long* word_of(const KRLSpinMutex& m) { return SpinMutexAccess::word(m); }
KRLSpinRecord* record_of(const KRLRSpinMutex& m) { return SpinMutexAccess::record(m); }

}  // namespace krl_internal
