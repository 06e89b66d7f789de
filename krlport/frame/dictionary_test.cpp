#include "krlport/frame/dictionary.h"

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "krlport/exceptions/system_exception.h"
#include "krlport/frame/string_var.h"
#include "krlport/frame/string_wrapper.h"

namespace {

// A key whose hash the test chooses; it counts the protocol calls made on it.
struct SlotKey {
  long id;
  unsigned long hash;
};
int g_compares = 0;
int g_hashes = 0;
long compare(const SlotKey& a, const SlotKey& b) {
  ++g_compares;
  return a.id < b.id ? -1 : (a.id > b.id ? 1 : 0);
}
unsigned long _krl_hash(const SlotKey& k) {
  ++g_hashes;
  return k.hash;
}

// Home slot computed here from the documented rule, not from the header.
unsigned long HomeOf(unsigned long hash, unsigned long bits) {
  return (static_cast<std::uint32_t>(hash) * 0x9e3779b9u) >> (32 - bits);
}

// A hash whose home slot in a table of 2^bits slots is `slot`: the product
// must be slot << (32 - bits), so multiply that by the inverse of 0x9e3779b9.
unsigned long HashForHome(unsigned long slot, unsigned long bits = 5) {
  std::uint32_t inverse = 0x9e3779b9u;
  for (int i = 0; i < 5; ++i) inverse *= 2 - 0x9e3779b9u * inverse;  // Newton, mod 2^32
  return static_cast<std::uint32_t>(slot << (32 - bits)) * inverse;
}

SlotKey At(long id, unsigned long home_slot) { return SlotKey{id, HashForHome(home_slot)}; }
SlotKey Plain(long id) { return SlotKey{id, static_cast<unsigned long>(id)}; }

// Counts live objects, copies and destructions; a copy can be made to throw.
struct Tracked {
  static int live, copies, destroyed, copies_before_throw;
  explicit Tracked(int v = 0) : value(v) { ++live; }
  Tracked(const Tracked& o) : value(o.value) {
    if (copies_before_throw >= 0 && copies_before_throw-- == 0) throw std::bad_alloc();
    ++live;
    ++copies;
  }
  Tracked& operator=(const Tracked& o) = default;
  ~Tracked() {
    --live;
    ++destroyed;
  }
  static void Reset() { live = copies = destroyed = 0, copies_before_throw = -1; }
  int value;
};
int Tracked::live, Tracked::copies, Tracked::destroyed, Tracked::copies_before_throw = -1;

using Dict = KRLDictionary<SlotKey, int>;

long SlotOf(Dict& d, long id) {
  for (unsigned long s = 0; s < d._capacity; ++s)
    if (d._table[s] != nullptr && d._table[s]->_key.id == id) return static_cast<long>(s);
  return -1;
}

// --- capacity and growth ---

TEST(DictionaryCapacity, NewDictionaryUsesInlineTable) {
  Dict d;
  EXPECT_EQ(d._capacity, 32u);
  EXPECT_EQ(d._count, 0u);
  EXPECT_EQ(d._table, d._inline_table);
  EXPECT_EQ(d._bits, 5u);
  EXPECT_EQ(d._mask, 31u);
  EXPECT_EQ(d._free_count, 0u);
  EXPECT_EQ(d._last_slot, 0u);
  EXPECT_EQ(d._cleanup, nullptr);
  for (auto* slot : d._inline_table) EXPECT_EQ(slot, nullptr);
}

TEST(DictionaryCapacity, SizeRequestGivesTwiceTheNextPowerOfTwo) {
  EXPECT_EQ(Dict::_size_for(16), 32u);
  EXPECT_EQ(Dict::_size_for(64), 128u);
  EXPECT_EQ(Dict::_size_for(17), 64u);
  EXPECT_EQ(Dict::_size_for(20), 64u);
  EXPECT_EQ(Dict::_size_for(0), 32u);
  EXPECT_EQ(Dict::_size_for(1), 2u);
}

TEST(DictionaryCapacity, TwentyNinthInsertionGrowsFourfold) {
  Dict d;
  for (long i = 0; i < 28; ++i) d.insert(Plain(i), int(i * 10));
  EXPECT_EQ(d._capacity, 32u);
  EXPECT_EQ(d._table, d._inline_table);
  d.insert(Plain(28), 280);
  EXPECT_EQ(d._capacity, 128u);
  EXPECT_EQ(d._bits, 7u);
  EXPECT_NE(d._table, d._inline_table);
  EXPECT_EQ(d._count, 29u);
  for (long i = 0; i < 29; ++i) EXPECT_EQ(d.get(Plain(i)), i * 10);
  for (long i = 29; i < 124; ++i) d.insert(Plain(i), int(i * 10));
  EXPECT_EQ(d._capacity, 128u);
  d.insert(Plain(124), 0);
  EXPECT_EQ(d._capacity, 512u);
}

TEST(DictionaryCapacity, ExplicitResize) {
  Dict d;
  for (long i = 0; i < 5; ++i) d.insert(Plain(i), int(i));
  d.resize(0);
  EXPECT_EQ(d._capacity, 32u);
  EXPECT_NE(d._table, d._inline_table);
  d.resize(20);
  EXPECT_EQ(d._capacity, 64u);
  EXPECT_EQ(d._bits, 6u);
  EXPECT_EQ(d._count, 5u);
  for (long i = 0; i < 5; ++i) EXPECT_EQ(d.get(Plain(i)), i);
  // A request too small for _count + 4 entries is raised until it fits.
  for (long i = 5; i < 30; ++i) d.insert(Plain(i), int(i));
  d.resize(1);
  EXPECT_EQ(d._capacity, 64u);
  for (long i = 0; i < 30; ++i) EXPECT_EQ(d.get(Plain(i)), i);
}

TEST(DictionaryCapacity, ClearKeepsHeapTable) {
  Dict d;
  for (long i = 0; i < 40; ++i) d.insert(Plain(i), 1);
  auto** table = d._table;
  d.clear();
  EXPECT_EQ(d._count, 0u);
  EXPECT_EQ(d._capacity, 128u);
  EXPECT_EQ(d._table, table);
  for (unsigned long s = 0; s < d._capacity; ++s) EXPECT_EQ(d._table[s], nullptr);
  EXPECT_FALSE(d.contains(Plain(3)));
}

// --- home slots, collisions and Algorithm R ---

// Each case runs on the inline table and on a heap table of the same 32 slots
// (resize(0)), which keeps cached hashes beside its slots.
class DictionaryProbe : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam()) d.resize(0);
  }
  Dict d;
};
INSTANTIATE_TEST_SUITE_P(Storage, DictionaryProbe, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Heap" : "Inline"; });

TEST_P(DictionaryProbe, HomeSlotIsTopBitsOfTheProduct) {
  d.insert(SlotKey{1, 1}, 0);  // 0x9e3779b9: top 5 bits 10011
  d.insert(SlotKey{2, 2}, 0);  // 0x3c6ef372: top 5 bits 00111
  EXPECT_EQ(SlotOf(d, 1), 19);
  EXPECT_EQ(SlotOf(d, 2), 7);
  d.resize(64);  // 128 slots: top 7 bits 1001111
  EXPECT_EQ(SlotOf(d, 1), 79);
  EXPECT_EQ(HomeOf(HashForHome(77, 7), 7), 77u);
}

TEST_P(DictionaryProbe, CollidingKeyLiesBelowAndMovesUpOnRemoval) {
  d.insert(At(1, 10), 1);
  d.insert(At(2, 10), 2);
  EXPECT_EQ(SlotOf(d, 1), 10);
  EXPECT_EQ(SlotOf(d, 2), 9);
  EXPECT_TRUE(d.remove(At(1, 10)));
  EXPECT_EQ(SlotOf(d, 2), 10);
  EXPECT_EQ(d._table[9], nullptr);
  EXPECT_EQ(d.get(At(2, 10)), 2);
}

TEST_P(DictionaryProbe, ResizeMovesNodesInAscendingOldSlotOrder) {
  // Home 40 of 128 slots is home 10 of 32: the keys collide in both tables.
  d.insert(SlotKey{1, HashForHome(40, 7)}, 1);
  d.insert(SlotKey{2, HashForHome(40, 7)}, 2);
  ASSERT_EQ(SlotOf(d, 1), 10);
  ASSERT_EQ(SlotOf(d, 2), 9);
  d.resize(64);
  EXPECT_EQ(SlotOf(d, 2), 40);  // old slot 9 is moved first
  EXPECT_EQ(SlotOf(d, 1), 39);
}

TEST_P(DictionaryProbe, RemovalLeavesNodesWhoseProbeSkipsTheHole) {
  d.insert(At(1, 10), 1);  // slot 10
  d.insert(At(2, 9), 2);   // slot 9, at home
  d.insert(At(3, 10), 3);  // slot 8
  EXPECT_TRUE(d.remove(At(1, 10)));
  EXPECT_EQ(SlotOf(d, 2), 9);
  EXPECT_EQ(SlotOf(d, 3), 10);
  EXPECT_EQ(d._table[8], nullptr);
  EXPECT_EQ(d._count, 2u);
}

TEST_P(DictionaryProbe, ChainWrappingPastSlotZeroSurvivesRemovalInItsMiddle) {
  d.insert(At(1, 1), 1);   // slot 1
  d.insert(At(2, 1), 2);   // slot 0
  d.insert(At(3, 31), 3);  // slot 31, at home
  d.insert(At(4, 1), 4);   // wraps: slot 30
  d.insert(At(5, 1), 5);   // slot 29
  ASSERT_EQ(SlotOf(d, 4), 30);
  EXPECT_TRUE(d.remove(At(2, 1)));
  EXPECT_EQ(SlotOf(d, 1), 1);
  EXPECT_EQ(SlotOf(d, 4), 0);   // moved across the wrap into the hole
  EXPECT_EQ(SlotOf(d, 3), 31);  // home 31 lies between: stays
  EXPECT_EQ(SlotOf(d, 5), 30);
  EXPECT_EQ(d._table[29], nullptr);
  for (long id : {1, 3, 4, 5}) EXPECT_EQ(d.get(SlotKey{id, HashForHome(id == 3 ? 31 : 1)}), id);
  EXPECT_FALSE(d.contains(At(2, 1)));
}

// --- the hint ---

TEST(DictionaryHint, RepeatedLookupIsOneComparisonAndNoHash) {
  Dict d;
  d.insert(At(1, 3), 10);
  d.insert(At(2, 20), 20);
  EXPECT_EQ(d._last_slot, 20u);  // insert makes its slot the hint
  EXPECT_EQ(d.get(At(1, 3)), 10);
  EXPECT_EQ(d._last_slot, 3u);  // a probe hit becomes the hint
  g_compares = g_hashes = 0;
  int v = 0;
  EXPECT_TRUE(d.lookup(At(1, 3), v));
  EXPECT_EQ(d.get(At(1, 3)), 10);
  EXPECT_EQ(v, 10);
  EXPECT_EQ(g_compares, 2);
  EXPECT_EQ(g_hashes, 0);
  EXPECT_TRUE(d.contains(At(2, 20)));  // contains neither uses nor sets it
  EXPECT_EQ(d._last_slot, 3u);
  EXPECT_EQ(g_hashes, 1);
}

TEST(DictionaryHint, RemovingTheHintedKeyResetsTheHintToZero) {
  Dict d;
  d.insert(At(1, 0), 1);  // slot 0
  d.insert(At(2, 7), 2);
  d.get(At(2, 7));
  ASSERT_EQ(d._last_slot, 7u);
  EXPECT_TRUE(d.remove(At(2, 7)));
  EXPECT_EQ(d._last_slot, 0u);
  g_hashes = 0;
  int v = 0;
  EXPECT_TRUE(d.lookup(At(1, 0), v));  // answered by the hint
  EXPECT_EQ(g_hashes, 0);
  EXPECT_FALSE(d.lookup(At(2, 7), v));
  EXPECT_EQ(v, 1);
}

TEST(DictionaryHint, TakeAndExtractOnHintResetItOnProbeKeepIt) {
  Dict d;
  for (long i = 1; i <= 4; ++i) d.insert(At(i, 4 * i), int(i));
  d.get(At(1, 4));
  EXPECT_EQ(d.take(At(2, 8)), 2);  // probe hit
  EXPECT_EQ(d._last_slot, 4u);
  int v = 0;
  EXPECT_TRUE(d.extract(At(3, 12), v));
  EXPECT_EQ(d._last_slot, 4u);
  EXPECT_EQ(v, 3);
  d.get(At(4, 16));
  EXPECT_TRUE(d.extract(At(4, 16), v));
  EXPECT_EQ(d._last_slot, 0u);
  d.get(At(1, 4));
  EXPECT_EQ(d.take(At(1, 4)), 1);
  EXPECT_EQ(d._last_slot, 0u);
}

TEST(DictionaryHint, StaleHintFallsThroughToTheProbe) {
  Dict d;
  for (long i = 0; i < 29; ++i) d.insert(Plain(i), int(i));  // grows after the 29th
  // Whatever the hint names now (empty slot, other key), every key is found;
  // and the same holds for every slot the hint could name.
  for (long i = 0; i < 29; ++i) EXPECT_EQ(d.get(Plain(i)), i);
  for (unsigned long s = 0; s < d._capacity; ++s) {
    d._last_slot = s;
    EXPECT_EQ(d.get(Plain(17)), 17);
    d._last_slot = s;
    EXPECT_TRUE(d.remove(Plain(5)));
    d.insert(Plain(5), 5);
  }
  // A resize to fewer slots can leave the hint beyond the table.
  d._last_slot = 127;
  d.resize(16);
  ASSERT_EQ(d._capacity, 64u);  // 29 + 4 entries need 64
  EXPECT_EQ(d._last_slot, 127u);
  EXPECT_EQ(d.get(Plain(9)), 9);
}

// --- failures ---

TEST(DictionaryFailure, InsertOfPresentKeyThrowsBadParamAndKeepsValue) {
  Dict d;
  d.insert(Plain(1), 1);
  try {
    d.insert(Plain(1), 2);
    FAIL() << "no exception";
  } catch (const CORBA_BAD_PARAM& e) {
    EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);
    EXPECT_EQ(e.minor(), CORBA::OMGVMCID);  // minor 0 passed
  }
  EXPECT_FALSE(d.add(Plain(1), 3));
  EXPECT_EQ(d.get(Plain(1)), 1);
  EXPECT_EQ(d._count, 1u);
  EXPECT_EQ(d._free_count, 0u);
}

