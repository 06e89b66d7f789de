#include <sys/time.h>

#include <chrono>
#include <cstdint>

#include <gtest/gtest.h>

#include "krlport/portable/portable.h"

namespace {

timeval tv_of(long sec, long usec) {
  timeval tv;
  tv.tv_sec = sec;
  tv.tv_usec = usec;
  return tv;
}

TEST(PortableTimeTest, ConvertMillisecondsToTimevalAndBack) {
  timeval tv = tv_of(-7, -7);
  KRLPortable::convert(1500ULL, tv);
  EXPECT_EQ(tv.tv_sec, 1);
  EXPECT_EQ(tv.tv_usec, 500000);
  EXPECT_EQ(KRLPortable::convert(tv), 1500ULL);

  KRLPortable::convert(999ULL, tv);
  EXPECT_EQ(tv.tv_sec, 0);
  EXPECT_EQ(tv.tv_usec, 999000);
  KRLPortable::convert(0ULL, tv);
  EXPECT_EQ(tv.tv_sec, 0);
  EXPECT_EQ(tv.tv_usec, 0);

  // Seconds keep only their low 32 bits, zero-extended.
  KRLPortable::convert(((1ULL << 32) + 5) * 1000 + 7, tv);
  EXPECT_EQ(tv.tv_sec, 5);
  EXPECT_EQ(tv.tv_usec, 7000);
  KRLPortable::convert(0xFFFFFFFFULL * 1000 + 999, tv);
  EXPECT_EQ(tv.tv_sec, 0xFFFFFFFFL);
  EXPECT_EQ(tv.tv_usec, 999000);
}

TEST(PortableTimeTest, ConvertTimevalToMillisecondsTruncatesAndWidensSigned) {
  EXPECT_EQ(KRLPortable::convert(tv_of(7, 999)), 7000ULL);
  EXPECT_EQ(KRLPortable::convert(tv_of(7, 999999)), 7999ULL);
  // 64-bit result: no 32-bit wrap of the product.
  EXPECT_EQ(KRLPortable::convert(tv_of(5000000000L, 0)), 5000000000000ULL);
  // Signed widening of the seconds, signed division of the microseconds.
  EXPECT_EQ(KRLPortable::convert(tv_of(-1, 0)), static_cast<unsigned long long>(-1000LL));
  EXPECT_EQ(KRLPortable::convert(tv_of(2, -1500)), 1999ULL);
}

TEST(PortableTimeTest, ElapsedNormalisesMicroseconds) {
  timeval t = tv_of(12, 345000);
  timeval d = KRLPortable::elapsed(t, t);
  EXPECT_EQ(d.tv_sec, 0);
  EXPECT_EQ(d.tv_usec, 0);

  d = KRLPortable::elapsed(tv_of(1, 900000), tv_of(3, 100000));
  EXPECT_EQ(d.tv_sec, 1);
  EXPECT_EQ(d.tv_usec, 200000);

  d = KRLPortable::elapsed(tv_of(2, 500000), tv_of(5, 500000));
  EXPECT_EQ(d.tv_sec, 3);
  EXPECT_EQ(d.tv_usec, 0);

  // Exactly 1000000 stays; more than that carries into the seconds.
  d = KRLPortable::elapsed(tv_of(1, 0), tv_of(1, 1000000));
  EXPECT_EQ(d.tv_sec, 0);
  EXPECT_EQ(d.tv_usec, 1000000);
  d = KRLPortable::elapsed(tv_of(0, 0), tv_of(0, 1500000));
  EXPECT_EQ(d.tv_sec, 1);
  EXPECT_EQ(d.tv_usec, 500000);

  // Later first gives a negative span with tv_usec still in range.
  d = KRLPortable::elapsed(tv_of(3, 100000), tv_of(1, 900000));
  EXPECT_EQ(d.tv_sec, -2);
  EXPECT_EQ(d.tv_usec, 800000);
}

TEST(PortableTimeTest, CompareTimevals) {
  timeval a = tv_of(5, 100);
  timeval b = tv_of(5, 40);
  // The difference in microseconds, not in milliseconds.
  EXPECT_EQ(KRLPortable::compare_time(a, b), 60);
  EXPECT_EQ(KRLPortable::compare_time(b, a), -60);
  EXPECT_EQ(KRLPortable::compare_time(a, a), 0);

  timeval later = tv_of(6, 0);
  timeval earlier = tv_of(5, 999999);
  EXPECT_GT(KRLPortable::compare_time(later, earlier), 0);
  EXPECT_LT(KRLPortable::compare_time(earlier, later), 0);
}

TEST(PortableTimeTest, CompareTimevalWithMillisecondsIn32Bits) {
  timeval a = tv_of(5, 999);
  EXPECT_EQ(KRLPortable::compare_time(a, 5000ULL), 0);  // under a millisecond apart
  a = tv_of(5, 1000);
  EXPECT_EQ(KRLPortable::compare_time(a, 5000ULL), 1);
  a = tv_of(5, 0);
  EXPECT_EQ(KRLPortable::compare_time(a, 5001ULL), -1);

  // Only the low 32 bits of the milliseconds count.
  EXPECT_EQ(KRLPortable::compare_time(a, (1ULL << 32) + 5000), 0);
  // The time side wraps the same way: 4294968 s is 4294968000 ms.
  timeval big = tv_of(4294968, 0);
  EXPECT_EQ(KRLPortable::compare_time(big, 4294968000ULL), 0);
  EXPECT_EQ(KRLPortable::compare_time(big, 704ULL), 0);

  // The result wraps as a 32-bit signed number before it is widened.
  timeval zero = tv_of(0, 0);
  EXPECT_EQ(KRLPortable::compare_time(zero, 0x80000000ULL), -2147483648L);
  EXPECT_EQ(KRLPortable::compare_time(zero, 0x80000001ULL), 2147483647L);
}

TEST(PortableTimeTest, ClockHasMillisecondGrainAndTracksTheSystemClock) {
  timeval sys;
  ::gettimeofday(&sys, nullptr);
  timeval tv = tv_of(0, 1);
  KRLPortable::gettimeofday(tv);
  timeval vtv = tv_of(0, 1);
  KRLPortable::vgettimeofday(&vtv);

  for (const timeval& t : {tv, vtv}) {
    EXPECT_EQ(t.tv_usec % 1000, 0);
    EXPECT_GE(t.tv_usec, 0);
    EXPECT_LT(t.tv_usec, 1000000);
    EXPECT_GE(t.tv_sec, sys.tv_sec);
    EXPECT_LE(t.tv_sec, sys.tv_sec + 5);
  }
  EXPECT_GE(KRLPortable::compare_time(vtv, tv), 0);
}

long long elapsed_ms(void (*sleeper)(unsigned long), unsigned long arg) {
  const auto start = std::chrono::steady_clock::now();
  sleeper(arg);
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start)
      .count();
}

TEST(PortableTimeTest, SleepCountsMillisecondsAndVsleepSeconds) {
  const long long ms_sleep = elapsed_ms(KRLPortable::sleep, 2);
  EXPECT_GE(ms_sleep, 2);
  EXPECT_LT(ms_sleep, 900);  // milliseconds, not seconds

  const long long s_sleep = elapsed_ms(KRLPortable::vsleep, 1);
  EXPECT_GE(s_sleep, 1000);
  EXPECT_LT(s_sleep, 5000);

  // Zero only gives up the processor.
  EXPECT_LT(elapsed_ms(KRLPortable::sleep, 0), 900);
  EXPECT_LT(elapsed_ms(KRLPortable::vsleep, 0), 900);
}

}  // namespace
