#include "krlport/exceptions/registry.h"

#include <gtest/gtest.h>

#include <iterator>
#include <utility>

#include "krlport/exceptions/system_exception.h"
#include "krlport/exceptions/user_exception.h"
#include "krlport/services/load_library.h"

namespace {

using Description = CORBA_Exception::Description;

TEST(RegistryTest, AfterLoadAllFortyOneIdsAreFound) {
  const std::pair<const char*, const Description*> loaded[] = {
      {"IDL:ostrevan/KRLLoadLibrary::LoadError:1.0", &KRLLoadLibrary::LoadError::_description},
#define KRL_SYSTEM_EXCEPTION(NAME) {"IDL:omg.org/CORBA/" #NAME ":1.0", &CORBA_##NAME::_description},
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION
      {"IDL:omg.org/CORBA/Exception:1.0", &CORBA_Exception::_description},
      {"IDL:omg.org/CORBA/SystemException:1.0", &CORBA_SystemException::_description},
      {"IDL:omg.org/CORBA/UserException:1.0", &CORBA_UserException::_description},
      {"IDL:ostrevan/KRLRemarshal:1.0", &KRLRemarshal::_description}};
  ASSERT_EQ(41u, std::size(loaded));
  EXPECT_EQ(41u, krl_internal::exception_registry()->_count);
  for (const auto& entry : loaded) EXPECT_EQ(entry.second, Description::desc(entry.first));
  EXPECT_EQ(nullptr, Description::desc("IDL:omg.org/CORBA/BAD_PARAM:1.1"));
  EXPECT_EQ(nullptr, Description::desc(nullptr));
}

TEST(RegistryTest, ASecondDescriptionWithAKnownIdLosesAndItsDestructionRemovesTheEntry) {
  const char* const id = "IDL:omg.org/CORBA/BAD_PARAM:1.0";
  {
    const Description rival("Rival", id, nullptr, &CORBA_SystemException::_description, nullptr);
    EXPECT_EQ(&CORBA_BAD_PARAM::_description, Description::desc(id));
    EXPECT_EQ(41u, krl_internal::exception_registry()->_count);
  }
  // The removal goes by id alone, so the rival took the original's entry.
  EXPECT_EQ(nullptr, Description::desc(id));
  krl_internal::register_description(CORBA_BAD_PARAM::_description);
  EXPECT_EQ(&CORBA_BAD_PARAM::_description, Description::desc(id));
}

// Assignment used to leave the entry of the old id pointing at the object,
// and desc handed it out after the object was gone.
TEST(RegistryTest, AnAssignedDescriptionLeavesNoEntryUnderItsOldId) {
  const char* const before = "IDL:test/Before:1.0";
  const char* const after = "IDL:test/After:1.0";
  {
    Description moved("Moved", before, nullptr, &CORBA_UserException::_description, nullptr);
    Description other("Other", after, nullptr, &CORBA_UserException::_description, nullptr);
    moved = other;  // after is taken: moved ends outside
    EXPECT_EQ(nullptr, Description::desc(before));
    EXPECT_EQ(&other, Description::desc(after));
    const Description& same = other;
    other = same;
    EXPECT_EQ(&other, Description::desc(after));
  }
  EXPECT_EQ(nullptr, Description::desc(before));
  EXPECT_EQ(nullptr, Description::desc(after));
  EXPECT_EQ(41u, krl_internal::exception_registry()->_count);
}

}  // namespace
