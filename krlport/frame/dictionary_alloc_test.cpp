// Allocation behaviour of KRLDictionary, seen through a global operator new and
// delete that count, record and can fail. A binary of its own, since the
// replacement holds for the whole program.
#include <cstddef>
#include <cstdlib>
#include <new>
#include <random>

#include <gtest/gtest.h>

#include "krlport/frame/dictionary.h"

namespace {

int g_news = 0;
int g_deletes = 0;
std::size_t g_largest = 0;
int g_fail_in = -1;  // the allocation that many allocations from now throws
void* g_deleted[64];
int g_deleted_count = 0;

void StartCounting() { g_news = g_deletes = g_deleted_count = 0, g_largest = 0; }

void* CountedNew(std::size_t size) {
  if (g_fail_in >= 0 && g_fail_in-- == 0) throw std::bad_alloc();
  ++g_news;
  if (size > g_largest) g_largest = size;
  if (void* p = std::malloc(size != 0 ? size : 1)) return p;
  throw std::bad_alloc();
}

void CountedDelete(void* p) {
  if (p == nullptr) return;
  ++g_deletes;
  if (g_deleted_count < 64) g_deleted[g_deleted_count++] = p;
  std::free(p);
}

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
using Node = KRLDictionaryNode<Id, long>;

TEST(DictionaryAllocation, UpToTwentyEightEntriesAllocateOnlyNodes) {
  Dict d;
  StartCounting();
  for (long i = 0; i < 28; ++i) d.insert(Id{i}, i);
  const int news = g_news;
  const std::size_t largest = g_largest;
  d.insert(Id{28}, 28);  // grows: a node and a table
  EXPECT_EQ(news, 28);
  EXPECT_EQ(largest, sizeof(Node));
  EXPECT_EQ(g_news, 30);
  EXPECT_GE(g_largest, 128 * sizeof(Node*));  // the table of 128 slots
}

TEST(DictionaryAllocation, ChurnWithinThirtyTwoNodesAllocatesNothingOnceWarm) {
  Dict d;
  for (long i = 0; i < 32; ++i) d.insert(Id{i}, i);
  for (long i = 0; i < 32; ++i) d.remove(Id{i});
  std::mt19937 rng(7);
  bool present[64] = {};
  int count = 0;
  StartCounting();
  for (int op = 0; op < 5000; ++op) {
    const long id = static_cast<long>(rng() % 64);
    if (present[id]) {
      d.remove(Id{id});
      --count;
    } else if (count < 32) {
      d.insert(Id{id}, id);
      ++count;
    }
    present[id] = d.contains(Id{id});
  }
  EXPECT_EQ(g_news, 0);
  EXPECT_EQ(g_deletes, 0);
  EXPECT_EQ(static_cast<int>(d._count), count);
}

TEST(DictionaryAllocation, FortyRemovalsDeleteEightNodes) {
  Dict d;
  for (long i = 0; i < 40; ++i) d.insert(Id{i}, i);
  StartCounting();
  for (long i = 0; i < 40; ++i) d.remove(Id{i});
  EXPECT_EQ(g_deletes, 8);
  EXPECT_EQ(d._free_count, 32u);
}

int g_cleanups = 0;
int g_cleanups_before_first_delete = -1;
void CountCleanup(Id, long) {
  ++g_cleanups;
  if (g_deletes == 0) g_cleanups_before_first_delete = g_cleanups;
}

TEST(DictionaryAllocation, DestructorClearsThenFreesTableThenFreeNodesLastPushedFirst) {
  void* table;
  Node* by_slot[128];
  int nodes = 0;
  {
    Dict d;
    d._cleanup = CountCleanup;
    for (long i = 0; i < 29; ++i) d.insert(Id{i}, i);  // heap table of 128 slots
    table = d._table;
    for (unsigned long s = 0; s < d._capacity; ++s)
      if (d._table[s] != nullptr) by_slot[nodes++] = d._table[s];
    StartCounting();
  }
  EXPECT_EQ(g_cleanups_before_first_delete, 29);
  ASSERT_EQ(g_deleted_count, 30);
  EXPECT_EQ(g_deleted[0], table);
  // clear pushed the nodes in ascending slot order.
  for (int k = 0; k < nodes; ++k) EXPECT_EQ(g_deleted[1 + k], by_slot[nodes - 1 - k]) << k;
}

TEST(DictionaryAllocation, FailedAllocationLeavesDictionaryUnchanged) {
  Dict d;
  for (long i = 0; i < 27; ++i) d.insert(Id{i}, i);
  g_fail_in = 0;  // the node
  EXPECT_THROW(d.insert(Id{27}, 27), std::bad_alloc);
  EXPECT_EQ(d._count, 27u);
  EXPECT_EQ(d._free_count, 0u);
  EXPECT_FALSE(d.contains(Id{27}));

  d.insert(Id{27}, 27);
  const unsigned long hint = d._last_slot;
  g_fail_in = 1;  // the grown table, after the node
  EXPECT_THROW(d.insert(Id{28}, 28), std::bad_alloc);
  EXPECT_EQ(d._count, 28u);
  EXPECT_EQ(d._capacity, 32u);
  EXPECT_EQ(d._table, d._inline_table);
  EXPECT_EQ(d._last_slot, hint);
  EXPECT_EQ(d._free_count, 1u);  // the node waits for the next insertion
  EXPECT_FALSE(d.contains(Id{28}));
  for (long i = 0; i < 28; ++i) EXPECT_EQ(d.get(Id{i}), i);

  g_fail_in = 0;
  EXPECT_THROW(d.resize(1000), std::bad_alloc);
  EXPECT_EQ(d._capacity, 32u);

  d.insert(Id{28}, 28);
  EXPECT_EQ(d._capacity, 128u);
  for (long i = 0; i < 29; ++i) EXPECT_EQ(d.get(Id{i}), i);
}

}  // namespace
