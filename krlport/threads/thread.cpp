#include "krlport/threads/thread.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <new>

#include "krlport/exceptions/exception.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/atomic.h"
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
// A thread cannot be ended while it links or unlinks its own node (its
// termination point has not accepted yet, or has refused), and a terminator
// sends while holding the lock, so a thread never ends holding the lock. A
// terminator that sent unlinks the node and marks it ended; the thread, if it
// gets to its own unlinking before the termination does, finds the mark and
// leaves the links alone.
struct Running {
  Running(const KRLThread* owner, unsigned long thread_id);
  ~Running();
  void unlink();

  // The object the thread was run for, cleared by its destructor before
  // anything else, under running_mutex(): an object built later at the same
  // address is never taken for this one, and while the lock is held a
  // non-null object is whole and may be read.
  const KRLThread* object;
  unsigned long tid;
  bool ended;  // a terminator sent the termination and unlinked the node
  Running* next;
  Running* prev;
  krl_internal::TerminationPoint point;
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
    : object(owner), tid(thread_id), ended(false), next(nullptr), prev(nullptr) {
  krl_internal::termination_begin(&point);
  {
    KRLMutex_var guard(running_mutex(), 1);
    next = g_running;
    if (next != nullptr) next->prev = this;
    g_running = this;
  }
  krl_internal::termination_accept(&point);
}

Running::~Running() {
  krl_internal::termination_refuse(&point);
  {
    KRLMutex_var guard(running_mutex(), 1);
    if (!ended) unlink();
  }
  krl_internal::termination_end(&point);
}

// Caller holds running_mutex().
void Running::unlink() {
  if (prev != nullptr) prev->next = next;
  if (next != nullptr) next->prev = prev;
  if (g_running == this) g_running = next;
}

// Ends run r of another thread: sends the termination, then unlinks r and
// marks it ended. If nothing could be sent, r stays and its thread runs on. Caller
// holds running_mutex().
void end_other(Running* r) {
  if (krl_internal::termination_send(&r->point)) {
    r->unlink();
    r->ended = true;
  }
}

// Unlinks the calling thread's own run r; the caller holds running_mutex()
// and ends itself once it has released it.
void end_own(Running* r) {
  r->unlink();
  r->ended = true;
}

// Clears the object of every run that names it.
void forget_object(const KRLThread* object) {
  KRLMutex_var guard(running_mutex(), 1);
  for (Running* r = g_running; r != nullptr; r = r->next) {
    if (r->object == object) r->object = nullptr;
  }
}

unsigned long load_tid(const KRLThreadId& id) {
  return krl_internal::atomic_load(&id._tid, krl_internal::MemoryOrder::kRelaxed);
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
  krl_internal::atomic_store(&self->_id._tid, tid, krl_internal::MemoryOrder::kRelaxed);
  Running running(self, tid);
  try {
    self->body();
    // The body may have deleted the object: from here on only the pointer
    // value travels.
    KRLThreadLocal::_exit_thread(arg);
  } catch (CORBA_Exception& e) {
    std::cout << "KRLThread::_start: unhandled exception in thread" << std::endl;
    std::cout << e << std::endl;
    krl_internal::debug_break();
  }
  return nullptr;
}

void KRLThread::terminate() {
  const unsigned long tid = load_tid(_id);
  const bool own = tid == krl_internal::current_thread_id();
  bool ended_own = false;
  {
    KRLMutex_var guard(running_mutex(), 1);
    for (Running* r = g_running; r != nullptr; r = r->next) {
      if (r->object != this || r->tid != tid) continue;
      own ? end_own(r) : end_other(r);
      ended_own = own;
      break;
    }
  }
  if (ended_own) krl_internal::end_calling_thread();
}

// Walks the runs rather than the registry, so it neither allocates nor takes
// _mutex: a run's object is in the registry exactly while it is not null,
// and its destructor cannot clear it, nor end, while the runs' lock is held.
void KRLThread::terminateAll() {
  const unsigned long me = krl_internal::current_thread_id();
  Running* own = nullptr;
  {
    KRLMutex_var guard(running_mutex(), 1);
    Running* r = g_running;
    while (r != nullptr) {
      Running* const next = r->next;
      if (r->object != nullptr && r->tid == load_tid(r->object->_id)) {
        if (r->tid == me) {
          own = r;
        } else {
          end_other(r);
        }
      }
      r = next;
    }
    if (own != nullptr) end_own(own);
  }
  if (own != nullptr) krl_internal::end_calling_thread();
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