TEST(DictionaryFailure, MissingKeyThrowsObjectNotExistAndChangesNothing) {
  Dict d;
  d.insert(Plain(1), 1);
  d.insert(Plain(2), 2);
  const unsigned long hint = d._last_slot;
  EXPECT_THROW(d.get(Plain(3)), CORBA_OBJECT_NOT_EXIST);
  EXPECT_THROW(d.take(Plain(3)), CORBA_OBJECT_NOT_EXIST);
  int v = 42;
  EXPECT_FALSE(d.lookup(Plain(3), v));
  EXPECT_FALSE(d.extract(Plain(3), v));
  EXPECT_FALSE(d.remove(Plain(3)));
  EXPECT_EQ(v, 42);
  EXPECT_EQ(d._count, 2u);
  EXPECT_EQ(d._last_slot, hint);
  EXPECT_EQ(d._free_count, 0u);
}

TEST(DictionaryFailure, ThrowingValueCopyLeavesDictionaryUnchanged) {
  Tracked::Reset();
  {
    KRLDictionary<SlotKey, Tracked> d;
    const Tracked t(1);
    for (long i = 0; i < 3; ++i) d.insert(Plain(i), t);
    d.remove(Plain(2));  // one node on the free list
    // The by-value parameter's copy succeeds, the node's copy throws: first
    // with a node taken from the free list, then with a new one.
    Tracked::copies_before_throw = 1;
    EXPECT_THROW(d.insert(Plain(10), t), std::bad_alloc);
    EXPECT_EQ(d._free_count, 1u);  // the taken node went back
    d.insert(Plain(11), t);        // the free list is empty now
    Tracked::copies_before_throw = 1;
    EXPECT_THROW(d.insert(Plain(12), t), std::bad_alloc);
    EXPECT_EQ(d._free_count, 1u);  // the new node's storage waits there
    EXPECT_EQ(d._count, 3u);
    EXPECT_FALSE(d.contains(Plain(10)));
    EXPECT_FALSE(d.contains(Plain(12)));
    Tracked::copies_before_throw = -1;
    EXPECT_EQ(Tracked::live, 1 + 3);
  }
  EXPECT_EQ(Tracked::live, 0);
}

