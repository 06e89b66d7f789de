// Linked against the shared library: an exception raised inside the library
// must be caught here by each of its exported bases, which works only if the
// classes and their type information are exported.
#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"

namespace {

CORBA_Exception* make_in_library(const char* repository_id) {
  const CORBA_Exception::Description* d = CORBA_Exception::Description::desc(repository_id);
  return d != nullptr && d->factory() != nullptr ? d->factory()() : nullptr;
}

TEST(SharedLibraryTest, SystemExceptionRaisedInsideTheLibraryIsCaughtByEachBase) {
  CORBA_Exception* e = make_in_library("IDL:omg.org/CORBA/BAD_PARAM:1.0");
  ASSERT_NE(nullptr, e);
  EXPECT_EQ(&CORBA_BAD_PARAM::_description, &e->_desc());

  int caught = 0;
  try {
    e->_raise();
  } catch (CORBA_BAD_PARAM& x) {
    EXPECT_EQ(0x4F4D0000UL, x.minor());
    ++caught;
  }
  try {
    e->_raise();
  } catch (CORBA_SystemException& x) {
    EXPECT_STREQ("CORBA::BAD_PARAM", x._name());
    ++caught;
  }
  try {
    e->_raise();
  } catch (KRLStdException& x) {
    EXPECT_EQ(CORBA::COMPLETED_NO, x.completed());
    ++caught;
  }
  try {
    e->_raise();
  } catch (CORBA_Exception& x) {
    EXPECT_STREQ("IDL:omg.org/CORBA/BAD_PARAM:1.0", x._repository_id());
    ++caught;
  }
  EXPECT_EQ(4, caught);
  CORBA::release(e);
}

TEST(SharedLibraryTest, ExceptionMadeHereIsRecognisedByTheLibrary) {
  CORBA_TIMEOUT here(9, CORBA::COMPLETED_MAYBE, "late");
  EXPECT_EQ(&here, CORBA_SystemException::_downcast(&here));
  EXPECT_EQ(0x4F4D0009UL, here.minor());
  CORBA_Exception* copy = here._deep_copy();
  ASSERT_NE(nullptr, CORBA_TIMEOUT::_downcast(copy));
  EXPECT_EQ(CORBA::COMPLETED_MAYBE, CORBA_TIMEOUT::_downcast(copy)->completed());
  CORBA::release(copy);
}

}  // namespace
