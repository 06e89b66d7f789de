#include "krlport/exceptions/user_exception.h"

CORBA_UserException::~CORBA_UserException() {}

const CORBA_Exception::Description& CORBA_UserException::_desc() const { return _description; }

CORBA_UserException* CORBA_UserException::_downcast(CORBA_Exception* e) {
  return e != nullptr && e->_desc().can_cast(_description) ? static_cast<CORBA_UserException*>(e)
                                                           : nullptr;
}

KRLRemarshal::~KRLRemarshal() {}

const CORBA_Exception::Description& KRLRemarshal::_desc() const { return _description; }

void KRLRemarshal::_raise() const { throw *this; }

CORBA_Exception* KRLRemarshal::_deep_copy() { return new KRLRemarshal(*this); }

CORBA_Exception* KRLRemarshal::_factory() { return new KRLRemarshal(); }

KRLRemarshal* KRLRemarshal::_downcast(CORBA_Exception* e) {
  return e != nullptr && e->_desc().can_cast(_description) ? static_cast<KRLRemarshal*>(e)
                                                           : nullptr;
}

const KRLRemarshal* KRLRemarshal::_downcast(const CORBA_Exception* e) {
  return e != nullptr && e->_desc().can_cast(_description) ? static_cast<const KRLRemarshal*>(e)
                                                           : nullptr;
}
