#include "krlport/threads/thread_local.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "krlport/exceptions/system_exception.h"
#include "krlport/threads/thread_test_peers.h"

namespace {

using krl_internal::ThreadLocalPeer;

// Records its finalisation; deletes itself there unless told to stay.
struct Local : KRLThreadLocal {
  explicit Local(unsigned long key, bool stay = false) : KRLThreadLocal(key), stay(stay) {}
  void finalize() override {
    ++finalized;
    seen_inside = KRLThreadLocal::instance(key_id());
    if (!stay) delete this;
  }
  ~Local() override { ++destroyed; }

  bool stay;
  static int finalized, destroyed;
  static KRLThreadLocal* seen_inside;
};
int Local::finalized = 0;
int Local::destroyed = 0;
KRLThreadLocal* Local::seen_inside = nullptr;

unsigned long tid_of_new_thread(Local*& made, unsigned long key) {
  unsigned long tid = 0;
  std::thread([&] {
    made = new Local(key);
    tid = KRLThreadId()._tid;
  }).join();
  return tid;
}

TEST(ThreadLocalTest, ObjectsArePerThreadAndKey) {
  const unsigned long key = KRLThreadLocal::get_unique_id();
  EXPECT_EQ(KRLThreadLocal::get_unique_id(), key + 1);
  EXPECT_EQ(KRLThreadLocal::instance(key), nullptr);
  Local* mine = new Local(key);
  EXPECT_EQ(KRLThreadLocal::instance(key), mine);
  EXPECT_EQ(KRLThreadLocal::instance(key + 1000), nullptr);
  EXPECT_THROW(Local second(key), CORBA_BAD_PARAM);
  EXPECT_EQ(KRLThreadLocal::instance(key), mine);

  Local* theirs = nullptr;
  const unsigned long other = tid_of_new_thread(theirs, key);  // same key, other thread
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(KRLThreadLocal::instance(key), mine);

  // A foreign thread's destruction unregisters the object it destroys only.
  std::thread([&] { delete mine; }).join();
  EXPECT_EQ(KRLThreadLocal::instance(key), nullptr);
  EXPECT_FALSE(ThreadLocalPeer::has_entry(KRLThreadId()._tid));
  EXPECT_TRUE(ThreadLocalPeer::has_entry(other));
  delete theirs;
  EXPECT_FALSE(ThreadLocalPeer::has_entry(other));
}

TEST(ThreadLocalTest, ExitThreadFinalisesEachObjectOnce) {
  const unsigned long k1 = KRLThreadLocal::get_unique_id(), k2 = KRLThreadLocal::get_unique_id();
  Local::finalized = Local::destroyed = 0;
  std::thread([&] {
    KRLThreadLocal::_exit_thread(nullptr);  // nothing to do
    new Local(k1);
    Local* kept = new Local(k2, /*stay=*/true);
    EXPECT_NE(KRLThreadLocal::instance(k1), nullptr);  // fills the lock-free cache
    KRLThreadLocal::_exit_thread(nullptr);
    EXPECT_EQ(Local::finalized, 2);
    EXPECT_EQ(Local::destroyed, 1);
    EXPECT_EQ(Local::seen_inside, nullptr);
    EXPECT_EQ(KRLThreadLocal::instance(k1), nullptr);
    EXPECT_EQ(KRLThreadLocal::instance(k2), nullptr);  // alive but unregistered
    Local again(k2);
    EXPECT_EQ(KRLThreadLocal::instance(k2), &again);
    delete kept;  // changes nothing registered
    EXPECT_EQ(KRLThreadLocal::instance(k2), &again);
  }).join();
}

TEST(ThreadLocalTest, ALaterThreadWithTheSameIdInheritsNothing) {
  const unsigned long key = KRLThreadLocal::get_unique_id();
  std::thread([&] {
    Local* dead = new Local(key);  // its thread "ends" without _exit_thread
    EXPECT_EQ(KRLThreadLocal::instance(key), dead);
    krl_internal::forget_thread_incarnation();
    EXPECT_EQ(KRLThreadLocal::instance(key), nullptr);
    KRLThreadLocal::_exit_thread(nullptr);  // does not finalise the dead thread's objects
    Local::finalized = 0;
    Local* dead2 = new Local(key);
    krl_internal::forget_thread_incarnation();
    Local* fresh = new Local(key);  // the dead entry is retired, not a duplicate
    EXPECT_EQ(KRLThreadLocal::instance(key), fresh);
    delete dead;
    delete dead2;
    EXPECT_EQ(KRLThreadLocal::instance(key), fresh);
    KRLThreadLocal::_exit_thread(nullptr);
    EXPECT_EQ(Local::finalized, 1);
  }).join();
}

// The lock-free cache of instance() against unregistrations on other threads:
// once a foreign destructor has returned, the owner never sees the object
// again, however often it found it before; and other threads' churn meanwhile
// never makes a cached object wrong. Meant for the sanitizer builds, where a
// stale answer reads freed memory.
TEST(ThreadLocalTest, CachedAnswersEndWithTheObjectOnAnyThread) {
  struct Valued : KRLThreadLocal {
    Valued(unsigned long key, int v) : KRLThreadLocal(key), value(v) {}
    int value;
  };
  const unsigned long key = KRLThreadLocal::get_unique_id();
  const unsigned long churn_key = KRLThreadLocal::get_unique_id();
  std::atomic<Valued*> to_delete{nullptr};
  std::atomic<int> deleted{0};
  std::atomic<bool> done{false};
  std::thread destroyer([&] {
    while (!done.load()) {
      if (Valued* v = to_delete.exchange(nullptr)) {
        delete v;
        deleted.fetch_add(1);
      }
      delete new Local(churn_key);  // unregistrations of an unrelated object
    }
  });
  std::thread owner([&] {
    for (int i = 0; i < 300; ++i) {
      Valued* mine = new Valued(key, i);
      for (int j = 0; j < 3; ++j) {  // the second and later answers come from the cache
        KRLThreadLocal* found = KRLThreadLocal::instance(key);
        ASSERT_EQ(found, mine);
        ASSERT_EQ(static_cast<Valued*>(found)->value, i);
      }
      to_delete.store(mine);
      krl_test::await([&] { return deleted.load() == i + 1; });
      ASSERT_EQ(KRLThreadLocal::instance(key), nullptr);
    }
  });
  owner.join();
  done.store(true);
  destroyer.join();
}

}  // namespace
