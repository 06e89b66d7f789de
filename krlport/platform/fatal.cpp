#include "krlport/platform/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace krl_internal {

void assertion_failed(const char* expr, const char* file, int line) {
  std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expr, file, line);
  std::abort();
}

}  // namespace krl_internal
