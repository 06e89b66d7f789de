#include "krlport/frame/string_var.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

TEST(StringVarTest, ConstructionAndCopyStates) {
  CORBA_String_var def, nil(static_cast<char*>(nullptr));
  EXPECT_STREQ(def.in(), "");
  EXPECT_EQ(CORBA::is_nil(def.in()), 0);
  EXPECT_EQ(nil.in(), nullptr);
  EXPECT_EQ(CORBA::is_nil(nil.in()), 1);
  char* owned = CORBA::string_dup("adopted");
  EXPECT_EQ(CORBA_String_var(owned).in(), owned);  // adopts, and frees at its end

  const char* text = "copied";
  CORBA_String_var copied(text);
  EXPECT_NE(copied.in(), text);
  EXPECT_STREQ(copied.in(), text);
  // Copies: nil stays nil, the shared empty string becomes a private copy.
  EXPECT_EQ(CORBA_String_var(nil).in(), nullptr);
  CORBA_String_var copy_of_default(def);
  EXPECT_NE(copy_of_default.in(), def.in());
  EXPECT_STREQ(copy_of_default.in(), "");
}

TEST(StringVarTest, AssignmentReusesOwnBufferWhileTextFits) {
  CORBA_String_var v("123456789");  // own buffer of 10 bytes
  const char* buffer = v.in();
  v = "x";
  v = "abcdefghi";  // the capacity stayed at 10, not 2
  EXPECT_EQ(v.in(), buffer);
  v = "abcdefghij";  // 10 characters need 11 bytes
  EXPECT_NE(v.in(), buffer);
  EXPECT_STREQ(v.in(), "abcdefghij");
  const char* kept = v.in();
  v = CORBA_String_var("short");  // holder assignment reuses too
  EXPECT_EQ(v.in(), kept);

  // Unknown size: adopted, or after inout(), a new buffer every time.
  CORBA_String_var adopted(CORBA::string_dup("long enough text"));
  const char* before = adopted.in();
  adopted = "tiny";
  EXPECT_NE(adopted.in(), before);
  before = v.in();
  v.inout();
  v = "s";
  EXPECT_NE(v.in(), before);
}

TEST(StringVarTest, SelfAndOverlappingAssignmentKeepTheText) {
  CORBA_String_var v("self");
  v = v;
  EXPECT_STREQ(v.in(), "self");
  CORBA_String_var adopted(CORBA::string_dup("adopted text"));
  adopted = static_cast<const char*>(adopted.in() + 8);  // inside a buffer of unknown size
  EXPECT_STREQ(adopted.in(), "text");
  CORBA_String_var own("overlapping");
  own = static_cast<const char*>(own.in() + 4);
  EXPECT_STREQ(own.in(), "lapping");
  char* raw = CORBA::string_dup("same");
  CORBA_String_var holder(raw);
  holder = raw;  // adopting what it holds is not a free
  EXPECT_STREQ(holder.in(), "same");
}

TEST(StringVarTest, OutInoutRetnAndOutHolder) {
  CORBA_String_var v("value");
  char*& slot = v.out();
  EXPECT_EQ(slot, nullptr);
  slot = CORBA::string_dup("from callee");
  char* taken = v._retn();
  EXPECT_EQ(v.in(), nullptr);
  EXPECT_STREQ(taken, "from callee");

  char* p = taken;
  {
    CORBA_String_out out(p);  // nulls p without freeing
    EXPECT_EQ(p, nullptr);
    out = CORBA::string_dup("first");
    out = CORBA::string_dup("second");  // frees "first"
  }
  EXPECT_STREQ(p, "second");
  CORBA::string_free(p);
  CORBA::string_free(taken);

  CORBA_String_var held("released at once");
  {
    CORBA_String_out out(held);
    EXPECT_EQ(held.in(), nullptr);  // nil even if the callee never assigns
  }
  EXPECT_EQ(held.in(), nullptr);
}

TEST(StringVarTest, IndexAndOstream) {
  CORBA_String_var v("abc");
  v[1UL] = 'X';
  v[2] = 'Y';
  EXPECT_STREQ(v.in(), "aXY");
  std::ostringstream s;
  s << CORBA_String_var() << '|' << CORBA_String_var(static_cast<char*>(nullptr)) << '|' << v;
  EXPECT_EQ(s.str(), "|(null)|aXY");
}

}  // namespace
