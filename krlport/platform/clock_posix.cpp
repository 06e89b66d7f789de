#include "krlport/platform/clock.h"

#include <time.h>

namespace krl_internal {

void wall_clock(std::int64_t& seconds, std::int32_t& milliseconds) {
  struct timespec ts;
  ::clock_gettime(CLOCK_REALTIME, &ts);  // cannot fail for this clock id
  seconds = ts.tv_sec;
  milliseconds = static_cast<std::int32_t>(ts.tv_nsec / 1000000);
}

}  // namespace krl_internal
