#include "krlport/services/vdlogger.h"

#include <gtest/gtest.h>

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
#ifdef _WIN32
  // Only the read-only attribute exists: the file must stay writable.
  EXPECT_NE(fs::status(f.file).permissions() & fs::perms::owner_write, fs::perms::none);
#else
  EXPECT_EQ(fs::status(f.file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
#endif
  const struct {
    unsigned long on, off, record;
    bool enabled, passes;
  } cases[] = {
      {0x10000001, 0, 0x10000002, true, true},             // top bits shared
      {0x00000002, 0, 0x00000004, false, false},           // word 0 is exact
      {0x40000001, 0, 0x20000001, false, false},           // another word
      {0x00000001, 0, 0x80000000, false, true},            // pass-all bit
      {0x20000003, 0x20000001, 0x20000004, false, false},  // disable clears the top bits too
      // Only the low 32 bits count (where unsigned long has more).
      {0x80000000, 0, static_cast<unsigned long>(0x180000000ull), true, true},
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
  fs::resize_file(f.file, 1023);  // cut down from over 1 KiB
  write(500, 999);                // the check at 500 finds one byte short
  EXPECT_FALSE(fs::exists(f.file + "o"));
  fs::resize_file(f.file, 1024);
  write(1000, 1500);
  EXPECT_EQ(heads(slurp(f.file + "o")), 500);  // 1000 to 1499: the first backup was replaced
  EXPECT_EQ(slurp(f.file).find("\n#1500\n"), slurp(f.file).find('\n'));

  // 4 GiB in KiB: where unsigned long is 32 bits the limit must not wrap
  // round to 0, which would roll a small file over.
  f.log.set_max_size(0x400000);
  write(1501, 2000);
  EXPECT_EQ(heads(slurp(f.file)), 501);  // #1500 to #2000
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

// record must say when it wrote nothing, and a filtered record is no
// failure. One file per process: each case in a child of its own.
int record_outcome(const char* file) {
  char path[4096];
  const bool named = KRLDebugLog::log_to(file, path, sizeof path) == 1;
  KRLDebugLog::enable(0x10000001);
  const int lost = KRLDebugLog::record(1, 0x10000001, "t", 1, "lost");
  const int filtered = KRLDebugLog::record(1, 0x20000001, "t", 2, "filtered");
  return named && lost == 0 && filtered == 1 ? 0 : 1;
}

const std::string g_log_dir =
    (fs::path(std::getenv("KORLAN_ADM")).make_preferred() / "log").string();

TEST(DebugLogDeathTest, RecordWhoseFileCannotBeOpenedGivesZero) {
  fs::create_directories(g_log_dir + "/dir.log");
  EXPECT_EXIT(std::exit(record_outcome("dir.log")), ::testing::ExitedWithCode(0), "");
}

// The log's file is /dev/full, named through a link in the log directory:
// every flush fails as on a full disk. The device keeps its mode.
TEST(DebugLogDeathTest, RecordThatCouldNotBeWrittenGivesZero) {
#ifdef _WIN32
  GTEST_SKIP() << "no device that fails writes as a full disk does";
#else
  const fs::perms before = fs::status("/dev/full").permissions();
  fs::create_directories(g_log_dir);
  fs::create_symlink("/dev/full", g_log_dir + "/full.log");
  EXPECT_EXIT(std::exit(record_outcome("full.log")), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(fs::status("/dev/full").permissions(), before);
  fs::remove(g_log_dir + "/full.log");
#endif
}

}  // namespace
