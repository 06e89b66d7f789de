#include "bench_support.h"

#include <thread>

namespace krl_bench {
namespace {

// glibc skips the atomic instructions of its mutexes until a process has
// started its first thread, which makes an uncontended pthread lock look
// several times cheaper than a host ever sees it. Every benchmark runs after
// this thread has been started and joined.
const bool kThreadStarted = [] {
  std::thread([] {}).join();
  return true;
}();

cpu_set_t read_process_cpus() {
  cpu_set_t cpus;
  if (pthread_getaffinity_np(pthread_self(), sizeof cpus, &cpus) != 0) CPU_ZERO(&cpus);
  return cpus;
}

// Read while the program loads, on its first thread, before any benchmark
// pins a thread.
const cpu_set_t kProcessCpus = read_process_cpus();

}  // namespace

const cpu_set_t& process_cpus() { return kProcessCpus; }

}  // namespace krl_bench
