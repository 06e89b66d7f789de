#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "krlport/platform/system.h"
#include "krlport/portable/base_util.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"

namespace {

using krl_test::ScopedEnv;
using krl_test::TempDir;

// Points the property look-up at a file of the test's own.
class PropertyFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(_dir.path().empty());
    _file = _dir.path() + "/properties";
  }
  void TearDown() override { krl_internal::set_property_file_path(nullptr); }

  void write(const std::string& content) {
    std::ofstream(_file, std::ios::binary) << content;
    krl_internal::set_property_file_path(_file.c_str());
  }

  TempDir _dir;
  std::string _file;
};

TEST_F(PropertyFileTest, EnvironmentComesBeforeTheFile) {
  write("KRL_TEST_PROP_A=from-file\n");
  {
    ScopedEnv env("KRL_TEST_PROP_A", "from-env");
    char* v = BaseUtil::GetProperty("KRL_TEST_PROP_A");
    EXPECT_EQ(v, std::getenv("KRL_TEST_PROP_A"));  // the environment's own text
    EXPECT_STREQ(v, "from-env");
  }
  ScopedEnv unset("KRL_TEST_PROP_A", nullptr);
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_A"), "from-file");
  EXPECT_STREQ(KRLPortable::get_property("KRL_TEST_PROP_A"), "from-file");
}

TEST_F(PropertyFileTest, FileFormat) {
  write(
      "# KRL_TEST_PROP_B=commented\n"
      "#KRL_TEST_PROP_B=commented too\n"
      "KRL_TEST_PROP_BX=longer name\n"
      "KRL_TEST_PROP_B\n"
      "KRL_TEST_PROP_B=first\n"
      "KRL_TEST_PROP_B=second\n"
      "KRL_TEST_PROP_EMPTY=\n"
      "KRL_TEST_PROP_EQ=a=b c \n"
      "KRL_TEST_PROP_CRLF=dos\r\n"
      "\n"
      "KRL_TEST_PROP_LAST=no newline");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_B"), "first");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_BX"), "longer name");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_EMPTY"), "");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_EQ"), "a=b c ");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_CRLF"), "dos");
  EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_PROP_LAST"), "no newline");
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_PROP"), nullptr);  // a prefix of names only
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_PROP_MISSING"), nullptr);
  EXPECT_EQ(BaseUtil::GetProperty(nullptr), nullptr);
}

TEST_F(PropertyFileTest, LongValueIsCutTo511Characters) {
  const std::string value(600, 'v');
  write("KRL_TEST_PROP_LONG=" + value + "x\n");
  const char* got = BaseUtil::GetProperty("KRL_TEST_PROP_LONG");
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(std::string(got), value.substr(0, 511));
}

TEST_F(PropertyFileTest, MissingFileGivesNull) {
  const std::string absent = _dir.path() + "/absent";
  krl_internal::set_property_file_path(absent.c_str());
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_PROP_A"), nullptr);
  krl_internal::set_property_file_path(nullptr);
  EXPECT_STREQ(krl_internal::property_file_path(), "/etc/ostrevan/varnholt/korlan/6.0/properties");
}

TEST(BaseUtilTest, UserNameIsTheEffectiveUsersAndCached) {
  const char* name = BaseUtil::user_name();
  ASSERT_NE(name, nullptr);
  const passwd* pw = ::getpwuid(::geteuid());
  if (pw != nullptr) {
    EXPECT_STREQ(name, pw->pw_name);
  } else {
    const char* env = std::getenv("USERNAME");
    EXPECT_STREQ(name, env != nullptr ? env : "Win_User");
  }
  ScopedEnv other("USERNAME", "someone-else");
  EXPECT_EQ(BaseUtil::user_name(), name);
}

TEST(BaseUtilTest, ProcessMemoryIsInKibibytes) {
  int commit = -1;
  int resident = -1;
  BaseUtil::GetProcessMemory(commit, resident);
  EXPECT_GT(commit, 0);
  EXPECT_GT(resident, 0);
  EXPECT_LE(resident, commit);

  // Touching 64 MiB raises both figures by about 65536 KiB: a unit of bytes
  // or of pages would be far off.
  constexpr std::size_t kBytes = 64u << 20;
  std::vector<char> block(kBytes, 1);
  int commit2 = 0;
  int resident2 = 0;
  BaseUtil::GetProcessMemory(commit2, resident2);
  EXPECT_EQ(block[kBytes / 2], 1);
  EXPECT_GE(resident2 - resident, 60000);
  EXPECT_LT(resident2 - resident, 200000);
  EXPECT_GE(commit2 - commit, 60000);
}

in_addr first_address(const hostent* h) {
  in_addr a;
  std::memcpy(&a, h->h_addr_list[0], sizeof a);
  return a;
}

TEST(BaseUtilTest, NameLookupKeepsItsResultInTheWorkRecord) {
  vhostname work;
  work.error = 12345;
  hostent* h = BaseUtil::vgethostbyname_r("localhost", &work);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h, &work._entry);
  EXPECT_EQ(work.error, 12345);  // untouched on success
  EXPECT_EQ(h->h_addrtype, AF_INET);
  ASSERT_EQ(h->h_length, 4);
  ASSERT_NE(h->h_addr_list[0], nullptr);
  EXPECT_EQ(ntohl(first_address(h).s_addr) >> 24, 127u);

  // A second record leaves the first one's answer alone.
  vhostname other;
  other.error = 0;
  EXPECT_EQ(BaseUtil::vgethostbyname_r("krl-no-such-host.invalid", &other), nullptr);
  EXPECT_EQ(std::string(h->h_name), std::string(work._entry.h_name));
  EXPECT_EQ(ntohl(first_address(h).s_addr) >> 24, 127u);
}

TEST(BaseUtilTest, FailedNameLookupSetsError) {
  vhostname work;
  work.error = 0;
  EXPECT_EQ(BaseUtil::vgethostbyname_r("krl-no-such-host.invalid", &work), nullptr);
  EXPECT_NE(work.error, 0);
  work.error = 0;
  EXPECT_EQ(BaseUtil::vgethostbyname_r(nullptr, &work), nullptr);
  EXPECT_EQ(work.error, HOST_NOT_FOUND);
}

TEST(BaseUtilTest, AddressLookupOfLoopback) {
  in_addr loopback;
  loopback.s_addr = htonl(INADDR_LOOPBACK);
  vhostname work;
  work.error = 12345;
  hostent* h = BaseUtil::vgethostbyaddr_r(reinterpret_cast<const char*>(&loopback), sizeof loopback,
                                          AF_INET, &work);
  ASSERT_NE(h, nullptr) << "h_errno " << work.error;
  EXPECT_EQ(h, &work._entry);
  EXPECT_EQ(work.error, 12345);
  ASSERT_NE(h->h_name, nullptr);
  EXPECT_NE(h->h_name[0], '\0');
  EXPECT_EQ(first_address(h).s_addr, loopback.s_addr);
}

}  // namespace
