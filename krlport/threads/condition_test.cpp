#include "krlport/threads/condition.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <time.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/platform/event.h"
#include "krlport/platform/lock.h"
#include "krlport/portable/test_support.h"
#include "krlport/threads/condition_internal.h"
#include "krlport/threads/mutex_internal.h"
#include "krlport/threads/thread_test_peers.h"

namespace {

using krl_internal::condition_capacity;
using krl_internal::condition_waiters;
using krl_test::await;
using namespace std::chrono_literals;

TEST(KRLConditionTest, SignalOrderArrayGrowthAndGuardForms) {
  KRLMutex m;
  KRLCondition c;
  std::vector<int> woken;  // guarded by m
  std::atomic<int> done{0};
  std::vector<std::thread> threads;
  const auto start_waiters = [&](int n) {  // each registered before the next starts
    for (int i = 0; i < n; ++i) {
      threads.emplace_back([&, i] {
        KRLMutex_var g(m, 1);
        c.wait(m);
        woken.push_back(i);
        ++done;
      });
      await([&] { return condition_waiters(c) == i + 1u; });
    }
  };
  // signal takes index 0 and moves the newest entry there. The guard forms
  // unlock and disarm.
  start_waiters(4);
  EXPECT_EQ(condition_capacity(c), 4u);
  for (int n = 1; n <= 4; ++n) {
    KRLMutex_var g(m, 1);
    c.signal(g);
    EXPECT_EQ(g.release_flag(), 0);
    await([&] { return done == n; });
  }
  EXPECT_EQ(woken, (std::vector<int>{0, 3, 2, 1}));
  start_waiters(5);
  EXPECT_EQ(condition_capacity(c), 8u);
  KRLMutex_var g(m, 1);
  c.broadcast(g);
  EXPECT_EQ(g.release_flag(), 0);
  for (std::thread& t : threads) t.join();  // all woken
}

// 1 while some thread holds m.
int lock_word(KRLMutex& m) { return krl_internal::lock_held(krl_internal::lock_of(m)) ? 1 : 0; }

#ifndef _WIN32  // the futex sleep can be replaced there only
// Sleeps record their limit (in ms, rounded up) and end at once: with a
// time-out when there is a deadline, failing with EINVAL when there is none.
constexpr long long kNoSleep = -1000;
constexpr long long kForever = -2000;
long long g_limit = kNoSleep;

int recording_sleep(std::atomic<std::uint32_t>*, std::uint32_t,
                    const krl_internal::EventDeadline* deadline) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  g_limit = deadline == nullptr ? kForever
                                : ((deadline->seconds - now.tv_sec) * 1000000000LL +
                                   deadline->nanoseconds - now.tv_nsec + 999999) /
                                      1000000;
  errno = deadline == nullptr ? EINVAL : ETIMEDOUT;
  return -1;
}
#endif

TEST(KRLConditionTest, TimeLimits) {
  KRLMutex m;
  KRLCondition c;
  m.lock();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(c.timedwait(m, 100ull), 1);
  EXPECT_THROW(c.wait(m, 1ul), CORBA_TIMEOUT);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(waited >= 1090ms && waited < 10s);
  EXPECT_EQ(lock_word(m), 1);  // the waits took m again
  m.unlock();

#ifndef _WIN32
  // The 32-bit rules, through the sleep they reach.
  krl_internal::set_event_sleep_call(&recording_sleep);
  const struct {
    unsigned long long limit;
    bool seconds;
    long long passed;
  } cases[] = {{1, true, 1000},
               {4294968, true, 704},  // 2^32 + 704 ms
               {1ull << 32, false, kNoSleep},
               {(1ull << 32) + 5, false, 5}};
  m.lock();
  for (const auto& k : cases) {
    g_limit = kNoSleep;
    EXPECT_EQ(
        k.seconds ? c.timedwait(m, static_cast<unsigned long>(k.limit)) : c.timedwait(m, k.limit),
        1);
    EXPECT_TRUE(g_limit <= k.passed && g_limit > k.passed - 100) << k.limit << ": " << g_limit;
  }
  // Low bits 0xFFFFFFFF: no limit. A failed sleep leaves no lock held, and
  // the caller's armed guard then unwinds harmlessly.
  m.unlock();
  const std::string err = krl_test::stderr_of([&] {
    try {
      KRLMutex_var g(m, 1);
      c.timedwait(m, 0x1FFFFFFFFull);
      ADD_FAILURE() << "no CORBA_NO_RESOURCES";
    } catch (const CORBA_NO_RESOURCES& e) {
      EXPECT_EQ(e.minor(), CORBA::OMGVMCID | EINVAL);
    }
  });
  EXPECT_EQ(err.rfind("WaitForSingleObject: ", 0), 0u);
  krl_internal::set_event_sleep_call(nullptr);
  EXPECT_EQ(g_limit, kForever);
  EXPECT_EQ(lock_word(m), 0);
  EXPECT_EQ(lock_word(krl_internal::condition_mutex(c)), 0);
  EXPECT_EQ(condition_waiters(c), 0u);
#endif
}

