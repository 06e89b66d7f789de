#include "krlport/exceptions/environment.h"

#include <new>

#include "krlport/platform/atomic.h"
#include "krlport/threads/thread_local_internal.h"

unsigned long CurrentEnvironment::_key_id = 0;
// _mtx is defined in the load-order unit.

CORBA_Environment& CORBA_Environment::operator=(const CORBA_Environment& e) {
  _exception = e._exception;  // keeps its object when e is this environment
  return *this;
}

CORBA_Environment* CORBA_Environment::_duplicate(CORBA_Environment* e) {
  if (e == nullptr) return nullptr;
  return new (std::nothrow) CORBA_Environment(*e);
}

CORBA_Environment& CORBA_Environment::current_environment() { return CORBA::current_environment(); }

CORBA_Environment& CORBA::current_environment() {
  return CurrentEnvironment::instance()->environment();
}

void CORBA::release(CORBA_Environment* e) { delete e; }

unsigned char CORBA::is_nil(CORBA_Environment* e) { return e == nullptr ? 1 : 0; }

CORBA_Environment_var::CORBA_Environment_var(const CORBA_Environment_var& v)
    : _ptr(CORBA_Environment::_duplicate(v._ptr)) {}

CORBA_Environment_var::~CORBA_Environment_var() { CORBA::release(_ptr); }

CORBA_Environment_var& CORBA_Environment_var::operator=(CORBA_Environment* e) {
  if (e != _ptr) {
    CORBA::release(_ptr);
    _ptr = e;
  }
  return *this;
}

CORBA_Environment*& CORBA_Environment_var::out() {
  CORBA::release(_ptr);
  _ptr = nullptr;
  return _ptr;
}

CORBA_Environment* CORBA_Environment_var::_retn() {
  CORBA_Environment* e = _ptr;
  _ptr = nullptr;
  return e;
}

CurrentEnvironment::CurrentEnvironment() : KRLThreadLocal(key_id()) {}

CurrentEnvironment::~CurrentEnvironment() {}

unsigned long CurrentEnvironment::key_id() {
  unsigned long key = krl_internal::atomic_load(&_key_id, krl_internal::MemoryOrder::kAcquire);
  if (key != 0) return key;
  KRLMutex_var guard(_mtx, 1);
  if (_key_id == 0) {
    krl_internal::atomic_store(&_key_id, KRLThreadLocal::get_unique_id(),
                               krl_internal::MemoryOrder::kRelease);
  }
  return _key_id;
}

namespace krl_internal {

// The calling thread's environment where the cache has no answer: at the
// first call on a thread, and after any thread-local object of any thread was
// unregistered. Out of line, so that the cached path stays a leaf that
// saves no register.
[[gnu::noinline]] CurrentEnvironment* find_or_make_environment() {
  KRLThreadLocal* object = KRLThreadLocal::instance(CurrentEnvironment::key_id());
  if (object != nullptr) return static_cast<CurrentEnvironment*>(object);
  return new CurrentEnvironment;
}

}  // namespace krl_internal

// The cache is KRLThreadLocal::instance's own, read inline: a repeated call
// makes no exported call and takes no lock.
CurrentEnvironment* CurrentEnvironment::instance() {
  const unsigned long key =
      krl_internal::atomic_load(&_key_id, krl_internal::MemoryOrder::kAcquire);
  if (key != 0) {
    if (KRLThreadLocal* object = krl_internal::cached_thread_local(key))
      return static_cast<CurrentEnvironment*>(object);
  }
  return krl_internal::find_or_make_environment();
}
