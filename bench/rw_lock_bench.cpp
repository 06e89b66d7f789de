// KRLRWLock against pthread_rwlock_t (uncontended read lock and unlock) and
// against the same writer-preferring lock built from std::mutex and two
// std::condition_variable (a read-mostly mix of two threads on different
// processors, one write in 16 operations).
#include <pthread.h>
#include <sched.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#include "bench_support.h"

#include "krlport/threads/rw_lock.h"

namespace {

// The peer of the mix: KRLRWLock's algorithm on std parts.
class StdCvRWLock {
 public:
  void read_lock() {
    std::unique_lock<std::mutex> g(_mutex);
    while (_state < 0 || _waiting_writers != 0) _readers.wait(g);
    ++_state;
  }
  void write_lock() {
    std::unique_lock<std::mutex> g(_mutex);
    while (_state != 0) {
      ++_waiting_writers;
      _writers.wait(g);
      --_waiting_writers;
    }
    _state = -1;
  }
  void unlock() {
    bool wake_writer;
    bool wake_readers;
    {
      std::lock_guard<std::mutex> g(_mutex);
      if (_state < 0) {
        _state = 0;
      } else {
        --_state;
      }
      wake_writer = _waiting_writers != 0 && _state == 0;
      wake_readers = _waiting_writers == 0;
    }
    if (wake_writer) {
      _writers.notify_one();
    } else if (wake_readers) {
      _readers.notify_all();
    }
  }

 private:
  std::mutex _mutex;
  long _state = 0;
  std::condition_variable _readers;
  unsigned long _waiting_writers = 0;
  std::condition_variable _writers;
};

void BM_KRLRWLockReadUncontended(benchmark::State& state) {
  KRLRWLock l;
  for (auto _ : state) {
    l.read_lock();
    l.unlock();
  }
}
BENCHMARK(BM_KRLRWLockReadUncontended);

void BM_PthreadRWLockReadUncontended(benchmark::State& state) {
  pthread_rwlock_t l = PTHREAD_RWLOCK_INITIALIZER;
  for (auto _ : state) {
    pthread_rwlock_rdlock(&l);
    pthread_rwlock_unlock(&l);
  }
  pthread_rwlock_destroy(&l);
}
BENCHMARK(BM_PthreadRWLockReadUncontended);

void BM_KRLRWLockWriteUncontended(benchmark::State& state) {
  KRLRWLock l;
  for (auto _ : state) {
    l.write_lock();
    l.unlock();
  }
}
BENCHMARK(BM_KRLRWLockWriteUncontended);

void BM_PthreadRWLockWriteUncontended(benchmark::State& state) {
  pthread_rwlock_t l = PTHREAD_RWLOCK_INITIALIZER;
  for (auto _ : state) {
    pthread_rwlock_wrlock(&l);
    pthread_rwlock_unlock(&l);
  }
  pthread_rwlock_destroy(&l);
}
BENCHMARK(BM_PthreadRWLockWriteUncontended);

// Two threads, one write in 16 operations; inside the lock a reader reads
// and a writer writes a few shared words.
template <class Lock>
void read_mostly_mix(benchmark::State& state, Lock& l, long* shared) {
  krl_bench::PinnedThread pinned(state.thread_index());
  unsigned op = static_cast<unsigned>(state.thread_index()) * 7;
  for (auto _ : state) {
    if (++op % 16 == 0) {
      l.write_lock();
      for (int i = 0; i < 4; ++i) ++shared[i];
      l.unlock();
    } else {
      l.read_lock();
      long sum = 0;
      for (int i = 0; i < 4; ++i) sum += shared[i];
      benchmark::DoNotOptimize(sum);
      l.unlock();
    }
  }
}

void BM_KRLRWLockReadMostly(benchmark::State& state) {
  static KRLRWLock l;
  static long shared[4];
  read_mostly_mix(state, l, shared);
}
BENCHMARK(BM_KRLRWLockReadMostly)->Threads(2)->UseRealTime();

void BM_StdCvRWLockReadMostly(benchmark::State& state) {
  static StdCvRWLock l;
  static long shared[4];
  read_mostly_mix(state, l, shared);
}
BENCHMARK(BM_StdCvRWLockReadMostly)->Threads(2)->UseRealTime();

}  // namespace
