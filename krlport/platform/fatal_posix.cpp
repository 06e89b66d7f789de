#include "krlport/platform/fatal.h"

#include <string.h>

#include <cstdio>
#include <cstdlib>

namespace krl_internal {
namespace {

// strerror_r comes in a POSIX form (int, fills buf) and a GNU form (returns
// the text); take whichever the C library declares.
[[maybe_unused]] const char* error_text(int result, const char* buf) {
  return result == 0 ? buf : "unknown error";
}
[[maybe_unused]] const char* error_text(const char* text, const char*) { return text; }

}  // namespace

void fatal_error(const char* call, int err) {
  char buf[128] = "";
  const char* text = error_text(strerror_r(err, buf, sizeof buf), buf);
  std::fprintf(stderr, "krlport: %s failed: %s (%d)\n", call, text, err);
  std::abort();
}

}  // namespace krl_internal
