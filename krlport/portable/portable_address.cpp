// Reading and filling socket addresses. Only family 2 (AF_INET) is acted on;
// records of another family are passed over.
#include <cstring>

#include "krlport/platform/socket.h"
#include "krlport/portable/portable.h"

namespace {

// The record as an IPv4 one, or null for another family.
sockaddr_in* as_inet(sockaddr* sa) {
  return sa->sa_family == AF_INET ? reinterpret_cast<sockaddr_in*>(sa) : nullptr;
}

}  // namespace

void KRLPortable::saSetPort(sockaddr* sa, int port) {
  if (sockaddr_in* in = as_inet(sa)) in->sin_port = htons(static_cast<unsigned short>(port));
}

int KRLPortable::saGetPort(sockaddr* sa) {
  const sockaddr_in* in = as_inet(sa);
  return in != nullptr ? ntohs(in->sin_port) : -1;
}

int KRLPortable::saGetPort(int fd) {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  int length = sizeof sa;
  if (krl_internal::socket_name(fd, &sa, length) != 0) return -1;
  return saGetPort(reinterpret_cast<sockaddr*>(&sa));
}

void KRLPortable::saSetWild(sockaddr* sa) {
  if (sockaddr_in* in = as_inet(sa)) in->sin_addr.s_addr = htonl(INADDR_ANY);
}

void KRLPortable::saSetLoopback(sockaddr* sa) {
  if (sockaddr_in* in = as_inet(sa)) in->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
}

void KRLPortable::saSetLocal(sockaddr* sa) {
  if (sockaddr_in* in = as_inet(sa)) ipAddr(AF_INET, &in->sin_addr, nullptr);
}

unsigned char KRLPortable::saIsLoopback(sockaddr* sa) {
  const sockaddr_in* in = as_inet(sa);
  return in != nullptr && in->sin_addr.s_addr == htonl(INADDR_LOOPBACK) ? 1 : 0;
}
