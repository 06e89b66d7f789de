// Every object of the library that is built at load lives in this one
// translation unit, defined in load order: C++ constructs them top to bottom
// and destroys them bottom to top. No other file of the library may define an
// object with a dynamic initialiser at namespace scope.
#include <iostream>  // std::cout must be ready before the first trace

#include "krlport/exceptions/environment.h"
#include "krlport/exceptions/exception.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/exceptions/user_exception.h"
#include "krlport/portable/portable.h"
#include "krlport/services/load_library.h"
#include "krlport/services/vdlogger.h"
#include "krlport/threads/mutex.h"
#include "krlport/threads/thread.h"
#include "krlport/threads/thread_local.h"

// Static mutexes first: they need nothing but the platform lock.
KRLMutex KRLThread::_mutex;
KRLMutex KRLThreadLocal::_mutex;
KRLMutex KRLPortable::_mutex;

// The loader's user exception, the first Description built: it creates the
// exception registry and reads DEBUG_STATIC. Its base is built further down.
const CORBA_Exception::Description KRLLoadLibrary::LoadError::_description(
    "KRLLoadLibrary::LoadError", "IDL:ostrevan/KRLLoadLibrary::LoadError:1.0",
    KRLLoadLibrary::LoadError::_factory, &CORBA_UserException::_description, nullptr);

// The standard system exceptions. Their base, CORBA::SystemException, is built
// further down: a Description keeps only its base's address, and nothing walks
// the base chain before load has finished.
#define KRL_SYSTEM_EXCEPTION(NAME)                                                \
  CORBA_Exception::Description CORBA_##NAME::_description(                        \
      "CORBA::" #NAME, "IDL:omg.org/CORBA/" #NAME ":1.0", CORBA_##NAME::_factory, \
      &CORBA_SystemException::_description, nullptr);
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION

// The abstract bases, then the library's own user exception.
const CORBA_Exception::Description CORBA_Exception::_description("CORBA::Exception",
                                                                 "IDL:omg.org/CORBA/Exception:1.0",
                                                                 nullptr, nullptr, nullptr);
const CORBA_Exception::Description CORBA_SystemException::_description(
    "CORBA::SystemException", "IDL:omg.org/CORBA/SystemException:1.0", nullptr,
    &CORBA_Exception::_description, nullptr);
const CORBA_Exception::Description CORBA_UserException::_description(
    "CORBA::UserException", "IDL:omg.org/CORBA/UserException:1.0", nullptr,
    &CORBA_Exception::_description, nullptr);
const CORBA_Exception::Description KRLRemarshal::_description("KRLRemarshal",
                                                              "IDL:ostrevan/KRLRemarshal:1.0",
                                                              KRLRemarshal::_factory,
                                                              &CORBA_UserException::_description,
                                                              nullptr);

// Guards the taking of the environment's thread-local key.
KRLMutex CurrentEnvironment::_mtx;

// The debug logger: standard output, nothing enabled, until someone names a
// file or switches a mask on. It opens no file here.
krl_internal::KRLDebugLogger krl_internal::KRLDebugLogger::_instance;
