// KRLMutex against a recursive pthread_mutex_t: uncontended lock and unlock,
// re-entry by the owner, and two threads on different processors taking turns.
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <thread>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "krlport/threads/mutex.h"

namespace {

pthread_mutex_t* recursive_pthread_mutex() {
  static pthread_mutex_t m = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  return &m;
}

void BM_KRLMutexLockUnlock(benchmark::State& state) {
  KRLMutex m;
  for (auto _ : state) {
    m.lock();
    m.unlock();
  }
}
BENCHMARK(BM_KRLMutexLockUnlock);

void BM_PthreadRecursiveLockUnlock(benchmark::State& state) {
  pthread_mutex_t* m = recursive_pthread_mutex();
  for (auto _ : state) {
    pthread_mutex_lock(m);
    pthread_mutex_unlock(m);
  }
}
BENCHMARK(BM_PthreadRecursiveLockUnlock);

// The classic sleeping lock's floor: it takes the word with one locked
// read-modify-write and gives it back with another, which tells whether
// someone sleeps (a futex mutex, and pthread's). KRLMutex gives it back with
// a plain store instead, so it can go below this.
void BM_PlainMutexLockUnlock(benchmark::State& state) {
  std::atomic<long> word{0};
  for (auto _ : state) {
    long expected = 0;
    benchmark::DoNotOptimize(word.compare_exchange_strong(expected, 1, std::memory_order_acquire));
    benchmark::DoNotOptimize(word.exchange(0, std::memory_order_release));
  }
}
BENCHMARK(BM_PlainMutexLockUnlock);

// The owner takes the mutex once more and gives that level back.
void BM_KRLMutexReentry(benchmark::State& state) {
  KRLMutex m;
  m.lock();
  for (auto _ : state) {
    m.lock();
    m.unlock();
  }
  m.unlock();
}
BENCHMARK(BM_KRLMutexReentry);

void BM_PthreadRecursiveReentry(benchmark::State& state) {
  pthread_mutex_t* m = recursive_pthread_mutex();
  pthread_mutex_lock(m);
  for (auto _ : state) {
    pthread_mutex_lock(m);
    pthread_mutex_unlock(m);
  }
  pthread_mutex_unlock(m);
}
BENCHMARK(BM_PthreadRecursiveReentry);

void BM_KRLMutexVarScope(benchmark::State& state) {
  KRLMutex m;
  for (auto _ : state) {
    KRLMutex_var guard(m, 1);
  }
}
BENCHMARK(BM_KRLMutexVarScope);

// Two threads on two processors increment one counter under the lock.
long g_counter = 0;

void BM_KRLMutexContended(benchmark::State& state) {
  static KRLMutex m;
  krl_bench::PinnedThread pin(state.thread_index());
  for (auto _ : state) {
    m.lock();
    benchmark::DoNotOptimize(++g_counter);
    m.unlock();
  }
}
BENCHMARK(BM_KRLMutexContended)->Threads(2)->UseRealTime();

void BM_PthreadRecursiveContended(benchmark::State& state) {
  pthread_mutex_t* m = recursive_pthread_mutex();
  krl_bench::PinnedThread pin(state.thread_index());
  for (auto _ : state) {
    pthread_mutex_lock(m);
    benchmark::DoNotOptimize(++g_counter);
    pthread_mutex_unlock(m);
  }
}
BENCHMARK(BM_PthreadRecursiveContended)->Threads(2)->UseRealTime();

}  // namespace
