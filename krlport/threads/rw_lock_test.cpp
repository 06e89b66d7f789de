#include "krlport/threads/rw_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/event.h"
#include "krlport/platform/lock.h"

namespace {

using Clock = std::chrono::steady_clock;
using krl_internal::rw_lock_sleeping_readers;
using krl_internal::rw_lock_sleeping_writers;
using krl_internal::rw_lock_state;
using krl_internal::rw_lock_waiting_writers;
using std::chrono::milliseconds;

// Polls until pred holds. A wait that needs more than 20 s is a hang: the
// process ends with a message rather than blocking the test run.
template <class Pred>
void await(Pred pred, const char* what) {
  const Clock::time_point limit = Clock::now() + std::chrono::seconds(20);
  while (!pred()) {
    if (Clock::now() > limit) {
      // Reported on stdout: a test may be capturing stderr.
      ADD_FAILURE() << "hang: still waiting for " << what;
      std::abort();
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
}

// Whether another thread holds m: probes from a thread of its own, which
// never blocks and leaves m as it found it.
bool held_elsewhere(KRLMutex& m) {
  bool got = false;
  std::thread probe([&] {
    got = krl_internal::lock_try_acquire(krl_internal::lock_of(m));
    if (got) m.unlock();
  });
  probe.join();
  return !got;
}

// Entries of threads that got in, in order.
class Log {
 public:
  void add(char c) {
    std::lock_guard<std::mutex> hold(_mutex);
    _text += c;
  }
  std::string text() {
    std::lock_guard<std::mutex> hold(_mutex);
    return _text;
  }

 private:
  std::mutex _mutex;
  std::string _text;
};

TEST(KRLRWLockTest, ReadersShareTheLock) {
  KRLRWLock l;
  std::atomic<int> inside{0};
  std::atomic<bool> leave{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      l.read_lock();
      ++inside;
      await([&] { return leave.load(); }, "leave");
      l.unlock();
    });
  }
  await([&] { return inside == 4; }, "four readers inside");
  EXPECT_EQ(rw_lock_state(l), 4);
  leave = true;
  for (std::thread& t : readers) t.join();
  EXPECT_EQ(rw_lock_state(l), 0);
}

TEST(KRLRWLockTest, WriterWaitsForTheLastReader) {
  KRLRWLock l;
  std::atomic<bool> other_reader_in{false};
  std::atomic<bool> other_reader_leave{false};
  std::atomic<bool> writer_in{false};
  l.read_lock();
  std::thread reader([&] {
    l.read_lock();
    other_reader_in = true;
    await([&] { return other_reader_leave.load(); }, "leave");
    l.unlock();
  });
  await([&] { return other_reader_in.load(); }, "second reader");
  std::thread writer([&] {
    l.write_lock();
    writer_in = true;
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_writers(l) == 1; }, "writer asleep");
  EXPECT_EQ(rw_lock_waiting_writers(l), 1u);
  other_reader_leave = true;
  reader.join();
  EXPECT_EQ(rw_lock_state(l), 1);
  EXPECT_EQ(rw_lock_sleeping_writers(l), 1u);  // one reader is still inside
  EXPECT_FALSE(writer_in);
  l.unlock();
  writer.join();
  EXPECT_TRUE(writer_in);
  EXPECT_EQ(rw_lock_state(l), 0);
  EXPECT_EQ(rw_lock_waiting_writers(l), 0u);
}

TEST(KRLRWLockTest, WaitingWriterHoldsBackNewReaders) {
  KRLRWLock l;
  Log log;
  l.read_lock();
  std::thread writer([&] {
    l.write_lock();
    log.add('W');
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_writers(l) == 1; }, "writer asleep");
  std::thread reader([&] {
    l.read_lock();
    log.add('R');
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_readers(l) == 1; }, "reader asleep");
  EXPECT_EQ(rw_lock_state(l), 1);
  l.unlock();
  writer.join();
  reader.join();
  EXPECT_EQ(log.text(), "WR");
}

TEST(KRLRWLockTest, WriterReleaseWakesOneWriterAndReadersWaitForAllWriters) {
  KRLRWLock l;
  Log log;
  std::atomic<bool> writers_go{false};
  l.write_lock();
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      l.write_lock();
      log.add('W');
      await([&] { return writers_go.load(); }, "writers_go");
      l.unlock();
    });
  }
  await([&] { return rw_lock_sleeping_writers(l) == 2; }, "writers asleep");
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      l.read_lock();
      log.add('R');
      l.unlock();
    });
  }
  await([&] { return rw_lock_sleeping_readers(l) == 2; }, "readers asleep");
  l.unlock();
  EXPECT_EQ(rw_lock_sleeping_writers(l), 1u);
  EXPECT_EQ(rw_lock_sleeping_readers(l), 2u);
  await([&] { return log.text() == "W"; }, "the first writer");
  EXPECT_EQ(rw_lock_sleeping_writers(l), 1u);
  EXPECT_EQ(rw_lock_sleeping_readers(l), 2u);
  writers_go = true;
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(log.text(), "WWRR");
}

