#include "krlport/exceptions/exception.h"

#include <cstdlib>
#include <iostream>

#include "krlport/exceptions/registry.h"

namespace krl_internal {
namespace {

// Set once, by the first Description of the process; no lock, since
// descriptions are built while a module loads. 0 at load.
int _debug_static_read = 0;   // DEBUG_STATIC has been looked at
int _debug_static_trace = 0;  // DEBUG_STATIC was found

}  // namespace
}  // namespace krl_internal

CORBA_Exception::Description::Description(const char* name, const char* repository_id,
                                          CORBA_Exception* (*factory)(), const Description* base,
                                          const CORBA_TypeCode* typeCode)
    : _name(name),
      _repository_id(repository_id),
      _factory(factory),
      _base(base),
      _typeCode(typeCode) {
  if (krl_internal::_debug_static_read == 0) {
    krl_internal::_debug_static_read = 1;
    // Any value, the empty one included, switches tracing on.
    if (std::getenv("DEBUG_STATIC") != nullptr) krl_internal::_debug_static_trace = 1;
  }
  if (krl_internal::_debug_static_trace != 0) trace();
  krl_internal::register_description(*this);
}

CORBA_Exception::Description::Description(const Description& d)
    : _name(d._name),
      _repository_id(d._repository_id),
      _factory(d._factory),
      _base(d._base),
      _typeCode(d._typeCode) {}

CORBA_Exception::Description& CORBA_Exception::Description::operator=(const Description& d) {
  const char* const old_id = _repository_id;
  _name = d._name;
  _repository_id = d._repository_id;
  _factory = d._factory;
  _base = d._base;
  _typeCode = d._typeCode;
  krl_internal::rekey_description(*this, old_id);
  return *this;
}

CORBA_Exception::Description::~Description() {
  krl_internal::unregister_description(_repository_id);
}

unsigned char CORBA_Exception::Description::can_cast(const Description& target) const {
  for (const Description* d = this; d != nullptr; d = d->_base) {
    if (d == &target) return 1;
  }
  return 0;
}

// At load the base is often a Description whose constructor has not run yet:
// zero-filled static storage, no vtable pointer. Reading its name is intended
// (it reads as null), but the vptr check of UBSan would reject the access.
__attribute__((no_sanitize("vptr"))) void CORBA_Exception::Description::trace() const {
  std::cout << "Statically initializing class: " << (_name != nullptr ? _name : "(null)") << ", "
            << static_cast<const void*>(this) << std::endl;
  std::cout << "The class has the following base:" << std::endl;
  if (_base != nullptr) {
    const char* base_name = _base->_name;
    std::cout << (base_name != nullptr ? base_name : "(null)") << ", "
              << static_cast<const void*>(_base) << std::endl;
  } else {
    std::cout << "(null)" << std::endl;
  }
  std::cout << std::endl;
}

CORBA_Exception::~CORBA_Exception() {}

const CORBA_Exception::Description& CORBA_Exception::_desc() const { return _description; }

const char* CORBA_Exception::_name() const { return _desc().name(); }

const char* CORBA_Exception::_repository_id() const { return _desc().repository_id(); }

CORBA_Exception* CORBA_Exception::_deep_copy() const {
  // The virtual copy does not change the object; it is non-const only by its
  // historical signature.
  return const_cast<CORBA_Exception*>(this)->_deep_copy();
}

void CORBA::release(CORBA_Exception* e) { delete e; }

CORBA_Exception_var::CORBA_Exception_var(const CORBA_Exception_var& v)
    : _ptr(v._ptr != nullptr ? v._ptr->_deep_copy() : nullptr) {}

CORBA_Exception_var::~CORBA_Exception_var() { delete _ptr; }

void CORBA_Exception_var::operator=(CORBA_Exception* e) {
  if (e == _ptr) return;
  delete _ptr;
  _ptr = e;
}

void CORBA_Exception_var::operator=(const CORBA_Exception_var& v) {
  if (&v == this) return;
  CORBA_Exception* copy = v._ptr != nullptr ? v._ptr->_deep_copy() : nullptr;
  delete _ptr;
  _ptr = copy;
}
