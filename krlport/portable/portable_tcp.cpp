// TCP connections of KRLPortable: connecting with a time-out and retries,
// listening over a port range, accepting, and the socket-error rule.
//
// No state outside the call and no lock of its own: any number of threads may
// connect and listen at once. Every socket made here is close-on-exec, and
// every failure path closes the socket it made before it throws.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "krlport/exceptions/system_exception.h"
#include "krlport/portable/net_internal.h"
#include "krlport/portable/portable.h"
#include "krlport/services/vdlogger.h"

namespace {

using krl_internal::kReasonSize;

// The target of a connect or the name of a listener: a list of exactly one
// IPv4 stream address.
struct Candidate {
  // The wild address when host is null or empty; throws CORBA_BAD_PARAM for
  // a host that can't be mapped.
  Candidate(const char* host, unsigned short port) {
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (host != nullptr && *host != '\0' &&
        KRLPortable::ipAddr(AF_INET, &address.sin_addr, host) == 0) {
      krl_internal::throw_unmapped_host(host);
    }
  }
  sockaddr* sa() { return reinterpret_cast<sockaddr*>(&address); }

  const int family = AF_INET;
  const int socket_type = SOCK_STREAM;
  const int protocol = 0;
  const int address_length = sizeof(sockaddr_in);
  sockaddr_in address;
};

std::atomic<krl_internal::ConnectAttempt> g_connect_attempt{nullptr};

int open_socket(const Candidate& c) {
  return ::socket(c.family, c.socket_type | SOCK_CLOEXEC, c.protocol);
}

// One debug-log record per failed attempt and per back-off sleep, so that a
// host can see what a tcpConnect did (KRLDebugLog::enable(kConnectTraceMask)).
void trace_attempt(const Candidate& c, int error) {
  char text[INET_ADDRSTRLEN] = "?";
  ::inet_ntop(AF_INET, &c.address.sin_addr, text, sizeof text);
  krl_internal::KRLDebugLogger::instance().begin_record(0, krl_internal::kConnectTraceMask,
                                                        "portable_tcp.cpp", __LINE__)
      << "connect to " << text << ":" << static_cast<long>(ntohs(c.address.sin_port))
      << " failed, errno " << static_cast<long>(error) << krl_internal::end_record;
}

void trace_sleep(unsigned long long milliseconds) {
  krl_internal::KRLDebugLogger::instance().begin_record(0, krl_internal::kConnectTraceMask,
                                                        "portable_tcp.cpp", __LINE__)
      << "back-off sleep of " << static_cast<long>(milliseconds) << " ms"
      << krl_internal::end_record;
}

void close_socket(int& fd) {
  ::close(fd);  // not retried on EINTR: the descriptor is gone either way on Linux
  fd = -1;
}

// Waits until fd is writable or timeout_ms (negative: no limit) ran out.
// poll, not select, so that a descriptor at or above FD_SETSIZE is safe.
// 1 when ready, 0 when the time ran out, -1 with error set on failure.
int wait_writable(int fd, long long timeout_ms, int& error) {
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
    return n;
  }
}

// Closes fd when a throw leaves its scope before release.
class SocketGuard {
 public:
  explicit SocketGuard(int& fd) : _fd(&fd) {}
  ~SocketGuard() {
    if (_fd != nullptr) close_socket(*_fd);
  }
  SocketGuard(const SocketGuard&) = delete;
  SocketGuard& operator=(const SocketGuard&) = delete;
  void release() { _fd = nullptr; }

 private:
  int* _fd;
};

[[noreturn]] void throw_bind_failure(const char* bind_address, const char* why) {
  char after[kReasonSize];
  std::snprintf(after, sizeof after, "] failed; %s", why);
  char reason[kReasonSize];
  krl_internal::format_reason(reason, "client bind on [", bind_address, after);
  throw CORBA_BAD_PARAM(8, CORBA::COMPLETED_NO, reason);
}

// Binds the client side of fd to bind_address, if one is given. Closes fd
// before it throws.
void bind_client(int& fd, const char* bind_address) {
  if (bind_address == nullptr || *bind_address == '\0') return;
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = ::inet_addr(bind_address);  // a name is not looked up
  if (sa.sin_addr.s_addr == INADDR_NONE) {
    close_socket(fd);
    throw_bind_failure(bind_address, "improper IP address format for IPv4 socket.");
  }
  if (::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) < 0) {
    const int error = errno;
    close_socket(fd);
    throw_bind_failure(bind_address, std::strerror(error));
  }
}

void connect_attempt(int& fd, int& error, Candidate& target, unsigned long long timeout) {
  krl_internal::ConnectAttempt attempt = g_connect_attempt.load(std::memory_order_acquire);
  if (attempt == nullptr) attempt = &KRLPortable::tcpConnect;
  attempt(fd, error, target.sa(), target.address_length, timeout);
}

}  // namespace

namespace krl_internal {

void set_connect_attempt(ConnectAttempt attempt) {
  g_connect_attempt.store(attempt, std::memory_order_release);
}

}  // namespace krl_internal

