// Winsock 1.1 calls, as the library names them. Every result is read with
// WSAGetLastError at once: errno stays 0 after a Winsock call.
#include <winsock2.h>

#include <algorithm>
#include <climits>
#include <cstdint>

#include "krlport/platform/socket.h"

namespace krl_internal {

const int kSocketNoDescriptor = WSAEMFILE;
const int kSocketAddressInUse = WSAEADDRINUSE;
const int kSocketRefused = WSAECONNREFUSED;

namespace {

// The library's int form of a socket and back. Handles carry 32 significant
// bits and are sign-extended when widened, so -1 is INVALID_SOCKET.
SOCKET native(int fd) { return static_cast<SOCKET>(static_cast<std::intptr_t>(fd)); }

bool fits_int(SOCKET s) { return native(static_cast<int>(s)) == s; }

int outcome(int result) { return result == SOCKET_ERROR ? WSAGetLastError() : 0; }

// A time-out for select: whole seconds and the microseconds of the rest.
timeval to_timeval(long long milliseconds) {
  timeval tv;
  tv.tv_sec = static_cast<long>(milliseconds / 1000);
  tv.tv_usec = static_cast<long>((milliseconds % 1000) * 1000);
  return tv;
}

}  // namespace

int start_sockets() {
  WSADATA data;
  return WSAStartup(MAKEWORD(1, 1), &data);
}

int open_socket(int family, int type, int protocol, int& fd) {
  const SOCKET s = ::socket(family, type, protocol);
  if (s == INVALID_SOCKET) {
    fd = -1;
    return WSAGetLastError();
  }
  if (!fits_int(s)) {  // not seen; the library's descriptors are ints
    ::closesocket(s);
    fd = -1;
    return WSAEMFILE;
  }
  fd = static_cast<int>(s);
  return 0;
}

void close_socket(int fd) { ::closesocket(native(fd)); }

int set_nonblocking(int fd) {
  u_long on = 1;
  return outcome(::ioctlsocket(native(fd), FIONBIO, &on));
}

int bind_socket(int fd, const void* address, int length) {
  return outcome(::bind(native(fd), static_cast<const sockaddr*>(address), length));
}

int listen_socket(int fd, int backlog) { return outcome(::listen(native(fd), backlog)); }

int accept_socket(int listener, void* peer, int& length, int& fd) {
  for (;;) {
    const SOCKET s = ::accept(native(listener), static_cast<sockaddr*>(peer), &length);
    if (s != INVALID_SOCKET && fits_int(s)) {
      fd = static_cast<int>(s);
      return 0;
    }
    fd = -1;
    if (s != INVALID_SOCKET) {
      ::closesocket(s);
      return WSAEMFILE;
    }
    const int error = WSAGetLastError();
    if (error != WSAEINTR) return error;
  }
}

int connect_socket(int fd, const void* address, int length) {
  return outcome(::connect(native(fd), static_cast<const sockaddr*>(address), length));
}

bool connect_under_way(int error) { return error == WSAEWOULDBLOCK || error == WSAEINPROGRESS; }

// A non-blocking connect that fails is reported in the exception set only
// (the write set is for a connect that succeeded); Wine does the same. The
// first argument of select is ignored by Winsock, and a set holds SOCKETs,
// so FD_SETSIZE is no limit on the value.
int wait_connected(int fd, long long timeout_ms, int& error) {
  const SOCKET s = native(fd);
  // Pieces that a 32-bit tv_sec holds with room to spare.
  constexpr long long kPiece = 1000LL * INT_MAX / 2000;
  for (;;) {
    fd_set writable, failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(s, &writable);
    FD_SET(s, &failed);
    const long long piece = timeout_ms < 0 ? -1 : std::min(timeout_ms, kPiece);
    timeval tv = to_timeval(piece < 0 ? 0 : piece);
    const int n = ::select(0, nullptr, &writable, &failed, piece < 0 ? nullptr : &tv);
    if (n == SOCKET_ERROR) {
      const int wait_error = WSAGetLastError();
      if (wait_error == WSAEINTR) continue;  // again with the same time-out
      error = wait_error;
      return -1;
    }
    if (n == 0 && timeout_ms > piece) {
      timeout_ms -= piece;
      continue;
    }
    if (n == 0) return 0;
    int value = 0;
    int length = sizeof value;
    if (::getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&value), &length) ==
        SOCKET_ERROR) {
      value = WSAECONNREFUSED;
    }
    // Failed with no error kept: still no connection.
    if (value == 0 && FD_ISSET(s, &failed)) value = WSAECONNREFUSED;
    error = value;
    return 1;
  }
}

int socket_name(int fd, void* address, int& length) {
  return outcome(::getsockname(native(fd), static_cast<sockaddr*>(address), &length));
}

int peer_name(int fd, void* address, int& length) {
  return outcome(::getpeername(native(fd), static_cast<sockaddr*>(address), &length));
}

int set_address_reuse(int fd, bool on) {
  const int value = on ? 1 : 0;
  return outcome(::setsockopt(native(fd), SOL_SOCKET, SO_REUSEADDR,
                              reinterpret_cast<const char*>(&value), sizeof value));
}

long long send_bytes(int fd, const char* data, std::size_t length) {
  const int n = static_cast<int>(std::min<std::size_t>(length, INT_MAX));
  return ::send(native(fd), data, n, 0);
}

long long receive_bytes(int fd, char* data, std::size_t length) {
  const int n = static_cast<int>(std::min<std::size_t>(length, INT_MAX));
  return ::recv(native(fd), data, n, 0);
}

}  // namespace krl_internal
