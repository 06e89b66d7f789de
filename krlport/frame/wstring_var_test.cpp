#include "krlport/frame/wstring_var.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

const unsigned short kAbc[] = {'a', 'b', 'c', 0};

std::u16string text(const unsigned short* s) {
  std::u16string out;
  for (; s != nullptr && *s != 0; ++s) out += static_cast<char16_t>(*s);
  return out;
}

TEST(WStringVarTest, CopyAdoptAndSelfAssign) {
  EXPECT_EQ(CORBA_WString_var().in(), nullptr);
  CORBA_WString_var copied(kAbc);
  EXPECT_NE(copied.in(), kAbc);
  EXPECT_EQ(text(copied.in()), u"abc");
  CORBA_WString_var copy(copied);
  EXPECT_NE(copy.in(), copied.in());

  unsigned short* raw = CORBA::wstring_dup(kAbc);
  CORBA_WString_var adopted(raw);
  adopted = raw;  // adopting what it holds keeps it
  EXPECT_EQ(adopted.in(), raw);

  copy = copy;  // copies before it frees
  EXPECT_EQ(text(copy.in()), u"abc");
  copy = static_cast<const unsigned short*>(copy.in() + 1);  // text inside itself
  EXPECT_EQ(text(copy.in()), u"bc");
  copy = static_cast<const unsigned short*>(nullptr);
  EXPECT_EQ(copy.in(), nullptr);
}

TEST(WStringVarTest, OutHolderFreesAtOnce) {
  CORBA_WString_var held(kAbc);
  {
    CORBA_WString_out out(held);
    EXPECT_EQ(held.in(), nullptr);
    out = CORBA::wstring_dup(kAbc);
    out = CORBA::wstring_dup(kAbc);  // frees the first
  }
  EXPECT_EQ(text(held.in()), u"abc");
  unsigned short* taken = held._retn();
  EXPECT_EQ(held.in(), nullptr);
  CORBA::wstring_free(taken);
}

TEST(WStringVarTest, CompareHashAndOstream) {
  const unsigned short empty[] = {0}, high[] = {0xE9, 0}, low[] = {'A', 0}, ff[] = {0x12FF, 0};
  const CORBA_WString_var nil, e(empty), h(high), l(low), abc(kAbc);
  EXPECT_EQ(compare(nil, nil), 0);
  EXPECT_EQ(compare(nil, e), -1);
  EXPECT_EQ(compare(e, nil), 1);
  EXPECT_EQ(compare(h, l), 1);
  EXPECT_EQ(compare(abc, CORBA_WString_var(kAbc)), 0);
  EXPECT_EQ(_krl_hash(abc), 0x123UL);  // as the narrow text
  EXPECT_EQ(_krl_hash(e), 0UL);
  EXPECT_EQ(_krl_hash(CORBA_WString_var(ff)), 0x7FFFFFFFUL);  // low byte, sign-extended

  std::ostringstream s;
  s << CORBA_WString_var(high) << '|' << nil;
  EXPECT_EQ(s.str(), "\xC3\xA9|(null)");
}

TEST(WCharTest, CopiesTheAddressNotTheCharacter) {
  unsigned short c = 'x', d = 'z';
  KRLWChar w(c), other(d);
  w.wc() = 'y';
  w = other;
  w.wc() = 'q';
  EXPECT_EQ(c, 'y');
  EXPECT_EQ(d, 'q');
}

}  // namespace
