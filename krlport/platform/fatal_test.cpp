#include "krlport/platform/fatal.h"

#include <gtest/gtest.h>

namespace {

// The lock and guard tests check the two messages in use; this one the
// general form.
TEST(FatalErrorTest, NamesCallAndErrorThenAborts) {
  EXPECT_DEATH(krl_internal::fatal_error("futex", 22),
               "^krlport: futex failed: Invalid argument \\(22\\)\n");
}

}  // namespace
