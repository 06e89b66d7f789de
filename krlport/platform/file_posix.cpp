#include "krlport/platform/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

namespace krl_internal {

static_assert(kPathBufferSize == PATH_MAX, "one path of the system");

char path_separator() { return '/'; }

std::size_t path_root_length(const char* path) { return path[0] == '/' ? 1 : 0; }

namespace {

void fill_status(const struct stat& st, FileStatus& out) {
  out.size = static_cast<std::uint64_t>(st.st_size);
  out.regular = S_ISREG(st.st_mode);
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

}  // namespace krl_internal
