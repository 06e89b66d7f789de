// Helpers for the socket tests of this directory.
#ifndef KRLPORT_PORTABLE_NET_TEST_SUPPORT_H_
#define KRLPORT_PORTABLE_NET_TEST_SUPPORT_H_

#ifdef _WIN32
#include <winsock2.h>  // and windows.h
#else
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <optional>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/portable/portable.h"

namespace krl_test {

// The host's duty, done once for each test program before its tests run.
inline const bool kSocketsStarted = (KRLPortable::win_startup(), true);

// Open descriptors, not counting the one that reads them: the entries of
// /proc/self/fd on Linux; on Windows the open sockets, found by asking every
// handle value below 2^16 for its socket type. (GetProcessHandleCount would
// count all handles, but Wine answers it with 0 whatever is open.)
inline int open_fds() {
#ifdef _WIN32
  int n = 0;
  for (UINT_PTR h = 4; h < (1u << 16); h += 4) {
    int type = 0;
    int len = sizeof type;
    if (::getsockopt(static_cast<SOCKET>(h), SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type),
                     &len) == 0) {
      ++n;
    }
  }
  return n;
#else
  DIR* d = ::opendir("/proc/self/fd");
  int n = -3;  // ".", ".." and the directory's own descriptor
  while (::readdir(d) != nullptr) ++n;
  ::closedir(d);
  return n;
#endif
}

// What select reports readable within a second among a and b: bit 0 for a,
// bit 1 for b.
inline int readable(int a, int b) {
  fd_set set;
  FD_ZERO(&set);
#ifdef _WIN32
  const SOCKET sa = static_cast<SOCKET>(a), sb = static_cast<SOCKET>(b);
#else
  const int sa = a, sb = b;
#endif
  FD_SET(sa, &set);
  FD_SET(sb, &set);
  timeval limit{1, 0};
  if (::select((a > b ? a : b) + 1, &set, nullptr, nullptr, &limit) <= 0) return 0;
  return (FD_ISSET(sa, &set) ? 1 : 0) | (FD_ISSET(sb, &set) ? 2 : 0);
}

// What f threw as an E, or nothing.
template <class E, class F>
std::optional<E> thrown(F&& f) {
  try {
    f();
  } catch (const E& e) {
    return e;
  }
  return std::nullopt;
}

// The minor code that a system exception stores for minor.
inline unsigned long stored(unsigned long minor) {
  return CORBA_COMM_FAILURE(minor, CORBA::COMPLETED_NO).minor();
}

#ifndef _WIN32
// Lowers the descriptor limit to 64 and fills the table; returns what it opened.
inline std::vector<int> fill_descriptor_table() {
  rlimit limit;
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = 64;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<int> opened;
  for (int fd; (fd = ::open("/dev/null", O_RDONLY)) >= 0;) opened.push_back(fd);
  return opened;
}

// body(last) run in a forked child whose descriptor table is full, last the
// last descriptor opened; its result is the child's exit status.
template <class F>
int in_child_without_descriptors(F&& body) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(body(fill_descriptor_table().back()));
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
#endif

}  // namespace krl_test

#endif  // KRLPORT_PORTABLE_NET_TEST_SUPPORT_H_
