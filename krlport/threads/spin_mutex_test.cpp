#include "krlport/threads/spin_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <type_traits>
#include <vector>

#include "krlport/frame/alloc_test_support.h"
#include "krlport/threads/spin_pool.h"

namespace {

using krl_internal::record_of;
using krl_internal::word_of;

long* block_of(const KRLSpinMutex& m) { return word_of(m); }
KRLSpinRecord* block_of(const KRLRSpinMutex& m) { return record_of(m); }

template <class Pool>
auto take_all(Pool& pool) {
  std::vector<decltype(pool.get())> blocks;
  while (pool.count() > 0) blocks.push_back(pool.get());
  return blocks;
}

template <class Blocks, class Pool>
void put_all(const Blocks& blocks, Pool& pool) {
  for (auto* b : blocks) pool.put(b);
}

// Copies and assignments share the source's block; each block goes back to
// its pool once, when its last user ends. A block put back twice would stand
// twice in the pool (and be handed to two locks).
template <class Lock, class Pool>
void expect_shared_blocks_go_back_once(Pool& pool) {
  using Block = std::remove_pointer_t<decltype(pool.get())>;
  const auto spare = take_all(pool);
  Block* shared;
  Block* dropped;
  {
    Lock source;
    Lock assigned;
    shared = block_of(source);
    dropped = block_of(assigned);
    {
      Lock copy(source);
      assigned = copy;
      Lock again(assigned);
      assigned = again;  // already shared: changes nothing
      // The assignment gave back the block that only `assigned` used.
      EXPECT_EQ(take_all(pool), std::vector<Block*>{dropped});
    }
    EXPECT_EQ(pool.count(), 0);
  }
  EXPECT_EQ(take_all(pool), std::vector<Block*>{shared});
  pool.put(dropped);
  pool.put(shared);
  put_all(spare, pool);
}

// A copy excludes its source: a second thread that locks the copy or the
// assigned lock waits for the source's unlock.
template <class Lock>
void expect_copy_excludes_source() {
  Lock source;
  Lock copy(source);
  Lock assigned;
  assigned = source;
  source.lock();
  std::atomic<int> entered{0};
  std::thread other([&] {
    for (Lock* l : {&copy, &assigned}) {
      l->lock();
      ++entered;
      l->unlock();
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(entered, 0);
  source.unlock();
  other.join();
  EXPECT_EQ(entered, 2);
}

TEST(SpinMutexTest, CopiesShareTheSourcesBlockWhichGoesBackOnce) {
  expect_shared_blocks_go_back_once<KRLSpinMutex>(KRLSpinWordPool::instance());
  expect_shared_blocks_go_back_once<KRLRSpinMutex>(KRLSpinRecordPool::instance());
  expect_copy_excludes_source<KRLSpinMutex>();
  expect_copy_excludes_source<KRLRSpinMutex>();
}

// New blocks are zeroed (the heap gives garbage); the pool keeps 32 and
// deletes the 33rd; last in, first out.
template <class Pool>
void expect_pool_behaviour(Pool& pool) {
  using Block = std::remove_pointer_t<decltype(pool.get())>;
  const auto spare = take_all(pool);
  const Block zero{};
  std::vector<Block*> fresh;
  for (long i = 0; i <= kSpinPoolSize; ++i) {
    fresh.push_back(pool.get());
    EXPECT_EQ(std::memcmp(fresh.back(), &zero, sizeof zero), 0);
  }
  Block* extra = fresh.back();
  fresh.pop_back();
  put_all(fresh, pool);
  krl_test::Allocations::watched = extra;
  pool.put(extra);  // the 33rd
  EXPECT_TRUE(krl_test::Allocations::watched_deleted.exchange(false));
  krl_test::Allocations::watched = nullptr;
  const auto back = take_all(pool);
  EXPECT_EQ(back, std::vector<Block*>(fresh.rbegin(), fresh.rend()));
  put_all(back, pool);
  put_all(spare, pool);
}

TEST(SpinPoolTest, PoolKeepsThirtyTwoZeroedBlocksLastInFirstOut) {
  expect_pool_behaviour(KRLSpinWordPool::instance());
  expect_pool_behaviour(KRLSpinRecordPool::instance());
}

}  // namespace