void KRLPortable::tcpConnect(int& fd, int& error, sockaddr* address, int address_length,
                             unsigned long long timeout) {
  error = 0;
  if (timeout != 0) {
    int on = 1;
    ::ioctl(fd, FIONBIO, &on);
  }
  if (::connect(fd, address, static_cast<socklen_t>(address_length)) < 0) error = errno;
  // EINPROGRESS: a non-blocking connect under way. EINTR: a signal cut a
  // blocking connect short and the connection goes on, so wait for it (with
  // no limit when there is no time-out). EAGAIN is not waited for: on a TCP
  // socket here it means that no local port is free, not a connection under
  // way.
  if (error == EINPROGRESS || error == EINTR) {
    const long long wait_ms =
        error == EINTR && timeout == 0
            ? -1
            : static_cast<long long>(std::min<unsigned long long>(timeout, LLONG_MAX));
    error = 0;
    const int ready = wait_writable(fd, wait_ms, error);
    if (ready == 0) {
      close_socket(fd);
      throw CORBA_TIMEOUT();
    }
    if (ready > 0) {
      socklen_t length = sizeof error;
      if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) < 0) error = ECONNREFUSED;
    }
  }
  if (error != 0) close_socket(fd);
}

int KRLPortable::tcpConnect(const char* host, unsigned short port, unsigned long long timeout,
                            const char* bind_address) {
  Candidate target(host, port);
  int fd = open_socket(target);
  if (fd < 0) krl_internal::throw_socket_error(errno);
  // A connection to this host tries the loopback address first. Asked only
  // once the socket exists: this host's address is looked up once for the
  // life of the process, and a look-up made while no descriptor is free
  // would fail and be kept.
  {
    SocketGuard guard(fd);  // is_local may throw (an allocation)
    if (host == nullptr || *host == '\0' || is_local(host)) saSetLoopback(target.sa());
    guard.release();
  }

  unsigned long long remaining = timeout;  // only the back-off sleeps use it up
  unsigned long long backoff = 1;          // seconds
  bool first_refusal = true;
  int in_use_retries = 0;
  int error = 0;
  for (;;) {
    if (fd < 0 && (fd = open_socket(target)) < 0) krl_internal::throw_socket_error(errno);
    bind_client(fd, bind_address);
    connect_attempt(fd, error, target, remaining);  // a CORBA_TIMEOUT leaves at once
    if (error == 0) return fd;
    trace_attempt(target, error);
    if (error == EADDRINUSE && ++in_use_retries <= 16) continue;  // 17 attempts in all
    if (error == ECONNREFUSED && first_refusal) {
      if (saIsLoopback(target.sa())) saSetLocal(target.sa());
      first_refusal = false;
      continue;
    }
    if (error == ECONNREFUSED) {
      const unsigned long long step = backoff <= ULLONG_MAX / 1000 ? backoff * 1000 : ULLONG_MAX;
      if (remaining > step) {
        remaining -= step;
        trace_sleep(step);
        krl_internal::backoff_sleep(step);
        backoff *= 2;
        continue;
      }
      if (remaining != 0) {
        trace_sleep(remaining);
        krl_internal::backoff_sleep(remaining);
      }
      remaining = 0;
    }
    krl_internal::throw_socket_error(error);
  }
}

int KRLPortable::createTcpListenerSocket(const char* host, unsigned short port,
                                         unsigned long port_range) {
  // Ports end at 65535: a range beyond that stops there.
  const unsigned long last =
      port == 0 ? 0 : (port_range > 65535ul - port ? 65535ul : port + port_range);
  Candidate target(host, port);
  int fd = open_socket(target);
  if (fd < 0) krl_internal::throw_socket_error(errno);
  const int off = 0;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &off, sizeof off);
  int error = 0;
  for (unsigned long p = port;; ++p) {
    saSetPort(target.sa(), static_cast<int>(p));
    if (::bind(fd, target.sa(), static_cast<socklen_t>(target.address_length)) >= 0) {
      error = 0;
      break;
    }
    error = errno;  // only the last port's error is reported
    if (p >= last) break;
  }
  if (error == 0 && ::listen(fd, 1024) < 0) {
    const int listen_error = errno;
    close_socket(fd);
    throw CORBA_COMM_FAILURE(static_cast<unsigned long>(listen_error), CORBA::COMPLETED_NO);
  }
  if (error != 0) {
    close_socket(fd);
    krl_internal::throw_socket_error(error);
  }
  return fd;
}

int KRLPortable::socketAccept(int listener) {
  sockaddr_in peer;
  for (;;) {
    socklen_t length = sizeof peer;
    const int fd = ::accept4(listener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (fd >= 0) return fd;
    // A signal is no failure of the listener: accept again.
    if (errno != EINTR) krl_internal::throw_socket_error(errno);
  }
}

void KRLPortable::socketError(int code, const char*) { krl_internal::throw_socket_error(code); }
