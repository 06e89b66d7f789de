#include "krlport/platform/lock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "krlport/threads/mutex.h"

namespace {

using krl_internal::LockStorage;

// Constructs and destroys a platform lock around a test.
class PlatformLock {
 public:
  PlatformLock() { krl_internal::lock_init(storage); }
  ~PlatformLock() { krl_internal::lock_destroy(storage); }
  LockStorage storage;
};

// What the library writes before it aborts on a release by a non-owner.
constexpr char kBadUnlock[] = "krlport: lock_release failed: Operation not permitted";

bool try_from_other_thread(LockStorage& s) {
  bool got = false;
  std::thread([&] {
    got = krl_internal::lock_try_acquire(s);
    if (got) krl_internal::lock_release(s);
  }).join();
  return got;
}

TEST(PlatformLockTest, OwnerReentersAndKeepsRemainingDepth) {
  PlatformLock lock;
  krl_internal::lock_acquire(lock.storage);
  EXPECT_TRUE(krl_internal::lock_try_acquire(lock.storage));  // the owner gets in again
  krl_internal::lock_acquire(lock.storage);                   // depth 3
  krl_internal::lock_release(lock.storage);
  krl_internal::lock_release(lock.storage);
  EXPECT_FALSE(try_from_other_thread(lock.storage));  // still held at depth 1
  krl_internal::lock_release(lock.storage);
  EXPECT_TRUE(try_from_other_thread(lock.storage));
}

TEST(PlatformLockTest, ReleaseWakesEverySleeper) {
  PlatformLock lock;
  int entered = 0;  // guarded by the lock
  krl_internal::lock_acquire(lock.storage);
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&] {
      krl_internal::lock_acquire(lock.storage);
      krl_internal::lock_acquire(lock.storage);
      ++entered;
      krl_internal::lock_release(lock.storage);
      krl_internal::lock_release(lock.storage);
    });
  }
  // Long enough for the waiters to go to sleep on the lock, not just spin.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(entered, 0);
  krl_internal::lock_release(lock.storage);
  for (std::thread& t : waiters) t.join();  // a lost wake-up hangs here
  EXPECT_EQ(entered, 4);
}

TEST(PlatformLockTest, NestedCounterLosesNoIncrement) {
  PlatformLock lock;
  long counter = 0;  // guarded by the lock
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        krl_internal::lock_acquire(lock.storage);
        if (i % 3 == 0) krl_internal::lock_acquire(lock.storage);
        ++counter;
        if (i % 3 == 0) krl_internal::lock_release(lock.storage);
        krl_internal::lock_release(lock.storage);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, 4 * 20000);
  EXPECT_TRUE(try_from_other_thread(lock.storage));
}

TEST(PlatformLockTest, ReleaseByNonOwnerAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        PlatformLock lock;
        krl_internal::lock_acquire(lock.storage);
        std::thread([&] { krl_internal::lock_release(lock.storage); }).join();
      },
      kBadUnlock);
}

}  // namespace
