#include "krlport/exceptions/exception.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <sstream>

#include "krlport/exceptions/description_test_peer.h"
#include "krlport/exceptions/registry.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/exceptions/user_exception.h"

namespace {

using Description = CORBA_Exception::Description;

// A user exception as generated code would write it, counting its live
// objects so that ownership mistakes show up as a wrong count. Its description
// lives only while a test of CountedErrorTest runs, so that the registry holds
// nothing of the tests between them.
class CountedError : public CORBA_UserException {
 public:
  CountedError() { ++live; }
  CountedError(const CountedError& e) : CORBA_UserException(e) { ++live; }
  ~CountedError() override { --live; }

  const Description& _desc() const override { return *description; }
  void _raise() const override { throw *this; }
  CORBA_Exception* _deep_copy() override { return new CountedError(*this); }

  static CORBA_Exception* _factory() { return new CountedError(); }
  static CountedError* _downcast(CORBA_Exception* e) {
    return e != nullptr && e->_desc().can_cast(*description) ? static_cast<CountedError*>(e)
                                                             : nullptr;
  }

  static const Description* description;
  static int live;
};
const Description* CountedError::description = nullptr;
int CountedError::live = 0;

class CountedErrorTest : public testing::Test {
 protected:
  void SetUp() override { CountedError::description = &description_; }
  void TearDown() override {
    CountedError::description = nullptr;
    EXPECT_EQ(0, CountedError::live);
  }

