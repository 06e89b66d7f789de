#include "krlport/platform/fatal.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(FatalErrorTest, NamesCallAndErrorThenAborts) {
  EXPECT_DEATH(krl_internal::fatal_error("pthread_mutex_unlock", EPERM),
               "^krlport: pthread_mutex_unlock failed: Operation not permitted \\(1\\)\n");
}

TEST(AssertionFailedTest, WritesAssertFormatThenAborts) {
  EXPECT_DEATH(krl_internal::assertion_failed("i != -1", "vdlogger", 12),
               "^Assertion failed: i != -1, file vdlogger, line 12\n");
}

}  // namespace