// --- nodes, free list and _cleanup ---

std::vector<std::pair<long, int>> g_cleaned;
void RecordCleanup(SlotKey k, int v) { g_cleaned.emplace_back(k.id, v); }

TEST(DictionaryNodes, FortyRemovalsLeaveThirtyTwoFreeNodes) {
  Dict d;
  for (long i = 0; i < 40; ++i) d.insert(Plain(i), 0);
  for (long i = 0; i < 40; ++i) EXPECT_TRUE(d.remove(Plain(i)));
  EXPECT_EQ(d._count, 0u);
  EXPECT_EQ(d._free_count, 32u);
}

TEST(DictionaryNodes, FreeListIsAStack) {
  Dict d;
  for (long i = 0; i < 3; ++i) d.insert(At(i, 5 * i + 1), 0);
  auto* first = d._table[SlotOf(d, 0)];
  auto* second = d._table[SlotOf(d, 1)];
  d.remove(At(0, 1));
  d.remove(At(1, 6));
  EXPECT_EQ(d._free_nodes[1], second);
  d.insert(At(7, 20), 7);
  EXPECT_EQ(d._table[20], second);
  d.insert(At(8, 21), 8);
  EXPECT_EQ(d._table[21], first);
  EXPECT_EQ(d._free_count, 0u);
}

