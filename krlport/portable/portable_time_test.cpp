#ifdef _WIN32
#include <windows.h>
#include <winsock2.h>
#endif

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>

#include <gtest/gtest.h>

#include "krlport/portable/portable.h"

namespace {

bool same(const timeval& a, const timeval& b) {
  return a.tv_sec == b.tv_sec && a.tv_usec == b.tv_usec;
}

TEST(PortableTimeTest, ConvertElapsedAndCompare) {
  // Seconds keep only their low 32 bits, zero-extended into a 64-bit long
  // (Linux), all of a 32-bit one (Windows).
  const long all_ones = static_cast<long>(std::uint32_t{0xFFFFFFFF});
  const struct {
    unsigned long long ms;
    timeval tv;
  } to_timeval[] = {{1500, {1, 500000}},
                    {((1ULL << 32) + 5) * 1000 + 7, {5, 7000}},
                    {0xFFFFFFFFULL * 1000 + 999, {all_ones, 999000}}};
  for (const auto& k : to_timeval) {
    timeval tv{-7, -7};
    KRLPortable::convert(k.ms, tv);
    EXPECT_TRUE(same(tv, k.tv)) << k.ms;
  }
  // 64 bits, partial milliseconds drop, signed widening and division.
  const long big = static_cast<long>(std::min<long long>(5000000000LL, LONG_MAX));
  const struct {
    timeval tv;
    unsigned long long ms;
  } to_ms[] = {{{7, 999999}, 7999},
               {{big, 0}, static_cast<unsigned long long>(big) * 1000},
               {{-1, 0}, static_cast<unsigned long long>(-1000LL)},
               {{2, -1500}, 1999}};
  for (const auto& k : to_ms) EXPECT_EQ(KRLPortable::convert(k.tv), k.ms) << k.tv.tv_sec;
  // Exactly 1000000 us stays; a later start gives a negative span. Far-apart
  // or malformed times wrap like unsigned numbers; no step of the reckoning
  // may overflow a long (UndefinedBehaviorSanitizer would stop here).
  const struct {
    timeval start, end, span;
  } spans[] = {
      {{1, 900000}, {3, 100000}, {1, 200000}},     {{1, 0}, {1, 1000000}, {0, 1000000}},
      {{0, 0}, {0, 1500000}, {1, 500000}},         {{3, 100000}, {1, 900000}, {-2, 800000}},
      {{LONG_MIN, 0}, {LONG_MAX, 0}, {-1, 0}},     {{LONG_MAX, 0}, {LONG_MIN, 0}, {1, 0}},
      {{0, 1}, {LONG_MIN, 0}, {LONG_MAX, 999999}}, {{0, 0}, {LONG_MAX, 1000001}, {LONG_MIN, 1}},
      {{0, LONG_MAX}, {0, LONG_MIN}, {0, 1}}};
  for (const auto& k : spans) {
    const timeval d = KRLPortable::elapsed(k.start, k.end);
    EXPECT_TRUE(same(d, k.span)) << d.tv_sec << " " << d.tv_usec;
  }
  // Microseconds count only when the seconds are equal.
  struct {
    timeval a, b;
    long diff;
  } pairs[] = {{{5, 100}, {5, 40}, 60}, {{5, 40}, {5, 100}, -60}, {{6, 0}, {5, 999999}, 1}};
  for (auto& k : pairs) EXPECT_EQ(KRLPortable::compare_time(k.a, k.b), k.diff) << k.diff;
  // Against milliseconds: 32-bit terms and a 32-bit signed result.
  struct {
    timeval a;
    unsigned long long ms;
    long diff;
  } to_ms32[] = {{{5, 999}, 5000, 0},
                 {{5, 1000}, 5000, 1},
                 {{5, 0}, (1ULL << 32) + 5000, 0},
                 {{4294968, 0}, 704, 0},  // 4294968000 ms wraps to 704
                 {{0, 0}, 0x80000000ULL, -2147483648L},
                 {{0, 0}, 0x80000001ULL, 2147483647L}};
  for (auto& k : to_ms32) EXPECT_EQ(KRLPortable::compare_time(k.a, k.ms), k.diff) << k.ms;
}

TEST(PortableTimeTest, ClockHasMillisecondGrain) {
  const long long sys = std::chrono::duration_cast<std::chrono::seconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
  timeval tv{0, 1};
  timeval vtv{0, 1};
  KRLPortable::gettimeofday(tv);
  KRLPortable::vgettimeofday(&vtv);
  for (const timeval& t : {tv, vtv}) {
    EXPECT_EQ(t.tv_usec % 1000, 0);
    EXPECT_TRUE(t.tv_sec >= sys && t.tv_sec <= sys + 5) << t.tv_sec;
  }
}

#ifdef _WIN32
// Found in the DLL by name, loaded beside the library this test links: the
// test program's own gettimeofday would be mingw's.
TEST(PortableTimeTest, ExportedGettimeofdayReadsTheClockInMilliseconds) {
  const HMODULE dll = ::LoadLibraryA("krlport_r_6.dll");
  ASSERT_NE(dll, nullptr) << ::GetLastError();
  using Plain = int (*)(timeval*, void*);
  const Plain plain =
      reinterpret_cast<Plain>(reinterpret_cast<void*>(::GetProcAddress(dll, "gettimeofday")));
  EXPECT_NE(plain, nullptr);
  timeval before{0, 0};
  KRLPortable::gettimeofday(before);
  for (int i = 0; plain != nullptr && i < 3; ++i) {  // a microsecond clock shows in one of three
    timeval tv{0, 1};
    EXPECT_EQ(plain(&tv, &tv), 0);
    EXPECT_EQ(tv.tv_usec % 1000, 0);
    EXPECT_TRUE(tv.tv_sec >= before.tv_sec && tv.tv_sec <= before.tv_sec + 5) << tv.tv_sec;
  }
  ::FreeLibrary(dll);
}
#endif

TEST(PortableTimeTest, SleepCountsMillisecondsAndVsleepSeconds) {
  const auto start = std::chrono::steady_clock::now();
  KRLPortable::sleep(2);
  const auto slept = std::chrono::steady_clock::now() - start;
  KRLPortable::vsleep(1);
  const auto vslept = std::chrono::steady_clock::now() - start - slept;
  EXPECT_TRUE(slept >= std::chrono::milliseconds(2) && slept < std::chrono::milliseconds(900));
  EXPECT_TRUE(vslept >= std::chrono::seconds(1) && vslept < std::chrono::seconds(5));
}

}  // namespace
