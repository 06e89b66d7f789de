#include "krlport/platform/file.h"

#include <direct.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace krl_internal {

char path_separator() { return '\\'; }

std::size_t path_root_length(const char* path) {
  return path[0] != '\0' && path[1] == ':' && path[2] == '\\' ? 3 : 0;
}

namespace {

// The 64-bit forms: the plain _stat's size is 32 bits.
void fill_status(const struct _stat64& st, FileStatus& out) {
  out.size = static_cast<std::uint64_t>(st.st_size);
  out.regular = (st.st_mode & _S_IFMT) == _S_IFREG;
}

}  // namespace

bool file_status(const char* path, FileStatus& out) {
  struct _stat64 st;
  if (::_stat64(path, &st) != 0) return false;
  fill_status(st, out);
  return true;
}

bool descriptor_status(int descriptor, FileStatus& out) {
  struct _stat64 st;
  if (::_fstat64(descriptor, &st) != 0) return false;
  fill_status(st, out);
  return true;
}

bool make_directory(const char* path) { return ::_mkdir(path) == 0 || errno == EEXIST; }

// Windows has no fchmod: _chmod by name. Only the read-only attribute is
// real there; _S_IREAD | _S_IWRITE (0x180) keeps the file writable.
void make_owner_only(int descriptor, const char* path) {
  struct _stat64 st;
  if (::_fstat64(descriptor, &st) == 0 && (st.st_mode & _S_IFMT) == _S_IFREG) {
    ::_chmod(path, _S_IREAD | _S_IWRITE);
  }
}

bool remove_file(const char* path) { return ::_unlink(path) == 0; }

// "N": _O_NOINHERIT, so the handle stays out of processes the host creates.
std::FILE* open_for_append(const char* path) { return std::fopen(path, "aN"); }

int stream_descriptor(std::FILE* stream) { return ::_fileno(stream); }

int current_drive() { return ::_getdrive(); }

std::int64_t current_time_seconds() { return static_cast<std::int64_t>(::_time64(nullptr)); }

void local_time_text(std::int64_t seconds, char* out, std::size_t size) {
  const __time64_t t = static_cast<__time64_t>(seconds);
  char text[64];  // _ctime64_s needs 26 bytes
  if (size == 0) return;
  out[0] = '\0';
  if (::_ctime64_s(text, sizeof text, &t) != 0) return;
  text[24] = '\0';  // the newline
  std::strncpy(out, text, size - 1);
  out[size - 1] = '\0';
}

bool path_exists(const char* path) {
  struct _stat64 st;
  return path != nullptr && ::_stat64(path, &st) == 0;
}

bool search_path(const char* name, char* out) {
  out[0] = '\0';
  if (name == nullptr || name[0] == '\0') return false;
  ::_searchenv(name, "PATH", out);  // the current directory first, then PATH
  return out[0] != '\0';
}

}  // namespace krl_internal
