#include "krlport/exceptions/user_exception.h"

#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"

namespace {

// A user exception of the layer above, whose description is built at run time.
TEST(UserExceptionTest, AClientDescriptionJoinsTheUserBranchWhileItLives) {
  const char* const id = "IDL:test/Client:1.0";
  {
    const CORBA_Exception::Description client("Client", id, nullptr,
                                              &CORBA_UserException::_description, nullptr);
    EXPECT_EQ(&client, CORBA_Exception::Description::desc(id));
    EXPECT_TRUE(client.can_cast(CORBA_UserException::_description));
  }
  EXPECT_EQ(nullptr, CORBA_Exception::Description::desc(id));
}

}  // namespace
