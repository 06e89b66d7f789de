#include <windows.h>
// After windows.h, which psapi.h needs.
#include <process.h>
#include <psapi.h>
#include <stdlib.h>
#include <sys/types.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include "krlport/platform/system.h"

namespace krl_internal {

namespace {

// The process handle of a scope; null stays null.
class ProcessHandle {
 public:
  explicit ProcessHandle(HANDLE h) : _h(h) {}
  ~ProcessHandle() {
    if (_h != nullptr) ::CloseHandle(_h);
  }
  ProcessHandle(const ProcessHandle&) = delete;
  ProcessHandle& operator=(const ProcessHandle&) = delete;
  HANDLE get() const { return _h; }

 private:
  HANDLE _h;
};

// Heap blocks of LookupAccountNameA, freed at the end of the scope.
class HeapBlock {
 public:
  explicit HeapBlock(DWORD size)
      : _p(::HeapAlloc(::GetProcessHeap(), 0, size)), _size(_p != nullptr ? size : 0) {}
  ~HeapBlock() {
    if (_p != nullptr) ::HeapFree(::GetProcessHeap(), 0, _p);
  }
  HeapBlock(const HeapBlock&) = delete;
  HeapBlock& operator=(const HeapBlock&) = delete;

  // Keeps the old block when HeapReAlloc fails.
  bool resize(DWORD size) {
    void* const p = ::HeapReAlloc(::GetProcessHeap(), 0, _p, size);
    if (p == nullptr) return false;
    _p = p;
    _size = size;
    return true;
  }
  void* get() const { return _p; }
  DWORD size() const { return _size; }

 private:
  void* _p;
  DWORD _size;
};

}  // namespace

unsigned long current_process_id() { return static_cast<unsigned long>(::_getpid()); }

unsigned long last_error() { return ::GetLastError(); }

void set_last_error(unsigned long error) { ::SetLastError(error); }

void kill_process(long pid) {
  const ProcessHandle process(::OpenProcess(PROCESS_ALL_ACCESS, TRUE, static_cast<DWORD>(pid)));
  if (process.get() != nullptr) ::TerminateProcess(process.get(), 0);
}

int compare_ignoring_case(const char* a, const char* b) { return ::_stricmp(a, b); }

bool narrow_to_wide(const char* text, std::size_t n, unsigned short* out) {
  if (n >= static_cast<std::size_t>(INT_MAX)) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  const int units = static_cast<int>(n) + 1;  // the terminator too
  // MB_COMPOSITE asks for decomposed characters, which may need more room
  // than n + 1 units: such a text fails with ERROR_INSUFFICIENT_BUFFER. A
  // UTF-8 (or GB18030) ANSI code page takes no flags at all (Windows fails
  // them with ERROR_INVALID_FLAGS): those convert without it.
  const UINT acp = ::GetACP();
  const DWORD flags = acp == CP_UTF8 || acp == 54936 ? 0 : MB_COMPOSITE;
  return ::MultiByteToWideChar(CP_ACP, flags, text, units, reinterpret_cast<wchar_t*>(out),
                               units) != 0;
}

VersionRead system_version(std::int32_t& major, std::int32_t& minor) {
  OSVERSIONINFOA info;
  std::memset(&info, 0, sizeof info);
  info.dwOSVersionInfoSize = sizeof info;
  if (!::GetVersionExA(&info)) return VersionRead::kFailed;
  if (info.dwPlatformId != VER_PLATFORM_WIN32_WINDOWS) {
    major = static_cast<std::int32_t>(info.dwMajorVersion);
    minor = static_cast<std::int32_t>(info.dwMinorVersion);
    return VersionRead::kRead;
  }
  if (info.dwMinorVersion != 0 && info.dwMinorVersion != 10) return VersionRead::kUnknown;
  major = info.dwMinorVersion == 0 ? 95 : 98;
  minor = static_cast<std::int32_t>(info.dwMinorVersion);
  return VersionRead::kRead;
}

bool process_memory_kib(std::int64_t& commit_kib, std::int64_t& resident_kib) {
  const ProcessHandle process(
      ::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, ::_getpid()));
  if (process.get() == nullptr) return false;
  // The structure of this build's pointer width: 72 bytes on Win64, where a
  // 40-byte one (its Win32 size) fails with ERROR_INSUFFICIENT_BUFFER.
  PROCESS_MEMORY_COUNTERS counters;
  std::memset(&counters, 0, sizeof counters);
  counters.cb = sizeof counters;
  if (!::GetProcessMemoryInfo(process.get(), &counters, sizeof counters)) return false;
  commit_kib = static_cast<std::int64_t>(counters.PagefileUsage >> 10);
  resident_kib = static_cast<std::int64_t>(counters.WorkingSetSize >> 10);
  return true;
}

bool current_user_name(std::string& out) {
  char name[100];
  DWORD size = sizeof name;
  if (!::GetUserNameA(name, &size)) return false;
  out = name;
  return true;
}

bool account_domain(const char* user, std::string& domain) {
  HeapBlock sid(128);
  HeapBlock name(16);
  if (sid.get() == nullptr || name.get() == nullptr) return false;
  for (;;) {
    DWORD sid_size = sid.size();
    DWORD name_size = name.size();
    SID_NAME_USE use;
    if (::LookupAccountNameA(nullptr, user, static_cast<PSID>(sid.get()), &sid_size,
                             static_cast<char*>(name.get()), &name_size, &use)) {
      domain = static_cast<const char*>(name.get());
      return true;
    }
    // The call reports the sizes it needs; sizes that would not grow would
    // fail the same way again.
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER) return false;
    if (sid_size <= sid.size() && name_size <= name.size()) return false;
    if (!sid.resize(std::max(sid_size, sid.size())) ||
        !name.resize(std::max(name_size, name.size()))) {
      return false;
    }
  }
}

}  // namespace krl_internal
