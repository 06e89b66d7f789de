// KRLCondition against absl::CondVar (over absl::Mutex) and
// std::condition_variable: a ping-pong between two threads on different
// processors, each waking the other in turn. One iteration is one round trip:
// two signals and two waits, with the same handshake on every side.
#include <pthread.h>
#include <sched.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#if KRL_BENCH_HAVE_ABSL
#include "absl/synchronization/mutex.h"
#endif

#include "bench_support.h"

#include "krlport/threads/condition.h"

namespace {

// The partner waits for turn 1, hands back turn 0 and signals. Both sides
// signal while they hold the mutex, as callers usually do.
void BM_KRLConditionPingPong(benchmark::State& state) {
  KRLMutex m;
  KRLCondition c;
  int turn = 0;  // guarded by m
  bool stop = false;
  std::thread partner([&] {
    krl_bench::PinnedThread partner_pinned(1);
    KRLMutex_var g(m, 1);
    for (;;) {
      while (turn != 1 && !stop) c.wait(m);
      if (stop) break;
      turn = 0;
      c.signal();
    }
  });
  krl_bench::PinnedThread pinned(0);  // after the partner, which must not inherit it
  for (auto _ : state) {
    KRLMutex_var g(m, 1);
    turn = 1;
    c.signal();
    while (turn != 0) c.wait(m);
  }
  {
    KRLMutex_var g(m, 1);
    stop = true;
    c.signal();
  }
  partner.join();
}
BENCHMARK(BM_KRLConditionPingPong)->UseRealTime();

void BM_StdConditionVariablePingPong(benchmark::State& state) {
  std::mutex m;
  std::condition_variable c;
  int turn = 0;  // guarded by m
  bool stop = false;
  std::thread partner([&] {
    krl_bench::PinnedThread partner_pinned(1);
    std::unique_lock<std::mutex> g(m);
    for (;;) {
      while (turn != 1 && !stop) c.wait(g);
      if (stop) break;
      turn = 0;
      c.notify_one();
    }
  });
  krl_bench::PinnedThread pinned(0);  // after the partner, which must not inherit it
  for (auto _ : state) {
    std::unique_lock<std::mutex> g(m);
    turn = 1;
    c.notify_one();
    while (turn != 0) c.wait(g);
  }
  {
    std::lock_guard<std::mutex> g(m);
    stop = true;
    c.notify_one();
  }
  partner.join();
}
BENCHMARK(BM_StdConditionVariablePingPong)->UseRealTime();

#if KRL_BENCH_HAVE_ABSL
void BM_AbslCondVarPingPong(benchmark::State& state) {
  absl::Mutex m;
  absl::CondVar c;
  int turn = 0;  // guarded by m
  bool stop = false;
  std::thread partner([&] {
    krl_bench::PinnedThread partner_pinned(1);
    absl::MutexLock g(&m);
    for (;;) {
      while (turn != 1 && !stop) c.Wait(&m);
      if (stop) break;
      turn = 0;
      c.Signal();
    }
  });
  krl_bench::PinnedThread pinned(0);  // after the partner, which must not inherit it
  for (auto _ : state) {
    absl::MutexLock g(&m);
    turn = 1;
    c.Signal();
    while (turn != 0) c.Wait(&m);
  }
  {
    absl::MutexLock g(&m);
    stop = true;
    c.Signal();
  }
  partner.join();
}
BENCHMARK(BM_AbslCondVarPingPong)->UseRealTime();
#endif

// Signals nobody waits for: the cost a signalling thread pays when every
// waiter is busy.
void BM_KRLConditionSignalNoWaiter(benchmark::State& state) {
  KRLCondition c;
  for (auto _ : state) c.signal();
}
BENCHMARK(BM_KRLConditionSignalNoWaiter);

void BM_StdConditionVariableNotifyNoWaiter(benchmark::State& state) {
  std::condition_variable c;
  for (auto _ : state) c.notify_one();
}
BENCHMARK(BM_StdConditionVariableNotifyNoWaiter);

}  // namespace
