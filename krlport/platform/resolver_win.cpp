// The socket library's resolver. gethostbyname and gethostbyaddr keep their
// result in per-thread storage there, so they are safe from any thread
// without the caller's buffers.
#include <winsock2.h>

#include <climits>

#include "krlport/platform/resolver.h"

namespace krl_internal {

const int kResolverTryAgain = WSATRY_AGAIN;

void* lookup_host_by_name(const char* name, void*, char*, std::size_t, int& error) {
  hostent* result = ::gethostbyname(name);
  if (result == nullptr) error = WSAGetLastError();
  return result;
}

void* lookup_host_by_address(const void* addr, int len, int type, void*, char*, std::size_t,
                             int& error) {
  hostent* result = ::gethostbyaddr(static_cast<const char*>(addr), len, type);
  if (result == nullptr) error = WSAGetLastError();
  return result;
}

bool local_host_name(char* out, std::size_t size) {
  return ::gethostname(out, static_cast<int>(size < INT_MAX ? size : INT_MAX)) == 0;
}

bool parse_ipv4(const char* text, std::uint32_t& address) {
  address = ::inet_addr(text);
  return address != INADDR_NONE;
}

const char* ipv4_text(std::uint32_t address) {
  in_addr a;
  a.s_addr = address;
  return ::inet_ntoa(a);
}

}  // namespace krl_internal
