#include "krlport/exceptions/system_exception.h"

#include <gtest/gtest.h>

#include <iterator>

#include "krlport/exceptions/user_exception.h"

namespace {

TEST(SystemExceptionTest, MinorBelow4096GetsTheStandardSetId) {
  const unsigned long cases[][2] = {
      {0, 0x4F4D0000UL}, {4095, 0x4F4D0FFFUL}, {4096, 4096}, {0x4F4D0001UL, 0x4F4D0001UL}};
  for (const auto& c : cases) {
    CORBA_BAD_PARAM e(c[0], CORBA::COMPLETED_NO, "x");
    EXPECT_EQ(c[1], e.minor());
    e.minor(c[0]);
    EXPECT_EQ(c[1], e.minor());
  }
}

TEST(SystemExceptionTest, CopyConstructorKeepsTheExplanationDeepCopyDropsIt) {
  EXPECT_STREQ("", CORBA_TIMEOUT().explanation());
  EXPECT_EQ(nullptr, CORBA_TIMEOUT(1, CORBA::COMPLETED_NO, nullptr).explanation());
  const CORBA_TIMEOUT original(77, CORBA::COMPLETED_MAYBE, "slow peer");
  EXPECT_STREQ("slow peer", CORBA_TIMEOUT(original).explanation());
  CORBA_Exception_var deep(original._deep_copy());
  const CORBA_TIMEOUT* d = CORBA_TIMEOUT::_downcast(deep);
  ASSERT_NE(nullptr, d);
  EXPECT_EQ(0x4F4D004DUL, d->minor());
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, d->completed());
  EXPECT_STREQ("", d->explanation());
}

// Ownership faults (double delete, use after free, leak) show under ASan.
TEST(ExceptionVarTest, CopiesAreIndependentAndSelfAssignmentKeepsTheObject) {
  CORBA_Exception_var a(new CORBA_NO_RESOURCES(12, CORBA::COMPLETED_MAYBE));
  CORBA_Exception_var b(a);
  CORBA_Exception_var c(new CORBA_MARSHAL());
  c = b;  // frees the MARSHAL
  a = static_cast<CORBA_Exception*>(nullptr);
  CORBA_Exception* held = b;
  EXPECT_NE(held, static_cast<CORBA_Exception*>(c));
  const CORBA_NO_RESOURCES* copy = CORBA_NO_RESOURCES::_downcast(c);
  ASSERT_NE(nullptr, copy);
  EXPECT_EQ(0x4F4D000CUL, copy->minor());
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, copy->completed());

  CORBA_Exception_var& alias = b;
  b = alias;
  b = held;
  EXPECT_EQ(held, static_cast<CORBA_Exception*>(b));
  EXPECT_STREQ("CORBA::NO_RESOURCES", b->_name());
  c = CORBA_Exception_var();
  EXPECT_EQ(nullptr, static_cast<CORBA_Exception*>(c));
}

// How many of C's two _downcast overloads give back e, plus one if e raises
// (through a base pointer) as a C.
template <class C>
int as_own(CORBA_Exception* e) {
  int n =
      int{C::_downcast(e) == e} + int{C::_downcast(static_cast<const CORBA_Exception*>(e)) == e};
  try {
    if (e != nullptr) e->_raise();
  } catch (C&) {
    ++n;
  } catch (...) {
  }
  return n;
}

// The 36 standard classes, from the list that declares them, and KRLRemarshal.
struct Row {
  const CORBA_Exception::Description* desc;
  int (*as_own)(CORBA_Exception*);
  bool system;
};
#define KRL_SYSTEM_EXCEPTION(NAME) {&CORBA_##NAME::_description, &as_own<CORBA_##NAME>, true},
const Row kRows[] = {
#include "krlport/exceptions/system_exception_list.inc"
    {&KRLRemarshal::_description, &as_own<KRLRemarshal>, false}};
#undef KRL_SYSTEM_EXCEPTION

TEST(ExceptionFamilyTest, EachClassIsMadeCopiedCastAndRaisedAsItselfOnly) {
  ASSERT_EQ(37u, std::size(kRows));
  for (const Row& r : kRows) {
    SCOPED_TRACE(r.desc->name());
    EXPECT_EQ(2, r.as_own(nullptr));
    CORBA_Exception_var made(r.desc->factory()());
    CORBA_Exception_var copy(made);
    EXPECT_EQ(3, r.as_own(copy));
    CORBA_Exception* e = made;
    EXPECT_EQ(r.system ? e : nullptr, CORBA_SystemException::_downcast(e));
    EXPECT_EQ(r.system ? nullptr : e, CORBA_UserException::_downcast(e));
    EXPECT_TRUE(e->_desc().can_cast(CORBA_Exception::_description));
    EXPECT_FALSE(CORBA_SystemException::_description.can_cast(*r.desc));
    for (const Row& other : kRows) {
      const bool same = &r == &other;
      EXPECT_EQ(same, e->_desc().can_cast(*other.desc) != 0) << other.desc->name();
      EXPECT_EQ(same ? 3 : 0, other.as_own(e)) << other.desc->name();
    }
  }
}

}  // namespace
