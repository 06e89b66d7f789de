#include <windows.h>

#include "krlport/platform/loader.h"

namespace krl_internal {

void* open_library(const char* name, unsigned long& error, std::string& text) {
  HMODULE module = ::LoadLibraryA(name);
  if (module != nullptr) return reinterpret_cast<void*>(module);
  // LoadLibraryA gives a number only; the text stays empty.
  error = ::GetLastError();
  if (error == 0) error = ERROR_MOD_NOT_FOUND;
  text.clear();
  return nullptr;
}

unsigned long close_library(void* handle) {
  if (::FreeLibrary(reinterpret_cast<HMODULE>(handle))) return 0;
  const unsigned long error = ::GetLastError();
  return error != 0 ? error : ERROR_INVALID_HANDLE;
}

const char* library_prefix() { return ""; }
const char* library_file_type() { return ".dll"; }

}  // namespace krl_internal

// The DLL's entry: at process attach it turns the thread notifications off,
// since per-thread clean-up goes through KRLThreadLocal::_exit_thread and
// nothing here relies on them. In a mingw DLL the call fails (the runtime
// gives the DLL a TLS directory, and the loader keeps thread notifications
// for such a module); the failure is ignored, as the library needs the
// notifications neither on nor off. The static library carries the function
// too, where nothing calls it.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
  (void)reserved;
  if (reason == DLL_PROCESS_ATTACH) (void)::DisableThreadLibraryCalls(module);
  return TRUE;
}
