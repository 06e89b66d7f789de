#include "krlport/exceptions/user_exception.h"

#include <gtest/gtest.h>

#include <typeinfo>

#include "krlport/exceptions/description_test_peer.h"
#include "krlport/exceptions/system_exception.h"

namespace {

TEST(UserExceptionTest, DescriptionsOfTheUserBranch) {
  EXPECT_STREQ("CORBA::UserException", CORBA_UserException::_description.name());
  EXPECT_STREQ("IDL:omg.org/CORBA/UserException:1.0",
               CORBA_UserException::_description.repository_id());
  EXPECT_EQ(nullptr, CORBA_UserException::_description.factory());
  EXPECT_EQ(&CORBA_Exception::_description,
            krl_internal::DescriptionTestPeer::base(CORBA_UserException::_description));

  EXPECT_STREQ("KRLRemarshal", KRLRemarshal::_description.name());
  EXPECT_STREQ("IDL:ostrevan/KRLRemarshal:1.0", KRLRemarshal::_description.repository_id());
  EXPECT_EQ(&KRLRemarshal::_factory, KRLRemarshal::_description.factory());
  EXPECT_EQ(&CORBA_UserException::_description,
            krl_internal::DescriptionTestPeer::base(KRLRemarshal::_description));
}

TEST(UserExceptionTest, RemarshalDowncasts) {
  KRLRemarshal remarshal;
  CORBA_BAD_OPERATION system;
  CORBA_Exception* re = &remarshal;
  CORBA_Exception* sy = &system;
  const CORBA_Exception* const_re = re;

  EXPECT_EQ(&remarshal, CORBA_UserException::_downcast(re));
  EXPECT_EQ(nullptr, CORBA_SystemException::_downcast(re));
  EXPECT_EQ(&remarshal, KRLRemarshal::_downcast(re));
  EXPECT_EQ(&remarshal, KRLRemarshal::_downcast(const_re));
  EXPECT_EQ(nullptr, KRLRemarshal::_downcast(sy));
  EXPECT_EQ(nullptr, KRLRemarshal::_downcast(static_cast<const CORBA_Exception*>(sy)));
  EXPECT_EQ(nullptr, KRLRemarshal::_downcast(static_cast<CORBA_Exception*>(nullptr)));
  EXPECT_EQ(nullptr, KRLRemarshal::_downcast(static_cast<const CORBA_Exception*>(nullptr)));
}

TEST(UserExceptionTest, RemarshalFactoryAndDeepCopyMakeNewObjectsOfTheClass) {
  CORBA_Exception* made = KRLRemarshal::_factory();
  ASSERT_NE(nullptr, made);
  EXPECT_EQ(typeid(KRLRemarshal), typeid(*made));
  EXPECT_EQ(&KRLRemarshal::_description, &made->_desc());

  CORBA_Exception* copy = made->_deep_copy();
  ASSERT_NE(nullptr, copy);
  EXPECT_NE(made, copy);
  EXPECT_EQ(typeid(KRLRemarshal), typeid(*copy));
  CORBA::release(copy);
  CORBA::release(made);
}

TEST(UserExceptionTest, RemarshalRaiseIsCaughtByEachBase) {
  const KRLRemarshal remarshal;
  const CORBA_Exception& e = remarshal;
  int caught = 0;
  try {
    e._raise();
  } catch (KRLRemarshal&) {
    ++caught;
  }
  try {
    e._raise();
  } catch (CORBA_UserException& u) {
    EXPECT_STREQ("KRLRemarshal", u._name());
    ++caught;
  }
  try {
    e._raise();
  } catch (CORBA_SystemException&) {
    ADD_FAILURE() << "a user exception was caught as a system exception";
  } catch (CORBA_Exception& x) {
    EXPECT_STREQ("IDL:ostrevan/KRLRemarshal:1.0", x._repository_id());
    ++caught;
  }
  EXPECT_EQ(3, caught);
}

}  // namespace
