// Internal: library-only access to KRLMutex. Not installed.
#ifndef KRLPORT_THREADS_MUTEX_INTERNAL_H_
#define KRLPORT_THREADS_MUTEX_INTERNAL_H_

#include "krlport/platform/lock.h"
#include "krlport/threads/mutex.h"

namespace krl_internal {

static_assert(sizeof(LockStorage) == kLockRoomSize && alignof(LockStorage) == kLockRoomAlign,
              "a mutex keeps exactly the room the platform's lock asks for");

// The platform lock in a mutex's storage.
inline LockRoom* lock_room(LockStorage& s) { return reinterpret_cast<LockRoom*>(s._bytes); }

// The platform lock inside a mutex.
LockRoom* lock_of(KRLMutex& m);
// For tests: the process-wide shutdown flag of KRLMutex.
unsigned char mutex_shutdown_flag();
void set_mutex_shutdown_flag(unsigned char flag);

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_MUTEX_INTERNAL_H_
