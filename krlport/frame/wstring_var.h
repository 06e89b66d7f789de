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

class KRL_EXPORT CORBA_WString_var {
 public:
  CORBA_WString_var() : _ptr(nullptr) {}
  CORBA_WString_var(unsigned short* p) : _ptr(p) {}  ///< adopts p
  CORBA_WString_var(const unsigned short* p);        ///< copies p
  CORBA_WString_var(const CORBA_WString_var& v);
  ~CORBA_WString_var();

  CORBA_WString_var& operator=(unsigned short* p);  ///< frees the old, adopts p
  CORBA_WString_var& operator=(const unsigned short* p);
  /// Copies before it frees, so self-assignment keeps the text.
  CORBA_WString_var& operator=(const CORBA_WString_var& v);

  operator unsigned short*() { return _ptr; }
  operator const unsigned short*() const { return _ptr; }
  const unsigned short* in() const { return _ptr; }

  /// No index check.
  unsigned short& operator[](unsigned long i) { return _ptr[i]; }
  unsigned short operator[](unsigned long i) const { return _ptr[i]; }
  unsigned short& operator[](int i) { return _ptr[i]; }
  unsigned short operator[](int i) const { return _ptr[i]; }

  unsigned short*& out();  ///< frees the string; the holder is nil
  unsigned short*& inout() { return _ptr; }
  unsigned short* _retn();  ///< gives up ownership; the holder is nil

 private:
  friend class CORBA_WString_out;
  friend class KRListream;

  unsigned short* _ptr;
};

class KRL_EXPORT CORBA_WString_out {
 public:
  CORBA_WString_out(unsigned short*& p);    ///< sets p to null, frees nothing
  CORBA_WString_out(CORBA_WString_var& v);  ///< frees v's string, v is nil
  CORBA_WString_out(const CORBA_WString_out& o) : _ptr(o._ptr) {}
  ~CORBA_WString_out() {}

  void operator=(unsigned short* p);  ///< frees the bound string, stores p

  operator unsigned short*&() { return _ptr; }
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
  KRLWChar(unsigned short& c) : _wc(&c) {}
  KRLWChar(const unsigned short& c) : _wc(const_cast<unsigned short*>(&c)) {}
  KRLWChar(const KRLWChar& o) = default;
  /// Copies the address, not the character.
  KRLWChar& operator=(const KRLWChar& o) = default;

  unsigned short& wc() { return *_wc; }

 protected:
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
