#include "krlport/services/getopt.h"

#include <gtest/gtest.h>
#include <unistd.h>  // the C library's declarations must agree with ours

#include <string>
#include <tuple>
#include <vector>

namespace {

// New scans (optind reset); steps (result, optarg, optind) up to -1; messages on stdout.
TEST(GetoptTest, ClassicCasesWithMessagesOnStandardOutput) {
  const struct {
    const char* optstring;
    std::vector<const char*> argv;
    int opterr;
    std::vector<std::tuple<int, const char*, int>> steps;
    std::string out;
  } cases[] = {
      // clang-format off
      {"a", {"prog", "-y"}, 0, {{'?', nullptr, 2}, {-1, nullptr, 2}}, ""},
      {"ab", {"prog", "-ab", "x"}, 1, {{'a', nullptr, 1}, {'b', nullptr, 2}, {-1, nullptr, 2}}, ""},
      {"ab:", {"prog", "-ab1", "x"}, 1, {{'a', nullptr, 1}, {'b', "1", 2}, {-1, "1", 2}}, ""},
      {"o:", {"prog", "-o", "f", "-o"}, 1, {{'o', "f", 3}, {'?', "f", 4}, {-1, "f", 4}}, "prog: option requires an argument -- o\n"},
      {"a", {"prog", "-a", "--", "-a"}, 1, {{'a', nullptr, 2}, {-1, nullptr, 3}}, ""},
      {"a", {"prog", "-", "-a"}, 1, {{-1, nullptr, 1}}, ""},
      {"a", {"/bin/prog", "-x", "-xa"}, 1, {{'?', nullptr, 2}, {'?', nullptr, 2}, {'a', nullptr, 3}, {-1, nullptr, 3}}, "prog: illegal option -- x\nprog: illegal option -- x\n"},
      // clang-format on
  };
  for (const auto& c : cases) {
    char* const* argv = const_cast<char* const*>(c.argv.data());
    optind = 1, optarg = nullptr, opterr = c.opterr;
    testing::internal::CaptureStdout();
    for (const auto& [result, arg, ind] : c.steps) {
      EXPECT_EQ(result, getopt(static_cast<int>(c.argv.size()), argv, c.optstring));
      EXPECT_STREQ(arg, optarg);
      EXPECT_EQ(ind, optind) << c.optstring << " " << c.argv[1];
    }
    EXPECT_EQ(c.out, testing::internal::GetCapturedStdout());
  }
}

}  // namespace
