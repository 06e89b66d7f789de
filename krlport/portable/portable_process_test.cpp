#include <signal.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "krlport/frame/corba.h"
#include "krlport/portable/base_util.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"

namespace {

using krl_test::CoutCapture;
using krl_test::ScopedEnv;
using krl_test::TempDir;

// Runs in the current directory dir for one scope.
class ScopedCwd {
 public:
  explicit ScopedCwd(const std::string& dir) {
    char buf[PATH_MAX];
    _old = ::getcwd(buf, sizeof buf) != nullptr ? buf : "/";
    EXPECT_EQ(::chdir(dir.c_str()), 0);
  }
  ~ScopedCwd() { EXPECT_EQ(::chdir(_old.c_str()), 0); }

 private:
  std::string _old;
};

const char kProbe[] = "krl_whence_probe";

TEST(PortableFileTest, WhenceSearchesCurrentDirectoryThenPath) {
  TempDir on_path;
  TempDir shadow;  // holds a directory of the same name: not a match
  TempDir cwd;
  ASSERT_FALSE(on_path.path().empty());
  const std::string expected = on_path.add_file(kProbe);
  ASSERT_EQ(::mkdir((shadow.path() + "/" + kProbe).c_str(), 0755), 0);
  const std::string search = "/nonexistent-krl::" + shadow.path() + ":" + on_path.path();
  ScopedEnv path("PATH", search.c_str());
  ScopedCwd in(cwd.path());

  char out[PATH_MAX];
  std::strcpy(out, "junk");
  EXPECT_EQ(KRLPortable::vwhence(kProbe, out), 1);
  EXPECT_EQ(std::string(out), expected);

  // The current directory comes before PATH, and its result is a full path.
  const std::string local = cwd.add_file(kProbe);
  EXPECT_EQ(KRLPortable::vwhence(kProbe, out), 1);
  EXPECT_EQ(out[0], '/');
  EXPECT_TRUE(std::filesystem::equivalent(out, local)) << out;  // getcwd resolves links
}

TEST(PortableFileTest, WhenceOfMissingNameLeavesOutEmpty) {
  TempDir dir;
  ScopedEnv path("PATH", dir.path().c_str());
  char out[PATH_MAX];
  std::strcpy(out, "junk");
  EXPECT_EQ(KRLPortable::vwhence("krl-no-such-file-anywhere", out), 0);
  EXPECT_STREQ(out, "");
  std::strcpy(out, "junk");
  EXPECT_EQ(KRLPortable::vwhence("", out), 0);
  EXPECT_STREQ(out, "");
}

TEST(PortableFileTest, FileExistsCountsDirectories) {
  TempDir dir;
  EXPECT_EQ(KRLPortable::vFileExists(dir.path().c_str()), 1);
  EXPECT_EQ(KRLPortable::vFileExists(dir.add_file("f").c_str()), 1);
  EXPECT_EQ(KRLPortable::vFileExists((dir.path() + "/missing").c_str()), 0);
  EXPECT_EQ(KRLPortable::vFileExists(nullptr), 0);
}

TEST(PortableTextTest, StricmpIgnoresCaseOnly) {
  EXPECT_EQ(KRLPortable::vstricmp("Hello World", "hELLO wORLD"), 0);
  EXPECT_EQ(KRLPortable::vstricmp("", ""), 0);
  EXPECT_LT(KRLPortable::vstricmp("abc", "ABD"), 0);
  EXPECT_GT(KRLPortable::vstricmp("b", "A"), 0);
  EXPECT_LT(KRLPortable::vstricmp("ab", "ABC"), 0);
}

TEST(PortableProcessTest, ConstantsAndStartup) {
  EXPECT_EQ(KRLPortable::max_fds(), 1024UL);
  for (int fd : {INT_MIN, -1, 0, 1023, 1024, 1025, INT_MAX}) {
    EXPECT_EQ(KRLPortable::max_fd_reached(fd), 0) << fd;
  }
  EXPECT_NO_THROW(KRLPortable::win_startup());
  EXPECT_NO_THROW(KRLPortable::win_startup());

  EXPECT_EQ(KRLPortable::process_id(), static_cast<unsigned long>(::getpid()));
  EXPECT_EQ(BaseUtil::getpid(), static_cast<unsigned long>(::getpid()));
}

TEST(PortableProcessTest, ErrorNumberAndText) {
  errno = ENOENT;
  EXPECT_EQ(KRLPortable::vGetErrorNo(), static_cast<unsigned long>(ENOENT));
  errno = EACCES;
  char* text = KRLPortable::_get_error_str();
  EXPECT_STREQ(text, std::strerror(EACCES));
  CORBA::string_free(text);
}

TEST(PortableProcessTest, SysVersionMatchesKernelRelease) {
  utsname u;
  ASSERT_EQ(::uname(&u), 0);
  int major = -1;
  int minor = -1;
  ASSERT_EQ(std::sscanf(u.release, "%d.%d", &major, &minor), 2);

  vsysinfo* info = BaseUtil::get_sysversion();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->major, major);
  EXPECT_EQ(info->minor, minor);
  delete info;

