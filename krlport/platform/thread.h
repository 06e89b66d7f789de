// Internal: the calling thread's identity, yielding, sleeping, starting a
// thread and ending a thread from another one.
#ifndef KRLPORT_PLATFORM_THREAD_H_
#define KRLPORT_PLATFORM_THREAD_H_

namespace krl_internal {

#ifdef _WIN32

// The system's id of the calling thread (GetCurrentThreadId); never 0. Out of
// line, and cheap: the id is read from the thread's own environment block,
// where a per-thread cache would cost more (mingw emulates TLS variables).
unsigned long current_thread_id();

// current_thread_id(), or 0 where getting it takes a call that a hot path
// would rather make out of line. Here it is always the id.
inline unsigned long cached_thread_id() { return current_thread_id(); }

// Whether per-thread data filled on a thread whose current_thread_id() was
// id is still seen by that thread. Windows has no fork(): always.
inline bool still_on_thread(unsigned long) { return true; }

#else

// Per-thread cache of current_thread_id(), 0 until the first call; read it
// through current_thread_id() only. Constant-initialised and defined here, so
// every unit knows it needs no dynamic initialisation: with initial-exec a
// read is one %fs-relative load, with no __tls_get_addr and no wrapper call.
// Eight bytes fit the static TLS reserve even when the library is dlopen'ed.
inline thread_local unsigned long t_thread_id __attribute__((tls_model("initial-exec"))) = 0;

// Asks the system for the calling thread's id and fills the cache.
unsigned long fetch_thread_id();

// The operating system's id of the calling thread; never 0. Cheap after the
// first call on a thread. Right also in the child of a fork().
inline unsigned long current_thread_id() {
  const unsigned long id = t_thread_id;
  return id != 0 ? id : fetch_thread_id();
}

// current_thread_id() if this thread has asked for it before, else 0: one
// %fs-relative load that never calls, for fast paths that would otherwise
// save registers around the call.
inline unsigned long cached_thread_id() { return t_thread_id; }

// Whether per-thread data filled on a thread whose current_thread_id() was
// id (non-zero) is still seen by that thread: false in the child of a fork(),
// which runs on a new thread with a copy of the forking thread's memory. One
// %fs-relative load, no call.
inline bool still_on_thread(unsigned long id) { return id == t_thread_id; }

#endif

// Stops in the debugger (DebugBreak). Without one attached, what follows is
// the system's: on Windows an unhandled breakpoint exception; elsewhere no
// debugger is assumed and it does nothing.
void debug_break();

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
// that thread ends, never the process. Windows: TerminateThread. Elsewhere: a
// real-time signal (termination_signal()) whose handler makes the raw exit
// call; the handler is installed by the first termination_send and by
// nothing else.
//
// A thread that may be ended keeps a TerminationPoint in its own frame and
// passes through it in order: begin (it cannot be ended yet), accept (from
// now on it can), refuse (no longer; a termination already under way ends it
// here) and end. A terminator reaches the point only while the caller's own
// lock keeps it alive, and a termination sent to one run of a thread never
// ends a later run of it.
struct TerminationPoint {
  alignas(8) unsigned char _room[160];
};

void termination_begin(TerminationPoint* p);
void termination_accept(TerminationPoint* p);
void termination_refuse(TerminationPoint* p);
void termination_end(TerminationPoint* p);

// Ends the thread of p (another thread of this process) if it has accepted
// and not refused. Gives false when nothing was sent: the thread then runs
// on. Calls must be serialised by the caller, which keeps p alive.
bool termination_send(TerminationPoint* p);

// Ends the calling thread at once, as a termination would.
[[noreturn]] void end_calling_thread();

// The signal number that carries terminations where one does; 0 on Windows.
// Reserved for this from the first send on.
int termination_signal();

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_THREAD_H_
