// The string allocator of the shared library under a host that replaces the
// global operator new and delete. Its own binary: the replacement holds
// program-wide.
#include <new>

#include <gtest/gtest.h>

#include "krlport/frame/alloc_test_support.h"
#include "krlport/frame/corba.h"

namespace {

using krl_test::Allocations;

// The library calls malloc and free itself only where operator new and delete
// are the runtime's own; a host's replacement sees every string, and its
// failure is what string_dup reports.
TEST(CorbaStringAllocTest, ReplacedOperatorNewSeesEveryString) {
  const long news = Allocations::news, deletes = Allocations::deletes;
  char* a = CORBA::string_alloc(4);
  char* d = CORBA::string_dup("IDL:omg.org/CORBA/BAD_PARAM:1.0");
  EXPECT_EQ(Allocations::news - news, 2);
  CORBA::string_free(a);
  CORBA::string_free(d);
  EXPECT_EQ(Allocations::deletes - deletes, 2);
  Allocations::fail_in = 0;
  EXPECT_THROW(CORBA::string_dup("x"), std::bad_alloc);
  Allocations::fail_in = -1;
}

}  // namespace
