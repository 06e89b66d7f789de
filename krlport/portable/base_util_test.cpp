#include <arpa/inet.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "krlport/platform/property.h"
#include "krlport/portable/base_util.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"

namespace {

TEST(BaseUtilTest, PropertyFromTheEnvironmentThenTheFile) {
  krl_test::TempDir dir;
  const std::string file = dir.add_file("properties",
                                        "# KRL_TEST_P=commented\n"
                                        "KRL_TEST_PX=longer name\n"
                                        "KRL_TEST_P=first\n"
                                        "KRL_TEST_P=second\n"
                                        "KRL_TEST_CRLF=dos\r\n"
                                        "KRL_TEST_LONG=" +
                                            std::string(600, 'v') + "\n");
  const std::string absent = dir.path() + "/absent";
  krl_internal::set_property_location(file.c_str());
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_P"), "first");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PX"), "longer name");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_CRLF"), "dos");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_LONG"), std::string(511, 'v').c_str());
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_MISSING"), nullptr);
  {
    krl_test::ScopedEnv env("KRL_TEST_P", "from-env");
    EXPECT_STREQ(KRLPortable::get_property("KRL_TEST_P"), "from-env");
  }
  krl_internal::set_property_location(absent.c_str());
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_P"), nullptr);
  krl_internal::set_property_location(nullptr);
}

TEST(BaseUtilTest, EmptyEnvironmentValueDoesNotHideThePropertyFile) {
  krl_test::TempDir dir;
  const std::string file = dir.add_file("properties", "KORLAN_ADM=/from/file\n");
  krl_internal::set_property_location(file.c_str());
  {
    krl_test::ScopedEnv env("KORLAN_ADM", "");
    EXPECT_STREQ(BaseUtil::GetProperty("KORLAN_ADM"), "/from/file");
  }
  krl_internal::set_property_location(nullptr);
}

TEST(BaseUtilTest, UserNameIsTheEffectiveUsers) {
  const passwd* pw = ::getpwuid(::geteuid());
  if (pw == nullptr) GTEST_SKIP() << "no passwd entry";
  EXPECT_STREQ(BaseUtil::user_name(), pw->pw_name);
}

// Touching 64 MiB raises both figures by at least 65536 KiB (more under
// ThreadSanitizer, which adds shadow memory): bytes or pages would be far off.
TEST(BaseUtilTest, ProcessMemoryIsInKibibytes) {
  int commit = 0;
  int resident = 0;
  BaseUtil::GetProcessMemory(commit, resident);
  std::vector<char> block(64u << 20, 1);
  int commit2 = 0;
  int resident2 = 0;
  BaseUtil::GetProcessMemory(commit2, resident2);
  EXPECT_EQ(block[block.size() / 2], 1);
  EXPECT_TRUE(resident2 - resident >= 60000 && resident2 - resident < 1000000)
      << resident2 - resident;
  if (commit2 != INT_MAX) {  // a sanitizer's TiBs of shadow saturate the figure
    EXPECT_GE(commit2 - commit, 60000);
  }
}

// 4 TiB of address space, reserved and never touched, is more KiB than an
// int holds: the figure stops at INT_MAX instead of wrapping negative.
TEST(BaseUtilTest, ProcessMemoryAboveTwoTebibytesSaturates) {
  const std::size_t size = std::size_t{4} << 40;
  void* const p =
      ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) GTEST_SKIP() << "no room for a 4 TiB reservation";
  int commit = -1;
  int resident = -1;
  BaseUtil::GetProcessMemory(commit, resident);
  ::munmap(p, size);
  EXPECT_EQ(commit, INT_MAX);
  EXPECT_GT(resident, 0);
}

TEST(BaseUtilTest, ResolverOfLocalhostAndInvalid) {
  vhostname work;
  work.error = 12345;
  hostent* h = BaseUtil::vgethostbyname_r("localhost", &work);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h, &work._entry);
  EXPECT_EQ(work.error, 12345);  // untouched on success
  ASSERT_TRUE(h->h_addrtype == AF_INET && h->h_length == 4 && h->h_addr_list[0] != nullptr);
  in_addr a;
  std::memcpy(&a, h->h_addr_list[0], sizeof a);
  EXPECT_EQ(ntohl(a.s_addr) >> 24, 127u);
  EXPECT_EQ(BaseUtil::vgethostbyname_r("krl-no-such-host.invalid", &work), nullptr);
  EXPECT_NE(work.error, 12345);
}

}  // namespace
