#include "krlport/platform/event.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#endif

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

namespace krl_internal {
namespace {

#ifndef _WIN32

// Records each deadline; the first sleep is interrupted, the others fail.
std::vector<EventDeadline> g_deadlines;
int recording_sleep(std::atomic<std::uint32_t>*, std::uint32_t, const EventDeadline* deadline) {
  g_deadlines.push_back(deadline != nullptr ? *deadline : EventDeadline{-1, -1});
  errno = g_deadlines.size() == 1 ? EINTR : EINVAL;
  return -1;
}

TEST(EventTest, SetEventAnswersAtOnceAndInterruptedSleepKeepsItsDeadline) {
  set_event_sleep_call(&recording_sleep);
  Event set;
  set.set();
  EXPECT_EQ(set.wait(kWaitForever), EventWait::kSignalled);
  Event clear;
  EXPECT_EQ(clear.wait(0), EventWait::kTimedOut);  // 0 only tests
  EXPECT_TRUE(g_deadlines.empty());
  EXPECT_EQ(clear.wait(100), EventWait::kFailed);
  EXPECT_EQ(errno, EINVAL);
  set_event_sleep_call(nullptr);
  ASSERT_EQ(g_deadlines.size(), 2u);
  EXPECT_EQ(g_deadlines[0].seconds, g_deadlines[1].seconds);
  EXPECT_EQ(g_deadlines[0].nanoseconds, g_deadlines[1].nanoseconds);
}

#else

// The waiting thread's window gets a message posted from another thread;
// the pumping wait dispatches it on the waiting thread, and the set that
// follows still ends the wait.
std::atomic<DWORD> g_dispatched_on{0};
LRESULT CALLBACK note_dispatch(HWND w, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg != WM_APP) return DefWindowProcA(w, msg, wp, lp);
  g_dispatched_on = GetCurrentThreadId();
  return 0;
}

TEST(EventTest, PumpingWaitDispatchesTheThreadsMessagesUntilSet) {
  WNDCLASSA wc = {};
  wc.lpfnWndProc = &note_dispatch;
  wc.hInstance = GetModuleHandleA(nullptr);
  wc.lpszClassName = "krl_event_test";
  ASSERT_NE(RegisterClassA(&wc), 0);
  HWND w = CreateWindowExA(0, wc.lpszClassName, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                           wc.hInstance, nullptr);
  ASSERT_NE(w, nullptr);
  Event e;
  ASSERT_TRUE(e.ok());
  std::thread poster([&] {
    PostMessageA(w, WM_APP, 0, 0);
    while (g_dispatched_on == 0) Sleep(1);
    e.set();
  });
  EXPECT_EQ(e.wait_pumping(kWaitForever), EventWait::kSignalled);
  poster.join();
  EXPECT_EQ(g_dispatched_on, GetCurrentThreadId());
  Event never;
  EXPECT_EQ(never.wait_pumping(20), EventWait::kTimedOut);
  EXPECT_EQ(never.wait(0), EventWait::kTimedOut);
  DestroyWindow(w);
  UnregisterClassA(wc.lpszClassName, wc.hInstance);
}

#endif  // _WIN32

// Each waiter's event ends with its frame, usually while the setter is still
// inside set(). ThreadSanitizer reports any touch of the event after its word
// was set as a race with the next round's event at the same address.
TEST(EventTest, WaiterMayEndItsEventWhileTheSetterIsStillInSet) {
  std::atomic<Event*> published{nullptr};
  std::thread setter([&] {
    for (int i = 0; i < 3000; ++i) {
      Event* e;
      while ((e = published.exchange(nullptr)) == nullptr) std::this_thread::yield();
      e->set();
    }
  });
  for (int i = 0; i < 3000; ++i) {
    Event e;
    published = &e;
    ASSERT_EQ(e.wait(i % 2 == 0 ? kWaitForever : 60000), EventWait::kSignalled);
  }
  setter.join();
}

}  // namespace
}  // namespace krl_internal
