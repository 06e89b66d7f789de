#include "krlport/platform/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace krl_internal {

static_assert(kPathBufferSize == PATH_MAX, "one path of the system");

char path_separator() { return '/'; }

std::size_t path_root_length(const char* path) { return path[0] == '/' ? 1 : 0; }

namespace {

void fill_status(const struct stat& st, FileStatus& out) {
  out.size = static_cast<std::uint64_t>(st.st_size);
  out.regular = S_ISREG(st.st_mode);
}

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

}  // namespace

bool file_status(const char* path, FileStatus& out) {
  struct stat st;
  if (::stat(path, &st) != 0) return false;
  fill_status(st, out);
  return true;
}

bool descriptor_status(int descriptor, FileStatus& out) {
  struct stat st;
  if (::fstat(descriptor, &st) != 0) return false;
  fill_status(st, out);
  return true;
}

bool make_directory(const char* path) { return ::mkdir(path, 0777) == 0 || errno == EEXIST; }

// fchmod on the descriptor rather than chmod on the name: the name may have
// been replaced since the open.
void make_owner_only(int descriptor, const char* /*path*/) {
  struct stat st;
  if (::fstat(descriptor, &st) == 0 && S_ISREG(st.st_mode)) ::fchmod(descriptor, 0600);
}

bool remove_file(const char* path) { return ::unlink(path) == 0; }

// "e": O_CLOEXEC, so the descriptor stays out of programs the host executes.
std::FILE* open_for_append(const char* path) { return std::fopen(path, "ae"); }

int stream_descriptor(std::FILE* stream) { return ::fileno(stream); }

int current_drive() { return 0; }

std::int64_t current_time_seconds() { return static_cast<std::int64_t>(std::time(nullptr)); }

void local_time_text(std::int64_t seconds, char* out, std::size_t size) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  char text[64];  // ctime_r writes 26 bytes for a four-digit year
  if (size == 0) return;
  out[0] = '\0';
  if (::ctime_r(&t, text) == nullptr) return;
  text[24] = '\0';  // the newline, or a year past 9999 cut
  std::strncpy(out, text, size - 1);
  out[size - 1] = '\0';
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

}  // namespace krl_internal
