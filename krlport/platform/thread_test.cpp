#include "krlport/platform/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

unsigned long kernel_id() { return static_cast<unsigned long>(syscall(SYS_gettid)); }

TEST(CurrentThreadIdTest, IsTheKernelIdOfEachThread) {
  const unsigned long main_id = krl_internal::current_thread_id();
  EXPECT_EQ(main_id, kernel_id());
  EXPECT_EQ(krl_internal::current_thread_id(), main_id);  // the cached value

  unsigned long other_id = 0;
  unsigned long other_kernel_id = 0;
  std::thread([&] {
    other_id = krl_internal::current_thread_id();
    other_kernel_id = kernel_id();
  }).join();
  EXPECT_NE(other_id, 0UL);
  EXPECT_EQ(other_id, other_kernel_id);
  EXPECT_NE(other_id, main_id);
}

TEST(CurrentThreadIdTest, ForkedChildDoesNotInheritTheCachedId) {
  const unsigned long parent_id = krl_internal::current_thread_id();
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    const unsigned long id = krl_internal::current_thread_id();
    _exit(id == kernel_id() && id != parent_id ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

void on_signal(int) {}

TEST(SleepMillisecondsTest, SignalsDoNotCutTheSleepShort) {
  struct sigaction action = {};
  action.sa_handler = &on_signal;  // no SA_RESTART: nanosleep sees EINTR
  struct sigaction previous;
  ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);

  const pthread_t sleeper = pthread_self();
  std::atomic<bool> done{false};
  std::thread interrupter([&] {
    while (!done) {
      pthread_kill(sleeper, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  const auto start = std::chrono::steady_clock::now();
  krl_internal::sleep_milliseconds(150);
  const auto slept = std::chrono::steady_clock::now() - start;
  done = true;
  interrupter.join();
  sigaction(SIGUSR1, &previous, nullptr);
  // Only a lower bound: an early return is the fault looked for.
  EXPECT_GE(slept, std::chrono::milliseconds(150));
}

}  // namespace
