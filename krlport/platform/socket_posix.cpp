#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "krlport/platform/socket.h"

namespace krl_internal {

const int kSocketNoDescriptor = EMFILE;
const int kSocketAddressInUse = EADDRINUSE;
const int kSocketRefused = ECONNREFUSED;

namespace {

// The result of a call that gives -1 on failure, as an error number.
int outcome(int result) { return result < 0 ? errno : 0; }

}  // namespace

int start_sockets() { return 0; }

int open_socket(int family, int type, int protocol, int& fd) {
  fd = ::socket(family, type | SOCK_CLOEXEC, protocol);
  return outcome(fd);
}

void close_socket(int fd) {
  ::close(fd);  // not retried on EINTR: on Linux the descriptor is gone either way
}

int set_nonblocking(int fd) {
  int on = 1;
  return outcome(::ioctl(fd, FIONBIO, &on));
}

int bind_socket(int fd, const void* address, int length) {
  return outcome(::bind(fd, static_cast<const sockaddr*>(address), static_cast<socklen_t>(length)));
}

int listen_socket(int fd, int backlog) { return outcome(::listen(fd, backlog)); }

int accept_socket(int listener, void* peer, int& length, int& fd) {
  for (;;) {
    socklen_t size = static_cast<socklen_t>(length);
    fd = ::accept4(listener, static_cast<sockaddr*>(peer), &size, SOCK_CLOEXEC);
    if (fd >= 0) {
      length = static_cast<int>(size);
      return 0;
    }
    if (errno != EINTR) return errno;  // a signal is no failure of the listener
  }
}

int connect_socket(int fd, const void* address, int length) {
  return outcome(
      ::connect(fd, static_cast<const sockaddr*>(address), static_cast<socklen_t>(length)));
}

// EAGAIN is not one: on a TCP socket here it means that no local port is
// free, not a connection under way.
bool connect_under_way(int error) { return error == EINPROGRESS || error == EINTR; }

// poll, not select, so that a descriptor at or above FD_SETSIZE is safe. A
// failed connect shows as POLLOUT with POLLERR.
int wait_connected(int fd, long long timeout_ms, int& error) {
  pollfd p{fd, POLLOUT, 0};
  for (;;) {
    const int piece =
        timeout_ms < 0 ? -1 : static_cast<int>(std::min<long long>(timeout_ms, INT_MAX));
    const int n = ::poll(&p, 1, piece);
    if (n < 0 && errno == EINTR) continue;  // again with the same time-out
    if (n < 0) {
      error = errno;
      return -1;
    }
    if (n == 0 && timeout_ms > piece) {
      timeout_ms -= piece;
      continue;
    }
    if (n == 0) return 0;
    socklen_t length = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) < 0) error = ECONNREFUSED;
    return 1;
  }
}

int socket_name(int fd, void* address, int& length) {
  socklen_t size = static_cast<socklen_t>(length);
  const int result = outcome(::getsockname(fd, static_cast<sockaddr*>(address), &size));
  length = static_cast<int>(size);
  return result;
}

int peer_name(int fd, void* address, int& length) {
  socklen_t size = static_cast<socklen_t>(length);
  const int result = outcome(::getpeername(fd, static_cast<sockaddr*>(address), &size));
  length = static_cast<int>(size);
  return result;
}

int set_address_reuse(int fd, bool on) {
  const int value = on ? 1 : 0;
  return outcome(::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &value, sizeof value));
}

long long send_bytes(int fd, const char* data, std::size_t length) {
  return ::send(fd, data, length, 0);
}

long long receive_bytes(int fd, char* data, std::size_t length) {
  return ::recv(fd, data, length, 0);
}

}  // namespace krl_internal
