// Internal: library-only access to KRLMutex. Not installed.
#ifndef KRLPORT_THREADS_MUTEX_INTERNAL_H_
#define KRLPORT_THREADS_MUTEX_INTERNAL_H_

#include "krlport/threads/mutex.h"

namespace krl_internal {

// The platform lock inside a mutex.
LockStorage& lock_of(KRLMutex& m);
// For tests: the process-wide shutdown flag of KRLMutex.
unsigned char mutex_shutdown_flag();
void set_mutex_shutdown_flag(unsigned char flag);

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_MUTEX_INTERNAL_H_
