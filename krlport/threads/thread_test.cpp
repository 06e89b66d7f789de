#include "krlport/threads/thread.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "krlport/exceptions/environment.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"
#include "krlport/threads/thread_local.h"
#include "krlport/threads/thread_test_peers.h"

namespace {

using krl_internal::ThreadLocalPeer;
using krl_internal::ThreadPeer;

// Runs the thread on a std::thread and joins it: run() returns after the
// whole thread, _exit_thread included.
void joining_factory(unsigned long, void* (*start)(void*), void* arg) {
  std::thread(start, arg).join();
}

struct FactoryScope {
  explicit FactoryScope(KRLThread::Factory f) { KRLThread::factory(f); }
  ~FactoryScope() { KRLThread::factory(&KRLThread::_create_thread); }
};

// Counts finalisations of thread-local objects, with the finalising thread.
struct Marker : KRLThreadLocal {
  Marker() : KRLThreadLocal(key()) {}
  void finalize() override {
    finalized_on = KRLThreadId()._tid;
    ++finalized;
    delete this;
  }
  static unsigned long key() {
    static const unsigned long k = KRLThreadLocal::get_unique_id();
    return k;
  }
  static std::atomic<unsigned long> finalized_on;
  static std::atomic<int> finalized;
};
std::atomic<unsigned long> Marker::finalized_on{0};
std::atomic<int> Marker::finalized{0};

struct Task : KRLThread {
  explicit Task(std::function<void()> f, long stack = 0) : KRLThread(stack), work(std::move(f)) {}
  void body() override {
    body_tid = KRLThreadId()._tid;
    new Marker;
    if (work) work();
  }
  std::function<void()> work;
  unsigned long body_tid = 0;
};

TEST(ThreadTest, RegistryKeepsNewestFirstWithIntactLinks) {
  const KRLThreadId me;
  EXPECT_EQ(KRLThread::instance(me), nullptr);
  auto a = std::make_unique<Task>(nullptr), b = std::make_unique<Task>(nullptr);
  auto c = std::make_unique<Task>(nullptr);
  EXPECT_EQ(ThreadPeer::first(), c.get());
  EXPECT_EQ(ThreadPeer::next(c.get()), b.get());
  EXPECT_EQ(KRLThread::instance(me), c.get());  // not run: names its creator
  b.reset();
  EXPECT_EQ(ThreadPeer::next(c.get()), a.get());
  EXPECT_EQ(ThreadPeer::prev(a.get()), c.get());
  c.reset();
  EXPECT_EQ(ThreadPeer::first(), a.get());
  EXPECT_EQ(ThreadPeer::prev(a.get()), nullptr);
}

TEST(ThreadTest, FactoryIsReplaceableAndItsFailureReachesRun) {
  static std::vector<std::pair<unsigned long, void*>> calls;
  calls.clear();
  auto recording = [](unsigned long size, void* (*start)(void*), void* arg) {
    EXPECT_NE(start, nullptr);
    calls.emplace_back(size, arg);
  };
  FactoryScope scope(recording);
  EXPECT_EQ(KRLThread::factory(), static_cast<KRLThread::Factory>(recording));
  Task plain(nullptr), big(nullptr, 1 << 20);
  plain.run();
  big.run();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0], std::make_pair(0ul, static_cast<void*>(static_cast<KRLThread*>(&plain))));
  EXPECT_EQ(calls[1].first, 1ul << 20);

  KRLThread::factory([](unsigned long, void* (*)(void*), void*) { throw CORBA_NO_RESOURCES(); });
  EXPECT_THROW(plain.run(), CORBA_NO_RESOURCES);
  EXPECT_EQ(KRLThread::instance(KRLThreadId()), &big);
}

