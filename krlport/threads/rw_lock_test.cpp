#include "krlport/threads/rw_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/event.h"
#include "krlport/portable/test_support.h"
#include "krlport/threads/rw_lock_internal.h"
#include "krlport/threads/thread_test_peers.h"

namespace {

using krl_internal::rw_lock_state;
using krl_test::await;
using namespace std::chrono_literals;
using Enter = void (KRLRWLock::*)();

unsigned long asleep(KRLRWLock& l) {
  return krl_internal::rw_lock_sleeping_readers(l) + krl_internal::rw_lock_sleeping_writers(l);
}

// A thread that enters l (an upgrade from a read lock of its own), appends c
// to log and unlocks; a failed wait ends it. Returns once the thread sleeps.
std::thread sleeper(KRLRWLock& l, Enter enter, std::string& log, char c) {
  const unsigned long before = asleep(l);
  std::thread t([&l, enter, &log, c] {
    if (enter == &KRLRWLock::upgrade_to_write_lock) l.read_lock();
    try {
      (l.*enter)();
    } catch (const CORBA_NO_RESOURCES&) {
      return;
    }
    log += c;
    l.unlock();
  });
  await([&] { return asleep(l) == before + 1; });
  return t;
}

TEST(KRLRWLockTest, WaitingWriterGoesBeforeNewReaders) {
  KRLRWLock l;
  std::string log;
  l.read_lock();
  std::thread writer = sleeper(l, &KRLRWLock::write_lock, log, 'W');
  std::thread reader = sleeper(l, &KRLRWLock::read_lock, log, 'R');
  l.unlock();
  writer.join();
  reader.join();
  EXPECT_EQ(log, "WR");
}

TEST(KRLRWLockTest, UpgradeAndDowngrade) {
  KRLRWLock l;
  std::string log;
  l.read_lock();
  l.upgrade_to_write_lock();  // the last reader goes through at once
  EXPECT_EQ(rw_lock_state(l), -1);
  l.unlock();
  l.read_lock();
  std::thread upgrader = sleeper(l, &KRLRWLock::upgrade_to_write_lock, log, 'U');
  EXPECT_EQ(rw_lock_state(l), 1);  // the upgrader's read lock is gone
  l.unlock();
  upgrader.join();
  // A downgrade keeps the turn and wakes nobody, waiting writer or not.
  for (Enter enter : {&KRLRWLock::read_lock, &KRLRWLock::write_lock}) {
    l.write_lock();
    std::thread other = sleeper(l, enter, log, 'x');
    l.downgrade_to_read_lock();
    EXPECT_EQ(rw_lock_state(l), 1);
    EXPECT_EQ(asleep(l), 1u);
    l.unlock();
    other.join();
  }
  EXPECT_EQ(log, "Uxx");
}

TEST(KRLRWLockTest, GuardsUnlockOnlyWhenArmed) {
  KRLRWLock l;
  KRLWLock_var{l, 0};
  EXPECT_EQ(rw_lock_state(l), -1);
  l.unlock();
  KRLRLock_var{l, 1}.unlock();  // disarms: no second unlock at the end
  EXPECT_EQ(rw_lock_state(l), 0);
  KRLRLock_var{l, 1}.release_flag(0);
  EXPECT_EQ(rw_lock_state(l), 1);
  l.unlock();
  KRLWLock_var{l, 0}.release_flag(1);
  EXPECT_EQ(rw_lock_state(l), 0);
}

#ifndef _WIN32  // the futex sleep can be replaced there only
// The first sleep waits for g_fail_now and fails; later ones are real.
std::atomic<int> g_sleeps{0};
std::atomic<bool> g_fail_now{false};
int first_sleep_fails(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                      const krl_internal::EventDeadline* d) {
  if (g_sleeps++ != 0) return krl_internal::event_futex_sleep(word, expected, d);
  while (!g_fail_now) std::this_thread::sleep_for(1ms);
  errno = EINVAL;
  return -1;
}

// The failed writer stops holding readers back: the reader queued behind it
// gets in while the first read lock is still held.
TEST(KRLRWLockTest, FailedWriterWaitDoesNotShutReadersOut) {
  KRLRWLock l;
  std::string log;
  krl_internal::set_event_sleep_call(&first_sleep_fails);
  krl_test::stderr_of([&] {
    l.read_lock();
    std::thread writer = sleeper(l, &KRLRWLock::write_lock, log, 'W');
    await([] { return g_sleeps == 1; });  // the writer's is the first sleep
    std::thread reader = sleeper(l, &KRLRWLock::read_lock, log, 'R');
    g_fail_now = true;
    await([&] { return asleep(l) == 0; });
    writer.join();
    reader.join();
  });
  krl_internal::set_event_sleep_call(nullptr);
  EXPECT_EQ(log, "R");
  l.unlock();
  l.write_lock();  // still usable
  l.unlock();
}
#endif

// Readers never overlap a writer, nor writers each other; ThreadSanitizer
// checks that what writers wrote is ordered before what readers read.
TEST(KRLRWLockTest, StressReadersNeverOverlapAWriter) {
  KRLRWLock l;
  std::atomic<int> readers{0};
  std::atomic<int> writers{0};
  std::atomic<int> faults{0};
  long data = 0;
  const auto read = [&](Enter enter) {
    (l.*enter)();
    ++readers;
    if (writers != 0 || data < 0) ++faults;
    --readers;
  };
  const auto write = [&](Enter enter) {
    (l.*enter)();
    if (++writers != 1 || readers != 0) ++faults;
    ++data;
    --writers;
  };
  std::vector<std::thread> threads;
  for (unsigned t = 1; t <= 4; ++t) {
    threads.emplace_back([&, t] {
      std::minstd_rand random(t);
      for (int i = 0; i < 4000; ++i) {
        const unsigned kind = random() % 10;  // 0-1: write, 2: upgrade, 3: downgrade, else read
        kind < 2 || kind == 3 ? write(&KRLRWLock::write_lock) : read(&KRLRWLock::read_lock);
        if (kind == 2) write(&KRLRWLock::upgrade_to_write_lock);
        if (kind == 3) read(&KRLRWLock::downgrade_to_read_lock);
        l.unlock();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(rw_lock_state(l), 0);
}

// Threads that start together race a release against a thread that is
// about to sleep: readers leaving while a writer finds them inside, and a
// writer leaving while readers find it inside. A release that misses the
// sleeper hangs the join; ThreadSanitizer checks the hand-over of `data`.
TEST(KRLRWLockTest, ReleaseRacingASleeperWakesIt) {
  for (int round = 0; round < 300; ++round) {
    KRLRWLock l;
    long data = 0;
    std::atomic<int> go{0};
    const auto start = [&go] {
      ++go;
      while (go < 3) std::this_thread::yield();
    };
    const bool writer_first = round % 2 == 0;
    if (writer_first) {
      l.write_lock();
    } else {
      l.read_lock();
    }
    std::thread a([&] {
      start();
      l.read_lock();
      EXPECT_GE(data, writer_first ? 1 : 0);
      l.unlock();
    });
    std::thread b([&] {
      start();
      l.write_lock();
      ++data;
      l.unlock();
    });
    start();
    if (writer_first) data = 1;
    l.unlock();
    a.join();
    b.join();
    EXPECT_EQ(rw_lock_state(l), 0);
  }
}

// The second thread in destroys the lock as soon as it has released it,
// while the first may still be inside its unlock: a last reader waking a
// waiting writer, a writer waking readers or a writer, or a writer whose
// unlock found nobody to wake. The lock is on the heap, so AddressSanitizer
// sees a touch after the free, and ThreadSanitizer one not ordered before it.
TEST(KRLRWLockTest, ThreadThatGetsTheLockMayDestroyItAtOnce) {
  for (int round = 0; round < 2000; ++round) {
    KRLRWLock* l = new KRLRWLock;
    std::atomic<int> entered{0};
    const auto use = [l, &entered](Enter enter) {
      (l->*enter)();
      const bool second = entered.fetch_add(1) == 1;
      l->unlock();
      if (second) delete l;
    };
    const Enter first = round % 2 == 0 ? &KRLRWLock::read_lock : &KRLRWLock::write_lock;
    std::thread a(use, first), b(use, &KRLRWLock::write_lock);
    a.join();
    b.join();
  }
}

}  // namespace
