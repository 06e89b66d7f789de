/// @file
/// CORBA_Environment: an owning holder of at most one exception, for callers
/// that do not catch; its _var and _out types; and CurrentEnvironment, the
/// environment of each thread behind CORBA::current_environment().
///
/// An environment and its holders are not locked: each belongs to one thread
/// at a time. _duplicate copies; it counts no references.
#ifndef KRLPORT_EXCEPTIONS_ENVIRONMENT_H_
#define KRLPORT_EXCEPTIONS_ENVIRONMENT_H_

#include "krlport/exceptions/exception.h"
#include "krlport/frame/corba.h"
#include "krlport/frame/export.h"
#include "krlport/threads/mutex.h"
#include "krlport/threads/thread_local.h"

/// Holds at most one exception for a caller that reports errors without
/// throwing. Not locked: an environment belongs to one thread at a time.
class KRL_EXPORT CORBA_Environment {
 public:
  /// An empty environment.
  CORBA_Environment() {}
  /// Holds a _deep_copy of e's exception, or nothing.
  CORBA_Environment(const CORBA_Environment& e) : _exception(e._exception) {}
  ~CORBA_Environment() {}
  /// Deletes the held exception, then copies e's. Assigning an environment
  /// to itself keeps its exception.
  CORBA_Environment& operator=(const CORBA_Environment& e);

  /// Owned by the environment; null when it is empty.
  CORBA_Exception* exception() const { return _exception; }
  /// Deletes the held exception and adopts e (may be null). Handing back the
  /// exception already held keeps it.
  void exception(CORBA_Exception* e) { _exception = e; }
  /// Deletes the held exception; the environment is empty after.
  void clear() { _exception = nullptr; }

  /// The nil environment: null.
  static CORBA_Environment* _nil() { return nullptr; }
  /// A new, independent environment with a copy of e's exception; the caller
  /// owns it. Null for null, and when no memory can be had.
  static CORBA_Environment* _duplicate(CORBA_Environment* e);
  /// The calling thread's environment, the same object as
  /// CORBA::current_environment() gives.
  static CORBA_Environment& current_environment();

 private:
  CORBA_Exception_var _exception;
};

/// Owning holder of a heap environment; null allowed.
class KRL_EXPORT CORBA_Environment_var {
 public:
  /// An empty holder.
  CORBA_Environment_var() : _ptr(nullptr) {}
  CORBA_Environment_var(CORBA_Environment* e) : _ptr(e) {}  ///< adopts e, which may be null
  /// Holds CORBA_Environment::_duplicate of v's environment; null for null.
  CORBA_Environment_var(const CORBA_Environment_var& v);
  ~CORBA_Environment_var();

  /// Releases the held environment and adopts e; the one already held is kept.
  CORBA_Environment_var& operator=(CORBA_Environment* e);

  /// The held environment, still owned by the holder; null when empty.
  operator CORBA_Environment*() const { return _ptr; }
  /// The held environment; the holder must not be empty.
  CORBA_Environment* operator->() const { return _ptr; }
  /// The held environment, for an in parameter; ownership stays here.
  CORBA_Environment* in() const { return _ptr; }
  /// The holder's own pointer, for an inout parameter: the callee may release
  /// it and store another that the holder then owns.
  CORBA_Environment*& inout() { return _ptr; }
  /// Releases the held environment; the caller fills the pointer.
  CORBA_Environment*& out();
  /// Gives up ownership: the caller owns the result, the holder is null.
  CORBA_Environment* _retn();

 private:
  // Not offered: has no effect.
  CORBA_Environment_var& operator=(const CORBA_Environment_var&) { return *this; }

  CORBA_Environment* _ptr;
};

/// Out parameter: binds to the caller's pointer and empties it at once.
class KRL_EXPORT CORBA_Environment_out {
 public:
  /// Sets p to null without releasing what it pointed to.
  CORBA_Environment_out(CORBA_Environment*& p) : _ptr(p) { _ptr = nullptr; }
  /// Releases what v held and sets it to null.
  CORBA_Environment_out(CORBA_Environment_var& v) : _ptr(v.out()) {}
  /// Binds to the same pointer as o; nothing is released.
  CORBA_Environment_out(const CORBA_Environment_out& o) : _ptr(o._ptr) {}

  /// Stores e; what the pointer held is not released.
  CORBA_Environment_out& operator=(CORBA_Environment* e) {
    _ptr = e;
    return *this;
  }
  /// The bound pointer itself.
  operator CORBA_Environment*&() { return _ptr; }
  /// The bound pointer itself.
  CORBA_Environment*& ptr() { return _ptr; }
  /// The environment stored so far.
  CORBA_Environment* operator->() { return _ptr; }

 private:
  static CORBA_Environment* _nil() { return nullptr; }

  CORBA_Environment*& _ptr;
};

/// The environment of one thread: made at the thread's first request and
/// finalised, with its exception, when the thread calls
/// KRLThreadLocal::_exit_thread.
class KRL_EXPORT CurrentEnvironment : public KRLThreadLocal {
 public:
  /// Registers for the calling thread; the environment starts empty.
  CurrentEnvironment();
  /// Deletes the environment's exception; runs when the thread finalises its
  /// thread-local objects.
  ~CurrentEnvironment() override;

  /// This thread's environment; owned by this object.
  CORBA_Environment& environment() { return _env; }

  /// The calling thread's object, made at its first call.
  static CurrentEnvironment* instance();
  /// The class's thread-local key, taken once per process. Lock order:
  /// _mtx, then KRLThreadLocal's mutex.
  static unsigned long key_id();

 private:
  CORBA_Environment _env;

  static unsigned long _key_id;  // 0: no key yet
  static KRLMutex _mtx;
};

#endif  // KRLPORT_EXCEPTIONS_ENVIRONMENT_H_
