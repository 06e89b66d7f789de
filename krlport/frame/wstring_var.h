/// @file
/// CORBA_WString_var, CORBA_WString_out and KRLWChar: wide strings, which are
/// arrays of 16-bit units ending in a 16-bit zero. Unlike the narrow holder, a
/// default CORBA_WString_var is nil and keeps no buffer size.
#ifndef KRLPORT_FRAME_WSTRING_VAR_H_
#define KRLPORT_FRAME_WSTRING_VAR_H_

#include <iosfwd>

#include "krlport/frame/corba.h"
#include "krlport/frame/export.h"

class CORBA_WString_out;

/// Owning holder of a wide heap string made by CORBA::wstring_alloc or
/// CORBA::wstring_dup; nil by default. Not locked: a holder belongs to one
/// thread at a time. Copies throw std::bad_alloc when no memory can be had.
class KRL_EXPORT CORBA_WString_var {
 public:
  /// A nil holder.
  CORBA_WString_var() : _ptr(nullptr) {}
  CORBA_WString_var(unsigned short* p) : _ptr(p) {}  ///< adopts p
  CORBA_WString_var(const unsigned short* p);        ///< copies p
  /// Copies v's text; a nil v gives nil.
  CORBA_WString_var(const CORBA_WString_var& v);
  /// Frees the string.
  ~CORBA_WString_var();

  CORBA_WString_var& operator=(unsigned short* p);  ///< frees the old, adopts p
  /// Frees the old string and stores a copy of p; null gives nil.
  CORBA_WString_var& operator=(const unsigned short* p);
  /// Copies before it frees, so self-assignment keeps the text.
  CORBA_WString_var& operator=(const CORBA_WString_var& v);

  /// The held string, still owned by the holder; null when nil.
  operator unsigned short*() { return _ptr; }
  /// The held string, still owned by the holder; null when nil.
  operator const unsigned short*() const { return _ptr; }
  /// The held string, for an in parameter; ownership stays here.
  const unsigned short* in() const { return _ptr; }

  /// No index check.
  unsigned short& operator[](unsigned long i) { return _ptr[i]; }
  /// No index check.
  unsigned short operator[](unsigned long i) const { return _ptr[i]; }
  /// No index check; an int index avoids ambiguity with the conversions.
  unsigned short& operator[](int i) { return _ptr[i]; }
  /// No index check.
  unsigned short operator[](int i) const { return _ptr[i]; }

  unsigned short*& out();  ///< frees the string; the holder is nil
  /// The holder's own pointer: the callee may free it and store another.
  unsigned short*& inout() { return _ptr; }
  unsigned short* _retn();  ///< gives up ownership; the holder is nil

 private:
  friend class CORBA_WString_out;
  friend class KRListream;

  unsigned short* _ptr;
};

/// Out parameter holder for a wide string: binds to the caller's pointer
/// and empties it at once. Not locked.
class KRL_EXPORT CORBA_WString_out {
 public:
  CORBA_WString_out(unsigned short*& p);    ///< sets p to null, frees nothing
  CORBA_WString_out(CORBA_WString_var& v);  ///< frees v's string, v is nil
  /// Binds to the same pointer as o; nothing is freed.
  CORBA_WString_out(const CORBA_WString_out& o) : _ptr(o._ptr) {}
  /// Frees nothing: the caller owns what was stored.
  ~CORBA_WString_out() {}

  void operator=(unsigned short* p);  ///< frees the bound string, stores p

  /// The bound pointer itself.
  operator unsigned short*&() { return _ptr; }
  /// The bound pointer itself.
  unsigned short*& ptr() { return _ptr; }

 private:
  CORBA_WString_out& operator=(const CORBA_WString_out&) { return *this; }
  CORBA_WString_out& operator=(const CORBA_WString_var&) { return *this; }

  unsigned short*& _ptr;
  static unsigned short* _nil;
};

/// Tells a wide character apart from a number in the typed stream overloads.
/// Refers to a character; never owns it.
class KRL_EXPORT KRLWChar {
 public:
  /// Refers to c, which must outlive the object.
  KRLWChar(unsigned short& c) : _wc(&c) {}
  /// Refers to c, which must outlive the object; for writing only.
  KRLWChar(const unsigned short& c) : _wc(const_cast<unsigned short*>(&c)) {}
  /// Refers to the same character.
  KRLWChar(const KRLWChar& o) = default;
  /// Copies the address, not the character.
  KRLWChar& operator=(const KRLWChar& o) = default;

  /// The character referred to.
  unsigned short& wc() { return *_wc; }

 protected:
  /// Refers to nothing; for derived classes that set the reference later.
  KRLWChar() : _wc(nullptr) {}

 private:
  unsigned short* _wc;
};

/// Nil on both sides gives 0; nil sorts first; otherwise ordered by 16-bit unit.
KRL_EXPORT long compare(const CORBA_WString_var& a, const CORBA_WString_var& b);
/// Shift-xor over the low byte of each unit, sign-extended; nil and "" give 0.
KRL_EXPORT unsigned long _krl_hash(const CORBA_WString_var& s);
/// Writes the text as UTF-8; nil writes "(null)".
KRL_EXPORT std::ostream& operator<<(std::ostream& s, const CORBA_WString_var& v);

#endif  // KRLPORT_FRAME_WSTRING_VAR_H_
