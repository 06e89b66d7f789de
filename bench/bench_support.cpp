#include <thread>

namespace {

// glibc skips the atomic instructions of its mutexes until a process has
// started its first thread, which makes an uncontended pthread lock look
// several times cheaper than a host ever sees it. Every benchmark runs after
// this thread has been started and joined.
const bool kThreadStarted = [] {
  std::thread([] {}).join();
  return true;
}();

}  // namespace
