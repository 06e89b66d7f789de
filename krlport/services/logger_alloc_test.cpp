// The first KRLLogger::instance() with each of its allocations failing in
// turn, seen through a global operator new that counts and can fail. A binary
// of its own: the replacement holds program-wide.
#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <new>

#include <gtest/gtest.h>

#include "krlport/services/logger.h"

namespace {
long g_live = 0;     // blocks from operator new not yet given back
long g_fail_in = -1;  // allocations until one throws; -1: none does
bool g_failed = false;
void* CountedNew(std::size_t size) {
  if (g_fail_in >= 0 && g_fail_in-- == 0) {
    g_failed = true;
    throw std::bad_alloc();
  }
  void* p = std::malloc(size != 0 ? size : 1);
  if (p == nullptr) throw std::bad_alloc();
  ++g_live;
  return p;
}
void CountedDelete(void* p) {
  if (p != nullptr) --g_live;
  std::free(p);
}
}  // namespace

void* operator new(std::size_t size) { return CountedNew(size); }
void* operator new[](std::size_t size) { return CountedNew(size); }
void operator delete(void* p) noexcept { CountedDelete(p); }
void operator delete[](void* p) noexcept { CountedDelete(p); }
void operator delete(void* p, std::size_t) noexcept { CountedDelete(p); }
void operator delete[](void* p, std::size_t) noexcept { CountedDelete(p); }

namespace {

int open_fds() {
  DIR* d = ::opendir("/proc/self/fd");
  int n = -3;  // ".", ".." and the directory's own descriptor
  while (::readdir(d) != nullptr) ++n;
  ::closedir(d);
  return n;
}

// In a fresh child: the first instance() with allocation number fail_at
// failing. 0: the logger was built, what failed left nothing open or
// allocated; 10: no allocation was reached; others: what went wrong.
int first_instance_failing_at(long fail_at) {
  const int fds = open_fds();
  const long live = g_live;
  g_fail_in = fail_at;
  try {
    KRLLogger::instance();
  } catch (...) {
    return 1;  // the failure escaped
  }
  g_fail_in = -1;
  KRLLogger& logger = KRLLogger::instance();
  std::ostream* const standard[] = {&std::cout, &std::cerr, &std::clog};
  std::ostream* const slots[] = {&logger.out(), &logger.err(), &logger.log()};
  int filled = 0;
  for (int i = 0; i < 3; ++i) filled += slots[i] != standard[i];
  if (!g_failed && filled != 3) return 2;
  if (open_fds() != fds + filled) return 3;  // a failed file stayed open
  // Giving the slots up deletes what the logger owns: then all is back.
  KRLLogger::replace_out(std::clog, 0);
  KRLLogger::replace_err(std::clog, 0);
  KRLLogger::replace_log(std::clog, 0);
  if (open_fds() != fds) return 4;
  if (g_live != live) return 5;  // memory of a failed step stayed behind
  return g_failed ? 0 : 10;
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
