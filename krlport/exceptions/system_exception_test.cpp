#include "krlport/exceptions/system_exception.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <typeinfo>

#include "krlport/exceptions/description_test_peer.h"
#include "krlport/exceptions/user_exception.h"

namespace {

using Description = CORBA_Exception::Description;

// Reaches the protected parts of the family: init and the stored fields.
class MinorProbe : public CORBA_BAD_PARAM {
 public:
  using CORBA_SystemException::init;
  void store_raw(unsigned long m) { _minor = m; }
};

template <class Catch>
bool raise_is_caught_as(const CORBA_Exception& e) {
  try {
    e._raise();
  } catch (Catch&) {
    return true;
  } catch (...) {
    return false;
  }
  return false;
}

TEST(MinorCodeTest, BelowFourThousandNinetySixGetsTheStandardSetId) {
  EXPECT_EQ(0x4F4D0000UL, CORBA_BAD_PARAM().minor());
  EXPECT_EQ(0x4F4D0000UL, CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO).minor());
  EXPECT_EQ(0x4F4D0FFFUL, CORBA_BAD_PARAM(4095, CORBA::COMPLETED_NO).minor());
  EXPECT_EQ(4096UL, CORBA_BAD_PARAM(4096, CORBA::COMPLETED_NO).minor());
  EXPECT_EQ(0x4F4D0001UL, CORBA_BAD_PARAM(0x4F4D0001UL, CORBA::COMPLETED_NO).minor());
  EXPECT_EQ(0x4F4D0FFFUL, CORBA_BAD_PARAM(4095, CORBA::COMPLETED_NO, "x").minor());
  // unsigned long is 64 bits here: a value with only high bits set is large.
  EXPECT_EQ(1UL << 32, CORBA_BAD_PARAM(1UL << 32, CORBA::COMPLETED_NO).minor());
}

TEST(MinorCodeTest, SetterAndInitApplyTheRuleButCopiesDoNot) {
  MinorProbe e;
  e.minor(4);
  EXPECT_EQ(0x4F4D0004UL, e.minor());
  e.minor(10061);
  EXPECT_EQ(10061UL, e.minor());
  e.init(4095, CORBA::COMPLETED_MAYBE);
  EXPECT_EQ(0x4F4D0FFFUL, e.minor());
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, e.completed());
  e.init(4096, CORBA::COMPLETED_YES);
  EXPECT_EQ(4096UL, e.minor());

  // A value stored as it is (as a stream read does) must survive copying.
  e.store_raw(5);
  EXPECT_EQ(5UL, CORBA_BAD_PARAM(e).minor());
  CORBA_BAD_PARAM assigned;
  static_cast<CORBA_SystemException&>(assigned) = e;  // the 36 classes offer no operator=
  EXPECT_EQ(5UL, assigned.minor());
  CORBA_Exception* deep = e._deep_copy();
  EXPECT_EQ(5UL, CORBA_SystemException::_downcast(deep)->minor());
  CORBA::release(deep);
}

TEST(SystemExceptionTest, ExplanationStates) {
  // None given: the shared empty string, never null.
  CORBA_BAD_PARAM plain;
  ASSERT_NE(nullptr, plain.explanation());
  EXPECT_STREQ("", plain.explanation());
  EXPECT_STREQ("", CORBA_BAD_PARAM(1, CORBA::COMPLETED_NO).explanation());

  // Given: an own copy, independent of the caller's buffer.
  char text[] = "port in use";
  CORBA_COMM_FAILURE given(10048, CORBA::COMPLETED_NO, text);
  EXPECT_NE(static_cast<const char*>(text), given.explanation());
  text[0] = 'X';
  EXPECT_STREQ("port in use", given.explanation());

  // Null given: nil.
  EXPECT_EQ(nullptr, CORBA_COMM_FAILURE(1, CORBA::COMPLETED_NO, nullptr).explanation());

  given.explanation(nullptr);
  EXPECT_EQ(nullptr, given.explanation());
  given.explanation("");
  EXPECT_STREQ("", given.explanation());
  given.explanation("again");
  EXPECT_STREQ("again", given.explanation());
}

