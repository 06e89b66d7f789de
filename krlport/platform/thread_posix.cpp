#include "krlport/platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace krl_internal {

__thread unsigned long t_thread_id __attribute__((tls_model("initial-exec"))) = 0;

namespace {

// The child of fork() runs on a new kernel thread: the forking thread's cache
// would give it the parent's id.
void forget_thread_id() { t_thread_id = 0; }

}  // namespace

unsigned long fetch_thread_id() {
  static const int registered = pthread_atfork(nullptr, nullptr, &forget_thread_id);
  static_cast<void>(registered);
  t_thread_id = static_cast<unsigned long>(syscall(SYS_gettid));
  return t_thread_id;
}

void yield_processor() { sched_yield(); }

void sleep_milliseconds(unsigned long long ms) {
  timespec left;
  left.tv_sec = static_cast<time_t>(ms / 1000);
  left.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  // nanosleep leaves the time still to sleep in `left` when a signal
  // interrupts it (nanosleep(2)).
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace krl_internal
