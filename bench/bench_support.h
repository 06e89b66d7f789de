// Helpers shared by the benchmarks.
#ifndef KRLPORT_BENCH_BENCH_SUPPORT_H_
#define KRLPORT_BENCH_BENCH_SUPPORT_H_

#include <pthread.h>
#include <sched.h>

namespace krl_bench {

// Pins the calling thread to processor `index` (modulo the ones it may use)
// for the length of a run, and gives it its old affinity back afterwards, so
// the two threads of a contended case run on different processors.
class PinnedThread {
 public:
  explicit PinnedThread(int index) {
    pthread_getaffinity_np(pthread_self(), sizeof _old, &_old);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(index % CPU_COUNT(&_old), &one);
    pthread_setaffinity_np(pthread_self(), sizeof one, &one);
  }
  ~PinnedThread() { pthread_setaffinity_np(pthread_self(), sizeof _old, &_old); }
  PinnedThread(const PinnedThread&) = delete;
  PinnedThread& operator=(const PinnedThread&) = delete;

 private:
  cpu_set_t _old;
};

}  // namespace krl_bench

#endif  // KRLPORT_BENCH_BENCH_SUPPORT_H_
