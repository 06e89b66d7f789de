#include <limits.h>
#include <pwd.h>
#include <signal.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "krlport/platform/system.h"

namespace krl_internal {

namespace {

bool is_non_directory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// Copies candidate to out when it names a file and fits a PATH_MAX buffer.
bool take_if_file(const std::string& candidate, char* out) {
  if (candidate.size() >= PATH_MAX || !is_non_directory(candidate)) return false;
  std::memcpy(out, candidate.c_str(), candidate.size() + 1);
  return true;
}

std::string current_directory() {
  std::vector<char> buf(PATH_MAX);
  return ::getcwd(buf.data(), buf.size()) != nullptr ? std::string(buf.data()) : std::string();
}

// Value of "Key:   1234 kB" lines of /proc/self/status.
bool parse_status_kib(const std::string& line, const char* key, std::int64_t& out) {
  const std::size_t n = std::strlen(key);
  if (line.compare(0, n, key) != 0 || line.size() <= n || line[n] != ':') return false;
  char* end = nullptr;
  const long long v = std::strtoll(line.c_str() + n + 1, &end, 10);
  if (end == line.c_str() + n + 1) return false;
  out = v;
  return true;
}

// Decodes the UTF-8 sequence at p (avail bytes left) into cp. Returns its
// length, or 0 when it is cut short, has a stray or missing continuation byte,
// an overlong form, a surrogate or a value above U+10FFFF.
std::size_t decode_utf8(const unsigned char* p, std::size_t avail, std::uint32_t& cp) {
  std::size_t len = 0;
  std::uint32_t min = 0;  // below it the form is overlong
  if (p[0] < 0x80) {
    len = 1;
  } else if (p[0] >= 0xC2 && p[0] < 0xE0) {
    len = 2;
    min = 0x80;
  } else if ((p[0] & 0xF0) == 0xE0) {
    len = 3;
    min = 0x800;
  } else if (p[0] >= 0xF0 && p[0] < 0xF5) {
    len = 4;
    min = 0x10000;
  }
  if (len == 0 || avail < len) return 0;
  cp = len == 1 ? p[0] : p[0] & (0x7Fu >> len);
  for (std::size_t k = 1; k < len; ++k) {
    if ((p[k] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (p[k] & 0x3Fu);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

}  // namespace

unsigned long current_process_id() { return static_cast<unsigned long>(::getpid()); }

unsigned long last_error() { return static_cast<unsigned long>(errno); }

void set_last_error(unsigned long error) { errno = static_cast<int>(error); }

void kill_process(long pid) {
  // kill(0 or negative) signals whole process groups, or every process we
  // may signal: nothing OpenProcess on a single id could reach.
  if (pid <= 0 || pid != static_cast<long>(static_cast<pid_t>(pid))) return;
  ::kill(static_cast<pid_t>(pid), SIGKILL);
}

bool path_exists(const char* path) {
  struct stat st;
  return path != nullptr && ::stat(path, &st) == 0;
}

bool search_path(const char* name, char* out) {
  out[0] = '\0';
  if (name == nullptr || name[0] == '\0') return false;
  if (name[0] == '/') return take_if_file(name, out);
  const std::string cwd = current_directory();
  if (!cwd.empty() && take_if_file(cwd + "/" + name, out)) return true;
  const char* path = std::getenv("PATH");
  if (path == nullptr) return false;
  for (const char* p = path;;) {
    const char* colon = std::strchr(p, ':');
    const std::string dir(p,
                          colon != nullptr ? static_cast<std::size_t>(colon - p) : std::strlen(p));
    if (!dir.empty() && take_if_file(dir + "/" + name, out)) return true;
    if (colon == nullptr) return false;
    p = colon + 1;
  }
}

int compare_ignoring_case(const char* a, const char* b) { return ::strcasecmp(a, b); }

bool narrow_to_wide(const char* text, std::size_t n, unsigned short* out) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  for (std::size_t i = 0; i < n;) {
    std::uint32_t cp = 0;
    const std::size_t len = decode_utf8(p + i, n - i, cp);
    if (len == 0) {
      errno = EILSEQ;
      return false;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      *out++ = static_cast<unsigned short>(0xD800 + (cp >> 10));
      *out++ = static_cast<unsigned short>(0xDC00 + (cp & 0x3FF));
    } else {
      *out++ = static_cast<unsigned short>(cp);
    }
    i += len;
  }
  *out = 0;
  return true;
}

VersionRead system_version(std::int32_t& major, std::int32_t& minor) {
  struct utsname u;
  if (::uname(&u) != 0) return VersionRead::kFailed;
  // The release reads "6.8.0-45-generic": the first two numbers count.
  char* end = nullptr;
  const long ma = std::strtol(u.release, &end, 10);
  if (end == u.release || *end != '.') return VersionRead::kFailed;
  const char* rest = end + 1;
  const long mi = std::strtol(rest, &end, 10);
  if (end == rest) return VersionRead::kFailed;
  major = static_cast<std::int32_t>(ma);
  minor = static_cast<std::int32_t>(mi);
  return VersionRead::kRead;
}

bool process_memory_kib(std::int64_t& virtual_kib, std::int64_t& resident_kib) {
  std::ifstream status("/proc/self/status");
  bool have_size = false;
  bool have_rss = false;
  for (std::string line; std::getline(status, line) && !(have_size && have_rss);) {
    have_size = have_size || parse_status_kib(line, "VmSize", virtual_kib);
    have_rss = have_rss || parse_status_kib(line, "VmRSS", resident_kib);
  }
  return have_size && have_rss;
}

bool current_user_name(std::string& out) {
  long hint = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buf(hint > 0 ? static_cast<std::size_t>(hint) : 1024);
  struct passwd pw;
  struct passwd* found = nullptr;
  for (;;) {
    const int err = ::getpwuid_r(::geteuid(), &pw, buf.data(), buf.size(), &found);
    if (err != ERANGE) break;
    buf.resize(buf.size() * 2);
  }
  if (found == nullptr || found->pw_name == nullptr || found->pw_name[0] == '\0') return false;
  out = found->pw_name;
  return true;
}

bool account_domain(const char*, std::string&) { return false; }

}  // namespace krl_internal
