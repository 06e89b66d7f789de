#include "krlport/streams/istream.h"

#include <limits>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "krlport/frame/corba.h"
#include "krlport/frame/wstring_var.h"
#include "krlport/portable/test_support.h"
#include "krlport/streams/ostream.h"
#include "krlport/streams/stream_test_support.h"

namespace {

template <class T>
void expect_round_trip(const std::vector<T>& values, std::vector<T> expected = {}) {
  if (expected.empty()) expected = values;
  std::stringstream text;
  KRLostream out(text);
  for (T v : values) out << v;
  out.put(values.data(), static_cast<unsigned int>(values.size()));
  KRListream in(text);
  for (T want : expected) {
    T got{};
    in >> got;
    EXPECT_EQ(got, want) << text.str();
  }
  std::vector<T> array(values.size());
  in.get(array.data(), static_cast<unsigned int>(array.size()));
  EXPECT_EQ(array, expected);
  EXPECT_EQ(text.peek(), EOF);
  EXPECT_FALSE(text.fail()) << text.str();
}

TEST(KRListreamTest, ScalarsAndArraysRoundTrip) {
  std::vector<unsigned char> bytes;
  for (int b = 0; b < 256; ++b) bytes.push_back(static_cast<unsigned char>(b));
  expect_round_trip(bytes);
  expect_round_trip<char>({'a', '~', '"', '\x7f'});
  expect_round_trip<short>({-32768, -1, 0, 32767});
  expect_round_trip<unsigned short>({0, 1, 65535});
  expect_round_trip<int>({std::numeric_limits<int>::min(), -5, 0, std::numeric_limits<int>::max()});
  expect_round_trip<unsigned int>({0, 4294967295u});
  expect_round_trip<long>({std::numeric_limits<long>::min(), 0, std::numeric_limits<long>::max()});
  expect_round_trip<unsigned long>({0, std::numeric_limits<unsigned long>::max()});
  expect_round_trip<float>({0.0f, -1.5f, 3.25e-20f, 65504.0f});
  expect_round_trip<double>({0.0, -0.125, 1e300, 2.5e-310, 123457.0});
  expect_round_trip<long long>({123456, -123456, 1234567}, {123456, -123456, 1234570});
  expect_round_trip<unsigned long long>({0, 999999}, {0, 999999});
}

TEST(KRListreamTest, StringsOfEveryByteRoundTrip) {
  std::mt19937 random(20240611);
  std::vector<std::string> strings = {"", "x", "{[]}\\\"\n", std::string(70000, 'L'), ""};
  for (int b = 1; b < 256; ++b) strings.back() += static_cast<char>(b);
  for (int i = 0; i < 200; ++i) {
    std::string s(random() % 300, ' ');
    for (char& c : s) c = static_cast<char>(1 + random() % 255);
    strings.push_back(s);
  }
  std::stringstream text;
  KRLostream out(text);
  out << static_cast<const char*>(nullptr);
  for (const std::string& s : strings) out << s.c_str() << 1;
  KRListream in(text);
  char* got = CORBA::string_dup("old");
  in >> got;
  EXPECT_EQ(got, nullptr);
  for (const std::string& s : strings) {
    int one = 0;
    in >> got >> one;
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(std::string(got) + std::to_string(one), s + "1");
  }
  CORBA::string_free(got);
}

TEST(KRListreamTest, WideStringsAndCharsRoundTrip) {
  const unsigned short text16[] = {'a', 0xD83D, 0xDE00, 0xFFFF, 0};
  std::stringstream text;
  KRLostream out(text);
  out << text16 << static_cast<const unsigned short*>(nullptr) << KRLWChar(text16[1]);
  KRListream in(text);
  CORBA_WString_var first, second;
  unsigned short unit = 0;
  KRLWChar wc(unit);
  in >> first.out() >> second.out() >> wc;
  EXPECT_EQ(compare(first, CORBA_WString_var(text16)), 0);
  EXPECT_EQ(unit, 0xD83D);
  EXPECT_EQ(in.cur_in_offset(), (2 * 5 + 2 * 5 + 1) + (2 + 2 + 1) + 3);
}

TEST(KRListreamTest, ReadingStringsFollowsTheText) {
  struct {
    const char *text, *expected;  // expected null for a null string
    long offset;
    const char* rest;  // what the next read sees
  } const cases[] = {
      {"1 next", "", 4, "next"},
      {"1\"\"\nnext", "", 4 + 1 + 1, "next"},
      {"0 next", nullptr, 5, "next"},
      {"4 \t\n\"abc\"\nnext", "abc", 4 + 1 + 3 + 1, "next"},
      {"4\"a\nb\nc\"\nnext", "abc", 4 + 1 + 5 + 1, "next"},
      {"2\"ab\"\nnext", "ab", 4 + 1 + 2, "next"},  // exact fill: the line feed comes after
      {"3\"\\65;\\[[\"\nX", "A{[", 4 + 1 + 2 + 2 + 1, "X"},
      {"4\"\\x41\\x4g\"\nX", "A\x04", 4 + 1 + 5 + 5 + 1, "X"},
      {"1\"ab\"\nX", "ab", 4 + 1 + 2, "X"},  // sized by the text, not the length
      {"4000000000\"abc\"\nX", "abc", 4 + 1 + 3 + 1, "X"},
  };
  std::ostringstream tied;  // a tied stream takes the std::istream::get() path
  std::ostream* const ties[] = {nullptr, &tied};
  for (const auto& c : cases)
    for (std::ostream* tie : ties) {
      std::istringstream text(c.text);
      text.tie(tie);
      KRListream in(text);
      char* got = nullptr;
      in >> got;
      EXPECT_STREQ(got, c.expected) << c.text;
      EXPECT_EQ(in.cur_in_offset(), c.offset) << c.text;
      std::string rest;
      text >> rest;
      EXPECT_EQ(rest, c.rest) << c.text;
      CORBA::string_free(got);
    }
}

TEST(KRListreamTest, CinTakesOneWordIntoTheCallersBuffer) {
  std::istringstream text("  word rest");
  std::streambuf* old = std::cin.rdbuf(text.rdbuf());
  KRListream in(std::cin);
  char buffer[16] = {};
  char* s = buffer;
  in >> s;
  EXPECT_STREQ(buffer, "word");
  EXPECT_EQ(in.cur_in_offset(), 4);
  char* none = nullptr;
  in >> none;  // no buffer: a failed read, not a crash
  EXPECT_TRUE(std::cin.fail());
  std::cin.rdbuf(old);
  std::cin.clear();
}

TEST(KRListreamTest, RawReadsAndTheirOffsets) {
  std::istringstream text("ab cdefg 7");
  KRListream in(text);
  char c = 0;
  in.get(c);
  EXPECT_EQ(c + in.get(), 'a' + 'b');
  int none[1] = {42};
  in.get(none, 0);  // reads and drops one character
  char four[4];
  in.get(four, 4);
  EXPECT_EQ(std::string(four, 4), "cdef");
  EXPECT_EQ(in.cur_in_offset(), 1 + 4 + 1 + 4);
  EXPECT_EQ(none[0], 42);
}

TEST(KRListreamTest, GetCStringReportsOnCerr) {
  struct Case {
    const char* text;
    unsigned int size;
    const char* message;
  } const cases[] = {
      {"   ", 8, "KRListream::getCString: Unexpected EOF\n"},
      {"x\"", 8,
       "KRListream::getCString: Error reading Object from  stream. Make sure your 'write' "
       "function and constructor from stream are correct\n"},
      {"\"abcd\"\n", 3, "KRListream::getCString: String Overflow\n"},
      {"\"ab", 8, "KRListream::getCString: Unexpected EOF\n"},
      {"\"abc\"\n", 3, ""},
  };
  for (const Case& c : cases) {
    std::istringstream text(c.text);
    KRListream in(text);
    char buf[9] = "........";
    krl_test::Capture err(std::cerr);
    in.getCString(buf, c.size);
    EXPECT_EQ(err.text(), c.message) << c.text;
    if (c.size == 3) {
      EXPECT_EQ(std::string(buf, 4), "abc.") << c.text;  // no terminator
    }
  }
}

// Whatever the bytes, reading every kind of value ends, with defined values.
void read_everything(const std::string& bytes) {
  std::istringstream text(bytes);
  KRListream in(text);
  krl_test::Capture err(std::cerr);
  for (int round = 0; round < 3; ++round) {
    char* s = nullptr;
    unsigned short* w = nullptr;
    int i = 0;
    double d = 0;
    long long ll = 0;
    unsigned char uc = 0;
    short arr[3] = {};
    in >> i >> s >> d >> w >> ll >> uc;
    in.get(arr, 3);
    EXPECT_LE(s == nullptr ? 0 : std::strlen(s), bytes.size());
    CORBA::string_free(s);
    ::operator delete(w);
    text.clear();
  }
}

TEST(KRListreamTest, MalformedTextEndsInDefinedValues) {
  for (const char* bad :
       {"", "-", "4000000000\"abc\"\n", "4294967295 ", "99999999999 1 2 3",
        "99999999999999999999 1 2 3", "18446744073709551615 7", "5\"ab\\", "5\"\\x", "5\"\\q\"",
        "2\"\\", "1e999 -1e999 nan", "3\"\\x\n\"", "70000\"\xff\"\n"}) {
    read_everything(bad);
  }
  std::mt19937 random(7);
  const char alphabet[] = "0123456789 \"\\\n-+.ex[]{}";
  for (int i = 0; i < 3000; ++i) {
    std::string bytes(random() % 40, ' ');
    for (char& c : bytes) c = alphabet[random() % (sizeof alphabet - 1)];
    read_everything(bytes);
  }
}

}  // namespace
