#include "krlport/frame/string_wrapper.h"

#include <cstring>

#include "krlport/frame/corba.h"
#include "krlport/frame/string_hash.h"

long compare(const KRLStringWrapper& a, const KRLStringWrapper& b) {
  if (a._str == nullptr) return b._str == nullptr ? 0 : -1;
  if (b._str == nullptr) return 1;
  const int r = std::strcmp(a._str, b._str);  // compares bytes as unsigned char
  return (r > 0) - (r < 0);
}

// CORBA::hash, inlined: a dictionary keyed by ids calls this on every access.
unsigned long _krl_hash(const KRLStringWrapper& s) {
  return s._str == nullptr ? 0 : krl_internal::shift_xor_hash_text(s._str);
}
