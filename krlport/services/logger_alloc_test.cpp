// The first KRLLogger::instance() with each of its allocations failing in
// turn, seen through an operator new that counts and can fail.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

#include <gtest/gtest.h>

#include "krlport/frame/alloc_test_support.h"
#include "krlport/portable/net_test_support.h"
#include "krlport/services/logger.h"

namespace {

using A = krl_test::Allocations;
using krl_test::open_fds;

// In a fresh child: the first instance() with allocation number fail_at
// failing. 0: the logger was built, what failed left nothing open or
// allocated; 10: no allocation was reached; others: what went wrong.
int first_instance_failing_at(long fail_at) {
  const int fds = open_fds();
  const long live = A::live();
  A::fail_in = fail_at;
  try {
    KRLLogger::instance();
  } catch (...) {
    return 1;  // the failure escaped
  }
  A::fail_in = -1;
  KRLLogger& logger = KRLLogger::instance();
  std::ostream* const standard[] = {&std::cout, &std::cerr, &std::clog};
  std::ostream* const slots[] = {&logger.out(), &logger.err(), &logger.log()};
  int filled = 0;
  for (int i = 0; i < 3; ++i) filled += slots[i] != standard[i];
  if (!A::failed && filled != 3) return 2;
  if (open_fds() != fds + filled) return 3;  // a failed file stayed open
  // Giving the slots up deletes what the logger owns: then all is back.
  KRLLogger::replace_out(std::clog, 0);
  KRLLogger::replace_err(std::clog, 0);
  KRLLogger::replace_log(std::clog, 0);
  if (open_fds() != fds) return 4;
  if (A::live() != live) return 5;  // memory of a failed step stayed behind
  return A::failed ? 0 : 10;
}

TEST(LoggerAllocationTest, FailedAllocationInTheFirstInstanceLeavesNothingBehind) {
  // Warm the stream library up, so that its one-time allocations are not
  // counted in the children.
  std::ofstream(std::string(std::getenv("KORLAN_ADM")) + "/warm");
  long fail_at = 0;
  for (;; ++fail_at) {
    const pid_t pid = ::fork();
    if (pid == 0) ::_exit(first_instance_failing_at(fail_at));
    int status = 0;
    ::waitpid(pid, &status, 0);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code == 10) break;
    ASSERT_EQ(code, 0) << "allocation " << fail_at;
    ASSERT_LT(fail_at, 10000);
  }
  EXPECT_GT(fail_at, 3);  // at least the three streams were allocated
}

}  // namespace
