// Internal: library-only access to KRLRWLock, for tests. Not installed.
#ifndef KRLPORT_THREADS_RW_LOCK_INTERNAL_H_
#define KRLPORT_THREADS_RW_LOCK_INTERNAL_H_

#include "krlport/threads/rw_lock.h"

namespace krl_internal {

// `_state`, read under `_mutex`, and the number of readers and writers asleep
// on `_readers` and `_writers`.
long rw_lock_state(KRLRWLock& l);
unsigned long rw_lock_sleeping_readers(KRLRWLock& l);
unsigned long rw_lock_sleeping_writers(KRLRWLock& l);

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_RW_LOCK_INTERNAL_H_