TEST(DictionaryNodes, ValueIsDestroyedWhenItsNodeLeavesTheTable) {
  Tracked::Reset();
  KRLDictionary<SlotKey, Tracked> d;
  d.insert(Plain(1), Tracked(1));
  d.insert(Plain(2), Tracked(2));
  ASSERT_EQ(Tracked::live, 2);
  d.remove(Plain(1));
  EXPECT_EQ(Tracked::live, 1);  // destroyed although the node is kept
  Tracked out;
  EXPECT_TRUE(d.extract(Plain(2), out));
  EXPECT_EQ(out.value, 2);
  EXPECT_EQ(Tracked::live, 1);  // only `out`
  d.insert(Plain(3), Tracked(3));
  EXPECT_EQ(d.take(Plain(3)).value, 3);
  EXPECT_EQ(Tracked::live, 1);
  // Each of the 4 objects made here and each copy was destroyed at most once.
  EXPECT_EQ(Tracked::live + Tracked::destroyed, 4 + Tracked::copies);
}

TEST(DictionaryNodes, CleanupRunsForRemoveTakeClearAndDestructorNotExtract) {
  g_cleaned.clear();
  {
    Dict d;
    d._cleanup = RecordCleanup;
    for (long i = 0; i < 6; ++i) d.insert(At(i, 31 - 5 * i), int(i * 10));
    int v;
    EXPECT_TRUE(d.extract(At(0, 31), v));
    EXPECT_TRUE(d.remove(At(1, 26)));
    EXPECT_EQ(d.take(At(2, 21)), 20);
    EXPECT_EQ(g_cleaned, (std::vector<std::pair<long, int>>{{1, 10}, {2, 20}}));
    d.clear();
    EXPECT_EQ(g_cleaned.size(), 5u);
    d.insert(At(7, 9), 70);
    d.insert(At(8, 2), 80);
  }
  // clear and the destructor visit slots in ascending order
  EXPECT_EQ(g_cleaned, (std::vector<std::pair<long, int>>{
                           {1, 10}, {2, 20}, {5, 50}, {4, 40}, {3, 30}, {8, 80}, {7, 70}}));
}

