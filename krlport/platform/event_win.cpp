// The event of event.h as a manual-reset event object, and the message
// pumping wait of KRLCondition's _all forms.
#include "krlport/platform/event.h"

#include <windows.h>

#include <cerrno>

#include "krlport/platform/fatal.h"

namespace krl_internal {
namespace {

// The wake mask of the pumping wait: every kind of input (QS_* 0xFF).
constexpr DWORD kAllInput = 0xFF;

EventWait failed() {
  errno = static_cast<int>(GetLastError());
  return EventWait::kFailed;
}

}  // namespace

// Manual reset, not signalled, unnamed, default security.
Event::Event() : _handle(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
  if (_handle == nullptr) errno = static_cast<int>(GetLastError());
}

Event::~Event() {
  if (_handle != nullptr) CloseHandle(_handle);
}

bool Event::ok() const { return _handle != nullptr; }

int spin_polls() { return 0; }

void Event::set() {
  if (!SetEvent(_handle)) fatal_error("SetEvent", static_cast<int>(GetLastError()));
}

EventWait Event::wait(std::uint32_t limit_ms) {
  switch (WaitForSingleObject(_handle, limit_ms)) {
    case WAIT_OBJECT_0:
      return EventWait::kSignalled;
    case WAIT_TIMEOUT:
      return EventWait::kTimedOut;
    default:
      return failed();
  }
}

EventWait Event::wait_pumping(std::uint32_t limit_ms) {
  HANDLE handle = _handle;
  for (;;) {
    const DWORD r = MsgWaitForMultipleObjects(1, &handle, FALSE, limit_ms, kAllInput);
    if (r == WAIT_OBJECT_0) return EventWait::kSignalled;
    if (r == WAIT_TIMEOUT) return EventWait::kTimedOut;
    if (r == WAIT_FAILED) return failed();
    if (r == WAIT_OBJECT_0 + 1) {
      // Input: dispatch all of it, then wait again for the full limit.
      MSG msg;
      while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
      }
    }
    // Anything else (an abandoned wait cannot happen on an event): again.
  }
}

}  // namespace krl_internal
