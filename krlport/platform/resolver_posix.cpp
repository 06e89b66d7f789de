#include <arpa/inet.h>
#include <netdb.h>
#include <unistd.h>

#include "krlport/platform/resolver.h"

namespace krl_internal {

const int kResolverTryAgain = TRY_AGAIN;

void* lookup_host_by_name(const char* name, void* entry, char* data, std::size_t size, int& error) {
  hostent* result = nullptr;
  int herr = 0;
  if (::gethostbyname_r(name, static_cast<hostent*>(entry), data, size, &result, &herr) != 0 ||
      result == nullptr) {
    error = herr;
    return nullptr;
  }
  return result;
}

void* lookup_host_by_address(const void* addr, int len, int type, void* entry, char* data,
                             std::size_t size, int& error) {
  hostent* result = nullptr;
  int herr = 0;
  if (::gethostbyaddr_r(addr, static_cast<socklen_t>(len), type, static_cast<hostent*>(entry), data,
                        size, &result, &herr) != 0 ||
      result == nullptr) {
    error = herr;
    return nullptr;
  }
  return result;
}

bool local_host_name(char* out, std::size_t size) { return ::gethostname(out, size) == 0; }

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
