// Internal: the calling thread's identity, yielding and sleeping.
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

// The system's handle of a thread, valid while that thread runs.
typedef unsigned long ThreadHandle;
ThreadHandle current_thread_handle();

// Asks the thread to end without ending the process. It ends at its next
// cancellation point (sleeps, blocking I/O, pthread waits); destructors of
// its frames run as it unwinds. The thread must still be running.
void cancel_thread(ThreadHandle thread);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_THREAD_H_
