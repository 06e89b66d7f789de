#include "krlport/threads/condition.h"

#include <time.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/event.h"
#include "krlport/platform/lock.h"

namespace {

using Clock = std::chrono::steady_clock;
using krl_internal::condition_capacity;
using krl_internal::condition_waiters;
using std::chrono::milliseconds;

// Polls until pred holds. A wait that needs more than 20 s is a hang: the
// process ends with a message rather than blocking the test run.
template <class Pred>
void await(Pred pred, const char* what) {
  const Clock::time_point limit = Clock::now() + std::chrono::seconds(20);
  while (!pred()) {
    if (Clock::now() > limit) {
      // Reported on stdout: a test may be capturing stderr.
      ADD_FAILURE() << "hang: still waiting for " << what;
      std::abort();
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
}

// Whether another thread holds m: probes from a thread of its own, which
// never blocks and leaves m as it found it.
bool held_elsewhere(KRLMutex& m) {
  bool got = false;
  std::thread probe([&] {
    got = krl_internal::lock_try_acquire(krl_internal::lock_of(m));
    if (got) m.unlock();
  });
  probe.join();
  return !got;
}

// Makes event waits sleep through another call for one scope.
class SleepCallScope {
 public:
  explicit SleepCallScope(krl_internal::EventSleepCall call)
      : _previous(krl_internal::set_event_sleep_call(call)) {}
  ~SleepCallScope() { krl_internal::set_event_sleep_call(_previous); }
  SleepCallScope(const SleepCallScope&) = delete;
  SleepCallScope& operator=(const SleepCallScope&) = delete;

 private:
  krl_internal::EventSleepCall _previous;
};

int failing_sleep(std::atomic<std::uint32_t>*, std::uint32_t, const timespec*) {
  errno = EINVAL;
  return -1;
}

// The limit a wait passed to its sleep, in milliseconds: kNoSleep when it
// did not sleep at all, kForever for no deadline.
constexpr long long kNoSleep = -1;
constexpr long long kForever = -2;
long long g_passed_limit = kNoSleep;

// Records the limit and ends the sleep at once: with a time-out when there
// is a deadline, with a failure when there is none.
int limit_recording_sleep(std::atomic<std::uint32_t>*, std::uint32_t, const timespec* deadline) {
  if (deadline == nullptr) {
    g_passed_limit = kForever;
    errno = EINVAL;
    return -1;
  }
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const long long ns = (static_cast<long long>(deadline->tv_sec) - now.tv_sec) * 1000000000LL +
                       (deadline->tv_nsec - now.tv_nsec);
  g_passed_limit = (ns + 999999) / 1000000;  // rounded up to whole ms
  errno = ETIMEDOUT;
  return -1;
}

// Runs a timed wait with the recording sleep and gives the limit it passed.
// A wait without a deadline fails; then it must have left m unlocked.
template <class Wait>
long long passed_limit(KRLMutex& m, Wait wait) {
  g_passed_limit = kNoSleep;
  try {
    wait();
  } catch (const CORBA_NO_RESOURCES&) {
    m.lock();
  } catch (const CORBA_TIMEOUT&) {
  }
  return g_passed_limit;
}

TEST(KRLConditionTest, SignalWithoutWaiterIsNotRemembered) {
  KRLMutex m;
  KRLCondition c;
  c.signal();
  c.broadcast();
  EXPECT_EQ(condition_waiters(c), 0u);
  EXPECT_EQ(condition_capacity(c), 4u);

  m.lock();
  EXPECT_EQ(c.timedwait(m, 0ull), 1);
  EXPECT_EQ(condition_waiters(c), 0u);
  m.unlock();  // aborts unless the wait held m again
}

// Waiters a, b, c, d, registered in this order, wake as a, d, c, b: signal
// takes index 0 and moves the newest entry into its place.
TEST(KRLConditionTest, SignalTakesIndexZeroAndMovesTheNewestThere) {
  KRLMutex m;
  KRLCondition c;
  std::vector<int> woken;  // guarded by m
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&, i] {
      m.lock();
      c.wait(m);
      woken.push_back(i);
      m.unlock();
    });
    await([&] { return condition_waiters(c) == static_cast<unsigned long>(i) + 1; }, "waiter");
  }
  for (std::size_t n = 1; n <= 4; ++n) {
    c.signal();
    await(
        [&] {
          m.lock();
          const bool done = woken.size() == n;
          m.unlock();
          return done;
        },
        "a woken waiter");
    EXPECT_EQ(condition_waiters(c), 4 - n);
  }
  for (std::thread& t : waiters) t.join();
  EXPECT_EQ(woken, (std::vector<int>{0, 3, 2, 1}));
}

