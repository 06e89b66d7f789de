#include "krlport/threads/spin_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "krlport/platform/thread.h"
#include "krlport/threads/spin_pool.h"

// The global allocator of this test binary: fresh blocks come filled with
// garbage, so "zeroed" means the pool zeroed them; deletions of one watched
// block are seen; a nothrow allocation can be made to fail on request.
namespace {
std::atomic<void*> g_watched{nullptr};
std::atomic<bool> g_watched_deleted{false};
std::atomic<bool> g_fail_nothrow{false};

void* allocate(std::size_t n) {
  void* p = std::malloc(n == 0 ? 1 : n);
  if (p != nullptr) std::memset(p, 0xA5, n);
  return p;
}

void deallocate(void* p) {
  if (p != nullptr && p == g_watched.load()) g_watched_deleted = true;
  std::free(p);
}
}  // namespace

void* operator new(std::size_t n) {
  void* p = allocate(n);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  if (g_fail_nothrow.exchange(false)) return nullptr;
  return allocate(n);
}
void* operator new[](std::size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { deallocate(p); }
void operator delete(void* p, std::size_t) noexcept { deallocate(p); }
void operator delete[](void* p) noexcept { deallocate(p); }
void operator delete[](void* p, std::size_t) noexcept { deallocate(p); }

namespace {

using krl_internal::record_of;
using krl_internal::word_of;

long load(const long* word) { return __atomic_load_n(word, __ATOMIC_SEQ_CST); }
unsigned long owner_of(const KRLRSpinMutex& m) {
  return __atomic_load_n(&record_of(m)->_owner, __ATOMIC_SEQ_CST);
}

// Empties a pool for the length of a test and gives the blocks back after.
template <class Pool, class Block>
class DrainedPool {
 public:
  DrainedPool() : pool(Pool::instance()) {
    while (pool.count() > 0) _taken.push_back(pool.get());
  }
  ~DrainedPool() {
    for (Block* b : _taken) pool.put(b);
  }
  Pool& pool;

 private:
  std::vector<Block*> _taken;
};
using DrainedWordPool = DrainedPool<KRLSpinWordPool, long>;
using DrainedRecordPool = DrainedPool<KRLSpinRecordPool, KRLSpinRecord>;

TEST(KRLSpinMutexTest, CounterLosesNoIncrement) {
  KRLSpinMutex m;
  long counter = 0;  // guarded by m
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        m.lock();
        ++counter;
        m.unlock();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, long{kThreads} * kRounds);
  EXPECT_EQ(load(word_of(m)), 0);
}

TEST(KRLSpinMutexTest, GuardReachesItThroughVirtualOperations) {
  KRLSpinMutex m;
  {
    KRLIMutex_var guard(&m, 1);
    EXPECT_EQ(load(word_of(m)), 1);
    guard.unlock();
    EXPECT_EQ(load(word_of(m)), 0);
    guard.lock();
    EXPECT_EQ(load(word_of(m)), 1);
  }
  EXPECT_EQ(load(word_of(m)), 0);
}

TEST(KRLSpinMutexTest, AnyThreadMayUnlock) {
  KRLSpinMutex m;
  m.lock();
  std::thread([&] { m.unlock(); }).join();
  EXPECT_EQ(load(word_of(m)), 0);
  m.lock();  // would spin forever if the word were still held
  m.unlock();
}

TEST(KRLSpinMutexTest, CopyIsAFreeLockWithItsOwnWord) {
  KRLSpinMutex source;
  source.lock();
  {
    KRLSpinMutex copy(source);
    EXPECT_NE(word_of(copy), word_of(source));
    EXPECT_EQ(load(word_of(copy)), 0);
    long* own = word_of(copy);
    copy = source;
    EXPECT_EQ(word_of(copy), own);
    EXPECT_EQ(load(word_of(copy)), 0);
  }
  EXPECT_EQ(load(word_of(source)), 1);
  source.unlock();
}

TEST(KRLSpinMutexTest, WithoutWordEveryOperationDoesNothing) {
  DrainedWordPool drained;
  g_fail_nothrow = true;
  KRLSpinMutex m;
  g_fail_nothrow = false;
  ASSERT_EQ(word_of(m), nullptr);
  m.lock();
  m.lock();  // a real non-recursive lock would spin here for ever
  m.unlock();
  KRLIMutex_var guard(&m, 1);
}

TEST(KRLSpinWordPoolTest, EmptyPoolGivesNewZeroedWord) {
  DrainedWordPool drained;
  long* word = drained.pool.get();
  ASSERT_NE(word, nullptr);
  EXPECT_EQ(*word, 0);
  delete word;
}

TEST(KRLSpinWordPoolTest, DestroyedLockWordGoesToNextLockLastInFirstOut) {
  long* first;
  long* second;
  {
    KRLSpinMutex a;
    KRLSpinMutex b;
    first = word_of(a);
    second = word_of(b);
  }  // b goes back first, then a
  KRLSpinMutex c;
  KRLSpinMutex d;
  EXPECT_EQ(word_of(c), first);
  EXPECT_EQ(word_of(d), second);
}

TEST(KRLSpinWordPoolTest, PutIntoFullPoolDeletesTheWord) {
  DrainedWordPool drained;
  std::vector<long*> fresh;
  for (long i = 0; i < kSpinPoolSize; ++i) fresh.push_back(drained.pool.get());
  for (long* w : fresh) drained.pool.put(w);
  ASSERT_EQ(drained.pool.count(), kSpinPoolSize);

  long* extra = new long(0);
  g_watched = extra;
  g_watched_deleted = false;
  drained.pool.put(extra);
  EXPECT_TRUE(g_watched_deleted);
  g_watched = nullptr;
  EXPECT_EQ(drained.pool.count(), kSpinPoolSize);
  long* top = drained.pool.get();
  EXPECT_EQ(top, fresh.back());  // the 32nd stays on top
  delete top;

  while (drained.pool.count() > 0) delete drained.pool.get();
}

TEST(KRLSpinWordPoolTest, ConcurrentLocksKeepThePoolConsistent) {
  constexpr int kThreads = 4;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 2000; ++i) {
        KRLSpinMutex a;
        KRLSpinMutex b;
        a.lock();
        a.unlock();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  DrainedWordPool drained;
  // Every word left in the pool is free, and none is there twice.
  std::set<long*> seen;
  long n = 0;
  while (drained.pool.count() > 0) {
    long* w = drained.pool.get();
    EXPECT_EQ(*w, 0);
    seen.insert(w);
    ++n;
    delete w;
  }
  EXPECT_EQ(static_cast<long>(seen.size()), n);
}

TEST(KRLRSpinMutexTest, OwnerHoldsThroughEveryLevelThenSecondThreadGetsIn) {
  KRLRSpinMutex m;
  const unsigned long self = krl_internal::current_thread_id();
  m.lock();
  m.lock();
  m.lock();
  EXPECT_EQ(record_of(m)->_depth, 3UL);
  EXPECT_EQ(owner_of(m), self);

  std::atomic<bool> trying{false};
  std::atomic<bool> entered{false};
  unsigned long other_id = 0;
  unsigned long owner_seen = 0;
  unsigned long depth_seen = 0;
  std::thread other([&] {
    other_id = krl_internal::current_thread_id();
    trying = true;
    m.lock();
    entered = true;
    owner_seen = owner_of(m);
    depth_seen = record_of(m)->_depth;
    m.unlock();
  });
  while (!trying) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  // The waiter's attempts leave the owner in place.
  EXPECT_FALSE(entered);
  EXPECT_EQ(owner_of(m), self);

  m.unlock();
  m.unlock();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(entered);
  EXPECT_EQ(owner_of(m), self);
  EXPECT_EQ(record_of(m)->_depth, 1UL);

  m.unlock();
  other.join();
  EXPECT_TRUE(entered);
  EXPECT_NE(other_id, self);
  EXPECT_EQ(owner_seen, other_id);
  EXPECT_EQ(depth_seen, 1UL);
  EXPECT_EQ(owner_of(m), 0UL);
  EXPECT_EQ(record_of(m)->_depth, 0UL);
}

TEST(KRLRSpinMutexTest, CounterLosesNoIncrementWithNestedLocking) {
  KRLRSpinMutex m;
  long counter = 0;  // guarded by m
  constexpr int kThreads = 4;
  constexpr int kRounds = 10000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        KRLIMutex_var outer(&m, 1);
        m.lock();
        ++counter;
        m.unlock();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, long{kThreads} * kRounds);
  EXPECT_EQ(owner_of(m), 0UL);
}

