#include "krlport/platform/property.h"

#include <windows.h>

#include <climits>

namespace krl_internal {

namespace {

constexpr const char kPropertyKey[] = "SOFTWARE\\Ostrevan\\Varnholt\\Korlan\\6.0";
const char* g_test_key = nullptr;  // null: the library's own key

}  // namespace

void set_property_location(const char* location) { g_test_key = location; }

bool read_property(const char* name, char* out, std::size_t size) {
  // KEY_ALL_ACCESS as the library always asked for it: on Windows a user
  // without write access to HKLM reads nothing here, the environment only.
  HKEY root = g_test_key != nullptr ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
  HKEY key = nullptr;
  if (::RegOpenKeyExA(root, g_test_key != nullptr ? g_test_key : kPropertyKey, 0, KEY_ALL_ACCESS,
                      &key) != ERROR_SUCCESS) {
    return false;
  }
  DWORD bytes = size < ULONG_MAX ? static_cast<DWORD>(size) : ULONG_MAX;
  const LONG rc =
      ::RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(out), &bytes);
  ::RegCloseKey(key);
  if (rc != ERROR_SUCCESS || size == 0) return false;
  // A string stored without its terminator, or data of another type, comes
  // back unterminated: end it in the buffer, cutting the last byte if full.
  out[bytes < size ? bytes : size - 1] = '\0';
  return true;
}

}  // namespace krl_internal
