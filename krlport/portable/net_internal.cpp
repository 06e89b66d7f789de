// Reason texts, the socket-error rule and the resolver and sleep seams of the
// address and TCP code.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/socket.h"
#include "krlport/portable/base_util.h"
#include "krlport/portable/net_internal.h"
#include "krlport/portable/portable.h"

namespace krl_internal {
namespace {

std::atomic<HostLookup> g_host_lookup{nullptr};
std::atomic<void (*)(unsigned long long)> g_backoff_sleep{nullptr};

}  // namespace

void format_reason(char (&out)[kReasonSize], const char* before, const char* name,
                   const char* after) {
  const std::size_t fixed = std::strlen(before) + std::strlen(after);
  const int room = fixed < kReasonSize - 1 ? static_cast<int>(kReasonSize - 1 - fixed) : 0;
  std::snprintf(out, kReasonSize, "%s%.*s%s", before, room, name != nullptr ? name : "", after);
}

void throw_socket_error(int error) {
  const unsigned long minor = static_cast<unsigned long>(error);
  if (error == kSocketNoDescriptor) throw CORBA_NO_RESOURCES(minor, CORBA::COMPLETED_NO);
  throw CORBA_COMM_FAILURE(minor, CORBA::COMPLETED_NO);
}

void throw_unmapped_host(const char* host) {
  char reason[kReasonSize];
  format_reason(reason, "Could not map <", host, "> into IP address");
  throw CORBA_BAD_PARAM(8, CORBA::COMPLETED_NO, reason);
}

hostent* look_up_host(const char* name, vhostname* work) {
  const HostLookup lookup = g_host_lookup.load(std::memory_order_acquire);
  return lookup != nullptr ? lookup(name, work) : BaseUtil::vgethostbyname_r(name, work);
}

void set_host_lookup(HostLookup lookup) { g_host_lookup.store(lookup, std::memory_order_release); }

void backoff_sleep(unsigned long long milliseconds) {
  if (auto sleep = g_backoff_sleep.load(std::memory_order_acquire)) return sleep(milliseconds);
  // KRLPortable::sleep takes 32 bits; 0 would only yield.
  constexpr unsigned long long kPiece = 0x7FFFFFFFull;
  for (; milliseconds > 0; milliseconds -= std::min(milliseconds, kPiece)) {
    KRLPortable::sleep(static_cast<unsigned long>(std::min(milliseconds, kPiece)));
  }
}

void set_backoff_sleep(void (*sleep)(unsigned long long)) {
  g_backoff_sleep.store(sleep, std::memory_order_release);
}

}  // namespace krl_internal
