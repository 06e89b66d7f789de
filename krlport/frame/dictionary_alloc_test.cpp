// KRLDictionary's allocations, seen through a global operator new that counts
// and can fail. A binary of its own: the replacement holds program-wide.
#include <algorithm>
#include <cstdlib>
#include <new>
#include <random>

#include <gtest/gtest.h>

#include "krlport/frame/dictionary.h"

namespace {
int g_news = 0, g_deletes = 0, g_fail_in = -1;  // g_fail_in: allocations until one throws
std::size_t g_largest = 0;
void* CountedNew(std::size_t size) {
  if (g_fail_in >= 0 && g_fail_in-- == 0) throw std::bad_alloc();
  ++g_news;
  g_largest = std::max(g_largest, size);
  if (void* p = std::malloc(size != 0 ? size : 1)) return p;
  throw std::bad_alloc();
}
void CountedDelete(void* p) { g_deletes += p != nullptr, std::free(p); }
}  // namespace

void* operator new(std::size_t size) { return CountedNew(size); }
void* operator new[](std::size_t size) { return CountedNew(size); }
void operator delete(void* p) noexcept { CountedDelete(p); }
void operator delete[](void* p) noexcept { CountedDelete(p); }
void operator delete(void* p, std::size_t) noexcept { CountedDelete(p); }
void operator delete[](void* p, std::size_t) noexcept { CountedDelete(p); }

namespace {

struct Id {
  long id;
};
long compare(const Id& a, const Id& b) { return a.id - b.id; }
unsigned long _krl_hash(const Id& k) { return static_cast<unsigned long>(k.id); }
using Dict = KRLDictionary<Id, long>;

// No table up to 28 entries; 40 removals keep 32 nodes, which churn reuses.
TEST(DictionaryAllocation, InlineTableThenNodeReuse) {
  Dict d;
  g_news = 0, g_largest = 0;
  for (long i = 0; i < 28; ++i) d.insert(Id{i}, i);
  EXPECT_EQ(g_news, 28);
  EXPECT_EQ(g_largest, sizeof(KRLDictionaryNode<Id, long>));
  EXPECT_EQ(d._capacity, 32u);
  d.insert(Id{28}, 28);  // a node and the table of 128 slots
  EXPECT_EQ(g_news, 30);
  EXPECT_EQ(d._capacity, 128u);
  for (long i = 29; i < 40; ++i) d.insert(Id{i}, i);
  g_deletes = 0;
  for (long i = 0; i < 40; ++i) d.remove(Id{i});
  EXPECT_EQ(g_deletes, 8);
  EXPECT_EQ(d._free_count, 32u);
  std::mt19937 rng(7);
  g_news = g_deletes = 0;
  for (int op = 0; op < 5000; ++op) {
    const Id key{static_cast<long>(rng() % 64)};
    if (!d.remove(key) && d._count < 32) d.insert(key, key.id);
  }
  EXPECT_EQ(g_news + g_deletes, 0);
}

TEST(DictionaryAllocation, FailedAllocationLeavesDictionaryUnchanged) {
  Dict d;
  for (long i = 0; i < 28; ++i) d.insert(Id{i}, i);
  const unsigned long hint = d._last_slot;
  g_fail_in = 0;  // the node
  EXPECT_THROW(d.insert(Id{28}, 28), std::bad_alloc);
  g_fail_in = 1;  // the grown table, after the node
  EXPECT_THROW(d.insert(Id{28}, 28), std::bad_alloc);
  g_fail_in = 0;
  EXPECT_THROW(d.resize(1000), std::bad_alloc);
  EXPECT_EQ(d._count, 28u);
  EXPECT_EQ(d._table, d._inline_table);
  EXPECT_EQ(d._last_slot, hint);
  EXPECT_FALSE(d.contains(Id{28}));
  d.insert(Id{28}, 28);
  for (long i = 0; i < 29; ++i) EXPECT_EQ(d.get(Id{i}), i);
}

}  // namespace
