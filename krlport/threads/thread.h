/// @file
/// KRLThread: the abstract thread. The host derives a class, supplies body()
/// and calls run(); the new thread runs body() and then finalises its
/// thread-local objects. Threads are detached: nothing waits for one.
///
/// Every object stands in one registry, newest first, from construction to
/// destruction; the library never deletes an object. _mutex guards the links
/// and is a leaf lock: nothing else is taken under it.
#ifndef KRLPORT_THREADS_THREAD_H_
#define KRLPORT_THREADS_THREAD_H_

#include "krlport/frame/export.h"
#include "krlport/threads/mutex.h"
#include "krlport/threads/thread_id.h"

namespace krl_internal {
struct ThreadPeer;
}

/// The abstract thread: derive a class, supply body() and call run(). The
/// threads are detached; the library never deletes a KRLThread object: the
/// host does, or body() deletes its own object before it returns. Every
/// member is safe from any thread.
class KRL_EXPORT KRLThread {
 public:
  /// Makes a thread that runs start(arg) once with the given stack size (0:
  /// the system's), or throws.
  typedef void (*Factory)(unsigned long stack_size, void* (*start)(void*), void* arg);

  /// Enters the registry; starts nothing. 0 takes the system's stack size.
  explicit KRLThread(long stack_size = 0);
  /// Leaves the registry; the thread, if any, runs on.
  virtual ~KRLThread();

  /// Makes a thread through the factory and returns without waiting for it
  /// to begin. What the factory throws reaches the caller; the object can be
  /// run again. Each call makes one more thread.
  virtual void run();

  /// The creating thread's id until the new thread has begun, then the new
  /// thread's (of the last one started). Copying it, or passing it to
  /// instance(), is race-free while the thread starts.
  const KRLThreadId& id() const { return _id; }

  /// Ends the thread that id() names, if it runs for this object, at once
  /// and wherever it is (waiting, sleeping, in a socket call, computing),
  /// without ending the process. None of its code runs: no unwinding, no
  /// destructors, no catch handlers, no clean-up of its thread-local objects.
  /// Unsafe, as TerminateThread is: the thread leaves its stack mapped and
  /// every lock it held held. The object stays in the registry. Does nothing
  /// for an object that was never run or whose thread has ended or not yet
  /// begun. On Linux, a body that blocks the termination signal
  /// (docs/PLATFORM.md) ends only when it unblocks it. On the caller's own
  /// run, ends the caller.
  void terminate();
  /// terminate() for every object of the registry; the caller's own run, if
  /// any, ends last.
  static void terminateAll();

  /// Gives up the rest of the time slice.
  static void yield();
  /// The newest object whose id equals id, or null.
  static KRLThread* instance(const KRLThreadId& id);

  /// Replaces the factory (never null) from the next run() on. A factory
  /// runs start(arg) once on a new thread, and throws when it cannot.
  static void factory(Factory f);
  /// The factory the next run() uses.
  static Factory factory();
  /// The default factory: a detached system thread. Throws
  /// CORBA_NO_RESOURCES (the system's error number, COMPLETED_NO) after
  /// perror("CreateThread") when no thread can be made.
  static void _create_thread(unsigned long stack_size, void* (*start)(void*), void* arg);

 protected:
  /// What the new thread runs. A CORBA_Exception that leaves it is written to
  /// std::cout and ends the thread without finalising its thread-local
  /// objects; any other exception ends the process.
  virtual void body() = 0;

 private:
  friend struct krl_internal::ThreadPeer;  // tests

  KRLThread(const KRLThread&) = delete;
  KRLThread& operator=(const KRLThread&) = delete;

  // Every thread runs this with its object: sets _id, runs body(), then
  // KRLThreadLocal::_exit_thread. A CORBA_Exception out of them is written
  // to cout and ends the thread without the clean-up. The thread can be
  // terminated from when its id is set until it returns.
  static void* _start(void* arg);

  KRLThreadId _id;  // written by the new thread without _mutex, atomically
  KRLThread* _next;
  KRLThread* _prev;
  long _stack_size;

  static KRLThread* _first;
  static KRLMutex _mutex;
  static Factory _factory;
};

#endif  // KRLPORT_THREADS_THREAD_H_
