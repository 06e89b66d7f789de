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

void BM_KRLThreadLocal_instance(benchmark::State& state) {
  static const unsigned long key = KRLThreadLocal::get_unique_id();
  if (KRLThreadLocal::instance(key) == nullptr) new Local(key);
  for (auto _ : state) benchmark::DoNotOptimize(KRLThreadLocal::instance(key));
}
BENCHMARK(BM_KRLThreadLocal_instance);

void BM_KRL_current_environment(benchmark::State& state) {
  krl_bench::PinnedThread pin(state.thread_index());
  CORBA::current_environment();
  for (auto _ : state) benchmark::DoNotOptimize(&CORBA::current_environment());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_KRL_current_environment)->Threads(1)->Threads(2)->UseRealTime();

void BM_pthread_getspecific(benchmark::State& state) {
  static pthread_key_t key = [] {
    pthread_key_t k;
    pthread_key_create(&k, nullptr);
    return k;
  }();
  krl_bench::PinnedThread pin(state.thread_index());
  static thread_local int value;
  pthread_setspecific(key, &value);
  for (auto _ : state) benchmark::DoNotOptimize(pthread_getspecific(key));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_pthread_getspecific)->Threads(1)->Threads(2)->UseRealTime();

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
