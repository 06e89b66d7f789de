#include "krlport/threads/mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include "krlport/platform/lock.h"
#include "krlport/threads/mutex_internal.h"
#include "krlport/threads/spin_mutex.h"

namespace {

// Whether another thread holds m, asked from a thread of its own that never
// blocks and leaves m as it found it.
bool held_elsewhere(KRLMutex& m) {
  bool got = false;
  std::thread([&] {
    got = krl_internal::lock_try_acquire(krl_internal::lock_of(m));
    if (got) m.unlock();
  }).join();
  return !got;
}

// Each waiter records the unlocks it saw; a lock that lets one in before the
// owner's last unlock shows fewer, and races on the count under TSan.
template <class Lock>
void expect_waiters_kept_out_until_last_unlock(int depth) {
  Lock m;
  int unlocks = 0;        // written under m only
  std::vector<int> seen;  // guarded by m
  for (int i = 0; i < depth; ++i) m.lock();
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&] {
      KRLIMutex_var guard(&m, 1), again(&m, 1);
      seen.push_back(unlocks);
    });
  }
  for (int i = 0; i < depth; ++i) {
    // Long enough for the waiters to go to sleep on the lock, not just spin.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ++unlocks;
    m.unlock();
  }
  for (std::thread& t : waiters) t.join();  // a lost wake-up hangs here
  EXPECT_EQ(seen, std::vector<int>(4, depth));
}

TEST(RecursiveLockTest, WaitersGetInOnlyAfterTheOwnersLastUnlock) {
  expect_waiters_kept_out_until_last_unlock<KRLMutex>(2);
  expect_waiters_kept_out_until_last_unlock<KRLRSpinMutex>(3);
}

// Every thread also makes and drops a lock per round, racing on the spin
// pools.
template <class Lock>
void expect_no_lost_increment() {
  Lock m;
  long counter = 0;  // guarded by m
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        Lock scratch;
        KRLIMutex_var guard(&m, 1);
        ++counter;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, 4 * 10000);
}

TEST(KRLIMutexTest, CounterLosesNoIncrementUnderAGuard) {
  expect_no_lost_increment<KRLMutex>();
  expect_no_lost_increment<KRLSpinMutex>();
  expect_no_lost_increment<KRLRSpinMutex>();
}

#ifndef _WIN32
// Owners that sometimes hold the lock long enough for waiters to pass their
// short first sleep, and hand it over quickly otherwise. A sleeper missed by
// a release hangs here; a sleeper counted out twice, or never, leaves its
// bucket's count off zero, and every later release there would call the
// system.
TEST(KRLMutexTest, SleepersAreCountedOutOnceTheyGetIn) {
  KRLMutex m;
  long counter = 0;  // guarded by m
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        KRLMutex_var guard(m, 1);
        if (++counter % 256 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, 4 * 2000);
  for (const krl_internal::LockSleepers& bucket : krl_internal::g_lock_sleepers) {
    EXPECT_EQ(bucket.count.load(), 0);
  }
}
#endif

TEST(KRLMutexShutdownTest, NoSystemWeRunOnSetsTheFlag) {
  KRLMutex::shutdown();
  EXPECT_EQ(krl_internal::mutex_shutdown_flag(), 0);
}

// As DeleteCriticalSection: a process that exits inside a critical section
// over a static mutex ends with its own exit code, whatever the flag says.
TEST(KRLMutexTest, DestroyingAMutexItsThreadHoldsIsQuiet) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (unsigned char flag : {0, 1}) {
    EXPECT_EXIT(
        {
          krl_internal::set_mutex_shutdown_flag(flag);
          static KRLMutex m;
          m.lock();
          m.lock();
          std::exit(1);
        },
        testing::ExitedWithCode(1), "^$");
  }
}

// An unlock by a thread that does not own the mutex changes nothing: the
// owner keeps it, and a free mutex stays free. This is what a caller's guard
// does after a failed condition wait gave the mutex up.
TEST(KRLMutexTest, UnlockByAThreadThatDoesNotOwnItIsIgnored) {
  KRLMutex m;
  m.unlock();
  EXPECT_FALSE(held_elsewhere(m));
  m.lock();
  std::thread([&] { m.unlock(); }).join();
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
  EXPECT_FALSE(held_elsewhere(m));
}

// A thread that was woken into the mutex frees it at once, while the
// releasing owner may still be waking it. On the heap for the sanitizers.
TEST(KRLMutexTest, ThreadThatGetsTheMutexMayDestroyItAtOnce) {
  struct Box {
    KRLMutex m;
  };
  for (int round = 0; round < 1000; ++round) {
    Box* box = new Box;
    std::atomic<bool> locking{false};
    box->m.lock();
    std::thread t([box, &locking] {
      locking = true;
      box->m.lock();  // usually asleep by the time the owner unlocks
      box->m.unlock();
      delete box;
    });
    while (!locking) std::this_thread::yield();
    if (round % 2 == 0) std::this_thread::yield();
    box->m.unlock();
    t.join();
  }
}

TEST(KRLMutexVarTest, ReleaseFlagDecidesTheUnlockAtScopeEnd) {
  KRLMutex m;
  { KRLMutex_var guard(m, 0); }
  {
    KRLMutex_var guard(m, 1);
    guard.release_flag(0);
  }
  {
    KRLMutex_var guard(m, 1);
    guard.unlock();  // the destructor must not unlock again
  }
  m.unlock();
  ASSERT_TRUE(held_elsewhere(m));  // the level the first guard kept
  m.unlock();
  {
    KRLMutex_var guard(m, 1);
    guard.unlock();
    guard.lock();
  }
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLDMutexVarTest, EmptyGuardTakesItsMutexThroughSet) {
  KRLMutex m;
  {
    KRLDMutex_var guard;
    guard.unlock();
    guard.set(nullptr);
    guard.set(&m);
    EXPECT_TRUE(held_elsewhere(m));
  }
  EXPECT_FALSE(held_elsewhere(m));
  {
    KRLDMutex_var guard(nullptr, 0);
    guard.set(&m);
  }
  ASSERT_TRUE(held_elsewhere(m));
  m.unlock();
}

TEST(KRLDMutexVarTest, SetOnGuardWithMutexAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  KRLMutex m1, m2;
  EXPECT_DEATH(
      {
        KRLDMutex_var guard(&m1);
        guard.set(&m2);
      },
      "^Assertion failed: _mtx == \\(KRLMutex \\*\\)NULL, file vthread, line 247\n");
}

}  // namespace
