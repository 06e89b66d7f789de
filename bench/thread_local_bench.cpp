// Per-thread objects: KRLThreadLocal::instance and CORBA::current_environment
// against pthread_getspecific and against one std::mutex with two
// std::unordered_map look-ups (thread id, then key).
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <mutex>
#include <thread>
#include <unordered_map>

#include "bench_support.h"
#include "krlport/exceptions/environment.h"
#include "krlport/threads/thread_local.h"

namespace {

struct Local : KRLThreadLocal {
  explicit Local(unsigned long key) : KRLThreadLocal(key) {}
};

// The object of a key taken once, as a user's would be.
void BM_KRLThreadLocalInstance(benchmark::State& state) {
  static const unsigned long key = KRLThreadLocal::get_unique_id();
  if (KRLThreadLocal::instance(key) == nullptr) new Local(key);
  for (auto _ : state) benchmark::DoNotOptimize(KRLThreadLocal::instance(key));
}
BENCHMARK(BM_KRLThreadLocalInstance);

// After the first call on the thread, as a host calls it.
void BM_KRLCurrentEnvironment(benchmark::State& state) {
  CORBA::current_environment();
  for (auto _ : state) benchmark::DoNotOptimize(&CORBA::current_environment());
}
BENCHMARK(BM_KRLCurrentEnvironment);

// The peer: a key created and set once, then read.
void BM_PthreadGetspecific(benchmark::State& state) {
  static pthread_key_t key = [] {
    pthread_key_t k;
    pthread_key_create(&k, nullptr);
    return k;
  }();
  static thread_local int value;
  pthread_setspecific(key, &value);
  for (auto _ : state) benchmark::DoNotOptimize(pthread_getspecific(key));
}
BENCHMARK(BM_PthreadGetspecific);

// Two threads at once: the fast paths share nothing between threads.
void BM_KRLCurrentEnvironmentThreads(benchmark::State& state) {
  krl_bench::PinnedThread pin(state.thread_index());
  CORBA::current_environment();
  for (auto _ : state) benchmark::DoNotOptimize(&CORBA::current_environment());
}
BENCHMARK(BM_KRLCurrentEnvironmentThreads)->Threads(2)->UseRealTime();

struct MapBaseline {
  std::mutex mutex;
  std::unordered_map<std::thread::id, std::unordered_map<unsigned long, void*>> threads;
};

void BM_mutex_two_maps(benchmark::State& state) {
  static MapBaseline baseline;
  static int value;
  const unsigned long key = 7;
  {
    std::lock_guard<std::mutex> guard(baseline.mutex);
    baseline.threads[std::this_thread::get_id()][key] = &value;
  }
  for (auto _ : state) {
    std::lock_guard<std::mutex> guard(baseline.mutex);
    auto t = baseline.threads.find(std::this_thread::get_id());
    void* found = nullptr;
    if (t != baseline.threads.end()) {
      auto k = t->second.find(key);
      if (k != t->second.end()) found = k->second;
    }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_mutex_two_maps);

}  // namespace
