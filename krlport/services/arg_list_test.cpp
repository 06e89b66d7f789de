#include "krlport/services/arg_list.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "krlport/exceptions/system_exception.h"

namespace {

TEST(ArgListTest, TakesPrefixedArgumentsWithTheirValuesAndKeepsTheRestInOrder) {
  const struct {
    std::vector<const char*> in, out;  // out: the whole array; elements behind the new argc stay
    int argc;
    std::vector<std::pair<const char*, const char*>> taken;  // null: no value
  } cases[] = {
      // clang-format off
      {{"prog", "-foobar", "1", "x", "-fo"}, {"prog", "x", "-fo", "x", "-fo"}, 3, {{"foobar", "1"}}},
      {{"prog", "-fooa", "-foob", "v", "-fooc", "-y"}, {"prog", "-y", "-foob", "v", "-fooc", "-y"}, 2, {{"fooa", nullptr}, {"foob", "v"}, {"fooc", nullptr}}},
      {{"-foo0", "x"}, {"-foo0", "x"}, 0, {{"foo0", "x"}}},
      // clang-format on
  };
  for (const auto& c : cases) {
    auto argv = c.in;
    int argc = static_cast<int>(argv.size());
    KRLArgList list(argc, const_cast<char* const*>(argv.data()), "-foo");
    EXPECT_EQ(c.argc, argc) << c.in[1];
    EXPECT_EQ(c.out, argv) << c.in[1];
    for (const auto& [name, value] : c.taken) {
      EXPECT_EQ(1, list.getArg(name)) << name;
      EXPECT_STREQ(value, CORBA_String_var(list.getArgValue(name))) << name;
    }
  }
  std::vector<const char*> argv = {"prog", "-foo", "x"};
  int argc = 3;
  for (const char* prefix : {static_cast<const char*>(nullptr), "", "-", "foo", "--x", "-_"})
    EXPECT_THROW(KRLArgList(argc, const_cast<char* const*>(argv.data()), prefix), CORBA_BAD_PARAM);
}

}  // namespace
