/// @file
/// CORBA_UserException, the abstract base of the exceptions that interfaces
/// declare, and KRLRemarshal, a user exception that carries nothing: its class
/// is the whole message. Nothing in this library raises or catches
/// KRLRemarshal; it is there for the layer above.
#ifndef KRLPORT_EXCEPTIONS_USER_EXCEPTION_H_
#define KRLPORT_EXCEPTIONS_USER_EXCEPTION_H_

#include "krlport/exceptions/exception.h"
#include "krlport/frame/export.h"

/// The abstract base of the exceptions that interfaces declare. Generated
/// code derives one class per declared exception from it, with the members
/// KRLRemarshal shows. Not locked; an object belongs to one thread at a time.
class KRL_EXPORT CORBA_UserException : public CORBA_Exception {
 public:
  /// The base has no state to copy.
  CORBA_UserException(const CORBA_UserException& e) : CORBA_Exception(e) {}
  /// The base has no state to assign.
  CORBA_UserException& operator=(const CORBA_UserException&) { return *this; }
  ~CORBA_UserException() override;

  const Description& _desc() const override;

  /// e if it is a user exception, else null; null gives null.
  static CORBA_UserException* _downcast(CORBA_Exception* e);

  /// "CORBA::UserException"; abstract (no factory); its base is
  /// CORBA_Exception's Description.
  static const Description _description;

 protected:
  /// Only derived classes make objects.
  CORBA_UserException() {}
};

/// A user exception with no fields, and the model of what generated code
/// writes for a user exception: copy constructor and assignment, `_desc`,
/// `_raise`, `_deep_copy`, `_factory`, both `_downcast`s and a static
/// `_description` whose factory is `_factory`.
class KRL_EXPORT KRLRemarshal : public CORBA_UserException {
 public:
  KRLRemarshal() {}
  /// Nothing to copy: the class is the message.
  KRLRemarshal(const KRLRemarshal& e) : CORBA_UserException(e) {}
  /// Nothing to assign.
  KRLRemarshal& operator=(const KRLRemarshal&) { return *this; }
  ~KRLRemarshal() override;

  const Description& _desc() const override;
  void _raise() const override;
  CORBA_Exception* _deep_copy() override;  ///< the caller owns the copy
  using CORBA_Exception::_deep_copy;

  /// A new object; the caller owns it.
  static CORBA_Exception* _factory();
  /// e if its class is KRLRemarshal or derives from it (by Description),
  /// else null; null gives null.
  static KRLRemarshal* _downcast(CORBA_Exception* e);
  /// The same for a const object.
  static const KRLRemarshal* _downcast(const CORBA_Exception* e);

  /// "KRLRemarshal", "IDL:ostrevan/KRLRemarshal:1.0", factory _factory, base
  /// CORBA_UserException's Description; registered while the library is loaded.
  static const Description _description;
};

#endif  // KRLPORT_EXCEPTIONS_USER_EXCEPTION_H_
