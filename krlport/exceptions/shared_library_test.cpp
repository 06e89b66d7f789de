// Linked against the shared library: an exception raised inside the library
// must be caught here by each of its exported bases, which works only if the
// classes and their type information are exported.
#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"

namespace {

template <class C>
bool caught_as(const CORBA_Exception& e) {
  try {
    e._raise();
  } catch (C&) {
    return true;
  } catch (...) {
  }
  return false;
}

TEST(SharedLibraryTest, ExceptionRaisedInsideTheLibraryIsCaughtByEachBase) {
  // Made and raised by library code.
  const CORBA_Exception_var e(
      CORBA_Exception::Description::desc("IDL:omg.org/CORBA/BAD_PARAM:1.0")->factory()());
  EXPECT_TRUE(caught_as<CORBA_BAD_PARAM>(*e));
  EXPECT_TRUE(caught_as<KRLStdException>(*e));
  EXPECT_TRUE(caught_as<CORBA_SystemException>(*e));
  EXPECT_TRUE(caught_as<CORBA_Exception>(*e));
}

}  // namespace
