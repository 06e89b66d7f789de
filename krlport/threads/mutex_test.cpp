#include "krlport/threads/mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include "krlport/platform/lock.h"

namespace {

// Whether some other thread holds m: asks from a thread of its own, which
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

// A KRLIMutex that only counts the calls a guard makes.
class CountingMutex : public KRLIMutex {
 public:
  void v_lock() override { ++locks; }
  void v_unlock() override { ++unlocks; }
  int locks = 0;
  int unlocks = 0;
};

// What the library writes before it aborts on a misused lock.
constexpr char kBadUnlock[] = "lock_release failed: Operation not permitted";
constexpr char kBadDestroy[] = "lock_destroy failed: Device or resource busy";

// Restores the process-wide shutdown flag at the end of a test.
class ShutdownFlagScope {
 public:
  explicit ShutdownFlagScope(unsigned char flag) { krl_internal::set_mutex_shutdown_flag(flag); }
  ~ShutdownFlagScope() { krl_internal::set_mutex_shutdown_flag(0); }
};

TEST(KRLMutexTest, RecursiveOwnerKeepsOthersOutUntilLastUnlock) {
  KRLMutex m;
  int stage = 0;  // written under m only; a lock that lets the thread in early races here
  int stage_seen = -1;
  std::atomic<bool> trying{false};

  m.lock();
  m.lock();
  std::thread other([&] {
    trying = true;
    m.lock();
    stage_seen = stage;
    m.unlock();
  });
  while (!trying) std::this_thread::yield();
  stage = 1;
  m.unlock();
  // Give the other thread every chance to slip in at depth 1.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_TRUE(held_elsewhere(m));
  stage = 2;
  m.unlock();
  other.join();
  EXPECT_EQ(stage_seen, 2);
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLMutexTest, CounterLosesNoIncrementUnderContention) {
  KRLMutex m;
  long counter = 0;  // guarded by m
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        if (t % 2 == 0) {
          KRLMutex_var guard(m, 1);
          ++counter;
        } else {
          KRLIMutex_var guard(&m, 1);
          ++counter;
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, long{kThreads} * kRounds);
}

TEST(KRLMutexTest, UnlockByThreadThatDoesNotOwnItAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        KRLMutex m;
        m.unlock();
      },
      kBadUnlock);
}

// Destroying a held mutex is the one failure a destructor can see, so it
// shows whether ~KRLMutex gave the platform lock back.
TEST(KRLMutexShutdownTest, DestructionDeletesPlatformLockWhileFlagIsClear) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        alignas(KRLMutex) unsigned char buf[sizeof(KRLMutex)];
        KRLMutex* m = new (buf) KRLMutex;
        m->lock();
        m->KRLMutex::~KRLMutex();
      },
      kBadDestroy);
}

TEST(KRLMutexShutdownTest, DestructionLeavesPlatformLockWhileFlagIsSet) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        krl_internal::set_mutex_shutdown_flag(1);
        alignas(KRLMutex) unsigned char buf[sizeof(KRLMutex)];
        KRLMutex* m = new (buf) KRLMutex;
        m->lock();
        m->KRLMutex::~KRLMutex();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(KRLMutexShutdownTest, ShutdownOnLinuxLeavesFlagClear) {
  ASSERT_EQ(krl_internal::mutex_shutdown_flag(), 0);
  KRLMutex::shutdown();
  EXPECT_EQ(krl_internal::mutex_shutdown_flag(), 0);
}

TEST(KRLMutexShutdownTest, MutexStaysUsableWhileFlagIsSet) {
  ShutdownFlagScope flag(1);
  KRLMutex m;
  {
    KRLMutex_var guard(m, 1);
    EXPECT_TRUE(held_elsewhere(m));
  }
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLMutexVarTest, FlagZeroLeavesMutexLockedAfterScope) {
  KRLMutex m;
  { KRLMutex_var guard(m, 0); }
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLMutexVarTest, HandUnlockedGuardUnlocksExactlyOnce) {
  KRLMutex m;
  m.lock();  // one level of our own, which must survive the guard
  {
    KRLMutex_var guard(m, 1);
    guard.unlock();
    EXPECT_EQ(guard.release_flag(), 0);
  }
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLMutexVarTest, UnlockThenLockRearms) {
  KRLMutex m;
  {
    KRLMutex_var guard(m, 1);
    guard.unlock();
    EXPECT_FALSE(held_elsewhere(m));
    guard.lock();
    EXPECT_EQ(guard.release_flag(), 1);
    EXPECT_TRUE(held_elsewhere(m));
  }
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLMutexVarTest, UnlockOfDisarmedGuardStillUnlocks) {
  KRLMutex m;
  m.lock();
  {
    KRLMutex_var guard(m, 0);  // depth 2
    guard.unlock();            // depth 1
  }
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLMutexVarTest, ReleaseFlagZeroKeepsLockPastScope) {
  KRLMutex m;
  {
    KRLMutex_var guard(m, 1);
    guard.release_flag(0);
    EXPECT_EQ(static_cast<KRLMutex*>(guard), &m);
    EXPECT_EQ(guard.operator->(), &m);
  }
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
}