// --- iterator ---

TEST(DictionaryIterator, VisitsEachOccupiedSlotOnceInAscendingOrder) {
  Dict d;
  KRLDictionaryIterator<SlotKey, int> empty(&d);
  EXPECT_EQ(empty.current(), nullptr);
  EXPECT_EQ(empty.next(), nullptr);
  for (long id : {0, 1, 2, 3}) d.insert(At(id, 31 * (id % 2)), int(id));  // slots 0, 31, 30, 29
  for (long id = 4; id < 24; ++id) d.insert(Plain(id), int(id));
  KRLDictionaryIterator<SlotKey, int> it(&d);
  EXPECT_EQ(it._index, -1);
  std::set<long> seen;
  long last = -1;
  while (auto* node = it.next()) {
    EXPECT_GT(it._index, last);
    last = it._index;
    EXPECT_EQ(it.current(), node);
    EXPECT_EQ(d._table[it._index], node);
    EXPECT_TRUE(seen.insert(node->_key.id).second);
  }
  EXPECT_EQ(seen.size(), 24u);
  EXPECT_EQ(it.next(), nullptr);
  EXPECT_EQ(it.current(), nullptr);
}

// --- randomized against std::map ---

// Only 37 distinct hashes: long chains that often wrap past slot 0.
struct WeakKey {
  long id;
};
long compare(const WeakKey& a, const WeakKey& b) { return a.id - b.id; }
unsigned long _krl_hash(const WeakKey& k) { return static_cast<unsigned long>(k.id % 37); }

using WeakDict = KRLDictionary<WeakKey, Tracked>;

