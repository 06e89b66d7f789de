// KRLDictionary's allocations, seen through an operator new that counts and can fail.
#include <random>

#include <gtest/gtest.h>

#include "krlport/frame/alloc_test_support.h"
#include "krlport/frame/dictionary.h"

namespace {

using A = krl_test::Allocations;

struct Id {
  long id;
};
long compare(const Id& a, const Id& b) { return a.id - b.id; }
unsigned long _krl_hash(const Id& k) { return static_cast<unsigned long>(k.id); }
using Dict = KRLDictionary<Id, long>;

// No table up to 28 entries; 40 removals keep 32 nodes, which churn reuses.
TEST(DictionaryAllocation, InlineTableThenNodeReuse) {
  Dict d;
  A::news = 0, A::largest = 0;
  for (long i = 0; i < 28; ++i) d.insert(Id{i}, i);
  EXPECT_EQ(A::news, 28);
  EXPECT_EQ(A::largest, sizeof(KRLDictionaryNode<Id, long>));
  EXPECT_EQ(d._capacity, 32u);
  d.insert(Id{28}, 28);  // a node and the table of 128 slots
  EXPECT_EQ(A::news, 30);
  EXPECT_EQ(d._capacity, 128u);
  for (long i = 29; i < 40; ++i) d.insert(Id{i}, i);
  A::deletes = 0;
  for (long i = 0; i < 40; ++i) d.remove(Id{i});
  EXPECT_EQ(A::deletes, 8);
  EXPECT_EQ(d._free_count, 32u);
  std::mt19937 rng(7);
  A::news = A::deletes = 0;
  for (int op = 0; op < 5000; ++op) {
    const Id key{static_cast<long>(rng() % 64)};
    if (!d.remove(key) && d._count < 32) d.insert(key, key.id);
  }
  EXPECT_EQ(A::news + A::deletes, 0);
}

TEST(DictionaryAllocation, FailedAllocationLeavesDictionaryUnchanged) {
  Dict d;
  for (long i = 0; i < 28; ++i) d.insert(Id{i}, i);
  const unsigned long hint = d._last_slot;
  A::fail_in = 0;  // the node
  EXPECT_THROW(d.insert(Id{28}, 28), std::bad_alloc);
  A::fail_in = 1;  // the grown table, after the node
  EXPECT_THROW(d.insert(Id{28}, 28), std::bad_alloc);
  A::fail_in = 0;
  EXPECT_THROW(d.resize(1000), std::bad_alloc);
  EXPECT_EQ(d._count, 28u);
  EXPECT_EQ(d._table, d._inline_table);
  EXPECT_EQ(d._last_slot, hint);
  EXPECT_FALSE(d.contains(Id{28}));
  d.insert(Id{28}, 28);
  for (long i = 0; i < 29; ++i) EXPECT_EQ(d.get(Id{i}), i);
}

// 2^30 slots take 12 GiB: a size counted in a 32-bit unsigned long (Windows)
// wrapped to an empty block, which the table then overran. The request must
// reach operator new whole, and fail there (no real memory is asked for).
TEST(DictionaryAllocation, AHugeResizeAsksForTheWholeTableAndFailsCleanly) {
  Dict d;
  for (long i = 0; i < 40; ++i) d.insert(Id{i}, i);
  const unsigned long capacity = d._capacity;
  A::fail_above = std::size_t{1} << 30;
  A::failed = false;
  EXPECT_THROW(d.resize(1UL << 29), std::bad_alloc);
  EXPECT_TRUE(A::failed);
  A::fail_above = SIZE_MAX;
  EXPECT_THROW(d.resize(1UL << 30), std::bad_alloc);  // more slots than a long index walks
  EXPECT_EQ(d._capacity, capacity);
  for (long i = 0; i < 40; ++i) EXPECT_EQ(d.get(Id{i}), i);
}

}  // namespace
