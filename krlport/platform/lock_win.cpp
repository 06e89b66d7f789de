// The recursive lock of lock.h as a CRITICAL_SECTION, constructed in the
// caller's room.
#include "krlport/platform/lock.h"

#include <windows.h>

#include <cstdint>

#include "krlport/platform/atomic.h"

namespace krl_internal {
namespace {

static_assert(sizeof(CRITICAL_SECTION) <= kLockRoomSize, "the room must hold a CRITICAL_SECTION");
static_assert(alignof(CRITICAL_SECTION) <= kLockRoomAlign, "the room is under-aligned");

CRITICAL_SECTION* section(LockRoom* r) { return reinterpret_cast<CRITICAL_SECTION*>(r); }

// The section's owner: the owning thread's id, 0 while free. The system
// writes it on entry and clears it on the last leave; only the owner can find
// its own id there, so a relaxed read answers "do I own it" exactly.
DWORD owner_of(CRITICAL_SECTION* cs) {
  return static_cast<DWORD>(
      reinterpret_cast<std::uintptr_t>(atomic_load(&cs->OwningThread, MemoryOrder::kRelaxed)));
}

}  // namespace

void lock_init(LockRoom* r) { InitializeCriticalSection(section(r)); }

// Quiet also while the calling thread holds the section.
void lock_destroy(LockRoom* r) { DeleteCriticalSection(section(r)); }

bool lock_try_acquire(LockRoom* r) { return TryEnterCriticalSection(section(r)) != 0; }

void lock_acquire(LockRoom* r) { EnterCriticalSection(section(r)); }

// LeaveCriticalSection from a thread that does not own the section would
// corrupt it: such a release is dropped, as the lock's contract says.
void lock_release(LockRoom* r) {
  CRITICAL_SECTION* const cs = section(r);
  if (owner_of(cs) != GetCurrentThreadId()) return;
  LeaveCriticalSection(cs);
}

bool lock_held(LockRoom* r) { return owner_of(section(r)) != 0; }

}  // namespace krl_internal
