// The fast paths of the default format against the std operators they replace.
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"

namespace {

// Writes each value by KRLostream and by the std inserter with a space, once
// into a fresh stream (nothing buffered yet) and once into one long stream
// (written in the buffer in place, up to its end); the texts must match.
class WrittenAsStd {
 public:
  template <class T>
  void operator()(T v) {
    std::ostringstream fast, reference;
    KRLostream(fast) << v;
    reference << v << ' ';
    EXPECT_EQ(fast.str(), reference.str());
    _long_fast << v;
    _long_reference << v << ' ';
  }
  void check_long() const { EXPECT_EQ(_long_fast_text.str(), _long_reference.str()); }

 private:
  std::ostringstream _long_fast_text, _long_reference;
  KRLostream _long_fast{_long_fast_text};
};

TEST(TextFormatTest, NumbersAreWrittenAsTheInserterWritesThem) {
  WrittenAsStd expect_written_as_std;
  std::mt19937_64 random(99);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    expect_written_as_std(d);
    expect_written_as_std(static_cast<float>(d));
    expect_written_as_std(static_cast<double>(static_cast<std::int64_t>(bits) >> (bits % 60)));
    // Every length of digits, both signs, each integer type.
    const std::uint64_t any = bits >> (random() % 64);
    expect_written_as_std(static_cast<long>(any));
    expect_written_as_std(static_cast<unsigned long>(any));
    expect_written_as_std(static_cast<int>(any));
    expect_written_as_std(static_cast<unsigned int>(any));
    expect_written_as_std(static_cast<short>(any));
    expect_written_as_std(static_cast<unsigned short>(any));
  }
  // The edges of the digit count: each power of ten, its neighbours, and the
  // limits of each type.
  std::uint64_t power = 1;
  for (int digits = 1; digits <= 20; ++digits, power *= 10) {
    for (std::uint64_t v : {power - 1, power, power + 1}) {
      expect_written_as_std(static_cast<unsigned long>(v));
      expect_written_as_std(static_cast<long>(v));
      expect_written_as_std(-static_cast<long>(v));
      expect_written_as_std(static_cast<unsigned int>(v));
      expect_written_as_std(static_cast<int>(v));
      expect_written_as_std(-static_cast<int>(v));
    }
  }
  for (std::uint64_t v : {std::uint64_t{0}, std::uint64_t{0xFFFFFFFFu}, std::uint64_t{0x100000000u},
                          std::uint64_t{~0ULL}, std::uint64_t{1} << 63}) {
    expect_written_as_std(static_cast<unsigned long>(v));
    expect_written_as_std(static_cast<long>(v));
  }
  expect_written_as_std(std::numeric_limits<int>::min());
  expect_written_as_std(std::numeric_limits<int>::max());
  expect_written_as_std(std::numeric_limits<long>::min());
  expect_written_as_std(std::numeric_limits<short>::min());
  for (double d : {0.0, -0.0, 0.5, 2.5, 1e21, 1e-5, 123456.5, 999999.5, 4.9e-324,
                   std::numeric_limits<double>::infinity(), std::nan("")}) {
    expect_written_as_std(d);
  }
  expect_written_as_std.check_long();
}

// Reads text into T by KRListream and by the std extractor followed by get(),
// and compares value, state and what is left.
template <class T>
void expect_read_as_std(const std::string& text) {
  std::istringstream fast_text(text), reference_text(text);
  T fast = T(77), reference = T(77);
  KRListream(fast_text) >> fast;
  reference_text >> reference;
  reference_text.get();
  EXPECT_EQ(std::memcmp(&fast, &reference, sizeof(T)), 0)
      << text << " " << +fast << " " << +reference;
  EXPECT_EQ(fast_text.rdstate(), reference_text.rdstate()) << text;
  fast_text.clear();
  reference_text.clear();
  EXPECT_EQ(fast_text.tellg(), reference_text.tellg()) << text;
}

template <class... T>
void expect_all_read_as_std(const std::string& text) {
  (expect_read_as_std<T>(text), ...);
}

TEST(TextFormatTest, NumbersAreReadAsTheExtractorReadsThem) {
  // One text per '|'; edges of every type, partial numbers, overflow, junk.
  const std::string texts =
      "|  |12 |12| \t\n-0 |+5 x|42x|-|+|abc|0x1A |000012 |99999999999999999999 |"
      "-99999999999999999999 |-1 |70000 |-40000 |32767 |-32768 |2147483648 |-2147483649 |"
      "4294967296 |-9223372036854775808 |18446744073709551615 |18446744073709551616 |1.5 |1e |"
      "1.5e+ |1e5e5 |.5 |5. |. |-.e1|1.2.3 |1e400 |-1e400 |1e-400 |2.5e-310 |"
      "0.000000000000000000000000000000000000000000001 |1E+03|3.4028236e38 |inf |nan |00.5 |"
      "1234567890123456789012345678901234567890123456789012345678901234567890.5e-3 ";
  std::istringstream all(texts);
  for (std::string text; std::getline(all, text, '|');) {
    expect_all_read_as_std<short, unsigned short, int, unsigned int, long, unsigned long, float,
                           double, char>(text);
  }
}

// Many doubles in one text, each ended by its separator, read in place from
// the buffer but for the last: the values match the std extractor's bit for
// bit, the positions after each and the states at the end.
TEST(TextFormatTest, ManyDoublesAreReadAsTheExtractorReadsThem) {
  std::mt19937_64 random(7);
  std::ostringstream written;
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    if (std::isnan(d)) continue;
    written.precision(i % 3 == 0 ? 17 : 6);
    written << d << (i % 5 == 0 ? "\n" : " ");
  }
  std::istringstream fast_text(written.str()), reference_text(written.str());
  KRListream fast_in(fast_text);
  double fast = 0, reference = 0;
  while (reference_text >> reference) {
    reference_text.get();
    fast_in >> fast;
    ASSERT_EQ(std::memcmp(&fast, &reference, sizeof fast), 0) << fast << " " << reference;
    ASSERT_EQ(fast_text.tellg(), reference_text.tellg());
  }
  fast_in >> fast;
  EXPECT_EQ(fast_text.rdstate(), reference_text.rdstate());
}

}  // namespace
