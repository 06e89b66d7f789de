/// @file
/// KRLStringWrapper: a dictionary key that refers to a narrow string and owns
/// nothing; the text must outlive the key.
#ifndef KRLPORT_FRAME_STRING_WRAPPER_H_
#define KRLPORT_FRAME_STRING_WRAPPER_H_

#include <cstring>

#include "krlport/frame/export.h"

/// A dictionary key that refers to a narrow string and owns nothing; the text
/// must outlive the key. Not locked.
struct KRL_EXPORT KRLStringWrapper {
  /// Refers to s (may be null); copies nothing.
  KRLStringWrapper(const char* s = nullptr) : _str(s) {}
  /// Refers to the same text.
  KRLStringWrapper(const KRLStringWrapper&) = default;
  /// Refers to the same text.
  KRLStringWrapper& operator=(const KRLStringWrapper&) = default;

  /// The text referred to, or null.
  operator const char*() const { return _str; }
  char operator*() { return *_str; }  ///< _str must not be null
  /// Refers to s from now on; returns s.
  const char* operator=(const char* s) { return _str = s; }

  /// The text referred to, or null; not owned.
  const char* _str;
};

/// 0 for equal texts (two nulls are equal), -1 / 1 otherwise; null sorts first.
KRL_EXPORT long compare(const KRLStringWrapper& a, const KRLStringWrapper& b);
/// CORBA::hash of the text.
KRL_EXPORT unsigned long _krl_hash(const KRLStringWrapper& s);

/// compare(a, b) == 0, inline, for the dictionary's probes: the first bytes
/// are tested before strcmp is called.
inline bool krl_dictionary_equal(const KRLStringWrapper& a, const KRLStringWrapper& b) {
  if (a._str == nullptr || b._str == nullptr) return a._str == b._str;
  return a._str[0] == b._str[0] && std::strcmp(a._str, b._str) == 0;
}

#endif  // KRLPORT_FRAME_STRING_WRAPPER_H_
