#include "krlport/exceptions/exception.h"

#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"

namespace {

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

}  // namespace
