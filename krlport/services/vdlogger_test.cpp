#include "krlport/services/vdlogger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>
#include <vector>

#include "krlport/portable/test_support.h"
#include "krlport/services/debug_log.h"

namespace {

namespace fs = std::filesystem;
using krl_internal::end_record;
using krl_test::slurp;

long heads(const std::string& text) {
  static const std::regex head("=> ");
  return std::distance(std::sregex_iterator(text.begin(), text.end(), head), {});
}

struct LogFile {  // a logger on a file of its own, with mask enabled
  explicit LogFile(unsigned long mask = 1) : log(file.c_str()) { log.enable(mask); }
  krl_test::TempDir dir;
  const std::string file = dir.path() + "/d.log";
  krl_internal::KRLDebugLogger log;
};

TEST(DebugLoggerRecord, ExactFormatNestingAndMaskFilter) {
  LogFile f(0x10000001);
  f.log << "outside a record";
  f.log.begin_record(0x2a, 0x10000002, "src.cpp", 17) << "n=" << -5L << " ";
  f.log.begin_record(2, 0x10000002, "inner", 2) << static_cast<const char*>(nullptr) << end_record;
  f.log << "dropped" << end_record;  // the thread hangs if a lock level was kept
  std::thread([&f] { f.log.begin_record(4, 0x10000001, "t", 4) << "c" << end_record; }).join();
  std::smatch m;
  const std::string text = slurp(f.file);
  const std::regex format(
      "=> (.{24}),2a,10000002,src\\.cpp,17,(\\d+)\n"
      "n=-5 <null>\n=> .{24},04,10000001,t,4,\\d+\nc\n");
  ASSERT_TRUE(std::regex_match(text, m, format));
  const std::time_t at = std::stol(m[2].str());
  EXPECT_EQ(m[1].str(), std::string(std::ctime(&at), 24));
  EXPECT_EQ(fs::status(f.file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  const struct {
    unsigned long on, off, record;
    bool enabled, passes;
  } cases[] = {
      {0x10000001, 0, 0x10000002, true, true},             // top bits shared
      {0x00000002, 0, 0x00000004, false, false},           // word 0 is exact
      {0x40000001, 0, 0x20000001, false, false},           // another word
      {0x00000001, 0, 0x80000000, false, true},            // pass-all bit
      {0x20000003, 0x20000001, 0x20000004, false, false},  // disable clears the top bits too
      {0x80000000, 0, 0x180000000, true, true},            // only the low 32 bits count
  };
  for (const auto& c : cases) {
    LogFile g(c.on);
    g.log.disable(c.off);
    EXPECT_EQ(g.log.is_enabled(c.record), c.enabled) << std::hex << c.record;
    g.log.begin_record(0, c.record, "m", 0) << end_record;
    EXPECT_EQ(heads(slurp(g.file)), c.passes ? 1 : 0) << std::hex << c.record;
  }
  EXPECT_EQ(KRLDebugLog::enable(0x30000000), 0);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(krl_internal::KRLDebugLogger().begin_record(0, 0x30000000, "m", 0), "i != -1");
}

TEST(DebugLoggerRollOver, EveryFiveHundredthRecordChecksTheSizeAndOneBackupStays) {
  LogFile f;
  f.log.set_max_size(1);
  auto write = [&f](long from, long to) {
    for (long i = from; i <= to; ++i) f.log.begin_record(0, 1, "r", 0) << "#" << i << end_record;
  };
  write(1, 499);
  ASSERT_EQ(::truncate(f.file.c_str(), 1023), 0);  // cut down from over 1 KiB
  write(500, 999);                                 // the check at 500 finds one byte short
  EXPECT_FALSE(fs::exists(f.file + "o"));
  ASSERT_EQ(::truncate(f.file.c_str(), 1024), 0);
  write(1000, 1500);
  EXPECT_EQ(heads(slurp(f.file + "o")), 500);  // 1000 to 1499: the first backup was replaced
  EXPECT_EQ(slurp(f.file).find("\n#1500\n"), slurp(f.file).find('\n'));
}

TEST(DebugLoggerThreads, ConcurrentRecordsComeOutWholeAcrossARollOver) {
  LogFile f(0x10000001);
  f.log.set_max_size(1);
  constexpr int kThreads = 4, kRecords = 200;
  std::vector<std::thread> threads;
  for (long t = 0; t < kThreads; ++t)
    threads.emplace_back([&f, t] {
      for (long i = 0; i < kRecords; ++i) {
        f.log.begin_record(t, 0x10000001, "t", i) << t << " " << i << end_record;
        // A writer that locks against a reader that doesn't.
        if (i % 50 == 0 && f.log.is_enabled(0x10000001)) f.log.enable(0x10000001);
      }
    });
  for (std::thread& t : threads) t.join();
  std::istringstream lines(slurp(f.file + "o") + slurp(f.file));
  int n = 0;
  std::smatch m;
  for (std::string line, body; std::getline(lines, line) && std::getline(lines, body); ++n) {
    ASSERT_TRUE(std::regex_match(line, m, std::regex("=> .{24},0(\\d),10000001,t,(\\d+),\\d+")));
    EXPECT_EQ(body, m[1].str() + " " + m[2].str());
  }
  EXPECT_EQ(n, kThreads * kRecords);
}

// The log's file is /dev/full, named through a link in the log directory:
// every flush fails as on a full disk, and record must say that it wrote
// nothing. A filtered record is no failure. The device keeps its mode.
TEST(DebugLogDeathTest, RecordThatCouldNotBeWrittenGivesZero) {
  struct stat before;
  ASSERT_EQ(::stat("/dev/full", &before), 0);
  const std::string dir = std::string(std::getenv("KORLAN_ADM")) + "/log";
  fs::create_directories(dir);
  fs::create_symlink("/dev/full", dir + "/full.log");
  EXPECT_EXIT(
      {
        char path[4096];
        const bool named = KRLDebugLog::log_to("full.log", path, sizeof path) == 1;
        KRLDebugLog::enable(0x10000001);
        const int full = KRLDebugLog::record(1, 0x10000001, "t", 1, "lost");
        const int filtered = KRLDebugLog::record(1, 0x20000001, "t", 2, "filtered");
        std::exit(named && full == 0 && filtered == 1 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  struct stat after;
  ASSERT_EQ(::stat("/dev/full", &after), 0);
  EXPECT_EQ(after.st_mode, before.st_mode);
  fs::remove(dir + "/full.log");
}

}  // namespace
