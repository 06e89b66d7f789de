#include "krlport/threads/thread_id.h"

#include "krlport/platform/thread.h"

KRLThreadId::KRLThreadId() : _tid(krl_internal::current_thread_id()) {}

void KRLThreadId::reset() { _tid = krl_internal::current_thread_id(); }

KRLThreadId::KRLThreadId(const KRLThreadId& other)
    : _tid(__atomic_load_n(&other._tid, __ATOMIC_RELAXED)) {}

const KRLThreadId& KRLThreadId::operator=(const KRLThreadId& other) {
  _tid = __atomic_load_n(&other._tid, __ATOMIC_RELAXED);
  return *this;
}
