#include "krlport/threads/thread.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/socket.h>
#endif

#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "krlport/exceptions/environment.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/portable/portable.h"
#include "krlport/portable/test_support.h"
#include "krlport/threads/condition.h"
#include "krlport/threads/rw_lock.h"
#include "krlport/threads/spin_mutex.h"
#include "krlport/threads/thread_local.h"
#include "krlport/threads/thread_test_peers.h"

namespace {

using krl_internal::ThreadLocalPeer;
using krl_test::eventually;
using krl_test::stderr_of;

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

TEST(ThreadTest, FactoryIsReplaceableAndItsFailureReachesRun) {
  static std::vector<std::pair<unsigned long, void*>> calls;
  calls.clear();
  auto recording = [](unsigned long size, void* (*start)(void*), void* arg) {
    EXPECT_NE(start, nullptr);
    calls.emplace_back(size, arg);
  };
  FactoryScope scope(recording);
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

#ifdef _WIN32
// Counts the breakpoints that reach this process and steps over them, as a
// debugger that is told to go on would.
std::atomic<int> g_breakpoints{0};
LONG CALLBACK step_over_breakpoint(EXCEPTION_POINTERS* e) {
  if (e->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT) return EXCEPTION_CONTINUE_SEARCH;
  ++g_breakpoints;
  if (*reinterpret_cast<const unsigned char*>(e->ContextRecord->Rip) == 0xCC)
    ++e->ContextRecord->Rip;
  return EXCEPTION_CONTINUE_EXECUTION;
}
#endif

TEST(ThreadTest, BodyRunsOnItsThreadAndACorbaExceptionSkipsTheCleanUp) {
#ifdef _WIN32
  // The thread stops at DebugBreak after its two lines of output.
  void* const handler = AddVectoredExceptionHandler(1, &step_over_breakpoint);
  ASSERT_NE(handler, nullptr);
  g_breakpoints = 0;
#endif
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
  krl_test::Capture out;
  Task failing([&] { throw thrown; });
  failing.run();
  EXPECT_EQ(out.text(), "KRLThread::_start: unhandled exception in thread\n" + body.str() + "\n");
  EXPECT_EQ(Marker::finalized, 1);
#ifdef _WIN32
  RemoveVectoredExceptionHandler(handler);
  EXPECT_EQ(g_breakpoints, 1);
#endif
}

TEST(ThreadTest, DefaultFactoryFailureThrowsNoResources) {
#ifdef _WIN32
  // A 32-bit long names at most 4 GiB less a byte, and Win64 reserves that
  // much address space for a stack without complaint (Wine too).
  GTEST_SKIP() << "no stack size that a long can name makes CreateThread fail on Win64";
#endif
  Task t(nullptr, static_cast<long>(1LL << 62 & LONG_MAX));  // no system gives a stack this size
  EXPECT_EQ(
      stderr_of([&] { EXPECT_THROW(t.run(), CORBA_NO_RESOURCES); }).rfind("CreateThread: ", 0), 0u);
}

#ifdef _WIN32
// 'S' while the thread exists (Windows gives no cheap running/asleep
// letter, so the test does not tell them apart there), 0 once it is gone.
char task_state(unsigned long tid) {
  HANDLE h = OpenThread(SYNCHRONIZE, FALSE, static_cast<DWORD>(tid));
  if (h == nullptr) return 0;
  const bool ended = WaitForSingleObject(h, 0) == WAIT_OBJECT_0;
  CloseHandle(h);
  return ended ? 0 : 'S';
}
#else
// The kernel's state letter of a thread of this process ('R' running, 'S'
// asleep), or 0 when the thread is gone.
char task_state(unsigned long tid) {
  const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
  std::FILE* stat = std::fopen(path.c_str(), "re");
  if (stat == nullptr) return 0;
  char text[512];
  const std::size_t n = std::fread(text, 1, sizeof text - 1, stat);  // 0 once the thread went
  std::fclose(stat);
  text[n] = 0;
  const char* paren = std::strrchr(text, ')');
  return paren == nullptr || paren[1] == 0 ? 0 : paren[2];
}
#endif

// What the threads of the termination tests block in, built once and never
// destroyed: an ended thread may have left itself registered in them. The
// test thread holds the locks. Everything that an ended thread touches after
// it said "started" lives here or in objects that are never freed, since the
// sanitizers never learn that the thread has ended.
struct Blockers {
  Blockers() {
    held.lock();
    written.write_lock();
    read.read_lock();
    spin.lock();
#ifndef _WIN32
    socketpair(AF_UNIX, SOCK_STREAM, 0, sockets);  // never closed, for the same reason
#endif
  }
  KRLMutex held;
  KRLMutex for_condition;
  KRLCondition condition;
  KRLRWLock written, read;
  KRLSpinMutex spin;
  int sockets[2];
};
Blockers& blockers() {
  static Blockers* const b = new Blockers;
  return *b;
}

constexpr unsigned long kForever = 1000000;  // seconds

struct EndCase {
  EndCase(const char* w, bool s, void (*b)(KRLThread*))
      : what(w), sleeps(s), block(b), started(false), after(false) {}
  const char* what;
  bool sleeps;  // blocks in the kernel rather than computing
  void (*block)(KRLThread* self);
  std::atomic<bool> started, after;
};

std::atomic<bool> g_caught{false};
EndCase g_end_cases[] = {
    {"condition wait", true,
     [](KRLThread*) {
       KRLMutex_var guard(blockers().for_condition, 1);
       blockers().condition.wait(blockers().for_condition);
     }},
    {"mutex held by another thread", true, [](KRLThread*) { blockers().held.lock(); }},
    {"read lock behind a writer", true, [](KRLThread*) { blockers().written.read_lock(); }},
    {"write lock behind a reader", true, [](KRLThread*) { blockers().read.write_lock(); }},
    {"spin lock", false, [](KRLThread*) { blockers().spin.lock(); }},
    {"sleep", true, [](KRLThread*) { KRLPortable::vsleep(kForever); }},
#ifndef _WIN32  // a socket pair needs Winsock's start-up there; the kernel waits are covered
    {"recv", true,
     [](KRLThread*) {
       char c;
       static_cast<void>(recv(blockers().sockets[0], &c, 1, 0));
     }},
#endif
    {"computing", false,
     [](KRLThread*) {
       static std::atomic<unsigned long> spins{0};
       for (;;) spins.fetch_add(1, std::memory_order_relaxed);
     }},
    {"catch (...) around a sleep", true,
     [](KRLThread*) {
       try {
         KRLPortable::vsleep(kForever);
       } catch (...) {
         g_caught = true;
       }
     }},
    {"destructor", true,
     [](KRLThread*) {
       struct Stuck {
         ~Stuck() { KRLPortable::vsleep(kForever); }
       };
       Stuck stuck;
     }},
    {"its own terminate()", false, [](KRLThread* self) { self->terminate(); }},
};
constexpr int kEndCases = sizeof(g_end_cases) / sizeof(g_end_cases[0]);

struct EndTask : KRLThread {
  explicit EndTask(EndCase* c) : end_case(c) {}
  void body() override {
    new Marker;
    EndCase* const c = end_case;
    c->started = true;
    c->block(this);
    c->after = true;
  }
  EndCase* end_case;
};

TEST(ThreadTest, TerminateEndsTheThreadWhereverItIsAndRunsNoneOfItsCode) {
  blockers();
  Marker::finalized = 0;
  // Never freed: see Blockers.
  static std::vector<EndTask*> tasks;
  std::vector<unsigned long> tids;
  for (EndCase& c : g_end_cases) {
    tasks.push_back(new EndTask(&c));
    tasks.back()->run();
    ASSERT_TRUE(eventually([&] { return c.started.load(); })) << c.what;
    tids.push_back(tasks.back()->id()._tid);
  }
  const auto gone = [&](int i) { return task_state(tids[i]) == 0; };
  const int self_ended = kEndCases - 1;
  EXPECT_TRUE(eventually([&] { return gone(self_ended); }));
  for (int i = 0; i < kEndCases; ++i) {
    if (g_end_cases[i].sleeps) {
      EXPECT_TRUE(eventually([&] { return task_state(tids[i]) == 'S'; })) << g_end_cases[i].what;
    }
  }

  Task never_run(nullptr);
  never_run.terminate();  // its id names this thread, which runs on
  tasks[0]->terminate();
  EXPECT_TRUE(eventually([&] { return gone(0); })) << g_end_cases[0].what;
  for (int i = 1; i < self_ended; ++i) EXPECT_FALSE(gone(i)) << g_end_cases[i].what;

  KRLThread::terminateAll();
  for (int i = 0; i < kEndCases; ++i) {
    EXPECT_TRUE(eventually([&] { return gone(i); })) << g_end_cases[i].what;
    EXPECT_FALSE(g_end_cases[i].after) << g_end_cases[i].what;
    EXPECT_EQ(KRLThread::instance(tasks[i]->id()), tasks[i]);
  }
  EXPECT_FALSE(g_caught);
  EXPECT_EQ(Marker::finalized, 0);
}

// A body deletes its object and builds a new one, never run, in the same
// storage, on the same thread: its id names that thread, which is running.
TEST(ThreadTest, AnObjectBuiltWhereAnEndedOneStoodIsNotTakenForItsThread) {
  static std::atomic<KRLThread*> reborn{nullptr};
  static std::atomic<bool> go{false}, survived{false};
  struct Reborn : KRLThread {
    void body() override {
      this->~Reborn();
      reborn = new (this) Reborn;
      while (!go) KRLPortable::sleep(1);
      survived = true;
    }
  };
  Reborn* first = new Reborn;
  first->run();
  ASSERT_TRUE(eventually([] { return reborn.load() != nullptr; }));
  ASSERT_EQ(reborn.load(), first);
  reborn.load()->terminate();
  KRLThread::terminateAll();
  go = true;
  EXPECT_TRUE(eventually([] { return survived.load(); }));
  delete reborn.load();
}

TEST(ThreadTest, IdReadWhileTheThreadStartsIsRaceFree) {
  std::atomic<bool> done{false};
  Task t([&] { done = true; });
  const KRLThreadId creator;
  t.run();
  KRLThreadId seen(t.id());
  while (seen._tid == creator._tid) {
    seen = t.id();
    KRLThread::yield();
  }
  EXPECT_EQ(KRLThread::instance(t.id()), &t);
  ASSERT_TRUE(eventually([&] { return done.load(); }));
  EXPECT_EQ(seen._tid, t.body_tid);
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
  ASSERT_TRUE(eventually([] { return Marker::finalized == kThreads; })) << Marker::finalized;
  EXPECT_EQ(ThreadLocalPeer::entries(), entries);
  std::vector<KRLThreadId> ids;
  for (const auto& t : tasks) ids.push_back(t->id());
  // Every other object first: the rest, unlinked from between, stay findable.
  for (int i = 0; i < kThreads; i += 2) tasks[i].reset();
  for (int i = 1; i < kThreads; i += 2) EXPECT_NE(KRLThread::instance(ids[i]), nullptr);
  tasks.clear();
  for (const KRLThreadId& id : ids) EXPECT_EQ(KRLThread::instance(id), nullptr);
}

}  // namespace
