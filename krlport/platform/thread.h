// Internal: the calling thread's identity, yielding, sleeping, and ending a
// thread from another one.
#ifndef KRLPORT_PLATFORM_THREAD_H_
#define KRLPORT_PLATFORM_THREAD_H_

namespace krl_internal {

// Per-thread cache of current_thread_id(), 0 until the first call; read it
// through current_thread_id() only. __thread with initial-exec makes the read
// one %fs-relative load: no __tls_get_addr call and no init-function check.
// Eight bytes fit the static TLS reserve even when the library is dlopen'ed.
extern __thread unsigned long t_thread_id __attribute__((tls_model("initial-exec")));

// Asks the system for the calling thread's id and fills the cache.
unsigned long fetch_thread_id();

// The operating system's id of the calling thread; never 0. Cheap after the
// first call on a thread. Right also in the child of a fork().
inline unsigned long current_thread_id() {
  const unsigned long id = t_thread_id;
  return id != 0 ? id : fetch_thread_id();
}

// Gives up the rest of the calling thread's time slice (Sleep(0)).
void yield_processor();

// Sleeps at least ms milliseconds; a signal does not cut the sleep short.
void sleep_milliseconds(unsigned long long ms);

// Runs start(arg) on a new detached thread. A stack size of 0 takes the
// system's default; any other is rounded up to what the system accepts.
// Gives 0, or the system's error number when no thread was made.
int start_detached_thread(unsigned long stack_size, void* (*start)(void*), void* arg);

// Forced termination. A thread ends at once, wherever it is, and runs none of
// its own code on the way out: no unwinding, no destructors, no handlers. Only
// that kernel thread ends, never the process. The thread must have announced
// itself with accept_termination(token), and the signal carries that token, so
// a termination meant for one run of a thread never ends a later run of it.
// On this system it is a real-time signal (termination_signal()); its handler
// is installed by the first send_termination and by nothing else.

// The signal that ends a thread; reserved for this from the first send on.
int termination_signal();

// A process-wide unique token, never 0 and never reused.
typedef unsigned long long TerminationToken;
TerminationToken new_termination_token();

// A thread's signal mask, saved to be restored.
struct SignalMask {
  unsigned long words[16];
};

// Blocks termination on the calling thread; stores the mask it had in old.
// While blocked, a termination sent to the thread waits.
void block_termination(SignalMask* old);
// The calling thread may be ended by token from now on: it keeps the token
// and unblocks the signal (a termination that waited ends it here).
void accept_termination(TerminationToken token);
// Blocks the signal again and forgets the token: a termination that is
// still pending is dropped when the signal is unblocked next.
void refuse_termination();
// Restores the mask saved by block_termination.
void restore_signal_mask(const SignalMask& old);

// Ends thread tid (of this process), if it has accepted token. Installs the
// handler first if it is not in place. Gives false when nothing was sent:
// the thread then runs on. Calls must be serialised by the caller.
bool send_termination(unsigned long tid, TerminationToken token);

// Ends the calling thread at once, as a termination would.
[[noreturn]] void end_calling_thread();

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_THREAD_H_
