#include "krlport/platform/fatal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace krl_internal {

void fatal_error(const char* call, int err) {
  char buf[128] = "";
  if (strerror_s(buf, sizeof buf, err) != 0) std::snprintf(buf, sizeof buf, "unknown error");
  std::fprintf(stderr, "krlport: %s failed: %s (%d)\n", call, buf, err);
  std::abort();
}

}  // namespace krl_internal
