#include "krlport/services/logger.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/property.h"
#include "krlport/portable/test_support.h"
#include "krlport/services/log_path.h"

namespace {

namespace fs = std::filesystem;
using krl_test::ScopedEnv;
using krl_test::slurp;

// The test's own directory: KORLAN_ADM, and the current directory. In the
// system's own form: on Windows the log path is cut at backslashes only.
const std::string g_dir = fs::path(std::getenv("KORLAN_ADM")).make_preferred().string();

// The parts joined by the system's separator.
std::string native(std::initializer_list<std::string> parts) {
  std::string path;
  for (const std::string& part : parts) {
    if (&part != parts.begin()) path += static_cast<char>(fs::path::preferred_separator);
    path += part;
  }
  return path;
}

// Room for any path a test makes.
constexpr unsigned kPathSize = 4096;

// Counts live objects, so that a test sees how often the logger deletes.
struct TrackedStream : std::ostream {
  explicit TrackedStream(bool report = false) : std::ostream(nullptr), report(report) { ++live; }
  ~TrackedStream() override {
    --live;
    if (report) std::fprintf(stderr, "deleted %d\n", ++reported);
  }
  bool report;
  static inline int live = 0, reported = 0;
};

TEST(LoggerLogTo, MakesTheDirectoriesEmptiesTheFileAndNeedsRoomForThePath) {
  const std::string adm = native({g_dir, "a", "b"});
  ScopedEnv env("KORLAN_ADM", adm.c_str());
  const std::string expected = native({adm, "log", "x.log"});
  char path[kPathSize];
  EXPECT_EQ(KRLLogger::log_to("x.log", path, expected.size(), 0), 0);
  EXPECT_FALSE(fs::exists(adm));  // checked before anything is made
  ASSERT_EQ(KRLLogger::log_to("x.log", path, expected.size() + 1, 0), 1);
  EXPECT_EQ(path, expected);
  std::ofstream(expected) << "old text";
  ASSERT_EQ(KRLLogger::log_to("x.log", path, sizeof path, 0), 1);
  EXPECT_EQ(fs::file_size(expected), 0u);

  // Without KORLAN_ADM the path lies below the root of the current drive:
  // X:\korlan\log on Windows, /korlan/log on Linux. Only formatted: the test
  // makes nothing outside its own directory.
  ScopedEnv no_adm("KORLAN_ADM", nullptr);
  krl_internal::set_property_location("/nonexistent/properties");
  const std::string fallback =
      fs::current_path().root_name().string() + native({"", "korlan", "log", "x.log"});
  ASSERT_TRUE(krl_internal::format_log_path("x.log", path, sizeof path));
  EXPECT_EQ(path, fallback);
  EXPECT_FALSE(krl_internal::format_log_path("x.log", path, fallback.size()));
  krl_internal::set_property_location(nullptr);
}

TEST(LoggerLogTo, RelativeAdmAndUnmakeableDirectoryUseTheCurrentDirectory) {
  std::ofstream("plain_file") << "in the way";
  char path[kPathSize];
  const std::string cases[][2] = {
      {"rel", native({"rel", "log", "f.log"})},
      {native({"plain_file", "adm"}), "f.log"},
#ifdef _WIN32
      // A leading backslash without a drive: the walk's first step is the
      // empty name, which can't be made.
      {"\\adm", "f.log"},
      // Only backslashes separate the walk's steps: "fw/x" is one step, and
      // _mkdir can't make it while fw is missing.
      {native({g_dir, "fw/x"}), "f.log"},
#endif
  };
  for (const auto& c : cases) {
    ScopedEnv env("KORLAN_ADM", c[0].c_str());
    EXPECT_EQ(KRLLogger::log_to("f.log", path, sizeof path, 0), 1) << c[0];
    EXPECT_EQ(path, c[1]) << c[0];
    EXPECT_TRUE(fs::exists(c[1])) << c[0];
  }
}

TEST(LoggerSlots, SharedStreamStaysWhileASlotHoldsItAndGoesOnceAfterwards) {
  KRLLogger& logger = KRLLogger::instance();
  ScopedEnv env("KORLAN_ADM", g_dir.c_str());
  char path[kPathSize];
  ASSERT_EQ(KRLLogger::log_to("both.log", path, sizeof path, 3), 1);
  EXPECT_EQ(&logger.out(), &logger.err());
  TrackedStream other;
  KRLLogger::replace_out(other, 0);  // must not delete what err still uses
  logger.err() << "still open" << std::flush;
  EXPECT_EQ(slurp(path), "still open");

  const int live = TrackedStream::live;
  TrackedStream* a = new TrackedStream;
  KRLLogger::replace_out(*a, 1);
  KRLLogger::replace_out(*a, 1);  // the same stream: nothing deleted
  KRLLogger::replace_err(*a, 1);
  KRLLogger::replace_log(*a, 0);
  KRLLogger::replace_out(other, 0);
  KRLLogger::replace_err(other, 0);  // the log slot still holds a, and now owns it
  EXPECT_EQ(TrackedStream::live, live + 1);
  KRLLogger::replace_log(other, 0);
  EXPECT_EQ(TrackedStream::live, live);

  fs::create_directories(native({g_dir, "log", "dir.log"}));
  EXPECT_EQ(KRLLogger::log_to("dir.log", path, sizeof path, 4), 0);  // can't open a directory
  EXPECT_EQ(&logger.log(), &other);
  for (auto replace : {KRLLogger::replace_out, KRLLogger::replace_err, KRLLogger::replace_log}) {
    replace(std::clog, 0);  // `other` is about to die
  }
}

TEST(LoggerSlots, ReplaceStreamFillsOneSlotAndKeepsTheDisplacedStreamOpen) {
  KRLLogger& logger = KRLLogger::instance();
  TrackedStream* const displaced = new TrackedStream;
  KRLLogger::replace_log(*displaced, 1);
  const std::string file = native({g_dir, "replaced.log"});
  const int live = TrackedStream::live;
  logger.replace_stream(file.c_str(), 6);
  EXPECT_EQ(TrackedStream::live, live);
  delete displaced;  // the host's again
  std::ostream* const log_now = &logger.log();
  *log_now << "log slot" << std::flush;
  EXPECT_EQ(slurp(file), "log slot");
  logger.replace_stream(native({g_dir, "no", "dir.log"}).c_str(), 4);
  EXPECT_EQ(&logger.log(), log_now);
}

TEST(LoggerDeathTest, ExitDeletesEachOwnedStreamOnce) {
  // A double delete aborts or prints a second line, a missing one prints none.
  EXPECT_EXIT(
      {
        char path[kPathSize];
        KRLLogger::log_to("exit.log", path, sizeof path, 3);
        TrackedStream* t = new TrackedStream(true);
        KRLLogger::replace_err(*t, 1);
        KRLLogger::replace_log(*t, 1);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "^deleted 1\n$");
}

// The displaced stream is the host's again: deleting it, or putting it back
// owned, must not meet a second delete by the logger at exit.
TEST(LoggerDeathTest, StreamDisplacedByReplaceStreamIsTheHostsToDeleteOrPutBack) {
  const std::string file = native({g_dir, "displacing.log"});
  for (const bool put_back : {false, true}) {
    EXPECT_EXIT(
        {
          KRLLogger& logger = KRLLogger::instance();
          TrackedStream* t = new TrackedStream(true);
          KRLLogger::replace_log(*t, 1);
          logger.replace_stream(file.c_str(), 4);
          if (put_back) {
            KRLLogger::replace_out(*t, 1);
          } else {
            delete t;
          }
          std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^deleted 1\n$")
        << put_back;
  }
}

// No log file can be opened (each name is a directory), so every slot is
// empty and err() gives std::cerr: std::cerr is still no log stream, and an
// exception on it is written as on any plain stream.
TEST(LoggerDeathTest, StandardStreamStandingInForAnEmptySlotIsNoLogStream) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process whose logger is not built yet
  const std::string adm = native({g_dir, "blocked"});
  EXPECT_EXIT(
      {
        for (const char* name : {"krlout.log", "krlerr.log", "krllog.log"}) {
          fs::create_directories(native({adm, "log", name}));
        }
        ScopedEnv env("KORLAN_ADM", adm.c_str());
        const CORBA_BAD_PARAM e(8, CORBA::COMPLETED_MAYBE);
        std::ostringstream plain;
        plain << e;
        std::ostringstream captured;
        std::streambuf* const old = std::cerr.rdbuf(captured.rdbuf());
        const bool is_cerr = &KRLLogger::instance().err() == &std::cerr;
        std::cerr << e;
        std::cerr.rdbuf(old);
        std::exit(is_cerr && captured.str() == plain.str() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