void ExpectSameContents(WeakDict& d, const std::map<long, int>& model) {
  ASSERT_EQ(d._count, model.size());
  ASSERT_LE(d._count + 4, d._capacity);
  unsigned long occupied = 0;
  for (unsigned long s = 0; s < d._capacity; ++s) {
    if (d._table[s] == nullptr) continue;
    ++occupied;
    // Reachable from its home slot stepping down over occupied slots only.
    unsigned long slot = HomeOf(_krl_hash(d._table[s]->_key), d._bits);
    for (; slot != s; slot = (slot - 1) & d._mask) ASSERT_NE(d._table[slot], nullptr) << s;
  }
  ASSERT_EQ(occupied, model.size());
  for (const auto& [id, value] : model) ASSERT_EQ(d.get(WeakKey{id}).value, value) << id;
  ASSERT_EQ(Tracked::live, static_cast<int>(model.size()));
}

TEST(DictionaryRandomized, MatchesStdMapUnderWeakHash) {
  Tracked::Reset();
  std::mt19937 rng(20240611);
  {
    WeakDict d;
    std::map<long, int> model;
    for (int batch = 0; batch < 60; ++batch) {
      const bool growing = batch < 30;  // fill up to ~1500 entries, then drain
      for (int op = 0; op < 200; ++op) {
        const long id = static_cast<long>(rng() % 3000);
        const WeakKey key{id};
        const bool present = model.count(id) != 0;
        const int value = static_cast<int>(rng() % 1000);
        Tracked out(-1);
        switch (rng() % 8) {
          case 0:
          case 1:
            if (growing || rng() % 4 == 0) {
              EXPECT_EQ(d.add(key, Tracked(value)), !present);
              if (!present) model[id] = value;
            }
            break;
          case 2:
            if (present) {
              EXPECT_THROW(d.insert(key, Tracked(value)), CORBA_BAD_PARAM);
            } else if (growing) {
              d.insert(key, Tracked(value));
              model[id] = value;
            }
            break;
          case 3:
            EXPECT_EQ(d.remove(key), present);
            model.erase(id);
            break;
          case 4:
            if (present) {
              EXPECT_EQ(d.take(key).value, model[id]);
              model.erase(id);
            } else {
              EXPECT_THROW(d.take(key), CORBA_OBJECT_NOT_EXIST);
            }
            break;
          case 5:
            EXPECT_EQ(d.extract(key, out), present);
            if (present) {
              EXPECT_EQ(out.value, model[id]);
            }
            model.erase(id);
            break;
          default:
            EXPECT_EQ(d.lookup(key, out), present);
            if (present) {
              EXPECT_EQ(out.value, model[id]);
            }
            EXPECT_EQ(d.contains(key), present);
        }
      }
      ExpectSameContents(d, model);
      if (batch == 29) {
        EXPECT_EQ(d._capacity, 2048u);
      }
    }
    d.clear();
    model.clear();
    ExpectSameContents(d, model);
  }
  EXPECT_EQ(Tracked::live, 0);
}

// --- string keys ---

TEST(DictionaryStringKeys, NullKeyHashesToZeroAndEqualsOnlyNull) {
  const KRLStringWrapper null_key(nullptr);
  EXPECT_EQ(_krl_hash(null_key), 0u);
  KRLDictionary<KRLStringWrapper, int> d;
  d.insert(null_key, 1);
  d.insert(KRLStringWrapper(""), 2);  // also hashes to 0: the slot below
  d.insert(KRLStringWrapper("abc"), 3);
  EXPECT_EQ(d._table[HomeOf(0, 5)]->_key._str, nullptr);
  EXPECT_EQ(d.get(null_key), 1);
  EXPECT_EQ(d.get(KRLStringWrapper("")), 2);
  EXPECT_TRUE(d.remove(null_key));
  EXPECT_FALSE(d.contains(null_key));
  EXPECT_EQ(d.get(KRLStringWrapper("")), 2);
  const std::string abc = "abc";  // equal text at another address
  EXPECT_EQ(d.get(KRLStringWrapper(abc.c_str())), 3);
}

TEST(DictionaryStringKeys, StringVarKeysAreOwnedCopies) {
  KRLDictionary<CORBA_String_var, int> d;
  {
    CORBA_String_var name("libfoo_r.so");
    d.insert(name, 7);
    name = "something else";
  }
  EXPECT_EQ(d.get(CORBA_String_var("libfoo_r.so")), 7);
  EXPECT_THROW(d.insert(CORBA_String_var("libfoo_r.so"), 8), CORBA_BAD_PARAM);
  EXPECT_EQ(d.take(CORBA_String_var("libfoo_r.so")), 7);
  EXPECT_EQ(d._count, 0u);
}

}  // namespace
