#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "krlport/platform/property.h"
#include "krlport/platform/resolver.h"
#include "krlport/platform/system.h"
#include "krlport/portable/base_util.h"

char BaseUtil::_property[512];

namespace {

// The user name every call after the first returns; never released.
std::atomic<const char*> g_user_name{nullptr};

// The first of: the account name, behind its domain and a backslash when the
// account has one (a heap copy, set in *owned); USERNAME; "Win_User".
const char* work_out_user_name(char*& owned) {
  owned = nullptr;
  std::string account;
  if (!krl_internal::current_user_name(account)) {
    const char* env = std::getenv("USERNAME");
    return env != nullptr ? env : "Win_User";
  }
  // Windows 95 and 98 have no account look-up.
  std::string domain;
  vsysinfo* const version = BaseUtil::get_sysversion();
  if (version != nullptr && version->major != 95 && version->major != 98 &&
      krl_internal::account_domain(account.c_str(), domain) && !domain.empty()) {
    account = domain + '\\' + account;
  }
  delete version;
  owned = new char[account.size() + 1];
  std::memcpy(owned, account.c_str(), account.size() + 1);
  return owned;
}

int saturated_int(std::int64_t value) {
  if (value < 0) return 0;
  return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

}  // namespace

char* BaseUtil::GetProperty(const char* name) {
  if (name == nullptr) return nullptr;
  // An empty value counts as unset, as on Windows, where setting a variable
  // to nothing removes it: it does not hide the property file.
  char* const value = std::getenv(name);
  if (value != nullptr && value[0] != '\0') return value;
  return krl_internal::read_property(name, _property, sizeof _property) ? _property : nullptr;
}

vsysinfo* BaseUtil::get_sysversion() {
  std::int32_t major = 0;
  std::int32_t minor = 0;
  const krl_internal::VersionRead read = krl_internal::system_version(major, minor);
  if (read == krl_internal::VersionRead::kFailed) {
    std::cerr << "Could not obtain OS version information" << std::endl;
  }
  if (read != krl_internal::VersionRead::kRead) return nullptr;
  vsysinfo* info = new vsysinfo;
  info->major = major;
  info->minor = minor;
  return info;
}

const char* BaseUtil::user_name() {
  const char* cached = g_user_name.load(std::memory_order_acquire);
  if (cached != nullptr) return cached;
  char* owned = nullptr;
  const char* name = work_out_user_name(owned);
  // A racing first call may have cached its own result: keep that one.
  if (g_user_name.compare_exchange_strong(cached, name, std::memory_order_acq_rel)) return name;
  delete[] owned;
  return cached;
}

unsigned long BaseUtil::getpid() { return krl_internal::current_process_id(); }

void BaseUtil::GetProcessMemory(int& commit, int& resident) {
  commit = 0;
  resident = 0;
  std::int64_t commit_kib = 0;
  std::int64_t resident_kib = 0;
  if (!krl_internal::process_memory_kib(commit_kib, resident_kib)) return;
  // An int holds 2 TiB less 1 KiB; a larger size (a sanitizer's shadow
  // reservation is many TiB) reads as INT_MAX rather than wrapping.
  commit = saturated_int(commit_kib);
  resident = saturated_int(resident_kib);
}

hostent* BaseUtil::vgethostbyname_r(const char* name, vhostname* work) {
  if (name == nullptr) {
    work->error = HOST_NOT_FOUND;
    return nullptr;
  }
  int error = 0;
  hostent* h = static_cast<hostent*>(krl_internal::lookup_host_by_name(
      name, &work->_entry, work->_data, sizeof work->_data, error));
  if (h == nullptr) work->error = error;
  return h;
}

hostent* BaseUtil::vgethostbyaddr_r(const char* addr, int len, int type, vhostname* work) {
  int error = 0;
  hostent* h = static_cast<hostent*>(krl_internal::lookup_host_by_address(
      addr, len, type, &work->_entry, work->_data, sizeof work->_data, error));
  if (h == nullptr) work->error = error;
  return h;
}
