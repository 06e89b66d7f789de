// Scoped fixtures for the tests, each undone at the end of its scope: a
// temporary directory, an environment variable, a capture of a std stream; the
// whole text of a file, and what a call writes to descriptor 2.
#ifndef KRLPORT_PORTABLE_TEST_SUPPORT_H_
#define KRLPORT_PORTABLE_TEST_SUPPORT_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>

namespace krl_test {

class TempDir {
 public:
  TempDir() {
    std::string templ = std::filesystem::temp_directory_path().string() + "/krlport_XXXXXX";
    if (::mkdtemp(&templ[0]) != nullptr) _path = templ;
  }
  ~TempDir() {
    std::error_code ignored;
    if (!_path.empty()) std::filesystem::remove_all(_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return _path; }  // empty when mkdtemp failed

  // Writes an executable file; returns its path.
  std::string add_file(const std::string& name, const std::string& content = "#!/bin/sh\n") const {
    const std::string full = _path + "/" + name;
    std::ofstream(full, std::ios::binary) << content;
    ::chmod(full.c_str(), 0755);
    return full;
  }

 private:
  std::string _path;
};

// Sets the variable, or with a null value removes it.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : _name(name), _had(std::getenv(name) != nullptr) {
    if (_had) _old = std::getenv(name);
    value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { _had ? ::setenv(_name, _old.c_str(), 1) : ::unsetenv(_name); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* _name;
  bool _had;
  std::string _old;
};

inline std::string slurp(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Through a file in the current directory, the test's own (GoogleTest's
// capture would write below /tmp).
inline std::string stderr_of(const std::function<void()>& f) {
  const char* const path = "stderr_of";
  std::fflush(stderr);
  const int saved = ::dup(2);
  const int file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ::dup2(file, 2);
  ::close(file);
  f();
  std::fflush(stderr);
  ::dup2(saved, 2);
  ::close(saved);
  return slurp(path);
}

// Redirects s (std::cout unless named) into a string while alive.
class Capture {
 public:
  explicit Capture(std::ostream& s = std::cout) : _s(s), _old(s.rdbuf(_text.rdbuf())) {}
  ~Capture() { _s.rdbuf(_old); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::string text() const { return _text.str(); }

 private:
  std::ostream& _s;
  std::ostringstream _text;
  std::streambuf* _old;
};

}  // namespace krl_test

#endif  // KRLPORT_PORTABLE_TEST_SUPPORT_H_