TEST(KRLRWLockTest, LastReadersUpgradeGoesThroughAtOnce) {
  KRLRWLock l;
  l.read_lock();
  l.upgrade_to_write_lock();
  EXPECT_EQ(rw_lock_state(l), -1);
  EXPECT_EQ(rw_lock_waiting_writers(l), 0u);
  l.unlock();
  EXPECT_EQ(rw_lock_state(l), 0);
}

TEST(KRLRWLockTest, UpgradeWaitsUntilTheOtherReaderLeaves) {
  KRLRWLock l;
  std::atomic<bool> upgraded{false};
  l.read_lock();
  std::thread upgrader([&] {
    l.read_lock();
    l.upgrade_to_write_lock();
    upgraded = true;
    EXPECT_EQ(rw_lock_state(l), -1);
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_writers(l) == 1; }, "upgrader asleep");
  EXPECT_EQ(rw_lock_state(l), 1);  // its read lock is gone already
  EXPECT_FALSE(upgraded);
  l.unlock();
  upgrader.join();
  EXPECT_TRUE(upgraded);
  EXPECT_EQ(rw_lock_state(l), 0);
}

TEST(KRLRWLockTest, TwoReadersUpgradingAtOnceBothGetThrough) {
  KRLRWLock l;
  std::atomic<int> readers{0};
  int writes = 0;  // written under the write lock
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      l.read_lock();
      ++readers;
      await([&] { return readers == 2; }, "both readers");
      l.upgrade_to_write_lock();
      ++writes;
      l.unlock();
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(writes, 2);
  EXPECT_EQ(rw_lock_state(l), 0);
}

TEST(KRLRWLockTest, DowngradeWithoutWaitingWritersWakesNobody) {
  KRLRWLock l;
  std::atomic<bool> reader_in{false};
  l.write_lock();
  std::thread reader([&] {
    l.read_lock();
    reader_in = true;
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_readers(l) == 1; }, "reader asleep");
  l.downgrade_to_read_lock();
  EXPECT_EQ(rw_lock_state(l), 1);
  EXPECT_EQ(rw_lock_sleeping_readers(l), 1u);  // it sleeps until the next unlock
  EXPECT_FALSE(reader_in);
  l.unlock();
  reader.join();
  EXPECT_TRUE(reader_in);
  EXPECT_EQ(rw_lock_state(l), 0);
}

// The downgrading writer keeps its turn: it becomes the reader inside at
// once, and the waiting writer enters after that reader leaves.
TEST(KRLRWLockTest, DowngradeWithAWaitingWriterDoesNotHang) {
  KRLRWLock l;
  std::atomic<bool> writer_in{false};
  l.write_lock();
  std::thread writer([&] {
    l.write_lock();
    writer_in = true;
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_writers(l) == 1; }, "writer asleep");
  l.downgrade_to_read_lock();
  EXPECT_EQ(rw_lock_state(l), 1);
  EXPECT_EQ(rw_lock_waiting_writers(l), 1u);
  EXPECT_FALSE(writer_in);
  l.unlock();
  writer.join();
  EXPECT_TRUE(writer_in);
  EXPECT_EQ(rw_lock_state(l), 0);
}

TEST(KRLRWLockTest, GuardsUnlockOnlyWhenArmed) {
  KRLRWLock l;
  { KRLWLock_var g(l, 0); }
  EXPECT_EQ(rw_lock_state(l), -1);  // flag 0 leaves the lock held
  l.unlock();
  EXPECT_EQ(rw_lock_state(l), 0);

  { KRLWLock_var g(l, 1); }
  EXPECT_EQ(rw_lock_state(l), 0);

  {
    KRLRLock_var g(l, 1);
    EXPECT_EQ(g.release_flag(), 1);
    g.unlock();
    EXPECT_EQ(g.release_flag(), 0);
    EXPECT_EQ(rw_lock_state(l), 0);
  }
  EXPECT_EQ(rw_lock_state(l), 0);  // a second unlock would have left -1

  {
    KRLRLock_var g(l, 1);
    g.release_flag(0);
  }
  EXPECT_EQ(rw_lock_state(l), 1);
  l.unlock();

  {
    KRLWLock_var g(l, 0);
    g.release_flag(1);
  }
  EXPECT_EQ(rw_lock_state(l), 0);
}

