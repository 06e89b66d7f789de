// Scoped fixtures for the tests, each undone at the end of its scope: a
// temporary directory, an environment variable, a capture of a std stream; the
// whole text of a file, and what a call writes to descriptor 2.
#ifndef KRLPORT_PORTABLE_TEST_SUPPORT_H_
#define KRLPORT_PORTABLE_TEST_SUPPORT_H_

#include <fcntl.h>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
#include <string>

namespace krl_test {

// Sets the variable, or with a null value removes it. On Windows an empty
// value removes it too (_putenv_s).
inline void set_env(const char* name, const char* value) {
#ifdef _WIN32
  ::_putenv_s(name, value != nullptr ? value : "");
#else
  value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
#endif
}

class TempDir {
 public:
  // A new directory of its own below the system's temporary one;
  // create_directory fails for a name that exists, so no other user shares it.
  TempDir() {
    std::error_code error;
    const std::filesystem::path base = std::filesystem::temp_directory_path(error);
    std::random_device seed;
    std::mt19937_64 random(seed());
    for (int attempt = 0; attempt < 100 && _path.empty() && !error; ++attempt) {
      const std::filesystem::path p = base / ("krlport_" + std::to_string(random() % 1000000007));
      if (std::filesystem::create_directory(p, error)) _path = p.generic_string();
    }
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
    namespace fs = std::filesystem;
    std::error_code ignored;
    fs::permissions(full,
                    fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                        fs::perms::others_read | fs::perms::others_exec,
                    ignored);
    return full;
  }

 private:
  std::string _path;
};

// Sets the variable, or with a null value removes it, for its scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : _name(name), _had(std::getenv(name) != nullptr) {
    if (_had) _old = std::getenv(name);
    set_env(name, value);
  }
  ~ScopedEnv() { set_env(_name, _had ? _old.c_str() : nullptr); }
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
#ifdef _WIN32
  const int not_inherited = O_NOINHERIT;
#else
  const int not_inherited = O_CLOEXEC;
#endif
  std::fflush(stderr);
  const int saved = ::dup(2);
  const int file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | not_inherited, 0600);
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
