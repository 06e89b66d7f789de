#include "krlport/streams/ostream.h"

#include <functional>
#include <iostream>
#include <sstream>

#include <gtest/gtest.h>

#include "krlport/frame/wstring_var.h"
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
      {"char", [](KRLostream& s) { s << 'A'; }, "A ", 2},
      {"uchar", [](KRLostream& s) { s << static_cast<unsigned char>('A'); }, "65 ", 2},
      {"short", [](KRLostream& s) { s << static_cast<short>(-32768); }, "-32768 ", 3},
      {"ushort", [](KRLostream& s) { s << static_cast<unsigned short>(65535); }, "65535 ", 3},
      {"int", [](KRLostream& s) { s << -7; }, "-7 ", 5},
      {"uint", [](KRLostream& s) { s << 4294967295u; }, "4294967295 ", 5},
      {"long", [](KRLostream& s) { s << -9223372036854775807L; }, "-9223372036854775807 ", 5},
      {"ulong", [](KRLostream& s) { s << 18446744073709551615UL; }, "18446744073709551615 ", 5},
      {"float", [](KRLostream& s) { s << 0.1f; }, "0.1 ", 5},
      {"double", [](KRLostream& s) { s << 1.0 / 3; }, "0.333333 ", 9},
      {"int64", [](KRLostream& s) { s << 1234567LL; }, "1.23457e+06 ", 9},
      {"uint64", [](KRLostream& s) { s << 123456ULL; }, "123456 ", 9},
      {"wchar", [](KRLostream& s) { s << KRLWChar(wide[0]); }, "104 ", 3},
      {"null string", [](KRLostream& s) { s << static_cast<const char*>(nullptr); }, "0 ", 5},
      {"empty string", [](KRLostream& s) { s << ""; }, "1 ", 5},
      {"one char", [](KRLostream& s) { s << "x"; }, "2\"x\"\n", 8},
      {"sequence", [](KRLostream& s) { s << 7 << "hi" << 1.5; }, "7 3\"hi\"\n1.5 ", 23},
      {"braces", [](KRLostream& s) { s << "{[]}"; }, "5\"\\[[]\\]\"\n", 4 + 3 + 2 + 1 + 1 + 2},
      {"two-char escapes", [](KRLostream& s) { s << "\b\t\n\f\r\"\\"; },
       "8\"\\b\\t\\n\\f\\r\\\"\\\\\"\n", 4 + 3 + 7 * 2},
      {"hex escapes",
       [](KRLostream& s) {
         s << "\x01\x7f\xff"
              "a";
       },
       "5\"\\x01\\x7f\\xffa\"\n", 4 + 3 + 3 * 4 + 1},
      {"putCString alone", [](KRLostream& s) { s.putCString("q"); }, "\"q\"\n", 4},
      {"wide string", [](KRLostream& s) { s << wide; }, "3 104 105 0 ", 2 * 3 + 2 + 3 * 3},
      {"null wide", [](KRLostream& s) { s << static_cast<const unsigned short*>(nullptr); }, "1 0 ",
       2 + 2 + 3},
      {"int array", [](KRLostream& s) { s.put(ints, 3); }, "1 -2 3 ", 15},
      {"double array", [](KRLostream& s) { s.put(doubles, 2); }, "0.25 -1e-07 ", 18},
      {"int64 array", [](KRLostream& s) { s.put(big, 2); }, "123456 1.23457e+06 ", 18},
      {"wcbuf", [](KRLostream& s) { s.put_wcbuf(wide, 2); }, "104 105 ", 6},
      {"empty arrays", [](KRLostream& s) { s.put(ints, 0).put(doubles, 0).put("ab", 0); }, "", 0},
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

TEST(KRLostreamTest, KeepsTheCallersFormatState) {
  std::ostringstream text;
  text << std::hex << std::showbase;
  text.precision(3);
  KRLostream s(text);
  s << 255 << 3.14159 << static_cast<unsigned char>(16);
  EXPECT_EQ(text.str(), "0xff 3.14 0x10 ");
  EXPECT_TRUE(text.flags() & std::ios_base::hex);
  EXPECT_EQ(text.precision(), 3);
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

TEST(KRLostreamTest, EndlFlushesTextOrReachesDerivedStream) {
  std::ostringstream text;
  KRLostream s(text);
  s << 1 << endl;
  EXPECT_EQ(text.str(), "1 \n");
  EXPECT_EQ(s.cur_out_offset(), 5);
  krl_test::RecordingOstream derived;
  derived << endl << 9UL;
  EXPECT_EQ(derived.calls, (std::vector<std::string>{"str:\n", "ulong:9"}));
  EXPECT_TRUE(derived.copy_has_no_ostream());
}

TEST(KRLostreamTest, TablesAreFoundSharedClearedAndReleased) {
  std::ostringstream text;
  auto* values = new KRLOffsetTable(KRLOffsetTable::ValueIndirections, nullptr);
  auto* strings = new KRLOffsetTable(KRLOffsetTable::StringIndirections, nullptr);
  auto* values2 = new KRLOffsetTable(KRLOffsetTable::ValueIndirections, nullptr);
  int object = 0;
  {
    KRLostream first(text);
    EXPECT_EQ(first.get_out_table(KRLOffsetTable::ValueIndirections), nullptr);
    first.set_out_table(KRLOffsetTable::StringIndirections, values);  // kind not looked at
    first.set_out_table(0, strings);
    first.set_out_table(0, values2);
    EXPECT_EQ(first.get_out_table(KRLOffsetTable::ValueIndirections), values);
    EXPECT_EQ(first.get_out_table(KRLOffsetTable::StringIndirections), strings);
    EXPECT_EQ(first.get_out_table(KRLOffsetTable::RepIdsIndirections), nullptr);

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
    EXPECT_EQ(values->_num_refs(), 2);

    values->add(12, &object);
    first << 1;
    first.reset();  // clears the shared tables for both
    EXPECT_EQ(second.get_out_table(KRLOffsetTable::ValueIndirections), values);
    EXPECT_EQ(values->offset_of(&object), -1);
    EXPECT_EQ(first.cur_out_offset(), 0);
    KRLOffsetTable::_duplicate(values);
  }
  EXPECT_EQ(values->_num_refs(), 1);  // both streams gave theirs back
  EXPECT_EQ(values->_unref(), 0);
}

}  // namespace
