#ifdef _WIN32
#include <windows.h>
#include <winsock2.h>
#else
#include <arpa/inet.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <climits>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "krlport/platform/property.h"
#include "krlport/portable/base_util.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"

namespace {

#ifdef _WIN32
// A registry key of the test's own below HKEY_CURRENT_USER, holding the
// given values, which read_property reads while this object lives.
class ScopedPropertyStore {
 public:
  explicit ScopedPropertyStore(std::initializer_list<std::pair<const char*, std::string>> values)
      : _key("Software\\krlport_test_" + std::to_string(::GetCurrentProcessId())) {
    HKEY key = nullptr;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, _key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                          &key, nullptr) != ERROR_SUCCESS) {
      ADD_FAILURE() << "can't make " << _key;
      return;
    }
    for (const auto& [name, value] : values) {
      ::RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                       static_cast<DWORD>(value.size() + 1));
    }
    ::RegCloseKey(key);
    krl_internal::set_property_location(_key.c_str());
  }
  ~ScopedPropertyStore() {
    krl_internal::set_property_location(nullptr);
    ::RegDeleteKeyA(HKEY_CURRENT_USER, _key.c_str());
  }
  ScopedPropertyStore(const ScopedPropertyStore&) = delete;
  ScopedPropertyStore& operator=(const ScopedPropertyStore&) = delete;

 private:
  std::string _key;
};

TEST(BaseUtilTest, PropertyFromTheEnvironmentThenTheRegistry) {
  {
    ScopedPropertyStore store({{"KRL_TEST_P", "first"},
                               {"KRL_TEST_FITS", std::string(511, 'v')},
                               {"KRL_TEST_LONG", std::string(512, 'v')},
                               {"KORLAN_ADM", "C:\\from\\registry"}});
    EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_P"), "first");
    EXPECT_STREQ(BaseUtil::GetProperty("KRL_TEST_FITS"), std::string(511, 'v').c_str());
    // 513 bytes with the terminator do not fit the 512-byte buffer.
    EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_LONG"), nullptr);
    EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_MISSING"), nullptr);
    krl_test::ScopedEnv env("KRL_TEST_P", "from-env");
    EXPECT_STREQ(KRLPortable::get_property("KRL_TEST_P"), "from-env");
    krl_test::ScopedEnv empty("KORLAN_ADM", "");  // removes it on Windows: the registry's shows
    EXPECT_STREQ(BaseUtil::GetProperty("KORLAN_ADM"), "C:\\from\\registry");
  }
  krl_internal::set_property_location("Software\\krlport_test_no_such_key");
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_P"), nullptr);
  krl_internal::set_property_location(nullptr);
}

// The account's domain, when the system names one, and a backslash go before
// the name GetUserNameA gives.
TEST(BaseUtilTest, UserNameIsTheEffectiveUsers) {
  char name[100];
  DWORD size = sizeof name;
  if (!::GetUserNameA(name, &size)) GTEST_SKIP() << "no user name";
  const std::string user = BaseUtil::user_name();
  const std::size_t slash = user.find('\\');
  if (slash == std::string::npos) {
    EXPECT_EQ(user, name);
  } else {
    EXPECT_GT(slash, 0u) << user;
    EXPECT_EQ(user.substr(slash + 1), name);
  }
}
#else
TEST(BaseUtilTest, PropertyFromTheEnvironmentThenTheFile) {
  krl_test::TempDir dir;
  const std::string file = dir.add_file("properties",
                                        "# KRL_TEST_P=commented\n"
                                        "KRL_TEST_PX=longer name\n"
                                        "KRL_TEST_P=first\n"
                                        "KRL_TEST_P=second\n"
                                        "KRL_TEST_CRLF=dos\r\n"
                                        "KORLAN_ADM=/from/file\n"
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
    krl_test::ScopedEnv empty("KORLAN_ADM", "");  // an empty value hides nothing
    EXPECT_STREQ(BaseUtil::GetProperty("KORLAN_ADM"), "/from/file");
  }
  krl_internal::set_property_location(absent.c_str());
  EXPECT_EQ(BaseUtil::GetProperty("KRL_TEST_P"), nullptr);
  krl_internal::set_property_location(nullptr);
}

TEST(BaseUtilTest, UserNameIsTheEffectiveUsers) {
  const passwd* pw = ::getpwuid(::geteuid());
  if (pw == nullptr) GTEST_SKIP() << "no passwd entry";
  EXPECT_STREQ(BaseUtil::user_name(), pw->pw_name);
}
#endif

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
// Windows counts the commit charge, which no reservation raises and no test
// can raise by 2 TiB.
#ifndef _WIN32
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
#endif

TEST(BaseUtilTest, ResolverOfLocalhostAndInvalid) {
  KRLPortable::win_startup();  // the host's duty before any socket call
  vhostname work;
  work.error = 12345;
  hostent* h = BaseUtil::vgethostbyname_r("localhost", &work);
  ASSERT_NE(h, nullptr);
#ifndef _WIN32
  EXPECT_EQ(h, &work._entry);  // Windows: the socket library's own per-thread record
#endif
  EXPECT_EQ(work.error, 12345);  // untouched on success
  ASSERT_TRUE(h->h_addrtype == AF_INET && h->h_length == 4 && h->h_addr_list[0] != nullptr);
  in_addr a;
  std::memcpy(&a, h->h_addr_list[0], sizeof a);
  EXPECT_EQ(ntohl(a.s_addr) >> 24, 127u);
  EXPECT_EQ(BaseUtil::vgethostbyname_r("krl-no-such-host.invalid", &work), nullptr);
  EXPECT_NE(work.error, 12345);
}

}  // namespace
