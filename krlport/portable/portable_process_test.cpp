#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "krlport/frame/corba.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"

namespace {

TEST(PortableProcessTest, WhenceSearchesThePath) {
  krl_test::TempDir dir;
  const std::string probe = dir.add_file("krl_whence_probe");
#ifdef _WIN32
  const char separator = ';';
#else
  const char separator = ':';
#endif
  krl_test::ScopedEnv path("PATH", ("/nonexistent-krl" + (separator + dir.path())).c_str());
  char out[4096] = "junk";
  EXPECT_EQ(KRLPortable::vwhence("krl_whence_probe", out), 1);
  std::error_code ec;  // the found path may be spelt with the system's separator
  EXPECT_TRUE(std::filesystem::equivalent(out, probe, ec)) << out;
  EXPECT_EQ(KRLPortable::vwhence("krl-no-such-file-anywhere", out), 0);
  EXPECT_STREQ(out, "");
}

#ifdef _WIN32
// The child of KillEndsAChildProcess: this program again, run for this test
// alone with the variable set; it waits to be ended.
TEST(PortableProcessTest, ChildWaitingToBeKilled) {
  if (std::getenv("KRL_TEST_WAIT_TO_BE_KILLED") == nullptr) GTEST_SKIP() << "run as a child only";
  ::Sleep(60000);
  FAIL() << "not killed";
}

TEST(PortableProcessTest, KillEndsAChildProcess) {
  char exe[MAX_PATH];
  ASSERT_GT(::GetModuleFileNameA(nullptr, exe, sizeof exe), 0u);
  std::string command =
      std::string("\"") + exe + "\" --gtest_filter=PortableProcessTest.ChildWaitingToBeKilled";
  krl_test::ScopedEnv wait("KRL_TEST_WAIT_TO_BE_KILLED", "1");
  STARTUPINFOA start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION child{};
  ASSERT_TRUE(::CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &start, &child));
  ::CloseHandle(child.hThread);
  KRLPortable::vkill(static_cast<long>(child.dwProcessId));
  EXPECT_EQ(::WaitForSingleObject(child.hProcess, 10000), WAIT_OBJECT_0);
  DWORD code = 1;
  EXPECT_TRUE(::GetExitCodeProcess(child.hProcess, &code) && code == 0) << code;
  ::CloseHandle(child.hProcess);
}
#else
TEST(PortableProcessTest, KillEndsAForkedChild) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (;;) ::pause();
  }
  KRLPortable::vkill(child);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}
#endif

#ifdef _WIN32
// The ANSI code page, with composed characters decomposed, into a buffer of
// as many units as the text has bytes and its terminator.
TEST(PortableTextTest, ConvertToWide) {
  krl_test::Capture valid;
  EXPECT_EQ(KRLPortable::_convert_to_wide(nullptr), nullptr);
  for (const std::u16string text : {u"", u"plain text"}) {
    const std::string narrow(text.begin(), text.end());
    unsigned short* w = KRLPortable::_convert_to_wide(narrow.c_str());
    ASSERT_NE(w, nullptr) << narrow;
    EXPECT_TRUE(std::equal(text.c_str(), text.c_str() + text.size() + 1, w)) << narrow;
    CORBA::wstring_free(w);
  }
  EXPECT_EQ(valid.text(), "");
  if (::GetACP() != 1252) GTEST_SKIP() << "the failing case needs code page 1252";
  // e-acute decomposes into two units, one more than there is room for.
  krl_test::Capture cap;
  EXPECT_EQ(KRLPortable::_convert_to_wide("caf\xE9"), nullptr);
  EXPECT_EQ(KRLPortable::vGetErrorNo(), static_cast<unsigned long>(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(cap.text(), std::string("Conversion to wchar failed: ") +
                            std::strerror(ERROR_INSUFFICIENT_BUFFER) + "\n");
}
#else
TEST(PortableTextTest, ConvertToWide) {
  krl_test::Capture valid;
  EXPECT_EQ(KRLPortable::_convert_to_wide(nullptr), nullptr);
  const std::pair<const char*, std::u16string> cases[] = {
      {"", u""},
      {"h\xC3\xA9\xE2\x82\xAC", u"h\u00E9\u20AC"},
      {"\xF0\x9F\x98\x80!", u"\U0001F600!"}};
  for (const auto& [utf8, utf16] : cases) {
    unsigned short* w = KRLPortable::_convert_to_wide(utf8);
    ASSERT_NE(w, nullptr) << utf8;
    EXPECT_TRUE(std::equal(utf16.c_str(), utf16.c_str() + utf16.size() + 1, w)) << utf8;
    CORBA::wstring_free(w);
  }
  EXPECT_EQ(valid.text(), "");
  // Truncated, overlong, an encoded surrogate.
  for (const char* invalid : {"\xC3", "\xC0\xAF", "\xED\xA0\x80"}) {
    krl_test::Capture cap;
    EXPECT_EQ(KRLPortable::_convert_to_wide(invalid), nullptr);
    EXPECT_EQ(KRLPortable::vGetErrorNo(), static_cast<unsigned long>(EILSEQ));
    EXPECT_EQ(cap.text(),
              std::string("Conversion to wchar failed: ") + std::strerror(EILSEQ) + "\n");
  }
}
#endif

}  // namespace
