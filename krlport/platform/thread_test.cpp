#include "krlport/platform/thread.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

unsigned long kernel_id() { return static_cast<unsigned long>(syscall(SYS_gettid)); }

TEST(CurrentThreadIdTest, IsTheKernelIdOfEachThreadAndOfAForkedChild) {
  const unsigned long main_id = krl_internal::current_thread_id();
  EXPECT_EQ(main_id, kernel_id());
  unsigned long ids[2] = {0, 0};
  std::thread([&] {
    ids[0] = krl_internal::current_thread_id();
    ids[1] = kernel_id();
  }).join();
  EXPECT_EQ(ids[0], ids[1]);
  EXPECT_NE(ids[0], main_id);

  const pid_t child = fork();
  if (child == 0) _exit(krl_internal::current_thread_id() == kernel_id() ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);  // exited with 0
}

}  // namespace
