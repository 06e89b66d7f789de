// TCP connections of KRLPortable: connecting with a time-out and retries,
// listening over a port range, accepting, and the socket-error rule.
//
// No state outside the call and no lock of its own: any number of threads may
// connect and listen at once. Every socket made here is close-on-exec on
// Linux, and every failure path closes the socket it made before it throws.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/resolver.h"
#include "krlport/platform/socket.h"
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

// A new socket for c in fd, or -1; the socket error number, 0 on success.
int open_socket(const Candidate& c, int& fd) {
  return krl_internal::open_socket(c.family, c.socket_type, c.protocol, fd);
}

// One debug-log record per failed attempt and per back-off sleep, so that a
// host can see what a tcpConnect did (KRLDebugLog::enable(kConnectTraceMask)).
void trace_attempt(const Candidate& c, int error) {
  const unsigned char* a = reinterpret_cast<const unsigned char*>(&c.address.sin_addr);
  char text[32];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u:%u", a[0], a[1], a[2], a[3],
                static_cast<unsigned>(ntohs(c.address.sin_port)));
  krl_internal::KRLDebugLogger::instance().begin_record(0, krl_internal::kConnectTraceMask,
                                                        "portable_tcp.cpp", __LINE__)
      << "connect to " << text << " failed, errno " << static_cast<long>(error)
      << krl_internal::end_record;
}

void trace_sleep(unsigned long long milliseconds) {
  char text[32];  // a long has 32 bits on Windows
  std::snprintf(text, sizeof text, "%llu", milliseconds);
  krl_internal::KRLDebugLogger::instance().begin_record(0, krl_internal::kConnectTraceMask,
                                                        "portable_tcp.cpp", __LINE__)
      << "back-off sleep of " << text << " ms" << krl_internal::end_record;
}

void close_socket(int& fd) {
  krl_internal::close_socket(fd);
  fd = -1;
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
  std::uint32_t address;
  if (!krl_internal::parse_ipv4(bind_address, address)) {  // a name is not looked up
    close_socket(fd);
    throw_bind_failure(bind_address, "improper IP address format for IPv4 socket.");
  }
  sa.sin_addr.s_addr = address;
  const int error = krl_internal::bind_socket(fd, &sa, sizeof sa);
  if (error != 0) {
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
  if (timeout != 0) krl_internal::set_nonblocking(fd);  // a failure shows in connect
  error = krl_internal::connect_socket(fd, address, address_length);
  // Under way: a non-blocking connect, or on Linux a blocking one that a
  // signal cut short, which goes on; that one is waited for with no limit
  // when there is no time-out.
  if (krl_internal::connect_under_way(error)) {
    const long long wait_ms =
        timeout == 0 ? -1
                     : static_cast<long long>(std::min<unsigned long long>(timeout, LLONG_MAX));
    error = 0;
    if (krl_internal::wait_connected(fd, wait_ms, error) == 0) {
      close_socket(fd);
      throw CORBA_TIMEOUT();
    }
  }
  if (error != 0) close_socket(fd);
}

int KRLPortable::tcpConnect(const char* host, unsigned short port, unsigned long long timeout,
                            const char* bind_address) {
  Candidate target(host, port);
  int fd = -1;
  if (const int error = open_socket(target, fd)) krl_internal::throw_socket_error(error);
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
    if (fd < 0 && (error = open_socket(target, fd)) != 0) krl_internal::throw_socket_error(error);
    bind_client(fd, bind_address);
    connect_attempt(fd, error, target, remaining);  // a CORBA_TIMEOUT leaves at once
    if (error == 0) return fd;
    trace_attempt(target, error);
    if (error == krl_internal::kSocketAddressInUse && ++in_use_retries <= 16)
      continue;  // 17 attempts in all
    if (error == krl_internal::kSocketRefused && first_refusal) {
      if (saIsLoopback(target.sa())) saSetLocal(target.sa());
      first_refusal = false;
      continue;
    }
    if (error == krl_internal::kSocketRefused) {
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
  int fd = -1;
  int error = open_socket(target, fd);
  if (error != 0) krl_internal::throw_socket_error(error);
  krl_internal::set_address_reuse(fd, false);  // explicitly off; the result is not looked at
  for (unsigned long p = port;; ++p) {
    saSetPort(target.sa(), static_cast<int>(p));
    // Only the last port's error is reported.
    error = krl_internal::bind_socket(fd, target.sa(), target.address_length);
    if (error == 0 || p >= last) break;
  }
  if (error == 0) {
    const int listen_error = krl_internal::listen_socket(fd, 1024);
    if (listen_error == 0) return fd;
    close_socket(fd);
    throw CORBA_COMM_FAILURE(static_cast<unsigned long>(listen_error), CORBA::COMPLETED_NO);
  }
  close_socket(fd);
  krl_internal::throw_socket_error(error);
}

int KRLPortable::socketAccept(int listener) {
  sockaddr_in peer;
  int length = sizeof peer;
  int fd = -1;
  const int error = krl_internal::accept_socket(listener, &peer, length, fd);
  if (error != 0) krl_internal::throw_socket_error(error);
  return fd;
}

void KRLPortable::socketError(int code, const char*) { krl_internal::throw_socket_error(code); }