  KRLSysVersion v;
  v.major = 0xAAAA;
  v.minor = 0xBBBB;
  EXPECT_EQ(KRLPortable::get_sysversion(v), 1);
  EXPECT_EQ(v.major, major);
  EXPECT_EQ(v.minor, minor);
}

TEST(PortableProcessTest, KillEndsAChild) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (;;) ::pause();
  }
  KRLPortable::vkill(child);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST(PortableProcessTest, KillIgnoresGroupIds) {
  // In its own session, a child asks to kill "0" and its own group: kill()
  // would take both as a process group. The child must live to exit 7.
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::setsid();
    KRLPortable::vkill(0);
    KRLPortable::vkill(-static_cast<long>(::getpid()));
    KRLPortable::vkill(1L << 40);  // no such pid_t
    ::_exit(7);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

std::u16string as_u16(const unsigned short* w) {
  std::u16string s;
  while (*w != 0) s += static_cast<char16_t>(*w++);
  return s;
}

TEST(PortableTextTest, ConvertToWideDecodesUtf8) {
  CoutCapture cap;
  EXPECT_EQ(KRLPortable::_convert_to_wide(nullptr), nullptr);

  const struct {
    const char* utf8;
    std::u16string utf16;
  } cases[] = {
      {"", u""},
      {"Korlan 6.0", u"Korlan 6.0"},
      {"h\xC3\xA9\xE2\x82\xAC", u"h\u00E9\u20AC"},
      {"\xF0\x9F\x98\x80!", {0xD83D, 0xDE00, '!'}},
      {"\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF}},  // U+10FFFF, the last code point
  };
  for (const auto& c : cases) {
    unsigned short* w = KRLPortable::_convert_to_wide(c.utf8);
    ASSERT_NE(w, nullptr) << c.utf8;
    EXPECT_EQ(as_u16(w), c.utf16) << c.utf8;
    CORBA::wstring_free(w);
  }
  EXPECT_EQ(cap.text(), "");  // null and valid text say nothing
}

TEST(PortableTextTest, ConvertToWideRejectsInvalidUtf8) {
  const char* invalid[] = {
      "\xC3",              // truncated
      "abc\x80",           // stray continuation byte
      "\xC0\xAF",          // overlong '/'
      "\xE0\x80\xAF",      // overlong, three bytes
      "\xED\xA0\x80",      // encoded surrogate
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xE2\x82x",         // continuation byte missing
      "\xFF",
  };
  const std::string message =
      std::string("Conversion to wchar failed: ") + std::strerror(EILSEQ) + "\n";
  for (const char* text : invalid) {
    CoutCapture cap;
    EXPECT_EQ(KRLPortable::_convert_to_wide(text), nullptr);
    EXPECT_EQ(KRLPortable::vGetErrorNo(), static_cast<unsigned long>(EILSEQ));
    EXPECT_EQ(cap.text(), message);
  }
}

}  // namespace
