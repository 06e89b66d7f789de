#include "krlport/services/log_path.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "krlport/platform/system.h"
#include "krlport/portable/base_util.h"

namespace krl_internal {
namespace {

// Makes each missing directory above the file named by path, from the top
// down, and stops at the first one that can't be made. An absolute path's
// walk starts behind its leading '/'. Something that exists counts as made,
// directory or not. path is changed during the walk and restored.
bool make_directories(char* path) {
  char* const end = std::strrchr(path, '/');
  if (end == nullptr) return true;  // a bare file name: nothing to make
  *end = '\0';
  char* walk = path[0] == '/' ? path + 1 : path;
  bool made = true;
  for (;;) {
    char* const sep = std::strchr(walk, '/');
    if (sep != nullptr) *sep = '\0';
    // EEXIST: another process made it between the two calls.
    made = path_exists(path) || ::mkdir(path, 0777) == 0 || errno == EEXIST;
    if (sep != nullptr) *sep = '/';
    if (!made || sep == nullptr) break;
    walk = sep + 1;
  }
  *end = '/';
  return made;
}

// Formats the log path of file into path; false when it doesn't fit.
bool format_log_path(const char* file, char* path, unsigned int size) {
  const char* const adm = BaseUtil::GetProperty("KORLAN_ADM");
  // An empty value counts as none: it would put the logs below the root.
  const bool have_adm = adm != nullptr && adm[0] != '\0';
  const int length = have_adm ? std::snprintf(nullptr, 0, "%s/log/%s", adm, file)
                              : std::snprintf(nullptr, 0, "/korlan/log/%s", file);
  if (length < 0 || static_cast<unsigned int>(length) >= size) return false;
  if (have_adm) {
    std::snprintf(path, size, "%s/log/%s", adm, file);
  } else {
    std::snprintf(path, size, "/korlan/log/%s", file);
  }
  return true;
}

}  // namespace

bool log_file_path(const char* file, char* path, unsigned int size) {
  if (!format_log_path(file, path, size)) return false;
  if (make_directories(path)) return true;
  // No second try below /korlan: the file goes into the current directory.
  if (std::strlen(file) >= size) return false;
  std::strcpy(path, file);
  return true;
}

}  // namespace krl_internal
