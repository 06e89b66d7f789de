#include "krlport/platform/lock.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(PlatformLockTest, ReleaseByNonOwnerAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        krl_internal::LockStorage s;
        krl_internal::lock_init(s);
        krl_internal::lock_acquire(s);
        std::thread([&] { krl_internal::lock_release(s); }).join();
      },
      "^krlport: lock_release failed: Operation not permitted \\(1\\)\n");
}

}  // namespace
