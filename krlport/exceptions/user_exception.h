/// @file
/// CORBA_UserException, the abstract base of the exceptions that interfaces
/// declare, and KRLRemarshal, a user exception that carries nothing: its class
/// is the whole message. Nothing in this library raises or catches
/// KRLRemarshal; it is there for the layer above.
#ifndef KRLPORT_EXCEPTIONS_USER_EXCEPTION_H_
#define KRLPORT_EXCEPTIONS_USER_EXCEPTION_H_

#include "krlport/exceptions/exception.h"
#include "krlport/frame/export.h"

class KRL_EXPORT CORBA_UserException : public CORBA_Exception {
 public:
  CORBA_UserException(const CORBA_UserException& e) : CORBA_Exception(e) {}
  CORBA_UserException& operator=(const CORBA_UserException&) { return *this; }
  ~CORBA_UserException() override;

  const Description& _desc() const override;

  /// e if it is a user exception, else null; null gives null.
  static CORBA_UserException* _downcast(CORBA_Exception* e);

  static const Description _description;

 protected:
  CORBA_UserException() {}
};

class KRL_EXPORT KRLRemarshal : public CORBA_UserException {
 public:
  KRLRemarshal() {}
  KRLRemarshal(const KRLRemarshal& e) : CORBA_UserException(e) {}
  KRLRemarshal& operator=(const KRLRemarshal&) { return *this; }
  ~KRLRemarshal() override;

  const Description& _desc() const override;
  void _raise() const override;
  CORBA_Exception* _deep_copy() override;  ///< the caller owns the copy
  using CORBA_Exception::_deep_copy;

  /// A new object; the caller owns it.
  static CORBA_Exception* _factory();
  static KRLRemarshal* _downcast(CORBA_Exception* e);
  static const KRLRemarshal* _downcast(const CORBA_Exception* e);

  static const Description _description;
};

#endif  // KRLPORT_EXCEPTIONS_USER_EXCEPTION_H_
