/// @file
/// CORBA_Exception, the root of every exception of the library, with its
/// per-class Description and the owning holder CORBA_Exception_var.
///
/// A Description holds the static facts of one exception class: name,
/// repository id, factory, the base class's Description and a type code. The
/// descriptions form a tree through their base pointers; casts between
/// exception classes walk that tree instead of using the language's RTTI. Every
/// Description also joins the process-wide registry by repository id while it
/// lives, which is how an id read from a stream turns back into an object.
#ifndef KRLPORT_EXCEPTIONS_EXCEPTION_H_
#define KRLPORT_EXCEPTIONS_EXCEPTION_H_

#include <iosfwd>

#include "krlport/frame/corba.h"
#include "krlport/frame/export.h"

/// A type of the layer above; this library only stores and hands back pointers.
class CORBA_TypeCode;
class KRListream;
class KRLostream;

/// The root of every exception the library throws or carries. Objects are
/// not locked; a thrown or stored exception belongs to one thread at a time.
/// Classes identify themselves through their Description, not through RTTI.
class KRL_EXPORT CORBA_Exception {
 public:
  /// The static facts of one exception class; one static object per class
  /// (`_description`). Not locked: descriptions are made and destroyed while a
  /// module loads or unloads, never concurrently with lookups.
  class KRL_EXPORT Description {
   public:
    /// Both strings are referred to, not copied: they must outlive the object.
    /// factory is null for an abstract class, base null for the root. Joins the
    /// registry unless a Description with the same repository id is there
    /// already; then this one stays outside it, silently. The first Description
    /// of the process reads DEBUG_STATIC and, if it is set, each one traces its
    /// construction to std::cout.
    Description(const char* name, const char* repository_id, CORBA_Exception* (*factory)(),
                const Description* base, const CORBA_TypeCode* typeCode);
    /// Copy and assignment copy the five fields. A copy stays outside the
    /// registry; beware: its destructor still removes the entry registered
    /// under its repository id, which is the original's. A registered
    /// Description that is assigned takes its entry along to the new id (or
    /// drops it if that id is taken), so no entry outlives it.
    Description(const Description& d);
    /// See the copy constructor.
    Description& operator=(const Description& d);
    /// Removes the registry entry with this repository id, whichever
    /// Description it belongs to. Not thread-safe: descriptions come and go
    /// while a module loads or unloads.
    virtual ~Description();

    /// The class's scoped name, e.g. "CORBA::BAD_PARAM".
    const char* name() const { return _name; }
    /// The repository id, e.g. "IDL:omg.org/CORBA/BAD_PARAM:1.0".
    const char* repository_id() const { return _repository_id; }
    /// The factory that makes a default object of the class; null for an
    /// abstract class.
    CORBA_Exception* (*factory() const)() { return _factory; }
    /// The type code the layer above set, or null; never dereferenced here.
    const CORBA_TypeCode* typeCode() const { return _typeCode; }
    /// Stores tc, which the caller keeps alive. Not locked: set type codes
    /// before threads share the description.
    void set_typeCode(const CORBA_TypeCode* tc) { _typeCode = tc; }

    /// 1 if target is this very object or one of its bases, by address; names
    /// and ids are not compared.
    unsigned char can_cast(const Description& target) const;

    /// The registered Description of repository_id, or null if there is none
    /// or no registry yet. A null id is looked up like any other key. Does not
    /// lock; must not race with a module's load or unload.
    static const Description* desc(const char* repository_id);

   private:
    void trace() const;

    const char* _name;
    const char* _repository_id;
    CORBA_Exception* (*_factory)();
    const Description* _base;
    const CORBA_TypeCode* _typeCode;
  };

  /// The base has no state to copy.
  CORBA_Exception(const CORBA_Exception&) {}
  /// The base has no state to assign.
  CORBA_Exception& operator=(const CORBA_Exception&) { return *this; }
  /// Virtual: exceptions are deleted through base pointers (CORBA::release,
  /// CORBA_Exception_var, CORBA_Environment).
  virtual ~CORBA_Exception();

  /// The Description of the object's concrete class; every class overrides
  /// it with its own `_description`.
  virtual const Description& _desc() const;
  /// The body of the exception on a stream, without its repository id: the
  /// fields in a fixed order, which _copy reads back in the same order. Here
  /// the body is empty and both do nothing.
  virtual void _write(KRLostream& s) const;
  /// Reads the body that _write wrote, field by field, into this object.
  /// Throws what reading the stream throws (CORBA_MARSHAL on malformed
  /// input); the object may then be partly read.
  virtual void _copy(KRListream& s);
  /// The readable form, one endl-terminated line or more: here
  /// "Exception: " and _name().
  virtual void _pretty_print(KRLostream& s) const;
  /// Throws a copy of the object with the static type of its concrete class.
  virtual void _raise() const = 0;
  /// A new heap copy; the caller owns it.
  virtual CORBA_Exception* _deep_copy() = 0;
  /// _desc().name().
  virtual const char* _name() const;
  /// _desc().repository_id().
  virtual const char* _repository_id() const;

  /// The same as the virtual _deep_copy(), for a const object.
  CORBA_Exception* _deep_copy() const;

  /// Every exception is a CORBA_Exception: returns e.
  static CORBA_Exception* _downcast(CORBA_Exception* e) { return e; }

  /// The root's Description: "CORBA::Exception", no factory, no base.
  static const Description _description;

 protected:
  /// Only derived classes make objects.
  CORBA_Exception() {}
};

/// Owns one exception object, or none.
class KRL_EXPORT CORBA_Exception_var {
 public:
  CORBA_Exception_var(CORBA_Exception* e = nullptr) : _ptr(e) {}  ///< adopts e
  /// Holds a _deep_copy of v's exception, or null.
  CORBA_Exception_var(const CORBA_Exception_var& v);
  /// Deletes the held exception, if any.
  ~CORBA_Exception_var();

  /// Deletes the held exception and adopts e; the pointer already held is kept.
  void operator=(CORBA_Exception* e);
  /// Deletes the held exception and holds a _deep_copy of v's, or null.
  /// Assigning a holder to itself keeps its object.
  void operator=(const CORBA_Exception_var& v);

  /// The held exception, still owned by the holder; null when empty.
  operator CORBA_Exception*() const { return _ptr; }
  /// The held exception; the holder must not be empty.
  CORBA_Exception* operator->() const { return _ptr; }

 private:
  CORBA_Exception* _ptr;
};

/// Exceptions on streams.
///
/// Writes e's repository id, then its body (_write), with no frame around them.
KRL_EXPORT KRLostream& operator<<(KRLostream& s, const CORBA_Exception& e);
/// Reads a repository id and sets e to a new object of the registered class,
/// which then reads its own body (_copy); the caller owns e, also when _copy
/// throws. An id that is not registered, or names a class without a factory,
/// gives a CORBA_UNKNOWN (minor 0x4F4D0000, COMPLETED_NO) and leaves the body
/// unread. Throws CORBA_BAD_INV_ORDER (4, COMPLETED_MAYBE) when there is no
/// registry, and what reading the id throws (CORBA_MARSHAL for a zero length
/// when null strings are not allowed), with e null.
KRL_EXPORT KRListream& operator>>(KRListream& s, CORBA_Exception*& e);
/// On a stream of KRLLogger (out, err or log, by address) the readable form of
/// _pretty_print; on any other stream the body alone, without the id, which
/// operator>> can't read back. Builds the logger at its first use.
KRL_EXPORT std::ostream& operator<<(std::ostream& s, const CORBA_Exception& e);

#endif  // KRLPORT_EXCEPTIONS_EXCEPTION_H_