TEST(ThreadTest, BodyRunsOnItsThreadAndACorbaExceptionSkipsTheCleanUp) {
  FactoryScope scope(&joining_factory);
  Marker::finalized = 0;
  Task t(nullptr);
  t.run();
  EXPECT_NE(t.body_tid, KRLThreadId()._tid);
  EXPECT_EQ(t.id()._tid, t.body_tid);
  EXPECT_EQ(KRLThread::instance(t.id()), &t);  // an ended thread's object stays findable
  EXPECT_EQ(Marker::finalized, 1);
  EXPECT_EQ(Marker::finalized_on, t.body_tid);

  const CORBA_BAD_PARAM thrown(7, CORBA::COMPLETED_MAYBE);
  std::ostringstream body;
  body << thrown;
  krl_test::CoutCapture out;
  Task failing([&] { throw thrown; });
  failing.run();
  EXPECT_EQ(out.text(), "KRLThread::_start: unhandled exception in thread\n" + body.str() + "\n");
  EXPECT_EQ(Marker::finalized, 1);
}

TEST(ThreadTest, DefaultFactoryFailureThrowsNoResources) {
  Task t(nullptr, 1L << 62);  // no system gives a stack this size
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.run(), CORBA_NO_RESOURCES);
  EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("CreateThread: ", 0), 0u);
}

// Waits up to 10 s for the flag.
bool wait_for(const std::atomic<bool>& flag) {
  for (int i = 0; i < 10000 && !flag; ++i) KRLPortable::sleep(1);
  return flag;
}

TEST(ThreadTest, TerminateEndsTheThreadWithoutCleanUp) {
  struct Unwound {
    std::atomic<bool>* flag;
    ~Unwound() { *flag = true; }
  };
  Marker::finalized = 0;
  std::atomic<bool> started[2] = {}, ended[2] = {};
  std::vector<std::unique_ptr<Task>> tasks;
  for (int i = 0; i < 2; ++i) {
    tasks.push_back(std::make_unique<Task>([&, i] {
      Unwound u{&ended[i]};
      started[i] = true;
      // A cancellation point outside any system call: the sanitizers do not
      // follow a thread that unwinds out of a signal handler.
      for (;;) {
        pthread_testcancel();
        KRLThread::yield();
      }
    }));
    tasks.back()->run();
    ASSERT_TRUE(wait_for(started[i]));
  }
  Task never_run(nullptr);
  never_run.terminate();  // names this thread, which runs on
  tasks[0]->terminate();
  EXPECT_TRUE(wait_for(ended[0]));
  EXPECT_FALSE(ended[1]);
  KRLThread::terminateAll();
  EXPECT_TRUE(wait_for(ended[1]));
  EXPECT_EQ(Marker::finalized, 0);
  EXPECT_EQ(KRLThread::instance(tasks[0]->id()), tasks[0].get());
  // The threads may still be unwinding through their objects: keep them.
  static std::vector<std::unique_ptr<Task>> keep;
  for (auto& t : tasks) keep.push_back(std::move(t));
}

TEST(ThreadTest, HundredsOfThreadsLeaveNoEntryBehind) {
  constexpr int kThreads = 300;
  const unsigned long entries = ThreadLocalPeer::entries();
  Marker::finalized = 0;
  std::vector<std::unique_ptr<Task>> tasks;
  for (int i = 0; i < kThreads; ++i) {
    tasks.push_back(std::make_unique<Task>([] {
      CORBA::current_environment().exception(new CORBA_TIMEOUT);
      KRLThread::yield();
    }));
    tasks.back()->run();
  }
  for (int i = 0; i < 10000 && Marker::finalized < kThreads; ++i) KRLPortable::sleep(1);
  ASSERT_EQ(Marker::finalized, kThreads);
  EXPECT_EQ(ThreadLocalPeer::entries(), entries);
  std::vector<KRLThreadId> ids;
  for (const auto& t : tasks) ids.push_back(t->id());
  tasks.clear();
  for (const KRLThreadId& id : ids) EXPECT_EQ(KRLThread::instance(id), nullptr);
}

}  // namespace
