/// @file
/// CORBA: the class of static members that the language mapping calls the
/// CORBA module: string allocation, the standard minor-code set id, completion
/// status, and release of the library's own objects. It is never instantiated.
#ifndef KRLPORT_FRAME_CORBA_H_
#define KRLPORT_FRAME_CORBA_H_

#include "krlport/frame/export.h"

class CORBA_Environment;
class CORBA_Exception;

/// The CORBA module of the language mapping: static members only, never
/// instantiated. Every member is safe to call from any thread.
class KRL_EXPORT CORBA {
 public:
  /// A fixed underlying type: a status read from a stream may hold any value
  /// (it prints as "Invalid status"), and copying it must stay defined.
  enum CompletionStatus : unsigned long {
    COMPLETED_YES = 0,
    COMPLETED_NO = 1,
    COMPLETED_MAYBE = 2
  };

  /// Vendor minor code set id reserved by the standard for its minor codes.
  static const unsigned long OMGVMCID = 0x4F4D0000UL;

  /// Strings that cross the library boundary come from these and go back
  /// through string_free / wstring_free, so caller and library share one
  /// allocator. string_alloc(len) gives len + 1 uninitialised bytes. A length
  /// whose buffer size does not fit an object throws std::bad_alloc, as any
  /// failed allocation does.
  static char* string_alloc(unsigned long len);
  /// Returns a new copy the caller frees with string_free; null gives null.
  static char* string_dup(const char* s);
  /// Null and the shared empty string of a default CORBA_String_var are ignored.
  static void string_free(char* s);
  /// Wide strings are arrays of 16-bit units; lengths count units.
  static unsigned short* wstring_alloc(unsigned long len);
  /// A new copy the caller frees with wstring_free; null gives null. Throws
  /// std::bad_alloc when no memory can be had.
  static unsigned short* wstring_dup(const unsigned short* s);
  /// Frees a string from wstring_alloc or wstring_dup; null is ignored.
  static void wstring_free(unsigned short* s);

  /// 31-bit shift-xor hash of the text; null and "" give 0.
  static unsigned long hash(const char* s);
  /// 1 for null only; the empty string is not nil.
  static unsigned char is_nil(const char* s);

  /// Destroys an exception through its virtual destructor; null does nothing.
  static void release(CORBA_Exception* e);

  /// The calling thread's own environment, made at its first call on the
  /// thread; good on that thread until the thread ends.
  static CORBA_Environment& current_environment();
  /// Destroys and frees e; null does nothing.
  static void release(CORBA_Environment* e);
  /// 1 for null, else 0.
  static unsigned char is_nil(CORBA_Environment* e);

 private:
  CORBA();
};

#endif  // KRLPORT_FRAME_CORBA_H_
