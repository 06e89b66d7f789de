// Helpers for the socket tests of this directory.
#ifndef KRLPORT_PORTABLE_NET_TEST_SUPPORT_H_
#define KRLPORT_PORTABLE_NET_TEST_SUPPORT_H_

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <vector>

#include "krlport/exceptions/system_exception.h"

namespace krl_test {

// Open descriptors, not counting the one that reads them.
inline int open_fds() {
  DIR* d = ::opendir("/proc/self/fd");
  int n = -3;  // ".", ".." and the directory's own descriptor
  while (::readdir(d) != nullptr) ++n;
  ::closedir(d);
  return n;
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

}  // namespace krl_test

#endif  // KRLPORT_PORTABLE_NET_TEST_SUPPORT_H_
