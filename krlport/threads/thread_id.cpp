#include "krlport/threads/thread_id.h"

#include "krlport/platform/thread.h"

KRLThreadId::KRLThreadId() : _tid(krl_internal::current_thread_id()) {}

void KRLThreadId::reset() { _tid = krl_internal::current_thread_id(); }
