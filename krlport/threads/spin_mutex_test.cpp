#include "krlport/threads/spin_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <type_traits>
#include <vector>

#include "krlport/threads/spin_pool.h"

// This binary's heap fills new blocks with garbage, so a zeroed block was
// zeroed by the pool, and it reports the deletion of one watched block.
namespace {
std::atomic<void*> g_watched{nullptr};
std::atomic<bool> g_watched_deleted{false};

void* allocate(std::size_t n) {
  void* p = std::malloc(n == 0 ? 1 : n);
  return p != nullptr ? std::memset(p, 0xA5, n) : nullptr;
}
void deallocate(void* p) {
  if (p != nullptr && p == g_watched.load()) g_watched_deleted = true;
  std::free(p);
}
}  // namespace

void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new(std::size_t n) {
  if (void* p = allocate(n)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { deallocate(p); }
void operator delete(void* p, std::size_t) noexcept { deallocate(p); }

namespace {

using krl_internal::record_of;
using krl_internal::word_of;

bool held(const KRLSpinMutex& m) { return *word_of(m) != 0; }
bool held(const KRLRSpinMutex& m) { return record_of(m)->_owner != 0; }

template <class Pool>
auto take_all(Pool& pool) {
  std::vector<decltype(pool.get())> blocks;
  while (pool.count() > 0) blocks.push_back(pool.get());
  return blocks;
}

template <class Lock, class Pool>
void expect_pool_behaviour(Pool& pool) {
  using Block = std::remove_pointer_t<decltype(pool.get())>;
  for (Block* b : take_all(pool)) delete b;
  {
    Lock source;
    source.lock();
    Lock copy(source), assigned;
    assigned = source;
    EXPECT_FALSE(held(copy) || held(assigned));
    source.unlock();
  }
  // A copy sharing its source's block would give it back twice.
  std::vector<Block*> back = take_all(pool);
  std::set<Block*> distinct(back.begin(), back.end());
  EXPECT_EQ(distinct.size(), 3U);
  for (Block* b : distinct) delete b;

  const Block zero{};
  std::vector<Block*> fresh;
  for (long i = 0; i < kSpinPoolSize; ++i) {
    fresh.push_back(pool.get());
    EXPECT_EQ(std::memcmp(fresh.back(), &zero, sizeof zero), 0);
  }
  for (Block* b : fresh) pool.put(b);
  Block* extra = new Block();
  g_watched = extra;
  pool.put(extra);  // the 33rd
  EXPECT_TRUE(g_watched_deleted.exchange(false));
  g_watched = nullptr;
  back = take_all(pool);
  EXPECT_EQ(back, std::vector<Block*>(fresh.rbegin(), fresh.rend()));
  for (Block* b : back) delete b;
}

TEST(SpinPoolTest, CopiesOwnTheirBlocksAndPoolKeepsThirtyTwoLastInFirstOut) {
  expect_pool_behaviour<KRLSpinMutex>(KRLSpinWordPool::instance());
  expect_pool_behaviour<KRLRSpinMutex>(KRLSpinRecordPool::instance());
}

}  // namespace
