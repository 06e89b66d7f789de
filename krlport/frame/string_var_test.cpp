#include "krlport/frame/string_var.h"

#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

namespace {

TEST(StringVarTest, ConstructionStates) {
  CORBA_String_var def;
  EXPECT_STREQ(def.in(), "");

  CORBA_String_var nil(static_cast<char*>(nullptr));
  EXPECT_EQ(nil.in(), nullptr);
  CORBA_String_var nil2(static_cast<const char*>(nullptr));
  EXPECT_EQ(nil2.in(), nullptr);

  char* owned = CORBA::string_dup("adopted");
  CORBA_String_var adopted(owned);
  EXPECT_EQ(adopted.in(), owned);

  const char* text = "copied";
  CORBA_String_var copied(text);
  EXPECT_NE(copied.in(), text);
  EXPECT_STREQ(copied.in(), text);

  // Copies: nil stays nil, the shared empty string becomes a private copy.
  CORBA_String_var copy_of_nil(nil);
  EXPECT_EQ(copy_of_nil.in(), nullptr);
  CORBA_String_var copy_of_default(def);
  EXPECT_NE(copy_of_default.in(), def.in());
  EXPECT_STREQ(copy_of_default.in(), "");
  CORBA_String_var copy_of_copied(copied);
  EXPECT_NE(copy_of_copied.in(), copied.in());
  EXPECT_STREQ(copy_of_copied.in(), "copied");
}

TEST(StringVarTest, AssignmentReusesOwnBufferWhileTextFits) {
  CORBA_String_var v("123456789");  // own buffer of 10 bytes
  const char* buffer = v.in();
  v = "abcdefghi";  // 9 characters fit
  EXPECT_EQ(v.in(), buffer);
  v = "x";
  EXPECT_EQ(v.in(), buffer);
  v = "123456789";  // the capacity stayed at 10, not 2
  EXPECT_EQ(v.in(), buffer);
  v = "abcdefghij";  // 10 characters need 11 bytes
  EXPECT_NE(v.in(), buffer);
  EXPECT_STREQ(v.in(), "abcdefghij");

  CORBA_String_var other("short");
  const char* kept = v.in();
  v = other;  // holder assignment reuses too
  EXPECT_EQ(v.in(), kept);
  EXPECT_STREQ(v.in(), "short");
}

TEST(StringVarTest, UnknownSizeAlwaysReallocates) {
  CORBA_String_var adopted(CORBA::string_dup("long enough text"));
  const char* before = adopted.in();
  adopted = "tiny";
  EXPECT_NE(adopted.in(), before);

  CORBA_String_var v("long enough text");
  before = v.in();
  v.inout();  // the callee may have replaced the string
  v = "tiny";
  EXPECT_NE(v.in(), before);

  CORBA_String_var def;
  def = "";  // the shared empty string is never written
  EXPECT_STREQ(CORBA_String_var().in(), "");
}

TEST(StringVarTest, SelfAndOverlappingAssignmentKeepTheText) {
  CORBA_String_var v("self");
  v = v;
  EXPECT_STREQ(v.in(), "self");

  CORBA_String_var adopted(CORBA::string_dup("adopted text"));
  adopted = static_cast<const char*>(adopted.in() + 8);  // text inside its own adopted buffer
  EXPECT_STREQ(adopted.in(), "text");

  CORBA_String_var own("overlapping");
  own = static_cast<const char*>(own.in() + 4);
  EXPECT_STREQ(own.in(), "lapping");

  char* raw = CORBA::string_dup("same");
  CORBA_String_var holder(raw);
  holder = raw;  // adopting what it holds is not a free
  EXPECT_STREQ(holder.in(), "same");
}

TEST(StringVarTest, OutInoutRetn) {
  CORBA_String_var v("value");
  char*& slot = v.out();
  EXPECT_EQ(slot, nullptr);
  slot = CORBA::string_dup("from callee");
  EXPECT_STREQ(v.in(), "from callee");

  char* taken = v._retn();
  EXPECT_EQ(v.in(), nullptr);
  EXPECT_STREQ(taken, "from callee");
  CORBA::string_free(taken);

  v = static_cast<const char*>(nullptr);
  EXPECT_EQ(v.in(), nullptr);
}

TEST(StringVarTest, IndexReadsAndWritesBytes) {
  CORBA_String_var v("abc");
  v[1UL] = 'X';
  v[2] = 'Y';
  const CORBA_String_var& cv = v;
  EXPECT_EQ(cv[0UL], 'a');
  EXPECT_EQ(cv[1], 'X');
  EXPECT_STREQ(v.in(), "aXY");
}

TEST(StringOutTest, BindsAndReleases) {
  char* p = CORBA::string_dup("not freed by binding");
  char* keep = p;
  {
    CORBA_String_out out(p);
    EXPECT_EQ(p, nullptr);
    out = CORBA::string_dup("first");
    out = CORBA::string_dup("second");  // frees "first"
    CORBA_String_out copy(out);
    EXPECT_STREQ(copy.ptr(), "second");
  }
  EXPECT_STREQ(p, "second");
  CORBA::string_free(p);
  CORBA::string_free(keep);

  CORBA_String_var v("released at once");
  {
    CORBA_String_out out(v);
    EXPECT_EQ(v.in(), nullptr);  // nil even if the callee never assigns
  }
  EXPECT_EQ(v.in(), nullptr);
  {
    CORBA_String_out out(v);
    static_cast<char*&>(out) = CORBA::string_dup("filled");
  }
  EXPECT_STREQ(v.in(), "filled");
}

TEST(StringVarTest, OstreamWritesTextOrNull) {
  std::ostringstream s;
  s << CORBA_String_var() << '|' << CORBA_String_var(static_cast<char*>(nullptr)) << '|'
    << CORBA_String_var("text");
  EXPECT_EQ(s.str(), "|(null)|text");
}

}  // namespace
