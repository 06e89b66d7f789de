#include "krlport/streams/string_stream_ops.h"

#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"
#include "krlport/frame/alloc_test_support.h"
#include "krlport/streams/stream_test_support.h"

// The allocations are counted, to see a holder keep its buffer, and every
// one above 256 MiB fails, so that a buffer sized by a declared length alone
// shows as std::bad_alloc in every build.
static const bool g_limited = (krl_test::Allocations::fail_above = std::size_t{256} << 20, true);

namespace {

// Reads one holder from a derived stream that delivers length and bytes.
int allocations_for(CORBA_String_var& v, const std::string& bytes) {
  krl_test::QueueIstream in;
  in.lengths = {static_cast<unsigned long>(bytes.size())};
  in.bytes = bytes;
  const long before = krl_test::Allocations::news;
  in >> v;
  return static_cast<int>(krl_test::Allocations::news - before);
}

// The last byte used to be overwritten with a terminator: length 3 with "abc"
// gave "ab".
TEST(StringHolderStreamTest, BytesWithoutTerminatorAreAllKept) {
  CORBA_String_var v;
  EXPECT_EQ(allocations_for(v, "abc"), 1);
  EXPECT_STREQ(v, "abc");
  EXPECT_EQ(allocations_for(v, "xyz"), 0);  // 4 bytes: room for the terminator
  EXPECT_STREQ(v, "xyz");
  EXPECT_EQ(allocations_for(v, "wxyz"), 1);  // exactly full: one byte more
  EXPECT_STREQ(v, "wxyz");
  const std::string big(70000, 'q');  // the path for lengths not trusted at once
  allocations_for(v, big);
  EXPECT_TRUE(std::string(v) == big);
}

TEST(StringHolderStreamTest, ZeroLengthIsNilOrMarshalError) {
  CORBA_String_var v("kept");
  EXPECT_EQ(allocations_for(v, ""), 0);
  EXPECT_EQ(static_cast<const char*>(v), nullptr);
  EXPECT_EQ(allocations_for(v, std::string("a\0", 2)), 1);  // nil holds no buffer

  CORBA_String_var::allowing_null_string(0);
  EXPECT_THROW(allocations_for(v, ""), CORBA_MARSHAL);
  CORBA_String_var::allowing_null_string(1);
  EXPECT_STREQ(v, "a");
}

TEST(StringHolderStreamTest, DeclaredLengthBeyondTheDataAllocatesNoBuffer) {
  CORBA_String_var v("kept");
  krl_test::QueueIstream in;
  in.lengths = {3000000000UL};
  in.bytes = std::string(100000, 'z');
  EXPECT_THROW(in >> v, CORBA_MARSHAL);
  EXPECT_STREQ(v, "kept");
  in.lengths = {70001};
  in.next_length = in.next_byte = 0;
  in >> v;
  EXPECT_TRUE(std::string(v) == std::string(70001, 'z'));
}

TEST(StringHolderStreamTest, TextStreamsRoundTripHolders) {
  std::stringstream text;
  KRLostream out(text);
  const unsigned short hello[] = {'h', 0x00E9, 0};
  out << CORBA_String_var("one") << CORBA_WString_var(hello) << CORBA_WString_var();
  KRListream in(text);
  CORBA_String_var narrow("an old text that is long");
  CORBA_WString_var wide(hello), empty(hello);
  in >> narrow >> wide >> empty;
  EXPECT_STREQ(narrow, "one");
  EXPECT_EQ(compare(wide, CORBA_WString_var(hello)), 0);
  EXPECT_EQ(empty[0UL], 0);
  // A text read leaves no known size: the next derived read allocates anew.
  EXPECT_EQ(allocations_for(narrow, std::string("a\0", 2)), 1);
}

// A derived stream used to allocate (and zero) what its declared length said:
// 3 GB for ten characters of text, 6 GB for a wide string.
TEST(DerivedStreamTest, DeclaredLengthIsNeverTrustedForMemory) {
  struct TextSubclass : KRListream {
    explicit TextSubclass(std::istream& s) : KRListream(s) {}
    int _type_number() override { return 1; }
  };
  // The wide count, a lie as well, takes in everything behind it.
  std::istringstream text("3000000000\"abcdefgh\"\n4000000000\"xy\"\n3000000000 97 98 0 ");
  TextSubclass in(text);
  char* narrow = nullptr;
  unsigned short* wide = nullptr;
  CORBA_String_var holder;
  in >> narrow >> holder >> wide;
  EXPECT_STREQ(narrow, "abcdefgh");
  const unsigned short ab[] = {97, 98, 0};
  EXPECT_EQ(std::memcmp(wide, ab, sizeof ab), 0);
  EXPECT_STREQ(holder, "xy");
  CORBA::string_free(narrow);
  ::operator delete(wide);

  // No text behind it: a binary stream that runs dry quietly says so.
  krl_test::QueueIstream binary;
  binary.quiet = true;
  binary.lengths = {3000000000UL};
  binary.bytes = "ten bytes!";
  CORBA_String_var kept("kept");
  EXPECT_THROW(binary >> kept, CORBA_MARSHAL);
  EXPECT_STREQ(kept, "kept");
}

}  // namespace
