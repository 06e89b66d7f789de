#include "krlport/platform/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

namespace krl_internal {
namespace {

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
