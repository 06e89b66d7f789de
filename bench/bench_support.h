// Helpers shared by the benchmarks. bench/ is a host of the library, not part
// of it: it may call pthreads and sched directly (the layering check covers
// krlport/ only).
#ifndef KRLPORT_BENCH_BENCH_SUPPORT_H_
#define KRLPORT_BENCH_BENCH_SUPPORT_H_

#include <pthread.h>
#include <sched.h>

namespace krl_bench {

// The processors the process may use, as its first thread had them when the
// program started (before any thread was pinned). Empty if unknown.
const cpu_set_t& process_cpus();

// Pins the calling thread to the processor `index` (counted among those the
// process may use, modulo their number) for the length of a run, and gives it
// its old affinity back afterwards, so the two threads of a contended case run
// on different processors. The count starts from the process's processors, not
// the thread's: a thread started by a pinned thread inherits its one processor.
// Where the affinity cannot be read or set the thread stays as it was: the case
// still runs, only unpinned.
class PinnedThread {
 public:
  explicit PinnedThread(int index) {
    if (pthread_getaffinity_np(pthread_self(), sizeof _old, &_old) != 0) return;
    const cpu_set_t& cpus = process_cpus();
    const int allowed = CPU_COUNT(&cpus);
    if (allowed == 0) return;
    int wanted = (index < 0 ? -index : index) % allowed;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (!CPU_ISSET(cpu, &cpus)) continue;
      if (wanted-- > 0) continue;
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(cpu, &one);
      _pinned = pthread_setaffinity_np(pthread_self(), sizeof one, &one) == 0;
      break;
    }
  }
  ~PinnedThread() {
    if (_pinned) pthread_setaffinity_np(pthread_self(), sizeof _old, &_old);
  }
  PinnedThread(const PinnedThread&) = delete;
  PinnedThread& operator=(const PinnedThread&) = delete;

  // Whether the thread runs on one processor now.
  bool pinned() const { return _pinned; }

 private:
  cpu_set_t _old;
  bool _pinned = false;
};

}  // namespace krl_bench

#endif  // KRLPORT_BENCH_BENCH_SUPPORT_H_
