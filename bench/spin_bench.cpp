// KRLSpinMutex and KRLRSpinMutex against pthread_spinlock_t: uncontended lock
// and unlock, two threads on different processors taking turns, and the cost
// of making a lock while its pool has blocks.
#include <pthread.h>
#include <sched.h>

#include <thread>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "krlport/threads/spin_mutex.h"

namespace {

pthread_spinlock_t* pthread_spin() {
  static pthread_spinlock_t* s = [] {
    static pthread_spinlock_t lock;
    pthread_spin_init(&lock, PTHREAD_PROCESS_PRIVATE);
    return &lock;
  }();
  return s;
}

void BM_KRLSpinMutexLockUnlock(benchmark::State& state) {
  KRLSpinMutex m;
  for (auto _ : state) {
    m.lock();
    m.unlock();
  }
}
BENCHMARK(BM_KRLSpinMutexLockUnlock);

void BM_PthreadSpinLockUnlock(benchmark::State& state) {
  pthread_spinlock_t* s = pthread_spin();
  for (auto _ : state) {
    pthread_spin_lock(s);
    pthread_spin_unlock(s);
  }
}
BENCHMARK(BM_PthreadSpinLockUnlock);

void BM_KRLRSpinMutexLockUnlock(benchmark::State& state) {
  KRLRSpinMutex m;
  for (auto _ : state) {
    m.lock();
    m.unlock();
  }
}
BENCHMARK(BM_KRLRSpinMutexLockUnlock);

void BM_KRLSpinMutexThroughGuard(benchmark::State& state) {
  KRLSpinMutex m;
  for (auto _ : state) {
    KRLIMutex_var guard(&m, 1);
  }
}
BENCHMARK(BM_KRLSpinMutexThroughGuard);

// A word from the pool and back: no allocation.
void BM_KRLSpinMutexMake(benchmark::State& state) {
  for (auto _ : state) {
    KRLSpinMutex m;
    benchmark::DoNotOptimize(&m);
  }
}
BENCHMARK(BM_KRLSpinMutexMake);

long g_counter = 0;

void BM_KRLSpinMutexContended(benchmark::State& state) {
  static KRLSpinMutex m;
  krl_bench::PinnedThread pin(state.thread_index());
  for (auto _ : state) {
    m.lock();
    benchmark::DoNotOptimize(++g_counter);
    m.unlock();
  }
}
BENCHMARK(BM_KRLSpinMutexContended)->Threads(2)->UseRealTime();

void BM_PthreadSpinContended(benchmark::State& state) {
  pthread_spinlock_t* s = pthread_spin();
  krl_bench::PinnedThread pin(state.thread_index());
  for (auto _ : state) {
    pthread_spin_lock(s);
    benchmark::DoNotOptimize(++g_counter);
    pthread_spin_unlock(s);
  }
}
BENCHMARK(BM_PthreadSpinContended)->Threads(2)->UseRealTime();

}  // namespace
