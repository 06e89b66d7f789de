#include "krlport/streams/ostream.h"

#include <climits>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "krlport/frame/wstring_var.h"
#include "krlport/portable/test_support.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/offset_table.h"
#include "krlport/streams/stream_test_support.h"

namespace {

struct TextCase {
  const char* name;
  std::function<void(KRLostream&)> write;
  std::string text;
  long offset;
};

TEST(KRLostreamTest, TextAndOffsetOfEveryOperation) {
  static const unsigned short wide[] = {'h', 'i', 0};
  static const int ints[] = {1, -2, 3};
  static const double doubles[] = {0.25, -1e-7};
  static const long long big[] = {123456, 1234567};
  const TextCase cases[] = {
      {"chars",
       [](KRLostream& s) { s << 'A' << static_cast<unsigned char>('A') << KRLWChar(wide[0]); },
       "A 65 104 ", 2 + 2 + 3},
      {"integers",  // long is 64 bits on Linux, 32 on Windows
       [](KRLostream& s) {
         s << static_cast<short>(-32768) << static_cast<unsigned short>(65535) << -7 << 4294967295u
           << -LONG_MAX << ULONG_MAX;
       },
       "-32768 65535 -7 4294967295 " + std::to_string(-LONG_MAX) + " " + std::to_string(ULONG_MAX) +
           " ",
       3 + 3 + 4 * 5},
      {"floating and 64-bit", [](KRLostream& s) { s << 0.1f << 1.0 / 3 << 1234567LL << 123456ULL; },
       "0.1 0.333333 1.23457e+06 123456 ", 5 + 3 * 9},
      {"null and empty string", [](KRLostream& s) { s << static_cast<const char*>(nullptr) << ""; },
       "0 1 ", 5 + 5},
      {"endl", [](KRLostream& s) { s << 1 << endl; }, "1 \n", 5},
      {"sequence", [](KRLostream& s) { s << 7 << "hi" << 1.5; }, "7 3\"hi\"\n1.5 ", 23},
      {"escapes", [](KRLostream& s) { s << "a{[]}\b\t\n\f\r\"\\\x01\x7f\xff"; },
       "16\"a\\[[]\\]\\b\\t\\n\\f\\r\\\"\\\\\\x01\\x7f\\xff\"\n", 4 + 3 + 1 + 6 + 7 * 2 + 3 * 4},
      {"wide strings",
       [](KRLostream& s) { s << wide << static_cast<const unsigned short*>(nullptr); },
       "3 104 105 0 1 0 ", (2 * 3 + 2 + 3 * 3) + (2 + 2 + 3)},
      {"arrays", [](KRLostream& s) { s.put(ints, 3).put(doubles, 2).put(big, 2); },
       "1 -2 3 0.25 -1e-07 123456 1.23457e+06 ", 15 + 18 + 18},
      {"wcbuf and empty arrays",
       [](KRLostream& s) { s.put_wcbuf(wide, 2).put(ints, 0).put(doubles, 0).put("ab", 0); },
       "104 105 ", 6},
      {"raw bytes", [](KRLostream& s) { s.put('\0').put("a\nb", 3); }, std::string("\0a\nb", 4), 4},
  };
  for (const TextCase& c : cases) {
    std::ostringstream text;
    KRLostream s(text);
    c.write(s);
    EXPECT_EQ(text.str(), c.text) << c.name;
    EXPECT_EQ(s.cur_out_offset(), c.offset) << c.name;
  }
}

TEST(KRLostreamTest, StreamsKeepAndUseTheCallersFormatState) {
  std::ostringstream text;
  text << std::hex << std::showbase;
  text.precision(3);
  KRLostream s(text);
  s << 255 << 3.14159 << static_cast<unsigned char>(16);
  EXPECT_EQ(text.str(), "0xff 3.14 0x10 ");
  EXPECT_TRUE(text.flags() & std::ios_base::hex);
  EXPECT_EQ(text.precision(), 3);
  std::istringstream in("ff 10 ");  // input likewise
  int a = 0, b = 0;
  KRListream(in >> std::hex) >> a >> b;
  EXPECT_EQ(a, 255);
  EXPECT_EQ(b, 16);
}

TEST(KRLostreamTest, CoutAndCerrTakeStringsPlain) {
  for (std::ostream* plain : {&std::cout, &std::cerr}) {
    krl_test::Capture out(*plain);
    KRLostream s(*plain);
    s << "hello"
      << "" << 5;
    EXPECT_EQ(out.text(), "hello5 ");
    EXPECT_EQ(s.cur_out_offset(), 6 + 1 + 5);
  }
}

TEST(KRLostreamTest, EndlReachesADerivedStreamAsAString) {
  krl_test::RecordingOstream derived;
  derived << endl << 9UL;
  EXPECT_EQ(derived.calls, (std::vector<std::string>{"str:\n", "ulong:9"}));
}

TEST(KRLostreamTest, TablesAreFoundSharedCopiedOnceClearedAndReleased) {
  std::ostringstream text;
  auto* values = new KRLOffsetTable(KRLOffsetTable::ValueIndirections, nullptr);
  auto* strings = new KRLOffsetTable(KRLOffsetTable::StringIndirections, nullptr);
  auto* values2 = new KRLOffsetTable(KRLOffsetTable::ValueIndirections, nullptr);
  auto* rep_ids = new KRLOffsetTable(KRLOffsetTable::RepIdsIndirections, nullptr);
  std::istringstream text_in;
  int object = 0;
  {
    KRLostream first(text);
    first.set_out_table(KRLOffsetTable::StringIndirections, values);  // kind not looked at
    first.set_out_table(0, strings);
    first.set_out_table(0, values2);
    EXPECT_EQ(first.get_out_table(KRLOffsetTable::ValueIndirections), values);
    EXPECT_EQ(first.get_out_table(KRLOffsetTable::StringIndirections), strings);
    KRLostream second(text);
    second.copy_out_tables(KRLostream(text));  // from a stream without tables
    second.copy_out_tables(first);
    try {
      second.copy_out_tables(first);
      ADD_FAILURE() << "a second copy must throw";
    } catch (const CORBA_BAD_INV_ORDER& e) {
      EXPECT_EQ(e.minor(), 0x4F4D0004UL);
      EXPECT_EQ(e.completed(), CORBA::COMPLETED_MAYBE);
    }
    values->add(12, &object);
    first << 1;
    first.reset();  // clears the shared tables for both
    EXPECT_EQ(second.get_out_table(KRLOffsetTable::ValueIndirections), values);
    EXPECT_EQ(values->offset_of(&object), -1);
    KRLOffsetTable::_duplicate(values);

    KRListream in(text_in), in2(text_in);  // the input side likewise
    in.set_in_table(0, rep_ids);
    in2.copy_in_tables(in);
    EXPECT_EQ(in2.get_in_table(KRLOffsetTable::RepIdsIndirections), rep_ids);
    EXPECT_THROW(in2.copy_in_tables(in), CORBA_BAD_INV_ORDER);
    KRLOffsetTable::_duplicate(rep_ids);
  }
  EXPECT_EQ(values->_unref(), 0);  // the streams gave theirs back
  EXPECT_EQ(rep_ids->_unref(), 0);
}

}  // namespace
