/// @file
/// KRLLoadLibrary: the process-wide loader of shared libraries by name, and
/// KRLLoadLibrary::LoadError, the user exception of a failed load.
///
/// A caller names a library by its base name. Load tries the wrapped form
/// first, prefix + name + "_r" + file type (this library family's build):
/// "lib" + name + "_r.so" on Linux, name + "_r.dll" on Windows; then the name
/// as it is, and records the library under the name that loaded. A name is
/// loaded once: there is no reference count, a second Load changes nothing and
/// one Unload of the recorded name releases it.
#ifndef KRLPORT_SERVICES_LOAD_LIBRARY_H_
#define KRLPORT_SERVICES_LOAD_LIBRARY_H_

#include "krlport/exceptions/user_exception.h"
#include "krlport/frame/dictionary.h"
#include "krlport/frame/export.h"
#include "krlport/frame/string_var.h"
#include "krlport/threads/mutex.h"

/// The system's handle of a loaded module; declared only, never defined.
struct HINSTANCE__;

namespace krl_internal {
// Internal, for tests: reaches the private members of KRLLoadLibrary.
struct LoadLibraryPeer;
}  // namespace krl_internal

/// The process-wide loader of shared libraries by name; see the file
/// description. Load, Unload and UnloadAll are safe from any thread: each
/// holds the loader's lock.
class KRL_EXPORT KRLLoadLibrary {
 public:
  /// A load that failed. Neither field travels on a stream or is printed: on a
  /// stream a LoadError is its repository id alone.
  class KRL_EXPORT LoadError : public CORBA_UserException {
   public:
    LoadError();  ///< nil text, code 0
    /// Copies the text (nil stays nil).
    LoadError(const CORBA_String_var& text, const unsigned long& code);
    /// Copies the text and the code; std::bad_alloc if the text cannot be copied.
    LoadError(const LoadError& e);
    /// Copies the text and the code.
    LoadError& operator=(const LoadError& e);
    ~LoadError() override;

    const Description& _desc() const override;
    void _raise() const override;
    CORBA_Exception* _deep_copy() override;  ///< the caller owns the copy; null if out of memory
    using CORBA_Exception::_deep_copy;

    /// A new object the caller owns, or null if out of memory.
    static CORBA_Exception* _factory();
    /// e if its class is LoadError or derives from it, else null; null gives null.
    static LoadError* _downcast(CORBA_Exception* e);

    /// "KRLLoadLibrary::LoadError", "IDL:ostrevan/KRLLoadLibrary::LoadError:1.0",
    /// factory _factory, base CORBA_UserException's Description.
    static const Description _description;

    CORBA_String_var _text;  ///< the loader's reason, or nil (always nil on Windows)
    unsigned long _code;     ///< the error number (errno; GetLastError on Windows)
  };

  /// The one loader, built at the first call and never destroyed. Null for
  /// good if that allocation failed. The first call must not race with another.
  static KRLLoadLibrary* instance();

  /// Loads the wrapped name (see above), else name itself, unless the name that
  /// would load is recorded already (then no system call is made). A failure
  /// is not thrown: its only trace is one line on std::cerr. Holds the loader's
  /// lock throughout, also while the library's start-up code runs; that code
  /// may call Load on the same thread.
  void Load(const char* name);
  /// Releases the library recorded under exactly name (not wrapped); a name
  /// that is not recorded is ignored.
  void Unload(const char* name);
  /// Releases every recorded library and empties the table.
  void UnloadAll();

  /// Releases no library.
  ~KRLLoadLibrary();

 private:
  friend struct krl_internal::LoadLibraryPeer;

  KRLLoadLibrary() {}
  KRLLoadLibrary(const KRLLoadLibrary&) = delete;
  KRLLoadLibrary& operator=(const KRLLoadLibrary&) = delete;

  // The recorded handle of name, or a new load recorded under name. A failed
  // load throws LoadError if raise is non-zero, else gives null. Caller holds
  // _mutex.
  HINSTANCE__* _loadLibrary(const char* name, unsigned char raise);
  // Caller holds _mutex.
  void _unload(const char* name);

  // "lib" and "_r.so", or "" and "_r.dll": the system's file naming, with
  // the build mark "r".
  static const char* _prefix();
  static const char* _suffix();  // built once into static storage; reached under _mutex
  // out = prefix + name + suffix; out holds kNameBufferSize bytes, and a longer
  // result is cut there (Load never wraps a name that long).
  static void _wrap_libname(char* out, const char* name);
  // Closes the handle; a failure is reported on std::cerr only.
  static void _closeLibrary(HINSTANCE__* handle);

  static constexpr unsigned long kNameBufferSize = 1024;

  KRLDictionary<CORBA_String_var, HINSTANCE__*> _libraries;  // guarded by _mutex
  KRLMutex _mutex;

  static unsigned char _inited;
  static KRLLoadLibrary* _instance;
};

#endif  // KRLPORT_SERVICES_LOAD_LIBRARY_H_