// Every item is delivered exactly once.
TEST(KRLConditionTest, BoundedQueueDeliversEveryItemOnce) {
  constexpr int kThreads = 3;   // producers, and as many consumers
  constexpr int kItems = 3000;  // per producer
  KRLMutex m;
  KRLCondition not_full;
  KRLCondition not_empty;
  std::deque<int> queue;  // guarded by m, as is delivered
  std::vector<int> delivered(kThreads * kItems, 0);
  std::vector<std::thread> threads;
  for (int p = 0; p < kThreads; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i <= kItems; ++i) {  // the last item, -1, stops a consumer
        KRLMutex_var g(m, 1);
        while (queue.size() == 4) not_full.timedwait(m, i % 2 == 0 ? 0xFFFFFFFFull : 5ull);
        queue.push_back(i < kItems ? p * kItems + i : -1);
        not_empty.signal(g);
      }
    });
    threads.emplace_back([&] {
      KRLMutex_var g(m, 1);
      for (int item = 0; item >= 0;) {
        while (queue.empty()) not_empty.wait(m);
        item = queue.front();
        queue.pop_front();
        if (item >= 0) ++delivered[item];
        not_full.signal();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(std::count(delivered.begin(), delivered.end(), 1), kThreads * kItems);
}

// Two threads hand a turn back and forth, so that each signal usually meets
// its waiter still polling its event, or polling the mutex that the signaller
// is about to give up, and the signaller's set finds nobody asleep. A
// wake-up lost on that path leaves its waiter asleep until the long limit
// runs out, which the count of time-outs shows.
TEST(KRLConditionTest, PingPongLosesNoWakeUp) {
  constexpr int kRounds = 4000;
  KRLMutex m;
  KRLCondition c;
  int turn = 0;      // guarded by m: 1 when the partner is to move
  int timeouts = 0;  // guarded by m
  std::thread partner([&] {
    KRLMutex_var g(m, 1);
    for (int i = 0; i < kRounds; ++i) {
      while (turn != 1) timeouts += c.timedwait(m, 10000ull);
      turn = 0;
      c.signal();
    }
  });
  {
    KRLMutex_var g(m, 1);
    for (int i = 0; i < kRounds; ++i) {
      turn = 1;
      c.signal();
      while (turn != 0) timeouts += c.timedwait(m, 10000ull);
    }
  }
  partner.join();
  EXPECT_EQ(timeouts, 0);
  EXPECT_EQ(condition_waiters(c), 0u);
}

// A woken waiter destroys the condition and the mutex at once, while its
// waker may still be inside signal or broadcast. The objects are on the heap,
// so AddressSanitizer sees a touch after the free, and ThreadSanitizer one
// that is not ordered before it.
struct Shared {
  KRLMutex m;
  KRLCondition c;
  bool go = false;  // guarded by m
  int left = 2;     // waiters still to leave, guarded by m
};

void wait_and_destroy(Shared* s, std::atomic<int>& registered, unsigned long long limit) {
  s->m.lock();
  ++registered;
  while (!s->go) s->c.timedwait(s->m, limit);
  const bool last = --s->left == 0;
  s->m.unlock();
  if (last) delete s;
}

#ifndef _WIN32
// The sleep of a timed wait runs out while a signal is taking the entry: the
// waiter finds it gone, and its waker sets the event only after that.
std::atomic<KRLCondition*> g_taken_from{nullptr};
int times_out_while_taken(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                          const krl_internal::EventDeadline*) {
  while (*word == expected && lock_word(krl_internal::condition_mutex(*g_taken_from)) == 0) {
    std::this_thread::yield();
  }
  errno = ETIMEDOUT;
  return -1;
}
#endif

TEST(KRLConditionTest, WokenWaiterMayDestroyTheConditionAtOnce) {
  for (int round = 0; round < 2000; ++round) {
    Shared* s = new Shared;
    std::atomic<int> registered{0};
    std::thread a(wait_and_destroy, s, std::ref(registered), 0xFFFFFFFFull);
    std::thread b(wait_and_destroy, s, std::ref(registered), 0xFFFFFFFFull);
    while (registered < 2) std::this_thread::yield();
    // go is set under m, the wake-up given after m is released. Both sleep,
    // so s lives until the second set.
    s->m.lock();
    s->go = true;
    s->m.unlock();
    if (round % 2 == 0) {
      s->c.broadcast();
    } else {
      KRLCondition& c = s->c;
      c.signal();
      c.signal();
    }
    a.join();
    b.join();
  }
#ifndef _WIN32
  // A waiter whose time ran out as a signal took its entry keeps its event
  // until the waker has set it, and may then destroy the condition too.
  krl_internal::set_event_sleep_call(&times_out_while_taken);
  for (int round = 0; round < 500; ++round) {
    Shared* s = new Shared;
    s->left = 1;
    g_taken_from = &s->c;
    std::atomic<int> registered{0};
    std::thread a(wait_and_destroy, s, std::ref(registered), 60000ull);
    while (registered < 1) std::this_thread::yield();
    s->m.lock();
    s->go = true;
    s->m.unlock();
    s->c.signal();
    a.join();
  }
  krl_internal::set_event_sleep_call(nullptr);
#endif
}

#ifdef _WIN32
// A message posted to a thread in wait_all is dispatched on that thread while
// it waits, with m given up, and a signal still ends the wait.
struct Pumped {
  KRLMutex m;
  KRLCondition c;
  std::atomic<DWORD> dispatched_on{0};
  std::atomic<bool> m_free_then{false};
};
Pumped* g_pumped = nullptr;

LRESULT CALLBACK note_dispatch(HWND w, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg != WM_APP) return DefWindowProcA(w, msg, wp, lp);
  g_pumped->m_free_then = lock_word(g_pumped->m) == 0;
  g_pumped->dispatched_on = GetCurrentThreadId();
  return 0;
}

TEST(KRLConditionTest, WaitAllDispatchesTheThreadsMessagesUntilSignalled) {
  Pumped p;
  g_pumped = &p;
  WNDCLASSA wc = {};
  wc.lpfnWndProc = &note_dispatch;
  wc.hInstance = GetModuleHandleA(nullptr);
  wc.lpszClassName = "krl_condition_test";
  ASSERT_NE(RegisterClassA(&wc), 0);
  HWND w = CreateWindowExA(0, wc.lpszClassName, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                           wc.hInstance, nullptr);
  ASSERT_NE(w, nullptr);
  std::thread poster([&] {
    await([&] { return condition_waiters(p.c) == 1; });
    PostMessageA(w, WM_APP, 0, 0);
    await([&] { return p.dispatched_on != 0; });
    p.c.signal();
  });
  {
    KRLMutex_var g(p.m, 1);
    p.c.wait_all(p.m);
    EXPECT_EQ(lock_word(p.m), 1);
  }
  poster.join();
  EXPECT_EQ(p.dispatched_on, GetCurrentThreadId());
  EXPECT_TRUE(p.m_free_then);
  KRLMutex_var g(p.m, 1);
  EXPECT_EQ(p.c.timedwait_all(p.m, 10ull), 1);
  DestroyWindow(w);
  UnregisterClassA(wc.lpszClassName, wc.hInstance);
}
#endif

}  // namespace
