#include "krlport/exceptions/registry.h"

#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"
#include "krlport/exceptions/user_exception.h"

namespace {

using Description = CORBA_Exception::Description;

// Descriptions built at load: the 36 system exceptions, then the four below.
const Description* const kLoadedDescriptions[] = {
#define KRL_SYSTEM_EXCEPTION(NAME) &CORBA_##NAME::_description,
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION
    &CORBA_Exception::_description,
    &CORBA_SystemException::_description,
    &CORBA_UserException::_description,
    &KRLRemarshal::_description,
};
constexpr unsigned long kLoadedCount = sizeof(kLoadedDescriptions) / sizeof(kLoadedDescriptions[0]);

TEST(RegistryTest, HoldsEveryDescriptionBuiltAtLoad) {
  ASSERT_EQ(40u, kLoadedCount);
  ASSERT_NE(nullptr, krl_internal::exception_registry());
  EXPECT_EQ(kLoadedCount, krl_internal::exception_registry()->_count);
  for (const Description* d : kLoadedDescriptions) {
    SCOPED_TRACE(d->repository_id());
    EXPECT_EQ(d, Description::desc(d->repository_id()));
  }
  // Found by the text of the id, not by the address of the registered one.
  const char id[] = "IDL:omg.org/CORBA/MARSHAL:1.0";
  EXPECT_EQ(&CORBA_MARSHAL::_description, Description::desc(id));

  const Description* base = Description::desc("IDL:omg.org/CORBA/Exception:1.0");
  ASSERT_NE(nullptr, base);
  EXPECT_STREQ("CORBA::Exception", base->name());
  EXPECT_EQ(nullptr, base->factory());
  EXPECT_EQ(nullptr, Description::desc("IDL:omg.org/CORBA/SystemException:1.0")->factory());
  EXPECT_EQ(nullptr, Description::desc("IDL:omg.org/CORBA/UserException:1.0")->factory());
  EXPECT_EQ(&KRLRemarshal::_factory, Description::desc("IDL:ostrevan/KRLRemarshal:1.0")->factory());
  EXPECT_EQ(&CORBA_NO_RESPONSE::_factory,
            Description::desc("IDL:omg.org/CORBA/NO_RESPONSE:1.0")->factory());
}

TEST(RegistryTest, UnknownAndNullIdsGiveNull) {
  EXPECT_EQ(nullptr, Description::desc("IDL:omg.org/CORBA/NO_SUCH_THING:1.0"));
  EXPECT_EQ(nullptr, Description::desc("IDL:omg.org/CORBA/BAD_PARAM:1.1"));
  EXPECT_EQ(nullptr, Description::desc(""));
  EXPECT_EQ(nullptr, Description::desc(nullptr));
}

TEST(RegistryTest, ADescriptionJoinsWhileItLives) {
  const unsigned long before = krl_internal::exception_registry()->_count;
  {
    Description client("Client", "IDL:test/RegistryTest/Client:1.0", nullptr,
                       &CORBA_UserException::_description, nullptr);
    EXPECT_EQ(&client, Description::desc("IDL:test/RegistryTest/Client:1.0"));
    EXPECT_EQ(before + 1, krl_internal::exception_registry()->_count);
  }
  EXPECT_EQ(nullptr, Description::desc("IDL:test/RegistryTest/Client:1.0"));
  EXPECT_EQ(before, krl_internal::exception_registry()->_count);
}

TEST(RegistryTest, ASecondDescriptionWithAKnownIdLosesAndItsDestructionRemovesTheFirst) {
  const char* const id = CORBA_BAD_PARAM::_description.repository_id();
  const unsigned long before = krl_internal::exception_registry()->_count;
  {
    Description rival("Rival", "IDL:omg.org/CORBA/BAD_PARAM:1.0", nullptr,
                      &CORBA_SystemException::_description, nullptr);
    EXPECT_EQ(&CORBA_BAD_PARAM::_description, Description::desc(id));
    EXPECT_EQ(before, krl_internal::exception_registry()->_count);
  }
  // The removal goes by id alone, so the rival took the original's entry.
  EXPECT_EQ(nullptr, Description::desc(id));
  EXPECT_EQ(before - 1, krl_internal::exception_registry()->_count);

  krl_internal::register_description(CORBA_BAD_PARAM::_description);
  EXPECT_EQ(&CORBA_BAD_PARAM::_description, Description::desc(id));
  EXPECT_EQ(before, krl_internal::exception_registry()->_count);
}

}  // namespace
