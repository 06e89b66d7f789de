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

/// The abstract base of the standard system exceptions: a minor code, a
/// completion status and an explanation that never leaves the process. Not
/// locked; an object belongs to one thread at a time.
class KRL_EXPORT CORBA_SystemException : public CORBA_Exception {
 public:
  /// Copies the minor code, the completion status and the explanation.
  /// Throws std::bad_alloc if the explanation cannot be copied.
  CORBA_SystemException(const CORBA_SystemException& e);
  /// Copies the minor code, the completion status and the explanation.
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

  /// The stored minor code (with CORBA::OMGVMCID applied to small values).
  unsigned long minor() const { return _minor; }
  /// Stores m, or m | CORBA::OMGVMCID when m is below 4096.
  void minor(unsigned long m);
  /// The completion status, possibly a value outside the enumeration if it was
  /// read from a stream.
  CORBA::CompletionStatus completed() const { return _completed; }
  /// Stores c as it is.
  void completed(CORBA::CompletionStatus c) { _completed = c; }
  /// The shared empty string if no text was given, null if the text is nil.
  /// Points into the object: valid until the text changes or the object dies.
  const char* explanation() const { return _explanation.in(); }
  /// Stores a copy of text; null makes the text nil.
  void explanation(const char* text);

  /// e if it is a system exception, else null; null gives null.
  static CORBA_SystemException* _downcast(CORBA_Exception* e);

  /// "CORBA::SystemException"; abstract (no factory); its base is
  /// CORBA_Exception's Description.
  static const Description _description;

 protected:
  /// Stores the minor code as minor(m) does; the explanation is the shared
  /// empty string.
  CORBA_SystemException(unsigned long minor = 0,
                        CORBA::CompletionStatus completed = CORBA::COMPLETED_NO);
  /// Copies explanation; null gives a nil text.
  CORBA_SystemException(unsigned long minor, CORBA::CompletionStatus completed,
                        const char* explanation);
  /// Stores both values; the text stays as it is.
  void init(unsigned long minor, CORBA::CompletionStatus completed);

  unsigned long _minor;  ///< final form, OMGVMCID applied
  /// As completed() returns it.
  CORBA::CompletionStatus _completed;
  /// Never written to a stream.
  CORBA_String_var _explanation;
};

/// The one implementation behind the 36 standard classes; only they derive
/// from it. It has no Description of its own: _desc() is the concrete class's.
class KRL_EXPORT KRLStdException : public CORBA_SystemException {
 public:
  /// Copies everything, the explanation included, and keeps e's concrete
  /// class's Description and factory.
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
  /// Minor code 0, COMPLETED_NO; desc and factory are the concrete class's
  /// and must outlive the object.
  KRLStdException(Description& desc, CORBA_Exception* (*factory)());
  /// As above, with the given minor code and completion status.
  KRLStdException(unsigned long minor, CORBA::CompletionStatus completed, Description& desc,
                  CORBA_Exception* (*factory)());
  /// As above, with a copy of explanation (null gives a nil text).
  KRLStdException(unsigned long minor, CORBA::CompletionStatus completed, const char* explanation,
                  Description& desc, CORBA_Exception* (*factory)());

 private:
  Description& _desc_ref;
  CORBA_Exception* (*_factory)();
};

// One standard class. Its description is not const because _typeCode writes to
// it; the layer above sets type codes once, before it starts its threads.
/// Declares the standard class CORBA_NAME (name "CORBA::NAME", repository id
/// "IDL:omg.org/CORBA/NAME:1.0"), derived from KRLStdException. Its members:
/// the default constructor (minor 0, COMPLETED_NO), constructors from a minor
/// code and a completion status with or without an explanation, the copy
/// constructor; `_factory()` (a new default object the caller owns);
/// `_downcast` for plain and const pointers (null if the object is not of the
/// class, null for null); `_raise()` (throws a copy as CORBA_NAME); and
/// `_typeCode(tc)`, which stores a type code in the class's `_description`
/// (not locked: set it before threads start). The 36 classes are listed in
/// system_exception_list.inc.
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
