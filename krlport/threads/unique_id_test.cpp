#include "krlport/threads/unique_id.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

// The only test of its binary, so the counter starts at load.
TEST(UniqueIdTest, CountsFromZeroAndConcurrentDrawsAreDistinct) {
  EXPECT_EQ(KRLUniqueId().id(), 0UL);
  EXPECT_EQ(KRLUniqueId().id(), 1UL);
  std::vector<unsigned long> drawn(8000);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&drawn, t] {
      for (int i = t; i < 8000; i += 4) drawn[i] = KRLUniqueId().id();
    });
  }
  for (std::thread& t : threads) t.join();
  const std::set<unsigned long> all(drawn.begin(), drawn.end());
  EXPECT_EQ(all.size(), 8000U);
  EXPECT_EQ(*all.rbegin(), 8001UL);
}

}  // namespace