TEST(KRLConditionTest, ArrayDoublesAndBroadcastWakesEveryone) {
  KRLMutex m;
  KRLCondition c;
  int woken = 0;  // guarded by m
  std::vector<std::thread> waiters;
  for (int i = 1; i <= 9; ++i) {
    waiters.emplace_back([&] {
      m.lock();
      c.wait_all(m);
      ++woken;
      m.unlock();
    });
    await([&] { return condition_waiters(c) == static_cast<unsigned long>(i); }, "waiter");
    if (i == 4) {
      EXPECT_EQ(condition_capacity(c), 4u);
    } else if (i == 5) {
      EXPECT_EQ(condition_capacity(c), 8u);
    }
  }
  EXPECT_EQ(condition_capacity(c), 16u);
  c.broadcast();
  EXPECT_EQ(condition_waiters(c), 0u);
  for (std::thread& t : waiters) t.join();
  EXPECT_EQ(woken, 9);
  EXPECT_EQ(condition_capacity(c), 16u);
}

TEST(KRLConditionTest, TimedWaitsRunOutInBothUnits) {
  KRLMutex m;
  KRLCondition c;
  m.lock();
  Clock::time_point start = Clock::now();
  EXPECT_EQ(c.timedwait(m, 100ull), 1);
  Clock::duration waited = Clock::now() - start;
  EXPECT_GE(waited, milliseconds(90));
  EXPECT_LT(waited, milliseconds(2000));
  EXPECT_EQ(condition_waiters(c), 0u);

  start = Clock::now();
  EXPECT_EQ(c.timedwait_all(m, 1ul), 1);
  waited = Clock::now() - start;
  EXPECT_GE(waited, milliseconds(900));
  EXPECT_LT(waited, milliseconds(2000));
  EXPECT_EQ(condition_waiters(c), 0u);
  m.unlock();
}

TEST(KRLConditionTest, WaitFormsThrowTimeoutWithTheMutexHeld) {
  KRLMutex m;
  KRLCondition c;
  m.lock();
  try {
    c.wait(m, 20ull);
    ADD_FAILURE() << "no CORBA_TIMEOUT";
  } catch (const CORBA_TIMEOUT& e) {
    EXPECT_EQ(e.minor(), CORBA::OMGVMCID);  // minor 0
    EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);
  }
  EXPECT_THROW(c.wait(m, 0ul), CORBA_TIMEOUT);
  EXPECT_THROW(c.wait_all(m, 0ul), CORBA_TIMEOUT);
  EXPECT_THROW(c.wait_all(m, 10ull), CORBA_TIMEOUT);
  EXPECT_EQ(condition_waiters(c), 0u);
  EXPECT_TRUE(held_elsewhere(m));  // by this thread
  m.unlock();                      // aborts unless every wait held m again
  EXPECT_FALSE(held_elsewhere(m));
}

