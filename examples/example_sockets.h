// The examples' own socket calls (the host's, not the library's): the few
// places where Winsock and BSD sockets differ, for a descriptor that the
// library handed out.
#ifndef KRLPORT_EXAMPLES_EXAMPLE_SOCKETS_H
#define KRLPORT_EXAMPLES_EXAMPLE_SOCKETS_H

#include <cstddef>

#ifdef _WIN32
#include <winsock2.h>
#else
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <cerrno>
#endif

namespace example {

inline void close_socket(int fd) {
#ifdef _WIN32
  ::closesocket(static_cast<SOCKET>(fd));
#else
  ::close(fd);
#endif
}

// recv and send of at most n bytes; -1 on failure. A call interrupted by a
// signal (Linux) is repeated.
inline long receive_some(int fd, char* buffer, std::size_t n) {
#ifdef _WIN32
  return ::recv(static_cast<SOCKET>(fd), buffer, static_cast<int>(n), 0);
#else
  ssize_t got;
  do got = ::recv(fd, buffer, n, 0);
  while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
#endif
}

inline long send_some(int fd, const char* data, std::size_t n) {
#ifdef _WIN32
  return ::send(static_cast<SOCKET>(fd), data, static_cast<int>(n), 0);
#else
  ssize_t sent;
  do sent = ::send(fd, data, n, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return static_cast<long>(sent);
#endif
}

// Blocking again (tcpConnect's socket is non-blocking), with a time-out on
// every send and receive.
inline void make_blocking(int fd, int timeout_seconds) {
#ifdef _WIN32
  u_long off = 0;
  ::ioctlsocket(static_cast<SOCKET>(fd), FIONBIO, &off);
  const DWORD ms = static_cast<DWORD>(timeout_seconds) * 1000;
  const char* value = reinterpret_cast<const char*>(&ms);
  ::setsockopt(static_cast<SOCKET>(fd), SOL_SOCKET, SO_RCVTIMEO, value, sizeof ms);
  ::setsockopt(static_cast<SOCKET>(fd), SOL_SOCKET, SO_SNDTIMEO, value, sizeof ms);
#else
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  timeval tv{timeout_seconds, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
#endif
}

}  // namespace example

#endif  // KRLPORT_EXAMPLES_EXAMPLE_SOCKETS_H
