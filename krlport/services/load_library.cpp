#include "krlport/services/load_library.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>
#include <string>

#include "krlport/platform/loader.h"

// --- LoadError ---

KRLLoadLibrary::LoadError::LoadError() : _text(static_cast<const char*>(nullptr)), _code(0) {}

KRLLoadLibrary::LoadError::LoadError(const CORBA_String_var& text, const unsigned long& code)
    : _text(CORBA::string_dup(text)), _code(code) {}

KRLLoadLibrary::LoadError::LoadError(const LoadError& e)
    : CORBA_UserException(e), _text(CORBA::string_dup(e._text)), _code(e._code) {}

KRLLoadLibrary::LoadError& KRLLoadLibrary::LoadError::operator=(const LoadError& e) {
  if (this != &e) {
    _text = CORBA::string_dup(e._text);
    _code = e._code;
  }
  return *this;
}

KRLLoadLibrary::LoadError::~LoadError() {}

const CORBA_Exception::Description& KRLLoadLibrary::LoadError::_desc() const {
  return _description;
}

void KRLLoadLibrary::LoadError::_raise() const { throw *this; }

CORBA_Exception* KRLLoadLibrary::LoadError::_deep_copy() {
  return new (std::nothrow) LoadError(*this);
}

CORBA_Exception* KRLLoadLibrary::LoadError::_factory() { return new (std::nothrow) LoadError(); }

KRLLoadLibrary::LoadError* KRLLoadLibrary::LoadError::_downcast(CORBA_Exception* e) {
  return e != nullptr && e->_desc().can_cast(_description) ? static_cast<LoadError*>(e) : nullptr;
}

// --- KRLLoadLibrary ---

unsigned char KRLLoadLibrary::_inited = 0;
KRLLoadLibrary* KRLLoadLibrary::_instance = nullptr;

namespace {

// The result of _suffix, assembled at its first call.
char g_suffix[8];
unsigned char g_suffix_built = 0;

// Closes a handle that is not recorded yet unless it gets recorded: a library
// missing from the table could never be released.
struct CloseUnlessRecorded {
  ~CloseUnlessRecorded() {
    if (handle != nullptr) close(handle);
  }
  HINSTANCE__* handle;
  void (*close)(HINSTANCE__*);
};

}  // namespace

KRLLoadLibrary* KRLLoadLibrary::instance() {
  if (_inited) return _instance;
  _instance = new (std::nothrow) KRLLoadLibrary();
  _inited = 1;
  return _instance;
}

KRLLoadLibrary::~KRLLoadLibrary() {}

const char* KRLLoadLibrary::_prefix() { return krl_internal::library_prefix(); }

const char* KRLLoadLibrary::_suffix() {
  if (!g_suffix_built) {
    // Separator, build mark, file type (".so", ".dll").
    std::strcpy(g_suffix, "_");
    std::strcat(g_suffix, "r");
    std::strcat(g_suffix, krl_internal::library_file_type());
    g_suffix_built = 1;
  }
  return g_suffix;
}

void KRLLoadLibrary::_wrap_libname(char* out, const char* name) {
  const char* suffix = _suffix();
  std::snprintf(out, kNameBufferSize, "%s%s%s", _prefix(), name, suffix != nullptr ? suffix : "");
}

void KRLLoadLibrary::Load(const char* name) {
  KRLMutex_var hold(_mutex, 1);
  // A wrapped name that would not fit the buffer is not tried: a cut one
  // could name another library.
  const bool fits =
      std::strlen(_prefix()) + std::strlen(name) + std::strlen(_suffix()) < kNameBufferSize;
  char wrapped[kNameBufferSize];
  try {
    HINSTANCE__* handle = nullptr;
    if (fits) {
      _wrap_libname(wrapped, name);
      handle = _loadLibrary(wrapped, 0);
    }
    if (handle == nullptr) _loadLibrary(name, 1);
  } catch (const LoadError& e) {
    std::cerr << "LoadLibrary failed for [" << name << "]: " << e << std::endl;
  }
}

HINSTANCE__* KRLLoadLibrary::_loadLibrary(const char* name, unsigned char raise) {
  const CORBA_String_var key(name);
  HINSTANCE__* handle = nullptr;
  if (_libraries.lookup(key, handle)) return handle;
  unsigned long error = 0;
  std::string text;
  handle = static_cast<HINSTANCE__*>(krl_internal::open_library(name, error, text));
  if (handle != nullptr) {
    CloseUnlessRecorded guard{handle, _closeLibrary};
    _libraries.insert(key, handle);  // may throw std::bad_alloc
    guard.handle = nullptr;
    return handle;
  }
  // No text (Windows gives none) stays a nil text.
  if (raise) throw LoadError(CORBA_String_var(text.empty() ? nullptr : text.c_str()), error);
  return nullptr;
}

void KRLLoadLibrary::Unload(const char* name) {
  KRLMutex_var hold(_mutex, 1);
  _unload(name);
}

void KRLLoadLibrary::_unload(const char* name) {
  HINSTANCE__* handle = nullptr;
  if (_libraries.extract(CORBA_String_var(name), handle)) _closeLibrary(handle);
}

void KRLLoadLibrary::_closeLibrary(HINSTANCE__* handle) {
  const unsigned long error = krl_internal::close_library(handle);
  if (error != 0) std::cerr << "FreeLibrary failed: " << error << std::endl;
}

// A removal may move a later entry into a slot the walk has passed (the
// probe wraps around the table), so the walk repeats until the table is
// empty; each pass releases at least one library.
void KRLLoadLibrary::UnloadAll() {
  KRLMutex_var hold(_mutex, 1);
  while (_libraries._count != 0) {
    for (unsigned long slot = 0; slot < _libraries._capacity; ++slot) {
      const KRLDictionaryNode<CORBA_String_var, HINSTANCE__*>* node = _libraries._table[slot];
      if (node == nullptr) continue;
      const CORBA_String_var name(node->_key);
      _unload(name);
    }
  }
  _libraries.clear();
}
