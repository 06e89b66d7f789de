#include "krlport/platform/clock.h"

#include <sys/timeb.h>

namespace krl_internal {

void wall_clock(std::int64_t& seconds, std::int32_t& milliseconds) {
  // With a 64-bit time_t (every Win64 build) _ftime is _ftime64: no 2038 limit.
  struct _timeb now;
  ::_ftime(&now);
  seconds = static_cast<std::int64_t>(now.time);
  milliseconds = static_cast<std::int32_t>(now.millitm);
}

}  // namespace krl_internal
