// Scoped fixtures for the tests, each undone at the end of its scope: a
// temporary directory, an environment variable, a capture of a std stream; the
// whole text of a file, and what a call writes to descriptor 2.
#ifndef KRLPORT_PORTABLE_TEST_SUPPORT_H_
#define KRLPORT_PORTABLE_TEST_SUPPORT_H_

#include <fcntl.h>
#include <sys/stat.h>
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

#ifdef _WIN32
// Windows has no setenv; an empty value removes the variable there.
inline void set_env(const char* name, const char* value) { ::_putenv_s(name, value); }
inline void unset_env(const char* name) { ::_putenv_s(name, ""); }
constexpr int kNoInherit = _O_NOINHERIT;
#else
inline void set_env(const char* name, const char* value) { ::setenv(name, value, 1); }
inline void unset_env(const char* name) { ::unsetenv(name); }
constexpr int kNoInherit = O_CLOEXEC;
#endif

class TempDir {
 public:
  // A new directory of a random name (mkdtemp's way, which Windows lacks).
  TempDir() {
    std::error_code ec;
    const std::filesystem::path tmp = std::filesystem::temp_directory_path(ec);
    std::random_device seed;
    std::mt19937_64 random(seed());
    for (int attempt = 0; !ec && attempt < 100; ++attempt) {
      const std::filesystem::path p = tmp / ("krlport_" + std::to_string(random() % 1000000000));
      if (std::filesystem::create_directory(p, ec)) {
        _path = p.string();
        break;
      }
    }
  }
  ~TempDir() {
    std::error_code ignored;
    if (!_path.empty()) std::filesystem::remove_all(_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return _path; }  // empty when none could be made

  // Writes an executable file; returns its path.
  std::string add_file(const std::string& name, const std::string& content = "#!/bin/sh\n") const {
    const std::string full = _path + "/" + name;
    std::ofstream(full, std::ios::binary) << content;
    std::error_code ignored;  // Windows knows no execute bit
    std::filesystem::permissions(
        full,
        std::filesystem::perms::owner_all | std::filesystem::perms::group_read |
            std::filesystem::perms::group_exec | std::filesystem::perms::others_read |
            std::filesystem::perms::others_exec,
        ignored);
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
    value != nullptr ? set_env(name, value) : unset_env(name);
  }
  ~ScopedEnv() { _had ? set_env(_name, _old.c_str()) : unset_env(_name); }
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
  const int file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | kNoInherit, 0600);
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
