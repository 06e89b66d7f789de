/// @file
/// KRLStringWrapper: a dictionary key that refers to a narrow string and owns
/// nothing; the text must outlive the key.
#ifndef KRLPORT_FRAME_STRING_WRAPPER_H_
#define KRLPORT_FRAME_STRING_WRAPPER_H_

#include "krlport/frame/export.h"

struct KRL_EXPORT KRLStringWrapper {
  KRLStringWrapper(const char* s = nullptr) : _str(s) {}
  KRLStringWrapper(const KRLStringWrapper&) = default;
  KRLStringWrapper& operator=(const KRLStringWrapper&) = default;

  operator const char*() const { return _str; }
  char operator*() { return *_str; }  ///< _str must not be null
  const char* operator=(const char* s) { return _str = s; }

  const char* _str;
};

/// 0 for equal texts (two nulls are equal), -1 / 1 otherwise; null sorts first.
KRL_EXPORT long compare(const KRLStringWrapper& a, const KRLStringWrapper& b);
/// CORBA::hash of the text.
KRL_EXPORT unsigned long _krl_hash(const KRLStringWrapper& s);

#endif  // KRLPORT_FRAME_STRING_WRAPPER_H_
