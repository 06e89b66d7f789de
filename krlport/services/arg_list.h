/// @file
/// KRLArgList: takes the arguments that begin with a prefix out of a command
/// line and keeps them as name and value; the rest of the command line stays
/// with the caller, in its order.
///
/// A name is the argument without its leading dash, the prefix's letters
/// included: with the prefix -foo, the argument -foobar is the name foobar. Its
/// value is the next argument unless that begins with a dash; otherwise the
/// name has no value (null). A repeated name keeps its last value.
///
/// The list is filled by argInit and then only read. Reads may overlap from
/// any number of threads; filling is under the list's own write lock.
#ifndef KRLPORT_SERVICES_ARG_LIST_H_
#define KRLPORT_SERVICES_ARG_LIST_H_

#include "krlport/frame/export.h"
#include "krlport/frame/rw_dictionary.h"
#include "krlport/frame/string_var.h"

/// The prefixed arguments of a command line by name; see the file
/// description. Reads are safe from any thread.
class KRL_EXPORT KRLArgList {
 public:
  /// Takes the arguments with the prefix out of argc and argv (see argInit).
  /// Throws CORBA_BAD_PARAM for a bad prefix.
  KRLArgList(int& argc, char* const* argv, const char* prefix);
  virtual ~KRLArgList();
  KRLArgList(const KRLArgList&) = delete;
  KRLArgList& operator=(const KRLArgList&) = delete;

  /// 1 if the name is present, with or without a value, else 0.
  virtual unsigned char getArg(const char* name);
  /// A new copy of the name's value, which the caller frees with
  /// CORBA::string_free; null if the name is absent or has no value.
  virtual char* getArgValue(const char* name);
  /// The number of distinct names.
  virtual unsigned long getArgCount();

 protected:
  KRLArgList() {}

  /// The prefix must be a dash followed by a letter or digit, else
  /// CORBA_BAD_PARAM (minor 0, COMPLETED_NO) with nothing changed. Every
  /// argument, argument 0 included, that begins with the prefix is taken with
  /// its value; argc becomes the number left, and the pointers left are moved
  /// to the front of argv, which must be writable despite its type. Elements
  /// from the new argc up keep what they held. Calling it again adds to the list.
  virtual void argInit(int& argc, char* const* argv, const char* prefix);

 private:
  // Copies both strings in; a present name gets the new value.
  void putArgValue(const char* name, const char* value);

  KRLRWDictionary<CORBA_String_var, CORBA_String_var> _args;  // name to value, or nil
};

#endif  // KRLPORT_SERVICES_ARG_LIST_H_