// Seconds are multiplied by 1000 on 32 bits; of milliseconds only the low 32
// bits count, and 0xFFFFFFFF is no limit at all.
TEST(KRLConditionTest, LimitsFollowThe32BitRules) {
  SleepCallScope recording(&limit_recording_sleep);
  KRLMutex m;
  KRLCondition c;
  m.lock();
  // The deadline is taken a moment before the sleep reads the clock, so the
  // limit seen is a little below the one passed.
  long long passed = passed_limit(m, [&] { EXPECT_EQ(c.timedwait(m, 1ul), 1); });
  EXPECT_TRUE(passed <= 1000 && passed > 900) << passed;
  // 4294968 * 1000 = 2^32 + 704
  passed = passed_limit(m, [&] { EXPECT_EQ(c.timedwait(m, 4294968ul), 1); });
  EXPECT_TRUE(passed <= 704 && passed > 604) << passed;
  passed = passed_limit(m, [&] { c.wait(m, 2ul); });
  EXPECT_TRUE(passed <= 2000 && passed > 1900) << passed;
  passed = passed_limit(m, [&] { c.wait_all(m, 3ul); });
  EXPECT_TRUE(passed <= 3000 && passed > 2900) << passed;

  EXPECT_EQ(passed_limit(m, [&] { EXPECT_EQ(c.timedwait(m, 1ull << 32), 1); }), kNoSleep);
  passed = passed_limit(m, [&] { EXPECT_EQ(c.timedwait(m, (1ull << 32) + 5), 1); });
  EXPECT_TRUE(passed <= 5 && passed > -95) << passed;
  passed = passed_limit(m, [&] { EXPECT_EQ(c.timedwait_all(m, 0xFFFFFFFEull), 1); });
  EXPECT_TRUE(passed <= 0xFFFFFFFEll && passed > 0xFFFFFFFEll - 100) << passed;

  testing::internal::CaptureStderr();
  EXPECT_EQ(passed_limit(m, [&] { c.timedwait(m, 0xFFFFFFFFull); }), kForever);
  EXPECT_EQ(passed_limit(m, [&] { c.timedwait(m, 0x1FFFFFFFFull); }), kForever);
  EXPECT_EQ(passed_limit(m, [&] { c.wait(m); }), kForever);
  testing::internal::GetCapturedStderr();

  EXPECT_EQ(condition_waiters(c), 0u);
  m.unlock();
}

TEST(KRLConditionTest, FailedWaitThrowsAndLeavesNoLockHeld) {
  KRLMutex m;
  KRLCondition c;
  {
    SleepCallScope failing(&failing_sleep);
    m.lock();
    testing::internal::CaptureStderr();
    try {
      c.wait(m);
      ADD_FAILURE() << "no CORBA_NO_RESOURCES";
    } catch (const CORBA_NO_RESOURCES& e) {
      EXPECT_EQ(e.minor(), CORBA::OMGVMCID | EINVAL);
      EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);
    }
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed.rfind("WaitForSingleObject: ", 0), 0u) << printed;
  }
  EXPECT_FALSE(held_elsewhere(m));
  EXPECT_FALSE(held_elsewhere(krl_internal::condition_mutex(c)));
  // The event left the array: a later waiter is the one a signal finds.
  bool woken = false;
  std::thread waiter([&] {
    m.lock();
    c.wait(m);
    woken = true;
    m.unlock();
  });
  await([&] { return condition_waiters(c) == 1; }, "waiter");
  c.signal();
  waiter.join();
  EXPECT_TRUE(woken);
}

// A wait gives m up by one level: a caller that holds it twice keeps it.
TEST(KRLConditionTest, WaitGivesUpOneLevelOfARecursiveHold) {
  KRLMutex m;
  KRLCondition c;
  bool waiting_over = false;  // guarded by m
  std::thread waiter([&] {
    m.lock();
    m.lock();
    EXPECT_EQ(c.timedwait(m, 200ull), 1);
    waiting_over = true;
    m.unlock();
    m.unlock();
  });
  await([&] { return condition_waiters(c) == 1; }, "waiter");
  EXPECT_TRUE(held_elsewhere(m));
  m.lock();
  EXPECT_TRUE(waiting_over);
  m.unlock();
  waiter.join();
}

