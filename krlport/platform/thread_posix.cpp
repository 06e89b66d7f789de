#include "krlport/platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

namespace krl_internal {
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

void debug_break() {}

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

// Termination.
//
// The signal's handler makes the raw exit system call, which ends only the
// calling kernel thread (exit_group would end the process); nothing of the
// thread runs after it. The handler acts only on a signal of this process
// that carries the library's tag and the token the thread accepted; anything
// else on that signal goes to the handler that was there before, if any.
//
// ThreadSanitizer wraps every handler installed through sigaction and defers
// the call until the thread enters an intercepted function, which a thread
// parked in a raw futex wait or computing never does. So the handler is put
// in place with the rt_sigaction system call itself, keeping the flags and
// the sa_restorer that the C library's sigaction chose, and the kernel calls
// it directly in every build.

namespace {

typedef unsigned long long TerminationToken;

// A TerminationPoint on this system.
struct PosixPoint {
  sigset_t mask;  // the thread's mask on entry
  TerminationToken token;
  unsigned long tid;
};
static_assert(sizeof(PosixPoint) <= sizeof(TerminationPoint) &&
                  alignof(PosixPoint) <= alignof(TerminationPoint),
              "TerminationPoint holds the point");

PosixPoint* posix_point(TerminationPoint* p) { return reinterpret_cast<PosixPoint*>(p->_room); }

// Top 16 bits of every token: marks a signal as the library's own.
constexpr TerminationToken kTokenTag = 0x4B52ull << 48;
constexpr TerminationToken kTokenTagMask = 0xFFFFull << 48;

std::atomic<TerminationToken> g_last_token{0};

// The token the calling thread accepted, 0 when none.
__thread TerminationToken t_token __attribute__((tls_model("initial-exec"))) = 0;

// The handler that was installed before ours, to pass foreign signals on.
std::atomic<void (*)(int, siginfo_t*, void*)> g_previous_action{nullptr};
std::atomic<void (*)(int)> g_previous_handler{nullptr};

// What rt_sigaction reads and writes on x86-64 and aarch64 (a 64-bit mask).
struct KernelSigaction {
  void (*action)(int, siginfo_t*, void*);
  unsigned long flags;
  void (*restorer)();
  unsigned long mask;
};
#if !defined(__x86_64__) && !defined(__aarch64__)
#error "KernelSigaction is laid out for x86-64 and aarch64"
#endif
#ifndef SA_RESTORER
#define SA_RESTORER 0x04000000
#endif

sigset_t termination_set() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, termination_signal());
  return set;
}

// Runs in signal context: async-signal-safe calls only, and nothing that
// ThreadSanitizer's runtime would have to see.
__attribute__((no_sanitize("thread"))) void on_termination(int sig, siginfo_t* info,
                                                           void* context) {
  if (info != nullptr && info->si_code == SI_QUEUE && info->si_pid == getpid()) {
    const TerminationToken token =
        static_cast<TerminationToken>(reinterpret_cast<std::uintptr_t>(info->si_value.sival_ptr));
    if ((token & kTokenTagMask) == kTokenTag) {
      if (token == t_token) syscall(SYS_exit, 0);
      return;  // ours, for a run of this thread that has ended: dropped
    }
  }
  if (auto action = g_previous_action.load(std::memory_order_relaxed)) {
    action(sig, info, context);
  } else if (auto handler = g_previous_handler.load(std::memory_order_relaxed)) {
    handler(sig);
  }
}

int kernel_sigaction(int sig, const KernelSigaction* act, KernelSigaction* old) {
  return static_cast<int>(syscall(SYS_rt_sigaction, sig, act, old, sizeof(unsigned long)));
}

// Puts on_termination in place unless it is there already.
bool install_handler() {
  const int sig = termination_signal();
  KernelSigaction now;
  if (kernel_sigaction(sig, nullptr, &now) != 0) return false;
  if (now.action == &on_termination) return true;

  struct sigaction act;
  struct sigaction old;
  std::memset(&act, 0, sizeof act);
  act.sa_sigaction = &on_termination;
  act.sa_flags = SA_SIGINFO | SA_RESTART;
  sigfillset(&act.sa_mask);
  if (sigaction(sig, &act, &old) != 0) return false;
  // A racing first terminate may have put ours in place already: then the
  // previous handler that it kept stays.
  const bool siginfo = (old.sa_flags & SA_SIGINFO) != 0;
  if (siginfo && old.sa_sigaction != &on_termination) {
    g_previous_action.store(old.sa_sigaction);
    g_previous_handler.store(nullptr);
  } else if (!siginfo) {
    const bool plain = old.sa_handler != SIG_DFL && old.sa_handler != SIG_IGN;
    g_previous_handler.store(plain ? old.sa_handler : nullptr);
    g_previous_action.store(nullptr);
  }

  // Under ThreadSanitizer the kernel now holds its wrapper: replace it.
  KernelSigaction installed;
  if (kernel_sigaction(sig, nullptr, &installed) != 0) return false;
  if (installed.action == &on_termination) return true;
  installed.action = &on_termination;
  installed.flags = SA_SIGINFO | SA_RESTART | (installed.flags & SA_RESTORER);
  installed.mask = ~0ul;
  return kernel_sigaction(sig, &installed, nullptr) == 0;
}

}  // namespace

int termination_signal() { return SIGRTMAX - 2; }

// Each run draws a token of its own, never 0 and never reused, which the
// signal carries.
void termination_begin(TerminationPoint* p) {
  PosixPoint* const pp = new (p->_room) PosixPoint;
  pp->token = kTokenTag | (g_last_token.fetch_add(1, std::memory_order_relaxed) + 1);
  pp->tid = current_thread_id();
  const sigset_t set = termination_set();
  pthread_sigmask(SIG_BLOCK, &set, &pp->mask);
}

// Unblocked even if the thread was made with the signal blocked: a
// termination that waited ends the thread here.
void termination_accept(TerminationPoint* p) {
  t_token = posix_point(p)->token;
  const sigset_t set = termination_set();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

// A termination that is still pending is dropped when the signal is
// unblocked next: the token no longer matches.
void termination_refuse(TerminationPoint*) {
  const sigset_t set = termination_set();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  t_token = 0;
}

void termination_end(TerminationPoint* p) {
  PosixPoint* const pp = posix_point(p);
  pthread_sigmask(SIG_SETMASK, &pp->mask, nullptr);
  pp->~PosixPoint();
}

bool termination_send(TerminationPoint* p) {
  const unsigned long tid = posix_point(p)->tid;
  const TerminationToken token = posix_point(p)->token;
  if (!install_handler()) return false;
  siginfo_t info;
  std::memset(&info, 0, sizeof info);
  info.si_signo = termination_signal();
  info.si_code = SI_QUEUE;
  info.si_pid = getpid();
  info.si_uid = getuid();
  info.si_value.sival_ptr = reinterpret_cast<void*>(static_cast<std::uintptr_t>(token));
  return syscall(SYS_rt_tgsigqueueinfo, getpid(), static_cast<pid_t>(tid), info.si_signo, &info) ==
         0;
}

void end_calling_thread() {
  for (;;) syscall(SYS_exit, 0);
}

}  // namespace krl_internal
