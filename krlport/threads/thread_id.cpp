#include "krlport/threads/thread_id.h"

#include "krlport/platform/atomic.h"
#include "krlport/platform/thread.h"

KRLThreadId::KRLThreadId() : _tid(krl_internal::current_thread_id()) {}

void KRLThreadId::reset() { _tid = krl_internal::current_thread_id(); }

KRLThreadId::KRLThreadId(const KRLThreadId& other)
    : _tid(krl_internal::atomic_load(&other._tid, krl_internal::MemoryOrder::kRelaxed)) {}

const KRLThreadId& KRLThreadId::operator=(const KRLThreadId& other) {
  _tid = krl_internal::atomic_load(&other._tid, krl_internal::MemoryOrder::kRelaxed);
  return *this;
}
