// Internal OS layer for the wall clock of KRLPortable::gettimeofday.
// Internal: use KRLPortable instead.
#ifndef KRLPORT_PLATFORM_CLOCK_H_
#define KRLPORT_PLATFORM_CLOCK_H_

#include <cstdint>

namespace krl_internal {

// Wall-clock time since the epoch, cut to whole milliseconds. Safe from any
// thread.
void wall_clock(std::int64_t& seconds, std::int32_t& milliseconds);

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_CLOCK_H_
