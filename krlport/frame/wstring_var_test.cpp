#include "krlport/frame/wstring_var.h"

#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "krlport/frame/corba.h"

namespace {

const unsigned short kAbc[] = {'a', 'b', 'c', 0};

bool same_text(const unsigned short* a, const unsigned short* b) {
  while (*a != 0 && *a == *b) ++a, ++b;
  return *a == *b;
}

TEST(WStringVarTest, ConstructAssignCopy) {
  CORBA_WString_var nil;
  EXPECT_EQ(nil.in(), nullptr);

  CORBA_WString_var copied(kAbc);
  EXPECT_NE(copied.in(), kAbc);
  EXPECT_TRUE(same_text(copied.in(), kAbc));

  CORBA_WString_var copy(copied);
  EXPECT_NE(copy.in(), copied.in());
  EXPECT_TRUE(same_text(copy.in(), kAbc));

  unsigned short* raw = CORBA::wstring_dup(kAbc);
  CORBA_WString_var adopted(raw);
  EXPECT_EQ(adopted.in(), raw);
  adopted = raw;  // adopting what it holds keeps it
  EXPECT_EQ(adopted.in(), raw);

  copy = copy;  // copy before free
  EXPECT_TRUE(same_text(copy.in(), kAbc));
  copy = static_cast<const unsigned short*>(copy.in() + 1);  // text inside itself
  const unsigned short bc[] = {'b', 'c', 0};
  EXPECT_TRUE(same_text(copy.in(), bc));

  copy = static_cast<const unsigned short*>(nullptr);
  EXPECT_EQ(copy.in(), nullptr);
  CORBA_WString_var copy_of_nil(copy);
  EXPECT_EQ(copy_of_nil.in(), nullptr);
}

TEST(WStringVarTest, OutRetnAndOutHolder) {
  CORBA_WString_var v(kAbc);
  EXPECT_EQ(v.out(), nullptr);
  v.inout() = CORBA::wstring_dup(kAbc);
  unsigned short* taken = v._retn();
  EXPECT_EQ(v.in(), nullptr);
  CORBA::wstring_free(taken);

  CORBA_WString_var held(kAbc);
  {
    CORBA_WString_out out(held);
    EXPECT_EQ(held.in(), nullptr);
    out = CORBA::wstring_dup(kAbc);
    out = CORBA::wstring_dup(kAbc);  // frees the first
  }
  EXPECT_TRUE(same_text(held.in(), kAbc));

  unsigned short* p = held.in() ? held._retn() : nullptr;
  unsigned short* keep = p;
  CORBA_WString_out bound(p);
  EXPECT_EQ(p, nullptr);
  CORBA::wstring_free(keep);
}

TEST(WStringVarTest, CompareAndHash) {
  const unsigned short empty[] = {0}, high[] = {0xE9, 0}, low[] = {'A', 0};
  const CORBA_WString_var nil, e(empty), h(high), l(low), abc(kAbc);
  EXPECT_EQ(compare(nil, nil), 0);
  EXPECT_EQ(compare(nil, e), -1);
  EXPECT_EQ(compare(e, nil), 1);
  EXPECT_EQ(compare(h, l), 1);
  EXPECT_EQ(compare(l, h), -1);
  EXPECT_EQ(compare(abc, CORBA_WString_var(kAbc)), 0);

  EXPECT_EQ(_krl_hash(abc), 0x123UL);  // as the narrow text
  EXPECT_EQ(_krl_hash(nil), 0UL);
  EXPECT_EQ(_krl_hash(e), 0UL);
  const unsigned short ff[] = {0x12FF, 0};  // only the low byte counts, sign-extended
  EXPECT_EQ(_krl_hash(CORBA_WString_var(ff)), 0x7FFFFFFFUL);
}

TEST(WStringVarTest, OstreamWritesUtf8OrNull) {
  const unsigned short text[] = {'h', 0xE9, 0};
  std::ostringstream s;
  s << CORBA_WString_var(text) << '|' << CORBA_WString_var();
  EXPECT_EQ(s.str(), "h\xC3\xA9|(null)");
}

TEST(WCharTest, RefersToTheCharacter) {
  unsigned short c = 'x';
  KRLWChar w(c);
  w.wc() = 'y';
  EXPECT_EQ(c, 'y');
  unsigned short d = 'z';
  KRLWChar other(d);
  w = other;  // copies the address
  w.wc() = 'q';
  EXPECT_EQ(d, 'q');
  EXPECT_EQ(c, 'y');
}

}  // namespace
