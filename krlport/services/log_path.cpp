#include "krlport/services/log_path.h"

#include <cstdio>
#include <cstring>

#include "krlport/platform/file.h"
#include "krlport/portable/base_util.h"

namespace krl_internal {
namespace {

// Makes each missing directory above the file named by path, from the top
// down, and stops at the first one that can't be made. The walk starts behind
// the path's root; a path that starts with a separator but has no root on
// this system tries the empty name first, which fails. Something that exists
// counts as made, directory or not. path is changed during the walk and
// restored.
bool make_directories(char* path) {
  const char sep_char = path_separator();
  char* const end = std::strrchr(path, sep_char);
  if (end == nullptr) return true;  // a bare file name: nothing to make
  *end = '\0';
  char* walk = path + path_root_length(path);
  bool made = true;
  for (;;) {
    char* const sep = std::strchr(walk, sep_char);
    if (sep != nullptr) *sep = '\0';
    FileStatus status;
    made = file_status(path, status) || make_directory(path);
    if (sep != nullptr) *sep = sep_char;
    if (!made || sep == nullptr) break;
    walk = sep + 1;
  }
  *end = sep_char;
  return made;
}

}  // namespace

bool format_log_path(const char* file, char* path, unsigned int size) {
  const char* const adm = BaseUtil::GetProperty("KORLAN_ADM");
  const char sep = path_separator();
  // An empty value counts as none: it would put the logs below the root.
  const bool have_adm = adm != nullptr && adm[0] != '\0';
  const int drive = current_drive();
  char root[4] = "";  // "X:" on a system with drives, else empty
  if (drive > 0) std::snprintf(root, sizeof root, "%c:", static_cast<char>(drive + 0x40));
  const int length =
      have_adm ? std::snprintf(nullptr, 0, "%s%clog%c%s", adm, sep, sep, file)
               : std::snprintf(nullptr, 0, "%s%ckorlan%clog%c%s", root, sep, sep, sep, file);
  if (length < 0 || static_cast<unsigned int>(length) >= size) return false;
  if (have_adm) {
    std::snprintf(path, size, "%s%clog%c%s", adm, sep, sep, file);
  } else {
    std::snprintf(path, size, "%s%ckorlan%clog%c%s", root, sep, sep, sep, file);
  }
  return true;
}

bool log_file_path(const char* file, char* path, unsigned int size) {
  if (!format_log_path(file, path, size)) return false;
  if (make_directories(path)) return true;
  // No second try at the default: the file goes into the current directory.
  if (std::strlen(file) >= size) return false;
  std::strcpy(path, file);
  return true;
}

}  // namespace krl_internal