TEST(SystemExceptionTest, DeepCopyDropsTheExplanationTheCopyConstructorKeepsIt) {
  const CORBA_TIMEOUT original(77, CORBA::COMPLETED_MAYBE, "slow peer");

  CORBA_Exception* deep = original._deep_copy();
  const CORBA_TIMEOUT* timeout = CORBA_TIMEOUT::_downcast(deep);
  ASSERT_NE(nullptr, timeout);
  EXPECT_EQ(typeid(CORBA_TIMEOUT), typeid(*deep));
  EXPECT_EQ(0x4F4D004DUL, timeout->minor());
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, timeout->completed());
  EXPECT_STREQ("", timeout->explanation());
  CORBA::release(deep);

  CORBA_TIMEOUT copy(original);
  EXPECT_EQ(0x4F4D004DUL, copy.minor());
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, copy.completed());
  EXPECT_STREQ("slow peer", copy.explanation());
  EXPECT_NE(original.explanation(), copy.explanation());

  CORBA_TIMEOUT assigned;
  static_cast<CORBA_SystemException&>(assigned) = original;
  EXPECT_STREQ("slow peer", assigned.explanation());
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, assigned.completed());

  // A nil text copies as nil.
  CORBA_TIMEOUT nil_text(1, CORBA::COMPLETED_NO, nullptr);
  EXPECT_EQ(nullptr, CORBA_TIMEOUT(nil_text).explanation());
}

TEST(SystemExceptionTest, DowncastMatrix) {
  CORBA_BAD_PARAM bad_param;
  CORBA_MARSHAL marshal;
  KRLRemarshal remarshal;
  CORBA_Exception* bp = &bad_param;
  CORBA_Exception* ma = &marshal;
  CORBA_Exception* re = &remarshal;

  EXPECT_EQ(&bad_param, CORBA_BAD_PARAM::_downcast(bp));
  EXPECT_EQ(nullptr, CORBA_BAD_PARAM::_downcast(ma));  // sibling
  EXPECT_EQ(nullptr, CORBA_BAD_PARAM::_downcast(re));  // other branch
  EXPECT_EQ(nullptr, CORBA_BAD_PARAM::_downcast(static_cast<CORBA_Exception*>(nullptr)));

  const CORBA_Exception* const_bp = bp;
  const CORBA_Exception* const_ma = ma;
  EXPECT_EQ(&bad_param, CORBA_BAD_PARAM::_downcast(const_bp));
  EXPECT_EQ(nullptr, CORBA_BAD_PARAM::_downcast(const_ma));
  EXPECT_EQ(nullptr, CORBA_BAD_PARAM::_downcast(static_cast<const CORBA_Exception*>(nullptr)));

  EXPECT_EQ(&marshal, CORBA_SystemException::_downcast(ma));
  EXPECT_EQ(&bad_param, CORBA_SystemException::_downcast(bp));
  EXPECT_EQ(nullptr, CORBA_SystemException::_downcast(re));
  EXPECT_EQ(nullptr, CORBA_SystemException::_downcast(nullptr));

  EXPECT_EQ(&remarshal, CORBA_UserException::_downcast(re));
  EXPECT_EQ(nullptr, CORBA_UserException::_downcast(ma));
  EXPECT_EQ(nullptr, CORBA_UserException::_downcast(nullptr));
}

TEST(SystemExceptionTest, RaiseThrowsTheConcreteClassWhateverThePointerType) {
  CORBA_NO_MEMORY no_memory(3, CORBA::COMPLETED_YES, "out");
  const CORBA_Exception& e = no_memory;
  EXPECT_TRUE(raise_is_caught_as<CORBA_NO_MEMORY>(e));
  EXPECT_TRUE(raise_is_caught_as<KRLStdException>(e));
  EXPECT_TRUE(raise_is_caught_as<CORBA_SystemException>(e));
  EXPECT_TRUE(raise_is_caught_as<CORBA_Exception>(e));
  EXPECT_FALSE(raise_is_caught_as<CORBA_BAD_PARAM>(e));
  EXPECT_FALSE(raise_is_caught_as<CORBA_UserException>(e));

  // What is thrown is a full copy, text included.
  try {
    e._raise();
    FAIL() << "_raise returned";
  } catch (CORBA_NO_MEMORY& caught) {
    EXPECT_NE(&no_memory, &caught);
    EXPECT_EQ(0x4F4D0003UL, caught.minor());
    EXPECT_EQ(CORBA::COMPLETED_YES, caught.completed());
    EXPECT_STREQ("out", caught.explanation());
  }
}

