// Clock, time arithmetic and sleeping of KRLPortable.
#include <cstdint>

#include "krlport/platform/clock.h"
#include "krlport/platform/thread.h"
#include "krlport/portable/portable.h"

void KRLPortable::gettimeofday(timeval& tv) {
  std::int64_t seconds = 0;
  std::int32_t milliseconds = 0;
  krl_internal::wall_clock(seconds, milliseconds);
  // The fields are long on Windows (a 32-bit tv_sec, as the socket library
  // has it), time_t and suseconds_t on Linux.
  tv.tv_sec = static_cast<decltype(tv.tv_sec)>(seconds);
  tv.tv_usec = static_cast<decltype(tv.tv_usec)>(milliseconds) * 1000;
}

void KRLPortable::vgettimeofday(timeval* tv) { gettimeofday(*tv); }

timeval KRLPortable::elapsed(const timeval& start, const timeval& end) {
  // Unsigned arithmetic, so that far-apart or malformed times wrap instead of
  // overflowing; for times in the normal range the result is the same.
  using U = unsigned long;
  U sec = static_cast<U>(end.tv_sec) - static_cast<U>(start.tv_sec);
  U usec = static_cast<U>(end.tv_usec) - static_cast<U>(start.tv_usec);
  if (static_cast<long>(usec) < 0) {
    --sec;
    usec += 1000000;
  } else if (static_cast<long>(usec) > 1000000) {
    ++sec;
    usec -= 1000000;
  }
  timeval d;
  d.tv_sec = static_cast<long>(sec);
  d.tv_usec = static_cast<long>(usec);
  return d;
}

long KRLPortable::compare_time(timeval& a, timeval& b) {
  // Differences are taken unsigned so that far-apart times wrap instead of
  // overflowing; only the sign is meaningful.
  if (a.tv_sec != b.tv_sec) {
    return static_cast<long>(static_cast<unsigned long>(a.tv_sec) -
                             static_cast<unsigned long>(b.tv_sec));
  }
  return static_cast<long>(static_cast<unsigned long>(a.tv_usec) -
                           static_cast<unsigned long>(b.tv_usec));
}

long KRLPortable::compare_time(timeval& a, unsigned long long milliseconds) {
  // Reckoned in 32 bits, as callers that compare against a 32-bit
  // millisecond clock expect: only the low 32 bits of each term count.
  const std::uint32_t a_ms =
      static_cast<std::uint32_t>(a.tv_sec) * 1000u + static_cast<std::uint32_t>(a.tv_usec / 1000);
  return static_cast<std::int32_t>(a_ms - static_cast<std::uint32_t>(milliseconds));
}

void KRLPortable::convert(unsigned long long milliseconds, timeval& tv) {
  tv.tv_sec = static_cast<decltype(tv.tv_sec)>(static_cast<std::uint32_t>(milliseconds / 1000));
  tv.tv_usec = static_cast<decltype(tv.tv_usec)>((milliseconds % 1000) * 1000);
}

unsigned long long KRLPortable::convert(const timeval& tv) {
  // Unsigned arithmetic wraps where a signed product could overflow; the
  // bits are those of the signed result.
  return static_cast<unsigned long long>(static_cast<long long>(tv.tv_sec)) * 1000u +
         static_cast<unsigned long long>(static_cast<long long>(tv.tv_usec / 1000));
}

void KRLPortable::sleep(unsigned long milliseconds) {
  const std::uint32_t ms = static_cast<std::uint32_t>(milliseconds);
  if (ms == 0) {
    krl_internal::yield_processor();
  } else {
    krl_internal::sleep_milliseconds(ms);
  }
}

void KRLPortable::vsleep(unsigned long seconds) {
  sleep(static_cast<std::uint32_t>(seconds) * 1000u);
}
