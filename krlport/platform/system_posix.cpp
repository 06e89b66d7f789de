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
#include <ctime>
#include <fstream>
#include <vector>

#include "krlport/platform/system.h"

namespace krl_internal {

namespace {

constexpr const char kDefaultPropertyFile[] = "/etc/ostrevan/varnholt/korlan/6.0/properties";
const char* g_property_file = nullptr;  // null: the default

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
bool parse_status_kib(const std::string& line, const char* key, long& out) {
  const std::size_t n = std::strlen(key);
  if (line.compare(0, n, key) != 0 || line.size() <= n || line[n] != ':') return false;
  char* end = nullptr;
  const long v = std::strtol(line.c_str() + n + 1, &end, 10);
  if (end == line.c_str() + n + 1) return false;
  out = v;
  return true;
}

}  // namespace

void wall_clock(std::int64_t& seconds, std::int32_t& milliseconds) {
  struct timespec ts;
  ::clock_gettime(CLOCK_REALTIME, &ts);  // cannot fail for this clock id
  seconds = ts.tv_sec;
  milliseconds = static_cast<std::int32_t>(ts.tv_nsec / 1000000);
}

unsigned long current_process_id() { return static_cast<unsigned long>(::getpid()); }

unsigned long last_error() { return static_cast<unsigned long>(errno); }

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

bool system_version(std::int32_t& major, std::int32_t& minor) {
  struct utsname u;
  if (::uname(&u) != 0) return false;
  // The release reads "6.8.0-45-generic": the first two numbers count.
  char* end = nullptr;
  const long ma = std::strtol(u.release, &end, 10);
  if (end == u.release || *end != '.') return false;
  const char* rest = end + 1;
  const long mi = std::strtol(rest, &end, 10);
  if (end == rest) return false;
  major = static_cast<std::int32_t>(ma);
  minor = static_cast<std::int32_t>(mi);
  return true;
}

bool process_memory_kib(long& virtual_kib, long& resident_kib) {
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

const char* property_file_path() {
  return g_property_file != nullptr ? g_property_file : kDefaultPropertyFile;
}

void set_property_file_path(const char* path) { g_property_file = path; }

bool read_property(const char* name, char* out, std::size_t size) {
  std::ifstream file(property_file_path());
  if (!file) return false;
  const std::size_t n = std::strlen(name);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line.size() <= n || line.compare(0, n, name) != 0 || line[n] != '=') continue;
    std::string value = line.substr(n + 1);
    if (!value.empty() && value.back() == '\r') value.pop_back();  // file written on Windows
    const std::size_t len = value.size() < size - 1 ? value.size() : size - 1;
    std::memcpy(out, value.data(), len);
    out[len] = '\0';
    return true;
  }
  return false;
}

}  // namespace krl_internal
