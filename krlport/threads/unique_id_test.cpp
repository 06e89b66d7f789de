#include "krlport/threads/unique_id.h"

#include <algorithm>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Runs first in its own binary, so it sees the counter from load.
TEST(UniqueIdTest, DefaultIdsCountFromZeroAndExplicitIdsDoNotDraw) {
  KRLUniqueId first;
  KRLUniqueId explicit_id(7);
  KRLUniqueId second;
  EXPECT_EQ(first.id(), 0UL);
  EXPECT_EQ(explicit_id.id(), 7UL);
  EXPECT_EQ(second.id(), 1UL);

  KRLUniqueId copy(second);
  copy.id(42);
  EXPECT_EQ(static_cast<unsigned long>(copy), 42UL);
  EXPECT_EQ(compare(second, KRLUniqueId(1)), 0);
  EXPECT_NE(compare(second, copy), 0);
  EXPECT_EQ(_krl_hash(KRLUniqueId(0x100000005UL)), 5UL);  // the low 32 bits
}

TEST(UniqueIdTest, ConcurrentDrawsAreDistinct) {
  constexpr int kThreads = 4, kPerThread = 2000;
  std::vector<std::vector<unsigned long>> drawn(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&drawn, t] {
      for (int i = 0; i < kPerThread; ++i) drawn[t].push_back(KRLUniqueId().id());
    });
  }
  for (auto& th : threads) th.join();
  std::vector<unsigned long> all;
  for (auto& v : drawn) all.insert(all.end(), v.begin(), v.end());
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
  EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kPerThread));
}

}  // namespace
