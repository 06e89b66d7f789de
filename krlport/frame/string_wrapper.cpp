#include "krlport/frame/string_wrapper.h"

#include <cstring>

#include "krlport/frame/corba.h"

long compare(const KRLStringWrapper& a, const KRLStringWrapper& b) {
  if (a._str == nullptr) return b._str == nullptr ? 0 : -1;
  if (b._str == nullptr) return 1;
  const int r = std::strcmp(a._str, b._str);  // compares bytes as unsigned char
  return (r > 0) - (r < 0);
}

unsigned long _krl_hash(const KRLStringWrapper& s) { return CORBA::hash(s._str); }
