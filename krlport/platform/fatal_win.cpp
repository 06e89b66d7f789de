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

void assertion_failed(const char* expr, const char* file, int line) {
  std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expr, file, line);
  std::abort();
}

}  // namespace krl_internal
