#include "krlport/frame/rw_dictionary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "krlport/frame/string_var.h"
#include "krlport/threads/rw_lock_internal.h"

namespace krl_internal {
struct RWDictionaryPeer {
  template <class K, class V>
  static KRLRWLock& lock(KRLRWDictionary<K, V>& d) {
    return d._lock;
  }
};
}  // namespace krl_internal

namespace {

// A key whose hash is its value, as thread ids are.
struct IntKey {
  IntKey(unsigned long v) : value(v) {}
  unsigned long value;
};
long compare(const IntKey& a, const IntKey& b) { return long(a.value) - long(b.value); }
unsigned long _krl_hash(const IntKey& k) { return k.value; }

TEST(KRLRWDictionaryTest, PutAddsOrReplacesAndHandsBackTheOldValue) {
  KRLRWDictionary<IntKey, CORBA_String_var> d;
  CORBA_String_var old, value;
  EXPECT_FALSE(d.put(7, "one", old));
  EXPECT_TRUE(d.put(7, "two", old));
  EXPECT_STREQ(old.in(), "one");
  ASSERT_TRUE(d.get(7, value));
  EXPECT_STREQ(value.in(), "two");
  EXPECT_FALSE(d.get(8, value));
  EXPECT_STREQ(value.in(), "two");
}

// Readers run get, count and contains while a writer adds and replaces
// entries, growing the table twice; every value found is one the writer stored.
TEST(KRLRWDictionaryTest, ReadersAndAWriterShareTheTable) {
  constexpr unsigned long kKeys = 300;
  KRLRWDictionary<IntKey, long> d;
  std::atomic<bool> writing{true};
  std::atomic<int> ready{0}, wrong{0};
  std::thread writer([&] {
    while (ready < 3) std::this_thread::yield();
    long old = 0;
    for (long round = 0; round < 3; ++round)
      for (unsigned long k = 0; k < kKeys; ++k) d.put(k, long(k * 10) + round, old);
    writing = false;
  });
  std::vector<std::thread> readers;
  for (unsigned r = 1; r <= 3; ++r) {
    readers.emplace_back([&, r] {
      std::minstd_rand random(r);
      for (++ready; writing;) {
        const unsigned long k = random() % kKeys;
        long value = -1;
        const bool found = d.get(k, value);
        if (found && (value < long(k * 10) || value > long(k * 10 + 2) || !d.contains(k))) ++wrong;
        if (d.count() > kKeys) ++wrong;
      }
    });
  }
  writer.join();
  for (std::thread& t : readers) t.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(d.count(), kKeys);
}

// A value whose copy waits, under the reader's read lock, until the
// destructor's writer has gone to sleep behind it.
struct SlowValue {
  static std::atomic<KRLRWLock*> lock;
  SlowValue() = default;
  SlowValue(const SlowValue&) = default;
  SlowValue& operator=(const SlowValue&) {
    if (KRLRWLock* l = lock.exchange(nullptr)) {
      while (krl_internal::rw_lock_sleeping_writers(*l) == 0) std::this_thread::yield();
    }
    return *this;
  }
};
std::atomic<KRLRWLock*> SlowValue::lock{nullptr};

// The destructor waits out a reader that is still inside get and then frees
// the lock at once, while the reader's unlock may still be waking it.
TEST(KRLRWDictionaryTest, DestructorWaitsOutTheLastReader) {
  using Peer = krl_internal::RWDictionaryPeer;
  for (int round = 0; round < 300; ++round) {
    auto* d = new KRLRWDictionary<IntKey, SlowValue>;
    SlowValue v, old;
    d->put(1, v, old);
    SlowValue::lock = &Peer::lock(*d);
    std::thread reader([d] {
      SlowValue out;
      d->get(1, out);
    });
    while (SlowValue::lock != nullptr) std::this_thread::yield();  // the reader is inside
    delete d;
    reader.join();
  }
}

}  // namespace
