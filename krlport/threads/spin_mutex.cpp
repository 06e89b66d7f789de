#include "krlport/threads/spin_mutex.h"

#include "krlport/platform/thread.h"
#include "krlport/threads/spin_pool.h"

KRLSpinMutex::KRLSpinMutex() : _word(KRLSpinWordPool::instance().get()) {}

KRLSpinMutex::KRLSpinMutex(const KRLSpinMutex&)
    : KRLIMutex(), _word(KRLSpinWordPool::instance().get()) {}

KRLSpinMutex& KRLSpinMutex::operator=(const KRLSpinMutex&) { return *this; }

KRLSpinMutex::~KRLSpinMutex() { KRLSpinWordPool::instance().put(_word); }

void KRLSpinMutex::lock() {
  if (_word != nullptr) KRLSpinWord::acquire(_word);
}

void KRLSpinMutex::unlock() {
  if (_word != nullptr) KRLSpinWord::release(_word);
}

void KRLSpinMutex::v_lock() { lock(); }
void KRLSpinMutex::v_unlock() { unlock(); }

KRLRSpinMutex::KRLRSpinMutex() : _record(KRLSpinRecordPool::instance().get()) {}

KRLRSpinMutex::KRLRSpinMutex(const KRLRSpinMutex&)
    : KRLIMutex(), _record(KRLSpinRecordPool::instance().get()) {}

KRLRSpinMutex& KRLRSpinMutex::operator=(const KRLRSpinMutex&) { return *this; }

KRLRSpinMutex::~KRLRSpinMutex() { KRLSpinRecordPool::instance().put(_record); }

void KRLRSpinMutex::lock() {
  if (_record == nullptr) return;
  const unsigned long self = krl_internal::current_thread_id();
  unsigned long* owner = &_record->_owner;
  // Only this thread ever stores its own id, so seeing it means we own it.
  if (__atomic_load_n(owner, __ATOMIC_RELAXED) != self) {
    unsigned long expected = 0;
    while (__atomic_load_n(owner, __ATOMIC_RELAXED) != 0 ||
           !__atomic_compare_exchange_n(owner, &expected, self, false, __ATOMIC_SEQ_CST,
                                        __ATOMIC_RELAXED)) {
      expected = 0;
      krl_internal::yield_processor();
    }
  }
  ++_record->_depth;
}

void KRLRSpinMutex::unlock() {
  if (_record == nullptr) return;
  if (--_record->_depth == 0) __atomic_exchange_n(&_record->_owner, 0UL, __ATOMIC_SEQ_CST);
}

void KRLRSpinMutex::v_lock() { lock(); }
void KRLRSpinMutex::v_unlock() { unlock(); }

namespace krl_internal {

long* word_of(const KRLSpinMutex& m) { return m._word; }
KRLSpinRecord* record_of(const KRLRSpinMutex& m) { return m._record; }

}  // namespace krl_internal
