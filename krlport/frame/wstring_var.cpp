#include "krlport/frame/wstring_var.h"

#include <ostream>
#include <string>

#include "krlport/frame/string_hash.h"
#include "krlport/frame/utf16.h"

namespace {
unsigned short nil_text[] = {'(', 'n', 'i', 'l', ')', 0};
}  // namespace

unsigned short* CORBA_WString_out::_nil = nil_text;

CORBA_WString_var::CORBA_WString_var(const unsigned short* p) : _ptr(CORBA::wstring_dup(p)) {}

CORBA_WString_var::CORBA_WString_var(const CORBA_WString_var& v)
    : _ptr(CORBA::wstring_dup(v._ptr)) {}

CORBA_WString_var::~CORBA_WString_var() { CORBA::wstring_free(_ptr); }

CORBA_WString_var& CORBA_WString_var::operator=(unsigned short* p) {
  if (p != _ptr) CORBA::wstring_free(_ptr);
  _ptr = p;
  return *this;
}

// Copy first, free second: a text inside the held string survives.
CORBA_WString_var& CORBA_WString_var::operator=(const unsigned short* p) {
  unsigned short* fresh = CORBA::wstring_dup(p);
  CORBA::wstring_free(_ptr);
  _ptr = fresh;
  return *this;
}

CORBA_WString_var& CORBA_WString_var::operator=(const CORBA_WString_var& v) {
  return *this = static_cast<const unsigned short*>(v._ptr);
}

unsigned short*& CORBA_WString_var::out() {
  CORBA::wstring_free(_ptr);
  _ptr = nullptr;
  return _ptr;
}

unsigned short* CORBA_WString_var::_retn() {
  unsigned short* p = _ptr;
  _ptr = nullptr;
  return p;
}

CORBA_WString_out::CORBA_WString_out(unsigned short*& p) : _ptr(p) { _ptr = nullptr; }

CORBA_WString_out::CORBA_WString_out(CORBA_WString_var& v) : _ptr(v._ptr) {
  CORBA::wstring_free(v._ptr);
  v._ptr = nullptr;
}

void CORBA_WString_out::operator=(unsigned short* p) {
  if (p != _ptr) CORBA::wstring_free(_ptr);
  _ptr = p;
}

long compare(const CORBA_WString_var& a, const CORBA_WString_var& b) {
  if (a.in() == nullptr) return b.in() == nullptr ? 0 : -1;
  if (b.in() == nullptr) return 1;
  return krl_internal::wide_compare(a.in(), b.in());
}

// As CORBA::hash, over the low byte of each unit, so a wide text that is
// plain ASCII hashes like its narrow twin.
unsigned long _krl_hash(const CORBA_WString_var& s) {
  return s.in() == nullptr ? 0 : krl_internal::shift_xor_hash(s.in());
}

std::ostream& operator<<(std::ostream& s, const CORBA_WString_var& v) {
  if (v.in() == nullptr) return s << "(null)";
  std::string utf8;
  krl_internal::append_utf8(utf8, v.in(), krl_internal::wide_length(v.in()));
  return s << utf8;
}
