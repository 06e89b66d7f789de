// Internal: library-only access to KRLCondition. Not installed.
#ifndef KRLPORT_THREADS_CONDITION_INTERNAL_H_
#define KRLPORT_THREADS_CONDITION_INTERNAL_H_

#include "krlport/threads/condition.h"
#include "krlport/threads/mutex.h"

namespace krl_internal {

// Signal and broadcast in two halves, for a lock whose waiters may destroy it
// once woken (KRLRWLock). take_one and take_all take the waiter at index 0,
// or all of them, out of the array and give them as a chain (null: nobody
// waits); the caller may hold the mutex its waiters give up. wake sets the
// events of a chain, touching only the waiters' records: call it once for
// each chain, with nothing held that a woken waiter needs.
ConditionWaiter* condition_take_one(KRLCondition& c);
ConditionWaiter* condition_take_all(KRLCondition& c);
void condition_wake(ConditionWaiter* taken);

// For tests: the number of registered waiters and the size of the array,
// each read under the condition's own lock, and that lock.
unsigned long condition_waiters(KRLCondition& c);
unsigned long condition_capacity(KRLCondition& c);
KRLMutex& condition_mutex(KRLCondition& c);

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_CONDITION_INTERNAL_H_
