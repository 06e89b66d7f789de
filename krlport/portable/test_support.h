// Scoped fixtures shared by the tests of this directory: a temporary
// directory, an environment variable and a capture of std::cout, each put
// back at the end of its scope.
#ifndef KRLPORT_PORTABLE_TEST_SUPPORT_H_
#define KRLPORT_PORTABLE_TEST_SUPPORT_H_

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>

namespace krl_test {

// A fresh directory under TMPDIR, removed with its content at the end.
class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base != nullptr ? base : "/tmp") + "/krlport_XXXXXX";
    if (::mkdtemp(&templ[0]) != nullptr) _path = templ;
  }
  ~TempDir() {
    std::error_code ignored;
    if (!_path.empty()) std::filesystem::remove_all(_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Empty when the directory could not be made.
  const std::string& path() const { return _path; }

  // Writes an executable file name with the given content; returns its path.
  std::string add_file(const std::string& name, const std::string& content = "#!/bin/sh\n") const {
    const std::string full = _path + "/" + name;
    std::ofstream(full, std::ios::binary) << content;
    ::chmod(full.c_str(), 0755);
    return full;
  }

 private:
  std::string _path;
};

// Sets (or, with a null value, removes) an environment variable for one scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : _name(name) {
    const char* old = std::getenv(name);
    _had = old != nullptr;
    if (_had) _old = old;
    if (value != nullptr) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (_had) {
      ::setenv(_name, _old.c_str(), 1);
    } else {
      ::unsetenv(_name);
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* _name;
  bool _had;
  std::string _old;
};

// Captures what is written to std::cout for one scope.
class CoutCapture {
 public:
  CoutCapture() : _old(std::cout.rdbuf(_buf.rdbuf())) {}
  ~CoutCapture() { std::cout.rdbuf(_old); }
  CoutCapture(const CoutCapture&) = delete;
  CoutCapture& operator=(const CoutCapture&) = delete;

  std::string text() const { return _buf.str(); }

 private:
  std::ostringstream _buf;
  std::streambuf* _old;
};

}  // namespace krl_test

#endif  // KRLPORT_PORTABLE_TEST_SUPPORT_H_
