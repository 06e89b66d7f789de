#include "krlport/threads/thread.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
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

// The threads inside _start, so that terminate() can turn an id into the
// system's handle. A node lives in its thread's _start frame and leaves the
// list when that frame ends, by return, exception or cancellation; a handle
// read under the lock therefore names a running thread.
struct Running {
  Running(const KRLThread* owner, unsigned long thread_id);
  ~Running();

  const KRLThread* object;  // identity only; never read through
  unsigned long tid;
  krl_internal::ThreadHandle handle;
  Running* next;
  Running* prev;
};

// A leaf lock of its own: KRLThread::_mutex guards only the registry.
KRLMutex& running_mutex() {
  static KRLMutex mutex;
  return mutex;
}
Running* g_running = nullptr;

Running::Running(const KRLThread* owner, unsigned long thread_id)
    : object(owner),
      tid(thread_id),
      handle(krl_internal::current_thread_handle()),
      next(nullptr),
      prev(nullptr) {
  KRLMutex_var guard(running_mutex(), 1);
  next = g_running;
  if (next != nullptr) next->prev = this;
  g_running = this;
}

Running::~Running() {
  KRLMutex_var guard(running_mutex(), 1);
  if (prev != nullptr) prev->next = next;
  if (next != nullptr) next->prev = prev;
  if (g_running == this) g_running = next;
}

void cancel_running(const KRLThread* object, unsigned long tid) {
  KRLMutex_var guard(running_mutex(), 1);
  for (Running* r = g_running; r != nullptr; r = r->next) {
    if (r->object == object && r->tid == tid) krl_internal::cancel_thread(r->handle);
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
  Running running(self, tid);
  try {
    __atomic_store_n(&self->_id._tid, tid, __ATOMIC_RELAXED);
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

void KRLThread::terminate() { cancel_running(this, load_tid(_id)); }

void KRLThread::terminateAll() {
  std::vector<std::pair<const KRLThread*, unsigned long>> targets;
  {
    KRLMutex_var guard(_mutex, 1);
    for (KRLThread* t = _first; t != nullptr; t = t->_next)
      targets.emplace_back(t, load_tid(t->_id));
  }
  for (const auto& target : targets) cancel_running(target.first, target.second);
}

void KRLThread::yield() { KRLPortable::vsleep(0); }

KRLThread* KRLThread::instance(const KRLThreadId& id) {
  // Under _mutex, so that no link of an object that is being destroyed is
  // followed.
  KRLMutex_var guard(_mutex, 1);
  for (KRLThread* t = _first; t != nullptr; t = t->_next) {
    if (load_tid(t->_id) == id._tid) return t;
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
