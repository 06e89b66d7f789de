// Process, error, file, version, property and text helpers of KRLPortable.
#include <atomic>
#include <cstring>
#include <iostream>
#include <string>

#include "krlport/exceptions/system_exception.h"
#include "krlport/frame/corba.h"
#include "krlport/platform/file.h"
#include "krlport/platform/socket.h"
#include "krlport/platform/system.h"
#include "krlport/portable/base_util.h"
#include "krlport/portable/portable.h"

namespace {

// Set by the first win_startup and never cleared. The host calls win_startup
// before its threads use sockets; atomic only so that a late second call
// from another thread is still well defined.
std::atomic<bool> g_winsock_started{false};

}  // namespace

unsigned long KRLPortable::process_id() { return krl_internal::current_process_id(); }

void KRLPortable::vkill(long pid) { krl_internal::kill_process(pid); }

unsigned long KRLPortable::vGetErrorNo() { return krl_internal::last_error(); }

char* KRLPortable::_get_error_str() {
  const int err = static_cast<int>(krl_internal::last_error());
  return CORBA::string_dup(std::strerror(err));
}

unsigned char KRLPortable::vFileExists(const char* path) {
  return krl_internal::path_exists(path) ? 1 : 0;
}

unsigned char KRLPortable::vwhence(const char* name, char* out) {
  return krl_internal::search_path(name, out) ? 1 : 0;
}

int KRLPortable::vstricmp(const char* a, const char* b) {
  return krl_internal::compare_ignoring_case(a, b);
}

unsigned long KRLPortable::max_fds() { return 1024; }

unsigned char KRLPortable::max_fd_reached(int) { return 0; }

void KRLPortable::win_startup() {
  if (g_winsock_started.load(std::memory_order_relaxed)) return;
  const int result = krl_internal::start_sockets();  // never fails on Linux
  // Set whatever the start-up gave: a second call after a failure returns
  // quietly.
  g_winsock_started.store(true, std::memory_order_relaxed);
  if (result != 0) throw CORBA_BAD_INV_ORDER(4, CORBA::COMPLETED_MAYBE);
}

unsigned char KRLPortable::get_sysversion(KRLSysVersion& out) {
  vsysinfo* info = BaseUtil::get_sysversion();
  if (info == nullptr) return 0;
  out.major = static_cast<std::uint16_t>(info->major);
  out.minor = static_cast<std::uint16_t>(info->minor);
  delete info;
  return 1;
}

char* KRLPortable::get_property(const char* name) { return BaseUtil::GetProperty(name); }

unsigned short* KRLPortable::_convert_to_wide(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t n = std::strlen(text);
  // No narrow text needs more UTF-16 units than it has bytes.
  unsigned short* wide = CORBA::wstring_alloc(n);
  if (krl_internal::narrow_to_wide(text, n, wide)) return wide;
  const unsigned long err = krl_internal::last_error();
  const std::string reason = std::strerror(static_cast<int>(err));
  CORBA::wstring_free(wide);
  std::cout << "Conversion to wchar failed: " << reason << std::endl;
  krl_internal::set_last_error(err);  // what vGetErrorNo tells afterwards
  return nullptr;
}