// A time-out removes the waiter's entry, moving the newest into its place;
// later signals go to the remaining waiters.
TEST(KRLConditionTest, TimedOutEntryIsRemoved) {
  KRLMutex m;
  KRLCondition c;
  std::vector<char> woken;  // guarded by m
  unsigned char timed_out = 0;
  const auto plain = [&](char name) {
    return [&, name] {
      m.lock();
      c.wait(m);
      woken.push_back(name);
      m.unlock();
    };
  };
  std::thread a(plain('a'));
  await([&] { return condition_waiters(c) == 1; }, "a");
  std::thread t([&] {
    m.lock();
    timed_out = c.timedwait(m, 100ull);
    m.unlock();
  });
  await([&] { return condition_waiters(c) == 2; }, "t");
  std::thread b(plain('b'));
  await([&] { return condition_waiters(c) == 3; }, "b");
  t.join();
  EXPECT_EQ(timed_out, 1);
  EXPECT_EQ(condition_waiters(c), 2u);
  c.signal();
  a.join();
  c.signal();
  b.join();
  EXPECT_EQ(woken, (std::vector<char>{'a', 'b'}));
  EXPECT_EQ(condition_waiters(c), 0u);
}

TEST(KRLConditionTest, SignalAndBroadcastWithGuardReleaseAndDisarmIt) {
  KRLMutex m;
  KRLCondition c;
  for (int form = 0; form < 2; ++form) {
    bool woken = false;
    std::thread waiter([&] {
      m.lock();
      c.wait(m);
      woken = true;
      m.unlock();
    });
    await([&] { return condition_waiters(c) == 1; }, "waiter");
    {
      KRLMutex_var g(m, 1);
      if (form == 0) {
        c.signal(g);
      } else {
        c.broadcast(g);
      }
      EXPECT_EQ(g.release_flag(), 0);
      waiter.join();  // it needs m
    }                 // g must not unlock again: a release without ownership aborts
    EXPECT_TRUE(woken);
    EXPECT_FALSE(held_elsewhere(m));
  }
}

// A bounded queue: every item is delivered exactly once, and the queue
// never holds more than its bound.
TEST(KRLConditionTest, BoundedQueueDeliversEveryItemOnce) {
  constexpr int kProducers = 3;
  constexpr int kConsumers = 3;
  constexpr int kItems = 3000;  // per producer
  constexpr std::size_t kBound = 4;
  KRLMutex m;
  KRLCondition not_full;
  KRLCondition not_empty;
  std::deque<int> queue;  // all below guarded by m
  int producers_left = kProducers;
  std::vector<int> delivered(kProducers * kItems, 0);
  bool overfull = false;

  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kItems; ++i) {
        KRLMutex_var g(m, 1);
        while (queue.size() == kBound) {
          if (i % 2 == 0) {
            not_full.wait(m);
          } else {
            not_full.timedwait(m, 5ull);
          }
        }
        queue.push_back(p * kItems + i);
        overfull = overfull || queue.size() > kBound;
        not_empty.signal(g);
      }
      KRLMutex_var g(m, 1);
      if (--producers_left == 0) not_empty.broadcast();
    });
  }
  for (int k = 0; k < kConsumers; ++k) {
    threads.emplace_back([&] {
      KRLMutex_var g(m, 1);
      for (;;) {
        while (queue.empty() && producers_left != 0) not_empty.wait(m);
        if (queue.empty()) break;
        ++delivered[queue.front()];
        queue.pop_front();
        not_full.signal();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_FALSE(overfull);
  EXPECT_TRUE(queue.empty());
  for (int i = 0; i < kProducers * kItems; ++i) ASSERT_EQ(delivered[i], 1) << "item " << i;
  EXPECT_EQ(condition_waiters(not_full), 0u);
  EXPECT_EQ(condition_waiters(not_empty), 0u);
}

}  // namespace