TEST(SystemExceptionTest, TypeCodeSetterWritesTheClassDescription) {
  const CORBA_TypeCode* tc = reinterpret_cast<const CORBA_TypeCode*>(&tc);
  CORBA_BAD_QOS::_typeCode(tc);
  EXPECT_EQ(tc, CORBA_BAD_QOS::_description.typeCode());
  EXPECT_EQ(tc, CORBA_BAD_QOS()._desc().typeCode());
  CORBA_BAD_QOS::_typeCode(nullptr);
  EXPECT_EQ(nullptr, CORBA_BAD_QOS::_description.typeCode());
}

// Every class of the family, from the same list that declares them.
struct FamilyMember {
  const char* short_name;
  Description* description;
  CORBA_Exception* (*factory)();
  const std::type_info& type;
  bool (*downcasts)(CORBA_Exception*);
  bool (*const_downcasts)(const CORBA_Exception*);
  bool (*raises_own_class)(const CORBA_Exception&);
};

#define KRL_SYSTEM_EXCEPTION(NAME)                                                           \
  {#NAME,                                                                                    \
   &CORBA_##NAME::_description,                                                              \
   &CORBA_##NAME::_factory,                                                                  \
   typeid(CORBA_##NAME),                                                                     \
   [](CORBA_Exception* e) { return CORBA_##NAME::_downcast(e) == e && e != nullptr; },       \
   [](const CORBA_Exception* e) { return CORBA_##NAME::_downcast(e) == e && e != nullptr; }, \
   &raise_is_caught_as<CORBA_##NAME>},
const FamilyMember kFamily[] = {
#include "krlport/exceptions/system_exception_list.inc"
};
#undef KRL_SYSTEM_EXCEPTION

TEST(SystemExceptionFamilyTest, EachClassHasItsNameIdFactoryAndBase) {
  ASSERT_EQ(36u, sizeof(kFamily) / sizeof(kFamily[0]));
  for (const FamilyMember& m : kFamily) {
    SCOPED_TRACE(m.short_name);
    const std::string name = std::string("CORBA::") + m.short_name;
    const std::string id = std::string("IDL:omg.org/CORBA/") + m.short_name + ":1.0";
    EXPECT_EQ(name, m.description->name());
    EXPECT_EQ(id, m.description->repository_id());
    EXPECT_EQ(m.factory, m.description->factory());
    EXPECT_EQ(&CORBA_SystemException::_description,
              krl_internal::DescriptionTestPeer::base(*m.description));
    EXPECT_EQ(nullptr, m.description->typeCode());

    CORBA_Exception* made = m.factory();
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(m.type, typeid(*made));
    EXPECT_EQ(m.description, &made->_desc());
    EXPECT_EQ(name, made->_name());
    EXPECT_EQ(id, made->_repository_id());
    CORBA_SystemException* system = CORBA_SystemException::_downcast(made);
    ASSERT_NE(nullptr, system);
    EXPECT_EQ(0x4F4D0000UL, system->minor());
    EXPECT_EQ(CORBA::COMPLETED_NO, system->completed());
    EXPECT_STREQ("", system->explanation());
    EXPECT_TRUE(m.raises_own_class(*made));
    EXPECT_TRUE(raise_is_caught_as<KRLStdException>(*made));

    CORBA_Exception* deep = made->_deep_copy();
    EXPECT_EQ(m.type, typeid(*deep));
    CORBA::release(deep);
    CORBA::release(made);
  }
}

TEST(SystemExceptionFamilyTest, EachClassDowncastsOnlyItsOwnObjects) {
  for (const FamilyMember& object_class : kFamily) {
    CORBA_Exception* object = object_class.factory();
    for (const FamilyMember& cast_class : kFamily) {
      const bool same = &object_class == &cast_class;
      EXPECT_EQ(same, cast_class.downcasts(object))
          << object_class.short_name << " as " << cast_class.short_name;
      EXPECT_EQ(same, cast_class.const_downcasts(object))
          << object_class.short_name << " as " << cast_class.short_name;
    }
    CORBA::release(object);
  }
}

}  // namespace
