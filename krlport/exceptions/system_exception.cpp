#include "krlport/exceptions/system_exception.h"

// The header's in-class initialiser gives the value; this is the one
// definition that lets OMGVMCID be bound to a reference.
const unsigned long CORBA::OMGVMCID;

namespace {

// Standard minor codes are written as small numbers at the call site and
// stored with the OMG's set id in the high bits.
unsigned long final_minor(unsigned long value) {
  return value < 4096 ? (value | CORBA::OMGVMCID) : value;
}

}  // namespace

CORBA_SystemException::CORBA_SystemException(unsigned long minor, CORBA::CompletionStatus completed)
    : _minor(final_minor(minor)), _completed(completed) {}

CORBA_SystemException::CORBA_SystemException(unsigned long minor, CORBA::CompletionStatus completed,
                                             const char* explanation)
    : _minor(final_minor(minor)), _completed(completed), _explanation(explanation) {}

CORBA_SystemException::CORBA_SystemException(const CORBA_SystemException& e)
    : CORBA_Exception(e),
      _minor(e._minor),
      _completed(e._completed),
      _explanation(e._explanation) {}

CORBA_SystemException& CORBA_SystemException::operator=(const CORBA_SystemException& e) {
  _minor = e._minor;
  _completed = e._completed;
  _explanation = e._explanation;
  return *this;
}

CORBA_SystemException::~CORBA_SystemException() {}

const CORBA_Exception::Description& CORBA_SystemException::_desc() const { return _description; }

void CORBA_SystemException::init(unsigned long minor, CORBA::CompletionStatus completed) {
  _minor = final_minor(minor);
  _completed = completed;
}

void CORBA_SystemException::minor(unsigned long m) { _minor = final_minor(m); }

void CORBA_SystemException::explanation(const char* text) { _explanation = text; }

CORBA_SystemException* CORBA_SystemException::_downcast(CORBA_Exception* e) {
  return e != nullptr && e->_desc().can_cast(_description) ? static_cast<CORBA_SystemException*>(e)
                                                           : nullptr;
}

KRLStdException::KRLStdException(Description& desc, CORBA_Exception* (*factory)())
    : CORBA_SystemException(), _desc_ref(desc), _factory(factory) {}

KRLStdException::KRLStdException(unsigned long minor, CORBA::CompletionStatus completed,
                                 Description& desc, CORBA_Exception* (*factory)())
    : CORBA_SystemException(minor, completed), _desc_ref(desc), _factory(factory) {}

KRLStdException::KRLStdException(unsigned long minor, CORBA::CompletionStatus completed,
                                 const char* explanation, Description& desc,
                                 CORBA_Exception* (*factory)())
    : CORBA_SystemException(minor, completed, explanation), _desc_ref(desc), _factory(factory) {}

KRLStdException::KRLStdException(const KRLStdException& e)
    : CORBA_SystemException(e), _desc_ref(e._desc_ref), _factory(e._factory) {}

KRLStdException::~KRLStdException() {}

const CORBA_Exception::Description& KRLStdException::_desc() const { return _desc_ref; }

void KRLStdException::_raise() const { throw *this; }

CORBA_Exception* KRLStdException::_deep_copy() {
  CORBA_Exception* made = _factory();
  if (made == nullptr) return nullptr;
  // The factory is the concrete class's, so the object is one of the 36.
  KRLStdException* copy = static_cast<KRLStdException*>(made);
  copy->_minor = _minor;  // final already: no second pass through the rule
  copy->_completed = _completed;
  return copy;
}

// The descriptions themselves are defined in load order, with the library's
// other load-time objects.
#define KRL_SYSTEM_EXCEPTION(NAME)                                                                 \
  CORBA_##NAME::CORBA_##NAME() : KRLStdException(_description, _factory) {}                        \
  CORBA_##NAME::CORBA_##NAME(unsigned long minor, CORBA::CompletionStatus completed)               \
      : KRLStdException(minor, completed, _description, _factory) {}                               \
  CORBA_##NAME::CORBA_##NAME(unsigned long minor, CORBA::CompletionStatus completed,               \
                             const char* explanation)                                              \
      : KRLStdException(minor, completed, explanation, _description, _factory) {}                  \
  CORBA_##NAME::CORBA_##NAME(const CORBA_##NAME& e) : KRLStdException(e) {}                        \
  CORBA_##NAME::~CORBA_##NAME() {}                                                                 \
  CORBA_Exception* CORBA_##NAME::_factory() { return new CORBA_##NAME(); }                         \
  CORBA_##NAME* CORBA_##NAME::_downcast(CORBA_Exception* e) {                                      \
    return e != nullptr && e->_desc().can_cast(_description) ? static_cast<CORBA_##NAME*>(e)       \
                                                             : nullptr;                            \
  }                                                                                                \
  const CORBA_##NAME* CORBA_##NAME::_downcast(const CORBA_Exception* e) {                          \
    return e != nullptr && e->_desc().can_cast(_description) ? static_cast<const CORBA_##NAME*>(e) \
                                                             : nullptr;                            \
  }                                                                                                \
  void CORBA_##NAME::_raise() const { throw *this; }                                               \
  void CORBA_##NAME::_typeCode(const CORBA_TypeCode* tc) { _description.set_typeCode(tc); }
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION
