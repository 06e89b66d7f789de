#include "krlport/platform/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace krl_internal {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Makes waits sleep through another call for one scope.
class SleepCallScope {
 public:
  explicit SleepCallScope(EventSleepCall call) : _previous(set_event_sleep_call(call)) {}
  ~SleepCallScope() { set_event_sleep_call(_previous); }
  SleepCallScope(const SleepCallScope&) = delete;
  SleepCallScope& operator=(const SleepCallScope&) = delete;

 private:
  EventSleepCall _previous;
};

int failing_sleep(std::atomic<std::uint32_t>*, std::uint32_t, const timespec*) {
  errno = EINVAL;
  return -1;
}

std::atomic<int> g_sleeps{0};
int counting_sleep(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                   const timespec* deadline) {
  ++g_sleeps;
  return event_futex_sleep(word, expected, deadline);
}

// Deadlines seen by interrupted_once_sleep; only the waiting thread writes.
std::vector<timespec> g_deadlines;
int interrupted_once_sleep(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                           const timespec* deadline) {
  g_deadlines.push_back(deadline != nullptr ? *deadline : timespec{-1, -1});
  if (g_deadlines.size() == 1) {
    errno = EINTR;
    return -1;
  }
  return event_futex_sleep(word, expected, deadline);
}

TEST(EventTest, SetEventAndZeroLimitAnswerWithoutSleeping) {
  SleepCallScope no_sleep(&failing_sleep);
  Event e;
  e.set();
  EXPECT_EQ(e.wait(0), EventWait::kSignalled);
  EXPECT_EQ(e.wait(100), EventWait::kSignalled);
  EXPECT_EQ(e.wait(kWaitForever), EventWait::kSignalled);  // a set event stays set
  e.set();
  EXPECT_EQ(e.wait(0), EventWait::kSignalled);

  Event clear;
  EXPECT_EQ(clear.wait(0), EventWait::kTimedOut);  // 0 only tests
}

TEST(EventTest, LimitedWaitTimesOutAfterTheLimit) {
  Event e;
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(e.wait(100), EventWait::kTimedOut);
  const Clock::duration waited = Clock::now() - start;
  EXPECT_GE(waited, milliseconds(90));
  EXPECT_LT(waited, milliseconds(2000));
}

TEST(EventTest, SetWakesASleepingWaiter) {
  SleepCallScope counted(&counting_sleep);
  for (int round = 0; round < 50; ++round) {
    g_sleeps = 0;
    Event e;
    EventWait result = EventWait::kFailed;
    std::thread waiter([&] { result = e.wait(kWaitForever); });
    while (g_sleeps == 0) std::this_thread::yield();
    e.set();
    waiter.join();
    EXPECT_EQ(result, EventWait::kSignalled);
  }
}

TEST(EventTest, InterruptedSleepResumesUntilTheSameDeadline) {
  SleepCallScope interrupted(&interrupted_once_sleep);
  g_deadlines.clear();
  Event e;
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(e.wait(100), EventWait::kTimedOut);
  EXPECT_GE(Clock::now() - start, milliseconds(90));
  ASSERT_GE(g_deadlines.size(), 2u);
  EXPECT_EQ(g_deadlines[0].tv_sec, g_deadlines[1].tv_sec);
  EXPECT_EQ(g_deadlines[0].tv_nsec, g_deadlines[1].tv_nsec);
}

TEST(EventTest, FailedSleepReportsTheErrorInErrno) {
  SleepCallScope failing(&failing_sleep);
  Event e;
  errno = 0;
  EXPECT_EQ(e.wait(kWaitForever), EventWait::kFailed);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(e.wait(50), EventWait::kFailed);
  EXPECT_EQ(errno, EINVAL);
}

// Each round the waiter's event lives in a fresh frame that ends as soon as
// wait() returns, usually while the setter is still inside set(). Under
// ThreadSanitizer any touch of the event after its word was set shows up as
// a race with the next round's construction at the same address.
TEST(EventTest, WaiterMayEndItsEventWhileTheSetterIsStillInSet) {
  constexpr int kRounds = 3000;
  std::atomic<Event*> published{nullptr};
  std::thread setter([&] {
    for (int i = 0; i < kRounds; ++i) {
      Event* e;
      while ((e = published.exchange(nullptr, std::memory_order_acquire)) == nullptr) {
        std::this_thread::yield();
      }
      e->set();
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    Event e;
    published.store(&e, std::memory_order_release);
    ASSERT_EQ(e.wait(i % 2 == 0 ? kWaitForever : 60000), EventWait::kSignalled);
  }
  setter.join();
}

}  // namespace
}  // namespace krl_internal
