/// @file
/// CORBA_SystemException, its shared implementation KRLStdException, and the 36
/// standard system exception classes from CORBA_UNKNOWN to
/// CORBA_CODESET_INCOMPATIBLE.
///
/// Everything the 36 classes share lives in KRLStdException, which keeps the
/// concrete class's Description and factory in each object; a concrete class
/// adds only its constructors, description, factory, _raise and _downcast.
///
/// Minor codes: a value below 4096 passed to a constructor, init or minor(m) is
/// stored as value | CORBA::OMGVMCID, so minor 4 reads back as 0x4F4D0004.
/// Larger values are vendor codes and are stored unchanged. Copies keep the
/// stored value as it is.
#ifndef KRLPORT_EXCEPTIONS_SYSTEM_EXCEPTION_H_
#define KRLPORT_EXCEPTIONS_SYSTEM_EXCEPTION_H_

#include "krlport/exceptions/exception.h"
#include "krlport/frame/corba.h"
#include "krlport/frame/export.h"
#include "krlport/frame/string_var.h"

class KRL_EXPORT CORBA_SystemException : public CORBA_Exception {
 public:
  CORBA_SystemException(const CORBA_SystemException& e);
  CORBA_SystemException& operator=(const CORBA_SystemException& e);
  ~CORBA_SystemException() override;

  const Description& _desc() const override;
  /// The body: _minor, then _completed, each as an unsigned long. The
  /// explanation stays on the sender's side.
  void _write(KRLostream& s) const override;
  /// Reads _minor and _completed back. A completion status outside the
  /// enumeration is kept as it came; the explanation is left as it was.
  void _copy(KRListream& s) override;
  /// "Exception: " and the name; "\tExplanation: " and the text unless it is
  /// nil or empty; "\tMinor: " and the code; "\tCompletion Status: " and YES,
  /// NO, MAYBE or "Invalid status". Each line ends with endl.
  void _pretty_print(KRLostream& s) const override;

  unsigned long minor() const { return _minor; }
  void minor(unsigned long m);
  CORBA::CompletionStatus completed() const { return _completed; }
  void completed(CORBA::CompletionStatus c) { _completed = c; }
  /// The shared empty string if no text was given, null if the text is nil.
  /// Points into the object: valid until the text changes or the object dies.
  const char* explanation() const { return _explanation.in(); }
  /// Stores a copy of text; null makes the text nil.
  void explanation(const char* text);

  /// e if it is a system exception, else null; null gives null.
  static CORBA_SystemException* _downcast(CORBA_Exception* e);

  static const Description _description;

 protected:
  CORBA_SystemException(unsigned long minor = 0,
                        CORBA::CompletionStatus completed = CORBA::COMPLETED_NO);
  /// Copies explanation; null gives a nil text.
  CORBA_SystemException(unsigned long minor, CORBA::CompletionStatus completed,
                        const char* explanation);
  /// Stores both values; the text stays as it is.
  void init(unsigned long minor, CORBA::CompletionStatus completed);

  unsigned long _minor;  ///< final form, OMGVMCID applied
  CORBA::CompletionStatus _completed;
  CORBA_String_var _explanation;
};

/// The one implementation behind the 36 standard classes; only they derive
/// from it. It has no Description of its own: _desc() is the concrete class's.
class KRL_EXPORT KRLStdException : public CORBA_SystemException {
 public:
  KRLStdException(const KRLStdException& e);
  ~KRLStdException() override;

  const Description& _desc() const override;
  /// Throws a copy with the static type KRLStdException; the 36 classes
  /// override this to throw their own type.
  void _raise() const override;
  /// A default object of the concrete class with this one's minor code and
  /// completion status, made by the class's factory. The explanation is not
  /// copied (the copy constructor does copy it). The caller owns the result.
  CORBA_Exception* _deep_copy() override;
  using CORBA_Exception::_deep_copy;

 protected:
  KRLStdException(Description& desc, CORBA_Exception* (*factory)());
  KRLStdException(unsigned long minor, CORBA::CompletionStatus completed, Description& desc,
                  CORBA_Exception* (*factory)());
  KRLStdException(unsigned long minor, CORBA::CompletionStatus completed, const char* explanation,
                  Description& desc, CORBA_Exception* (*factory)());

 private:
  Description& _desc_ref;
  CORBA_Exception* (*_factory)();
};

// One standard class. Its description is not const because _typeCode writes to
// it; the layer above sets type codes once, before it starts its threads.
#define KRL_SYSTEM_EXCEPTION(NAME)                                                                 \
  class KRL_EXPORT CORBA_##NAME : public KRLStdException {                                         \
   public:                                                                                         \
    CORBA_##NAME();                                                                                \
    CORBA_##NAME(unsigned long minor, CORBA::CompletionStatus completed);                          \
    CORBA_##NAME(unsigned long minor, CORBA::CompletionStatus completed, const char* explanation); \
    CORBA_##NAME(const CORBA_##NAME& e);                                                           \
    ~CORBA_##NAME() override;                                                                      \
                                                                                                   \
    /* A new default object; the caller owns it. */                                                \
    static CORBA_Exception* _factory();                                                            \
    static CORBA_##NAME* _downcast(CORBA_Exception* e);                                            \
    static const CORBA_##NAME* _downcast(const CORBA_Exception* e);                                \
    void _raise() const override;                                                                  \
    static void _typeCode(const CORBA_TypeCode* tc);                                               \
                                                                                                   \
    static Description _description;                                                               \
  };
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION

#endif  // KRLPORT_EXCEPTIONS_SYSTEM_EXCEPTION_H_
