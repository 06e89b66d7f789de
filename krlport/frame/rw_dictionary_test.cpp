#include "krlport/frame/rw_dictionary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "krlport/frame/string_var.h"

namespace krl_internal {

struct RWDictionaryPeer {
  template <class K, class V>
  static unsigned long capacity(KRLRWDictionary<K, V>& d) {
    return d._capacity;
  }
  template <class K, class V>
  static bool inline_table(KRLRWDictionary<K, V>& d) {
    return d._table == d._inline_table;
  }
  template <class K, class V>
  static unsigned long last_slot(KRLRWDictionary<K, V>& d) {
    return d._last_slot;
  }
  template <class K, class V>
  static void set_cleanup(KRLRWDictionary<K, V>& d, void (*cleanup)(K, V)) {
    d._cleanup = cleanup;
  }
};

}  // namespace krl_internal

namespace {

using Peer = krl_internal::RWDictionaryPeer;

// A key whose hash is its value, as thread ids are.
struct IntKey {
  IntKey(unsigned long v = 0) : value(v) {}
  unsigned long value;
};
long compare(const IntKey& a, const IntKey& b) {
  return static_cast<long>(a.value) - static_cast<long>(b.value);
}
unsigned long _krl_hash(const IntKey& k) { return k.value; }

// A value that counts its live instances, to catch leaks and double frees.
struct Tracked {
  static std::atomic<int> live;
  Tracked(long v = 0) : value(v) { ++live; }
  Tracked(const Tracked& t) : value(t.value) { ++live; }
  Tracked& operator=(const Tracked&) = default;
  ~Tracked() { --live; }
  long value;
};
std::atomic<int> Tracked::live{0};

using Strings = KRLRWDictionary<CORBA_String_var, CORBA_String_var>;

TEST(KRLRWDictionaryTest, PutAddsOrReplacesAndGetFindsIt) {
  Strings d;
  EXPECT_EQ(d.count(), 0u);
  CORBA_String_var old("untouched");
  EXPECT_FALSE(d.put("name", "one", old));
  EXPECT_STREQ(old.in(), "untouched");
  EXPECT_TRUE(d.put("name", "two", old));
  EXPECT_STREQ(old.in(), "one");
  // An argument without a value is a null string.
  EXPECT_FALSE(d.put("flag", CORBA_String_var(static_cast<const char*>(nullptr)), old));
  EXPECT_EQ(d.count(), 2u);

  CORBA_String_var value;
  EXPECT_TRUE(d.get("name", value));
  EXPECT_STREQ(value.in(), "two");
  EXPECT_TRUE(d.get("flag", value));
  EXPECT_EQ(value.in(), nullptr);
  CORBA_String_var kept("kept");
  EXPECT_FALSE(d.get("other", kept));
  EXPECT_STREQ(kept.in(), "kept");

  EXPECT_TRUE(d.contains("name"));
  EXPECT_TRUE(d.contains("flag"));
  EXPECT_FALSE(d.contains("other"));
}

TEST(KRLRWDictionaryTest, GrowsAtTheSameLoadAsTheDictionary) {
  KRLRWDictionary<IntKey, long> d;
  long old = -1;
  for (unsigned long k = 0; k < 28; ++k) EXPECT_FALSE(d.put(k, static_cast<long>(k) * 3, old));
  EXPECT_EQ(Peer::capacity(d), 32u);
  EXPECT_TRUE(Peer::inline_table(d));
  EXPECT_FALSE(d.put(28, 84, old));
  EXPECT_EQ(Peer::capacity(d), 128u);
  EXPECT_FALSE(Peer::inline_table(d));
  for (unsigned long k = 29; k < 200; ++k) EXPECT_FALSE(d.put(k, static_cast<long>(k) * 3, old));
  EXPECT_EQ(Peer::capacity(d), 512u);
  EXPECT_EQ(d.count(), 200u);
  for (unsigned long k = 0; k < 200; ++k) {
    long value = -1;
    ASSERT_TRUE(d.get(k, value)) << k;
    EXPECT_EQ(value, static_cast<long>(k) * 3);
  }
  EXPECT_EQ(old, -1);
}

TEST(KRLRWDictionaryTest, GetSetsTheHintAndPutLeavesIt) {
  KRLRWDictionary<IntKey, long> d;
  long old = 0;
  long value = 0;
  for (unsigned long k = 1; k <= 10; ++k) d.put(k, 0, old);
  EXPECT_EQ(Peer::last_slot(d), 0u);  // put does not set it
  ASSERT_TRUE(d.get(7, value));
  const unsigned long slot_of_7 = Peer::last_slot(d);
  d.put(11, 0, old);
  d.put(3, 1, old);
  EXPECT_EQ(Peer::last_slot(d), slot_of_7);
  ASSERT_TRUE(d.get(3, value));
  EXPECT_EQ(value, 1);
  EXPECT_NE(Peer::last_slot(d), slot_of_7);
  // A growth leaves the hint stale; get still finds the right entry.
  for (unsigned long k = 12; k <= 40; ++k) d.put(k, static_cast<long>(k), old);
  ASSERT_TRUE(d.get(3, value));
  EXPECT_EQ(value, 1);
  ASSERT_TRUE(d.get(7, value));
  EXPECT_EQ(value, 0);
}

int g_cleanups = 0;
void count_cleanup(IntKey, Tracked) { ++g_cleanups; }

TEST(KRLRWDictionaryTest, DestructorFreesEverythingWithoutCleanup) {
  g_cleanups = 0;
  {
    KRLRWDictionary<IntKey, Tracked> d;
    Peer::set_cleanup(d, &count_cleanup);
    Tracked old;
    for (unsigned long k = 0; k < 100; ++k) d.put(k, Tracked(static_cast<long>(k)), old);
    for (unsigned long k = 0; k < 100; k += 2) {
      EXPECT_TRUE(d.put(k, Tracked(-1), old));
      EXPECT_EQ(old.value, static_cast<long>(k));
    }
    EXPECT_EQ(Tracked::live, 101);  // 100 entries and `old`
  }
  EXPECT_EQ(Tracked::live, 0);
  EXPECT_EQ(g_cleanups, 0);
}

// Readers run get and contains while a writer adds and replaces entries;
// every value found is one the writer stored for that key.
TEST(KRLRWDictionaryTest, ReadersAndAWriterShareTheTable) {
  constexpr unsigned long kKeys = 300;
  KRLRWDictionary<IntKey, long> d;
  std::atomic<bool> writing{true};
  std::atomic<int> wrong{0};
  std::thread writer([&] {
    long old = 0;
    for (int round = 0; round < 3; ++round) {
      for (unsigned long k = 0; k < kKeys; ++k) d.put(k, static_cast<long>(k * 10 + round), old);
    }
    writing = false;
  });
  std::vector<std::thread> readers;
  for (int r = 0; r < 3; ++r) {
    readers.emplace_back([&, r] {
      std::minstd_rand random(static_cast<unsigned>(r + 1));
      while (writing) {
        const unsigned long k = random() % kKeys;
        long value = -1;
        if (d.get(k, value) &&
            (value < static_cast<long>(k * 10) || value > static_cast<long>(k * 10 + 2))) {
          ++wrong;
        }
        if (d.count() > kKeys) ++wrong;
        d.contains(k);
      }
    });
  }
  writer.join();
  for (std::thread& t : readers) t.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(d.count(), kKeys);
}

}  // namespace
