// Test helpers of the threads: waiting for a condition that another thread
// brings about, and access to the private state of KRLThreadLocal.
#ifndef KRLPORT_THREADS_THREAD_TEST_PEERS_H_
#define KRLPORT_THREADS_THREAD_TEST_PEERS_H_

#include <chrono>
#include <cstdlib>
#include <thread>

#include "krlport/threads/thread.h"
#include "krlport/threads/thread_local.h"

namespace krl_test {

// Polls p every millisecond; false once 20 s have passed without it.
template <class P>
bool eventually(P p) {
  for (int i = 0; i < 20000 && !p(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return p();
}

// Where a test cannot fail (in a helper, on another thread): 20 s is a hang.
template <class P>
void await(P p) {
  if (!eventually(p)) std::abort();
}

}  // namespace krl_test

namespace krl_internal {

// Makes the calling thread what a new thread given its id would be.
void forget_thread_incarnation();

struct ThreadLocalPeer {
  static bool has_entry(unsigned long tid) {
    KRLMutex_var guard(KRLThreadLocal::_mutex, 1);
    KRLThreadId id;
    id._tid = tid;
    return KRLThreadLocal::_key_dict != nullptr && KRLThreadLocal::_key_dict->contains(id);
  }
  // Threads that have objects.
  static unsigned long entries() {
    KRLMutex_var guard(KRLThreadLocal::_mutex, 1);
    return KRLThreadLocal::_key_dict != nullptr ? KRLThreadLocal::_key_dict->_count : 0;
  }
};

}  // namespace krl_internal

#endif  // KRLPORT_THREADS_THREAD_TEST_PEERS_H_