TEST(KRLDMutexVarTest, DefaultGuardHoldsNothing) {
  KRLMutex m;
  {
    KRLDMutex_var guard;
    EXPECT_EQ(static_cast<KRLMutex*>(guard), nullptr);
    EXPECT_EQ(guard.release_flag(), 1);
    guard.unlock();
    EXPECT_EQ(guard.release_flag(), 1);
  }
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLDMutexVarTest, ConstructedWithMutexLocksAndUnlocks) {
  KRLMutex m;
  {
    KRLDMutex_var guard(&m);
    EXPECT_TRUE(held_elsewhere(m));
    EXPECT_EQ(guard.operator->(), &m);
  }
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLDMutexVarTest, SetNullStaysEmptyThenSetMutexLocksIt) {
  KRLMutex m;
  {
    KRLDMutex_var guard;
    guard.set(nullptr);
    EXPECT_EQ(static_cast<KRLMutex*>(guard), nullptr);
    guard.set(&m);
    EXPECT_EQ(static_cast<KRLMutex*>(guard), &m);
    EXPECT_TRUE(held_elsewhere(m));
  }
  EXPECT_FALSE(held_elsewhere(m));
}

TEST(KRLDMutexVarTest, SetOnDisarmedEmptyGuardLeavesMutexLocked) {
  KRLMutex m;
  {
    KRLDMutex_var guard(nullptr, 0);
    guard.set(&m);
    EXPECT_EQ(guard.release_flag(), 0);
  }
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
}

TEST(KRLDMutexVarTest, UnlockDisarmsAndKeepsMutex) {
  KRLMutex m;
  {
    KRLDMutex_var guard(&m);
    guard.unlock();
    EXPECT_EQ(guard.release_flag(), 0);
    EXPECT_EQ(static_cast<KRLMutex*>(guard), &m);
    EXPECT_FALSE(held_elsewhere(m));
  }
  // Had the destructor unlocked again, this lock would be released twice.
  m.lock();
  EXPECT_TRUE(held_elsewhere(m));
  m.unlock();
}

TEST(KRLDMutexVarTest, SetOnGuardWithMutexAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  KRLMutex m1, m2;
  EXPECT_DEATH(
      {
        KRLDMutex_var guard(&m1);
        guard.set(&m2);
      },
      "^Assertion failed: _mtx == \\(KRLMutex \\*\\)NULL, file vthread, line 247\n");
}

TEST(KRLDMutexVarTest, SetAfterUnlockAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  KRLMutex m;
  EXPECT_DEATH(
      {
        KRLDMutex_var guard(&m);
        guard.unlock();
        guard.set(&m);
      },
      "_mtx == \\(KRLMutex \\*\\)NULL");
}

TEST(KRLIMutexVarTest, LocksWhateverTheFlagAndUnlocksOnlyWhenArmed) {
  CountingMutex armed, disarmed;
  {
    KRLIMutex_var a(&armed, 1);
    KRLIMutex_var d(&disarmed, 0);
    EXPECT_EQ(armed.locks, 1);
    EXPECT_EQ(disarmed.locks, 1);
  }
  EXPECT_EQ(armed.unlocks, 1);
  EXPECT_EQ(disarmed.unlocks, 0);
}

TEST(KRLIMutexVarTest, UnlockDisarmsAndLockRearms) {
  CountingMutex m;
  {
    KRLIMutex_var guard(&m, 1);
    guard.unlock();
    guard.unlock();  // unlocks again, armed or not
  }
  EXPECT_EQ(m.locks, 1);
  EXPECT_EQ(m.unlocks, 2);
  {
    KRLIMutex_var guard(&m, 0);
    guard.lock();
  }
  EXPECT_EQ(m.locks, 3);
  EXPECT_EQ(m.unlocks, 3);
}

TEST(KRLIMutexVarTest, AssignmentCopiesPointerAndFlagWithoutLocking) {
  CountingMutex first, second;
  {
    KRLIMutex_var a(&first, 1);
    KRLIMutex_var b(&second, 0);
    b = a;
    EXPECT_EQ(first.locks, 1);
    EXPECT_EQ(second.locks, 1);
    EXPECT_EQ(first.unlocks + second.unlocks, 0);
  }
  // Both guards now point at `first`, both armed.
  EXPECT_EQ(first.unlocks, 2);
  EXPECT_EQ(second.unlocks, 0);
}

}  // namespace