TEST(KRLRSpinMutexTest, CopyIsAFreeLockWithItsOwnRecord) {
  KRLRSpinMutex source;
  source.lock();
  {
    KRLRSpinMutex copy(source);
    EXPECT_NE(record_of(copy), record_of(source));
    EXPECT_EQ(owner_of(copy), 0UL);
    KRLSpinRecord* own = record_of(copy);
    copy = source;
    EXPECT_EQ(record_of(copy), own);
    EXPECT_EQ(record_of(copy)->_depth, 0UL);
  }
  EXPECT_EQ(record_of(source)->_depth, 1UL);
  source.unlock();
}

TEST(KRLRSpinMutexTest, WithoutRecordEveryOperationDoesNothing) {
  DrainedRecordPool drained;
  g_fail_nothrow = true;
  KRLRSpinMutex m;
  g_fail_nothrow = false;
  ASSERT_EQ(record_of(m), nullptr);
  m.lock();
  m.unlock();
  m.unlock();
}

TEST(KRLSpinRecordPoolTest, EmptyPoolGivesNewZeroedRecord) {
  DrainedRecordPool drained;
  KRLSpinRecord* record = drained.pool.get();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->_owner, 0UL);
  EXPECT_EQ(record->_depth, 0UL);
  delete record;
}

TEST(KRLSpinRecordPoolTest, DestroyedLockRecordGoesToNextLock) {
  KRLSpinRecord* first;
  {
    KRLRSpinMutex a;
    first = record_of(a);
    a.lock();
    a.unlock();
  }
  KRLRSpinMutex b;
  EXPECT_EQ(record_of(b), first);
  EXPECT_EQ(owner_of(b), 0UL);
}

TEST(KRLSpinRecordPoolTest, PutIntoFullPoolDeletesTheRecord) {
  DrainedRecordPool drained;
  std::vector<KRLSpinRecord*> fresh;
  for (long i = 0; i < kSpinPoolSize; ++i) fresh.push_back(drained.pool.get());
  for (KRLSpinRecord* r : fresh) drained.pool.put(r);
  ASSERT_EQ(drained.pool.count(), kSpinPoolSize);

  KRLSpinRecord* extra = new KRLSpinRecord();
  g_watched = extra;
  g_watched_deleted = false;
  drained.pool.put(extra);
  EXPECT_TRUE(g_watched_deleted);
  g_watched = nullptr;
  EXPECT_EQ(drained.pool.count(), kSpinPoolSize);

  while (drained.pool.count() > 0) delete drained.pool.get();
}

}  // namespace
