#include "krlport/frame/string_var.h"

#include <cstring>
#include <ostream>

#include "krlport/frame/empty_string.h"
#include "krlport/frame/string_wrapper.h"

using krl_internal::_empty_string;

unsigned char CORBA_String_var::_allowing_null_string = 1;
char* CORBA_String_out::_nil = const_cast<char*>("(nil)");

CORBA_String_var::CORBA_String_var() : _ptr(_empty_string), _capacity(0) {}

CORBA_String_var::CORBA_String_var(char* p) : _ptr(p), _capacity(0) {}

CORBA_String_var::CORBA_String_var(const char* p) : _ptr(nullptr), _capacity(0) {
  if (p == nullptr) return;
  const unsigned long n = std::strlen(p) + 1;
  _ptr = CORBA::string_alloc(n - 1);
  std::memcpy(_ptr, p, n);
  _capacity = n;
}

// A copy of the shared empty string becomes a private empty string of 1 byte.
CORBA_String_var::CORBA_String_var(const CORBA_String_var& v)
    : CORBA_String_var(static_cast<const char*>(v._ptr)) {}

CORBA_String_var::~CORBA_String_var() { release_buffer(); }

void CORBA_String_var::release_buffer() { CORBA::string_free(_ptr); }

CORBA_String_var& CORBA_String_var::operator=(char* p) {
  if (p != _ptr) release_buffer();  // adopting what it holds already keeps it
  _ptr = p;
  _capacity = 0;
  return *this;
}

// The new text is copied before the old buffer goes, so a text that lies in
// this holder's own buffer (or the holder itself) survives any capacity.
CORBA_String_var& CORBA_String_var::operator=(const char* p) {
  if (p == nullptr) {
    release_buffer();
    _ptr = nullptr;
    _capacity = 0;
    return *this;
  }
  const unsigned long n = std::strlen(p) + 1;
  if (_capacity < n) {
    char* fresh = CORBA::string_alloc(n - 1);
    std::memcpy(fresh, p, n);
    release_buffer();
    _ptr = fresh;
    _capacity = n;
  } else {
    std::memmove(_ptr, p, n);
  }
  return *this;
}

CORBA_String_var& CORBA_String_var::operator=(const CORBA_String_var& v) {
  return *this = static_cast<const char*>(v._ptr);
}

char*& CORBA_String_var::out() {
  release_buffer();
  _ptr = nullptr;
  _capacity = 0;
  return _ptr;
}

char*& CORBA_String_var::inout() {
  _capacity = 0;
  return _ptr;
}

char* CORBA_String_var::_retn() {
  char* p = _ptr;
  _ptr = nullptr;
  _capacity = 0;
  return p;
}

void CORBA_String_var::allowing_null_string(unsigned char allow) { _allowing_null_string = allow; }

CORBA_String_out::CORBA_String_out(char*& p) : _ptr(p) { _ptr = nullptr; }

CORBA_String_out::CORBA_String_out(CORBA_String_var& v) : _ptr(v._ptr) {
  v = static_cast<char*>(nullptr);
}

void CORBA_String_out::operator=(char* p) {
  if (p != _ptr) CORBA::string_free(_ptr);
  _ptr = p;
}

long compare(const CORBA_String_var& a, const CORBA_String_var& b) {
  return compare(KRLStringWrapper(a.in()), KRLStringWrapper(b.in()));
}

unsigned long _krl_hash(const CORBA_String_var& s) { return CORBA::hash(s.in()); }

std::ostream& operator<<(std::ostream& s, const CORBA_String_var& v) {
  return s << (v.in() == nullptr ? "(null)" : v.in());
}