  const Description description_{"CountedError", "IDL:test/CountedError:1.0",
                                 &CountedError::_factory, &CORBA_UserException::_description,
                                 nullptr};
};

TEST_F(CountedErrorTest, DescriptionAccessorsGiveTheFieldsAndSetTypeCodeStores) {
  const Description& d = description_;
  EXPECT_STREQ("CountedError", d.name());
  EXPECT_STREQ("IDL:test/CountedError:1.0", d.repository_id());
  EXPECT_EQ(&CountedError::_factory, d.factory());
  EXPECT_EQ(&CORBA_UserException::_description, krl_internal::DescriptionTestPeer::base(d));
  EXPECT_EQ(nullptr, d.typeCode());

  Description local("Local", "IDL:test/DescriptionTest/Local:1.0", nullptr, nullptr, nullptr);
  const CORBA_TypeCode* tc = reinterpret_cast<const CORBA_TypeCode*>(&local);
  local.set_typeCode(tc);
  EXPECT_EQ(tc, local.typeCode());
}

TEST_F(CountedErrorTest, CanCastFollowsTheBaseChainByAddress) {
  const Description& bad_param = CORBA_BAD_PARAM::_description;
  EXPECT_TRUE(bad_param.can_cast(bad_param));
  EXPECT_TRUE(bad_param.can_cast(CORBA_SystemException::_description));
  EXPECT_TRUE(bad_param.can_cast(CORBA_Exception::_description));
  EXPECT_FALSE(bad_param.can_cast(CORBA_MARSHAL::_description));          // sibling
  EXPECT_FALSE(bad_param.can_cast(CORBA_UserException::_description));    // other branch
  EXPECT_FALSE(CORBA_SystemException::_description.can_cast(bad_param));  // derived
  EXPECT_FALSE(CORBA_Exception::_description.can_cast(CORBA_SystemException::_description));

  const Description& counted = description_;
  EXPECT_TRUE(counted.can_cast(CORBA_UserException::_description));
  EXPECT_TRUE(counted.can_cast(CORBA_Exception::_description));
  EXPECT_FALSE(counted.can_cast(KRLRemarshal::_description));
  EXPECT_FALSE(CORBA_UserException::_description.can_cast(counted));

  // Same name as BAD_PARAM, but another object: not the same class.
  Description twin("CORBA::BAD_PARAM", "IDL:test/DescriptionTest/Twin:1.0", nullptr,
                   &CORBA_SystemException::_description, nullptr);
  EXPECT_FALSE(bad_param.can_cast(twin));
  EXPECT_FALSE(twin.can_cast(bad_param));
  EXPECT_TRUE(twin.can_cast(CORBA_Exception::_description));
}

TEST(DescriptionTest, CopyAndAssignmentCopyAllFiveFields) {
  static const char kOriginalId[] = "IDL:test/DescriptionTest/Original:1.0";
  static const char kOtherId[] = "IDL:test/DescriptionTest/Other:1.0";
  Description original("Original", kOriginalId, &CountedError::_factory,
                       &CORBA_UserException::_description, nullptr);
  const CORBA_TypeCode* tc = reinterpret_cast<const CORBA_TypeCode*>(&original);
  original.set_typeCode(tc);
  {
    Description copy(original);
    EXPECT_STREQ("Original", copy.name());
    EXPECT_EQ(original.repository_id(), copy.repository_id());  // the same text, not a copy
    EXPECT_EQ(original.factory(), copy.factory());
    EXPECT_EQ(&CORBA_UserException::_description, krl_internal::DescriptionTestPeer::base(copy));
    EXPECT_EQ(tc, copy.typeCode());
    EXPECT_EQ(&original, Description::desc(kOriginalId));  // the copy did not register

    Description other("Other", kOtherId, nullptr, nullptr, nullptr);
    const Description* other_address = &other;
    other = original;
    EXPECT_STREQ("Original", other.name());
    EXPECT_EQ(tc, other.typeCode());
    EXPECT_EQ(&CORBA_UserException::_description, krl_internal::DescriptionTestPeer::base(other));
    // Assignment leaves the registry alone: both entries are as they were.
    EXPECT_EQ(other_address, Description::desc(kOtherId));
    EXPECT_EQ(&original, Description::desc(kOriginalId));
  }
  // The copies removed the original's entry by id, the documented quirk. The
  // entry that "Other" made under its first id stays behind, stale: drop it.
  EXPECT_EQ(nullptr, Description::desc(kOriginalId));
  EXPECT_NE(nullptr, Description::desc(kOtherId));
  krl_internal::unregister_description(kOtherId);
  EXPECT_EQ(nullptr, Description::desc(kOtherId));
}

TEST(DescriptionTest, DebugStaticSetAfterTheFirstDescriptionHasNoEffect) {
  std::ostringstream captured;
  std::streambuf* saved = std::cout.rdbuf(captured.rdbuf());
  setenv("DEBUG_STATIC", "1", 1);
  { Description late("Late", "IDL:test/DescriptionTest/Late:1.0", nullptr, nullptr, nullptr); }
  unsetenv("DEBUG_STATIC");
  std::cout.rdbuf(saved);
  EXPECT_EQ("", captured.str());
}

TEST_F(CountedErrorTest, ConstDeepCopyCallsTheVirtualOne) {
  const CountedError original;
  CORBA_Exception* copy = static_cast<const CORBA_Exception&>(original)._deep_copy();
  EXPECT_NE(nullptr, CountedError::_downcast(copy));
  EXPECT_NE(static_cast<const CORBA_Exception*>(&original), copy);
  EXPECT_EQ(2, CountedError::live);
  CORBA::release(copy);
  EXPECT_EQ(1, CountedError::live);
}

TEST_F(CountedErrorTest, RootDowncastAndReleaseOfNull) {
  EXPECT_EQ(nullptr, CORBA_Exception::_downcast(nullptr));
  CORBA_MARSHAL m;
  EXPECT_EQ(&m, CORBA_Exception::_downcast(&m));
  CORBA::release(nullptr);  // must do nothing
  CORBA::release(CountedError::_factory());
  EXPECT_EQ(0, CountedError::live);
}

TEST_F(CountedErrorTest, VarCopyIsAnIndependentDeepCopy) {
  {
    CORBA_Exception_var a(new CORBA_NO_RESOURCES(12, CORBA::COMPLETED_MAYBE));
    CORBA_Exception_var b(a);
    ASSERT_NE(nullptr, static_cast<CORBA_Exception*>(b));
    EXPECT_NE(static_cast<CORBA_Exception*>(a), static_cast<CORBA_Exception*>(b));
    CORBA_NO_RESOURCES* copy = CORBA_NO_RESOURCES::_downcast(b);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(0x4F4D000CUL, copy->minor());
    a = static_cast<CORBA_Exception*>(nullptr);  // the copy must outlive the original
    EXPECT_EQ(CORBA::COMPLETED_MAYBE, copy->completed());
    EXPECT_STREQ("CORBA::NO_RESOURCES", b->_name());
  }
  CORBA_Exception_var empty;
  CORBA_Exception_var copy_of_empty(empty);
  EXPECT_EQ(nullptr, static_cast<CORBA_Exception*>(copy_of_empty));
}

TEST_F(CountedErrorTest, VarAssignmentOwnsExactlyOneObject) {
  {
    CORBA_Exception_var a(new CountedError());
    CORBA_Exception_var b(new CountedError());
    EXPECT_EQ(2, CountedError::live);
    b = a;  // b drops its own object and holds a copy of a's
    EXPECT_EQ(2, CountedError::live);
    EXPECT_NE(static_cast<CORBA_Exception*>(a), static_cast<CORBA_Exception*>(b));
    b = new CountedError();
    EXPECT_EQ(2, CountedError::live);
    CORBA_Exception_var empty;
    b = empty;
    EXPECT_EQ(nullptr, static_cast<CORBA_Exception*>(b));
    EXPECT_EQ(1, CountedError::live);
  }
  EXPECT_EQ(0, CountedError::live);
}

TEST_F(CountedErrorTest, VarSelfAssignmentAndItsOwnPointerKeepTheObject) {
  {
    CORBA_Exception_var a(new CountedError());
    CORBA_Exception* held = a;
    CORBA_Exception_var& alias = a;
    a = alias;
    EXPECT_EQ(held, static_cast<CORBA_Exception*>(a));
    a = held;
    EXPECT_EQ(held, static_cast<CORBA_Exception*>(a));
    EXPECT_NE(nullptr, CountedError::_downcast(a));  // still alive: ASan would object
    EXPECT_EQ(1, CountedError::live);
  }
  EXPECT_EQ(0, CountedError::live);
}

}  // namespace
