#include "krlport/threads/thread.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <new>
#include <vector>

#include "krlport/exceptions/exception.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/thread.h"
#include "krlport/portable/portable.h"
#include "krlport/threads/thread_local.h"

KRLThread* KRLThread::_first = nullptr;
KRLThread::Factory KRLThread::_factory = &KRLThread::_create_thread;
// _mutex is defined in the load-order unit.

namespace {

// The runs of threads inside _start, so that terminate() can turn an object
// and an id into a thread to end. A node lives in its thread's _start frame
// and is linked from when the thread has begun until it leaves _start, or
// until a terminator ends it.
//
// The termination signal is blocked while a thread links or unlinks its own
// node, and a terminator sends it while holding the lock, so a thread never
// ends holding the lock. A terminator that sent unlinks the node and marks it
// ended; the thread, if it gets to its own unlinking before the signal does
// (it had the signal blocked), finds the mark and leaves the links alone.
struct Running {
  Running(const KRLThread* owner, unsigned long thread_id);
  ~Running();
  void unlink();

  // The object the thread was run for, cleared by its destructor: an object
  // built later at the same address is never taken for this one. Identity
  // only; never read through.
  const KRLThread* object;
  unsigned long tid;
  krl_internal::TerminationToken token;
  bool ended;  // a terminator sent the signal and unlinked the node
  Running* next;
  Running* prev;
  krl_internal::SignalMask mask;  // the thread's mask on entry
};

// A leaf lock of its own: KRLThread::_mutex guards only the registry. Never
// destroyed, so that threads and destructors that run late at exit still
// find it.
KRLMutex& running_mutex() {
  alignas(KRLMutex) static unsigned char storage[sizeof(KRLMutex)];
  static KRLMutex* const mutex = new (storage) KRLMutex;
  return *mutex;
}
Running* g_running = nullptr;

Running::Running(const KRLThread* owner, unsigned long thread_id)
    : object(owner),
      tid(thread_id),
      token(krl_internal::new_termination_token()),
      ended(false),
      next(nullptr),
      prev(nullptr) {
  krl_internal::block_termination(&mask);
  {
    KRLMutex_var guard(running_mutex(), 1);
    next = g_running;
    if (next != nullptr) next->prev = this;
    g_running = this;
  }
  // Unblocked even if the thread was made with the signal blocked; a body
  // that blocks it again cannot be ended while it stays blocked.
  krl_internal::accept_termination(token);
}

Running::~Running() {
  krl_internal::refuse_termination();
  {
    KRLMutex_var guard(running_mutex(), 1);
    if (!ended) unlink();
  }
  // A termination sent while the signal was blocked is dropped here: the
  // token no longer matches.
  krl_internal::restore_signal_mask(mask);
}

// Caller holds running_mutex().
void Running::unlink() {
  if (prev != nullptr) prev->next = next;
  if (next != nullptr) next->prev = prev;
  if (g_running == this) g_running = next;
}

// Ends the run of object on thread tid, if there is one. The calling thread
// itself ends last, after the lock is released.
void end_running(const KRLThread* object, unsigned long tid) {
  bool self = false;
  {
    KRLMutex_var guard(running_mutex(), 1);
    for (Running* r = g_running; r != nullptr; r = r->next) {
      if (r->object != object || r->tid != tid) continue;
      self = tid == krl_internal::current_thread_id();
      if (self || krl_internal::send_termination(tid, r->token)) {
        r->unlink();
        r->ended = true;
      }
      break;
    }
  }
  if (self) krl_internal::end_calling_thread();
}

// Clears the object of every run that names it.
void forget_object(const KRLThread* object) {
  KRLMutex_var guard(running_mutex(), 1);
  for (Running* r = g_running; r != nullptr; r = r->next) {
    if (r->object == object) r->object = nullptr;
  }
}

unsigned long load_tid(const KRLThreadId& id) {
  return __atomic_load_n(&id._tid, __ATOMIC_RELAXED);
}

}  // namespace

KRLThread::KRLThread(long stack_size) : _next(nullptr), _prev(nullptr), _stack_size(stack_size) {
  KRLMutex_var guard(_mutex, 1);
  if (_first != nullptr) {
    _first->_prev = this;
    _next = _first;
  }
  _first = this;
}

KRLThread::~KRLThread() {
  forget_object(this);
  KRLMutex_var guard(_mutex, 1);
  if (_first == this) _first = _next;
  if (_prev != nullptr) _prev->_next = _next;
  if (_next != nullptr) _next->_prev = _prev;
}

void KRLThread::run() {
  _factory(static_cast<unsigned long>(_stack_size), &KRLThread::_start, this);
}

void* KRLThread::_start(void* arg) {
  KRLThread* self = static_cast<KRLThread*>(arg);
  const unsigned long tid = krl_internal::current_thread_id();
  __atomic_store_n(&self->_id._tid, tid, __ATOMIC_RELAXED);
  Running running(self, tid);
  try {
    self->body();
    // The body may have deleted the object: from here on only the pointer
    // value travels.
    KRLThreadLocal::_exit_thread(arg);
  } catch (CORBA_Exception& e) {
    std::cout << "KRLThread::_start: unhandled exception in thread" << std::endl;
    std::cout << e << std::endl;
    // No debugger is assumed here: the break point is nothing.
  }
  return nullptr;
}

void KRLThread::terminate() { end_running(this, load_tid(_id)); }

void KRLThread::terminateAll() {
  std::vector<std::pair<const KRLThread*, unsigned long>> targets;
  {
    KRLMutex_var guard(_mutex, 1);
    for (KRLThread* t = _first; t != nullptr; t = t->_next)
      targets.emplace_back(t, load_tid(t->_id));
  }
  // The calling thread's own run, if it is one of them, ends last.
  const unsigned long me = krl_internal::current_thread_id();
  for (const auto& target : targets) {
    if (target.second != me) end_running(target.first, target.second);
  }
  for (const auto& target : targets) {
    if (target.second == me) end_running(target.first, target.second);
  }
}

void KRLThread::yield() { KRLPortable::vsleep(0); }

KRLThread* KRLThread::instance(const KRLThreadId& id) {
  // Under _mutex, so that no link of an object that is being destroyed is
  // followed.
  KRLMutex_var guard(_mutex, 1);
  for (KRLThread* t = _first; t != nullptr; t = t->_next) {
    if (load_tid(t->_id) == load_tid(id)) return t;
  }
  return nullptr;
}

void KRLThread::factory(Factory f) { _factory = f; }

KRLThread::Factory KRLThread::factory() { return _factory; }

void KRLThread::_create_thread(unsigned long stack_size, void* (*start)(void*), void* arg) {
  const int rc = krl_internal::start_detached_thread(stack_size, start, arg);
  if (rc == 0) return;
  errno = rc;
  std::perror("CreateThread");
  throw CORBA_NO_RESOURCES(static_cast<unsigned long>(rc), CORBA::COMPLETED_NO);
}