// Sleeps of threads that set t_fail_sleeps wait until g_release_failures and
// then fail; all others sleep for real.
thread_local bool t_fail_sleeps = false;
std::atomic<bool> g_release_failures{false};
int selectively_failing_sleep(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                              const timespec* deadline) {
  if (!t_fail_sleeps) return krl_internal::event_futex_sleep(word, expected, deadline);
  while (!g_release_failures) std::this_thread::sleep_for(milliseconds(1));
  errno = EINVAL;
  return -1;
}

class FailingSleepScope {
 public:
  FailingSleepScope() : _previous(krl_internal::set_event_sleep_call(&selectively_failing_sleep)) {
    g_release_failures = false;
    testing::internal::CaptureStderr();
  }
  ~FailingSleepScope() {
    testing::internal::GetCapturedStderr();
    krl_internal::set_event_sleep_call(_previous);
  }

 private:
  krl_internal::EventSleepCall _previous;
};

// A writer whose wait fails stops counting as waiting, so readers are not
// held out for good; the readers that queued behind it are woken at once.
TEST(KRLRWLockTest, FailedWriterWaitStopsHoldingReadersBack) {
  KRLRWLock l;
  FailingSleepScope failing;
  l.read_lock();
  std::thread writer([&] {
    t_fail_sleeps = true;
    EXPECT_THROW(l.write_lock(), CORBA_NO_RESOURCES);
  });
  await([&] { return rw_lock_sleeping_writers(l) == 1; }, "writer registered");
  std::atomic<bool> reader_in{false};
  std::thread reader([&] {
    l.read_lock();
    reader_in = true;
    l.unlock();
  });
  await([&] { return rw_lock_sleeping_readers(l) == 1; }, "reader asleep");
  g_release_failures = true;
  writer.join();
  // The reader gets in while the first read lock is still held.
  await([&] { return reader_in.load(); }, "reader after the failed writer");
  reader.join();
  EXPECT_EQ(rw_lock_waiting_writers(l), 0u);
  EXPECT_EQ(rw_lock_sleeping_writers(l), 0u);
  EXPECT_FALSE(held_elsewhere(krl_internal::rw_lock_mutex(l)));
  EXPECT_EQ(rw_lock_state(l), 1);
  l.unlock();
  l.write_lock();  // still usable
  l.unlock();
}

TEST(KRLRWLockTest, FailedUpgradeLeavesTheCallerWithoutALock) {
  KRLRWLock l;
  FailingSleepScope failing;
  g_release_failures = true;
  l.read_lock();
  std::thread upgrader([&] {
    t_fail_sleeps = true;
    l.read_lock();
    EXPECT_THROW(l.upgrade_to_write_lock(), CORBA_NO_RESOURCES);
  });
  upgrader.join();
  EXPECT_EQ(rw_lock_state(l), 1);  // only the main thread's read lock
  EXPECT_EQ(rw_lock_waiting_writers(l), 0u);
  EXPECT_FALSE(held_elsewhere(krl_internal::rw_lock_mutex(l)));
  l.unlock();
  EXPECT_EQ(rw_lock_state(l), 0);
}

// Readers never overlap a writer, writers never overlap each other, and
// what a writer wrote is seen whole by the next reader (ThreadSanitizer
// checks the ordering of the plain fields).
TEST(KRLRWLockTest, StressReadersNeverOverlapAWriter) {
  constexpr int kThreads = 4;
  constexpr int kOps = 4000;
  KRLRWLock l;
  std::atomic<int> readers_in{0};
  std::atomic<int> writers_in{0};
  std::atomic<int> violations{0};
  long first = 0;  // first == second whenever no writer is inside
  long second = 0;
  const auto read_section = [&] {
    ++readers_in;
    if (writers_in != 0) ++violations;
    if (first != second) ++violations;
    --readers_in;
  };
  const auto write_section = [&] {
    if (++writers_in != 1 || readers_in != 0) ++violations;
    ++first;
    ++second;
    --writers_in;
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::minstd_rand random(static_cast<unsigned>(t + 1));
      for (int i = 0; i < kOps; ++i) {
        switch (random() % 10) {
          case 0:
          case 1:
            l.write_lock();
            write_section();
            l.unlock();
            break;
          case 2:
            l.read_lock();
            read_section();
            l.upgrade_to_write_lock();
            write_section();
            l.unlock();
            break;
          case 3:
            l.write_lock();
            write_section();
            l.downgrade_to_read_lock();
            read_section();
            l.unlock();
            break;
          default:
            l.read_lock();
            read_section();
            l.unlock();
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(violations, 0);
  EXPECT_EQ(first, second);
  EXPECT_EQ(rw_lock_state(l), 0);
  EXPECT_EQ(rw_lock_waiting_writers(l), 0u);
}

}  // namespace
