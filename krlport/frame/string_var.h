/// @file
/// CORBA_String_var and CORBA_String_out: owning holder and out-parameter
/// holder of narrow heap strings made by CORBA::string_alloc / string_dup.
///
/// A default holder points at a shared empty string, not at null. A holder that
/// allocated its own buffer remembers its size and refills it in place when a
/// new text fits, so repeated assignment and stream reads do not allocate.
/// Holders are not locked: each belongs to one thread at a time.
#ifndef KRLPORT_FRAME_STRING_VAR_H_
#define KRLPORT_FRAME_STRING_VAR_H_

#include <iosfwd>

#include "krlport/frame/corba.h"
#include "krlport/frame/export.h"

class CORBA_String_out;

/// Owning holder of a narrow heap string made by CORBA::string_alloc or
/// CORBA::string_dup. Not locked: a holder belongs to one thread at a time.
/// Copies throw std::bad_alloc when no memory can be had.
class KRL_EXPORT CORBA_String_var {
 public:
  CORBA_String_var();               ///< the shared empty string; allocates nothing
  CORBA_String_var(char* p);        ///< adopts p, which may be null
  CORBA_String_var(const char* p);  ///< copies p; null gives nil
  /// Copies v's text; a nil v gives nil.
  CORBA_String_var(const CORBA_String_var& v);
  /// Frees the string; the shared empty string is never freed.
  ~CORBA_String_var();

  CORBA_String_var& operator=(char* p);  ///< adopts p
  /// Copies p, reusing the own buffer when the text fits; null gives nil.
  CORBA_String_var& operator=(const char* p);
  /// Copies v's text as operator=(const char*) does; self-assignment keeps it.
  CORBA_String_var& operator=(const CORBA_String_var& v);

  /// The held string, still owned by the holder; null when nil.
  operator char*() { return _ptr; }
  /// The held string, still owned by the holder; null when nil.
  operator const char*() const { return _ptr; }
  /// The held string, for an in parameter; ownership stays here.
  const char* in() const { return _ptr; }

  /// No index check.
  char& operator[](unsigned long i) { return _ptr[i]; }
  /// No index check.
  char operator[](unsigned long i) const { return _ptr[i]; }
  /// An int index would otherwise be ambiguous with the built-in subscript of
  /// the conversion to char*.
  char& operator[](int i) { return _ptr[i]; }
  /// No index check.
  char operator[](int i) const { return _ptr[i]; }

  /// Frees the string and leaves the holder nil, for the callee to fill.
  char*& out();
  /// The callee may replace the string, so the buffer size is forgotten.
  char*& inout();
  /// Gives up ownership; the holder is nil. A default holder hands out the
  /// shared empty string, which CORBA::string_free recognises.
  char* _retn();

  /// Whether a zero length read from a stream means nil (1) or a marshalling
  /// error (0). Set once by the layer above before it starts its threads.
  static void allowing_null_string(unsigned char allow);

 private:
  friend class CORBA_String_out;
  friend class KRListream;

  void release_buffer();

  char* _ptr;
  // Size, terminator included, of a buffer this holder allocated; 0 when the
  // size is unknown (adopted, possibly replaced from outside, empty, nil).
  unsigned long _capacity;

  static unsigned char _allowing_null_string;
};

/// Out parameter holder for a narrow string: binds to the caller's pointer
/// and empties it at once. Not locked.
class KRL_EXPORT CORBA_String_out {
 public:
  /// Binds to p and sets it to null without freeing what it held.
  CORBA_String_out(char*& p);
  /// Binds to v's pointer and makes v nil, freeing its string.
  CORBA_String_out(CORBA_String_var& v);
  /// Binds to the same pointer as o; nothing is freed.
  CORBA_String_out(const CORBA_String_out& o) : _ptr(o._ptr) {}
  /// Frees nothing: the caller owns what was stored.
  ~CORBA_String_out() {}

  /// Frees the bound string, then stores p.
  void operator=(char* p);

  /// The bound pointer itself.
  operator char*&() { return _ptr; }
  /// The bound pointer itself.
  char*& ptr() { return _ptr; }

 private:
  // Not offered: assigning from another out holder or a var has no effect.
  CORBA_String_out& operator=(const CORBA_String_out&) { return *this; }
  CORBA_String_out& operator=(const CORBA_String_var&) { return *this; }

  char*& _ptr;
  static char* _nil;
};

/// 0 for equal strings, -1 / 1 otherwise; nil sorts before every string.
KRL_EXPORT long compare(const CORBA_String_var& a, const CORBA_String_var& b);
/// CORBA::hash of the text.
KRL_EXPORT unsigned long _krl_hash(const CORBA_String_var& s);
/// Nil writes "(null)".
KRL_EXPORT std::ostream& operator<<(std::ostream& s, const CORBA_String_var& v);

#endif  // KRLPORT_FRAME_STRING_VAR_H_
