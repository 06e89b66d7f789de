#include "krlport/platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <type_traits>

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

int start_detached_thread(unsigned long stack_size, void* (*start)(void*), void* arg) {
  pthread_attr_t attr;
  int rc = pthread_attr_init(&attr);
  if (rc != 0) return rc;
  rc = pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  if (rc == 0 && stack_size != 0) {
    const unsigned long page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
    const unsigned long least = static_cast<unsigned long>(PTHREAD_STACK_MIN);
    unsigned long size = stack_size < least ? least : stack_size;
    // A size too large to round up is rounded down; no system can give it.
    size = size <= ULONG_MAX - page ? (size + page - 1) / page * page : size / page * page;
    rc = pthread_attr_setstacksize(&attr, size);
  }
  pthread_t thread;
  if (rc == 0) rc = pthread_create(&thread, &attr, start, arg);
  pthread_attr_destroy(&attr);
  return rc;
}

static_assert(std::is_same<pthread_t, ThreadHandle>::value, "pthread_t is the handle here");

ThreadHandle current_thread_handle() { return pthread_self(); }

void cancel_thread(ThreadHandle thread) { pthread_cancel(thread); }

}  // namespace krl_internal
