// KRLResource counting against its peers: a _ref/_unref pair with sharing on
// against a std::atomic<long> increment/decrement, with sharing off against a
// plain one, both threads on one resource against both on one atomic, and a
// count block from the pool against a heap block.
#include <atomic>
#include <memory>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "krlport/frame/resource.h"

namespace {

class Counted final : public KRLResource {
 public:
  explicit Counted(unsigned char sharing) {
    _set_sharing(sharing);
    _ref();  // two references, so the loops never reach 0
  }
  ~Counted() override = default;
};

// Drops both references of a Counted; on the heap, as every counted object.
void drop(Counted* r) {
  r->_unref();
  r->_unref();
}

void BM_KRLResourceRefUnrefShared(benchmark::State& state) {
  Counted* r = new Counted(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(r->_ref());
    benchmark::DoNotOptimize(r->_unref());
  }
  drop(r);
}
BENCHMARK(BM_KRLResourceRefUnrefShared);

void BM_AtomicIncDec(benchmark::State& state) {
  std::atomic<long> count(2);
  for (auto _ : state) {
    benchmark::DoNotOptimize(++count);
    benchmark::DoNotOptimize(--count);
  }
}
BENCHMARK(BM_AtomicIncDec);

void BM_KRLResourceRefUnrefUnshared(benchmark::State& state) {
  Counted* r = new Counted(0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(r->_ref());
    benchmark::DoNotOptimize(r->_unref());
  }
  drop(r);
}
BENCHMARK(BM_KRLResourceRefUnrefUnshared);

// The count on the heap, as a block's is; the memory clobber after each step
// keeps it in memory, as the resource's is.
void BM_PlainIncDec(benchmark::State& state) {
  std::unique_ptr<long> count(new long(2));
  for (auto _ : state) {
    benchmark::DoNotOptimize(++*count);
    benchmark::ClobberMemory();
    benchmark::DoNotOptimize(--*count);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_PlainIncDec);

// The same pair from two threads on two processors, on one count.
void BM_KRLResourceRefUnrefContended(benchmark::State& state) {
  static Counted* r;
  if (state.thread_index() == 0) r = new Counted(1);
  krl_bench::PinnedThread pin(state.thread_index());
  for (auto _ : state) {
    benchmark::DoNotOptimize(r->_ref());
    benchmark::DoNotOptimize(r->_unref());
  }
  if (state.thread_index() == 0) drop(r);
}
BENCHMARK(BM_KRLResourceRefUnrefContended)->Threads(2)->UseRealTime();

void BM_AtomicIncDecContended(benchmark::State& state) {
  static std::atomic<long> count(2);
  krl_bench::PinnedThread pin(state.thread_index());
  for (auto _ : state) {
    benchmark::DoNotOptimize(++count);
    benchmark::DoNotOptimize(--count);
  }
}
BENCHMARK(BM_AtomicIncDecContended)->Threads(2)->UseRealTime();

// First _ref and destruction: a block from the pool and back, no heap.
void BM_KRLResourceBlockFromPool(benchmark::State& state) {
  for (auto _ : state) {
    Counted r(1);
    benchmark::DoNotOptimize(&r);
  }
}
BENCHMARK(BM_KRLResourceBlockFromPool);

struct HeapBlock {
  long count;
  unsigned char sharing;
  long* lock;
};

void BM_HeapBlockNewDelete(benchmark::State& state) {
  for (auto _ : state) {
    HeapBlock* b = new HeapBlock();
    benchmark::DoNotOptimize(b);
    delete b;
  }
}
BENCHMARK(BM_HeapBlockNewDelete);

}  // namespace
