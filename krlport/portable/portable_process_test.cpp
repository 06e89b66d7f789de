#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
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
  krl_test::ScopedEnv path("PATH", ("/nonexistent-krl:" + dir.path()).c_str());
  char out[PATH_MAX] = "junk";
  EXPECT_EQ(KRLPortable::vwhence("krl_whence_probe", out), 1);
  EXPECT_EQ(out, probe);
  EXPECT_EQ(KRLPortable::vwhence("krl-no-such-file-anywhere", out), 0);
  EXPECT_STREQ(out, "");
}

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
    EXPECT_EQ(cap.text(),
              std::string("Conversion to wchar failed: ") + std::strerror(EILSEQ) + "\n");
  }
}

}  // namespace
