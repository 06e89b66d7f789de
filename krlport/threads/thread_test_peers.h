// Test access to the private state of KRLThread and KRLThreadLocal.
#ifndef KRLPORT_THREADS_THREAD_TEST_PEERS_H_
#define KRLPORT_THREADS_THREAD_TEST_PEERS_H_

#include "krlport/threads/thread.h"
#include "krlport/threads/thread_local.h"

namespace krl_internal {

// Makes the calling thread what a new thread given its id would be.
void forget_thread_incarnation();

struct ThreadPeer {
  static KRLThread* first() { return KRLThread::_first; }
  static KRLThread* next(KRLThread* t) { return t->_next; }
  static KRLThread* prev(KRLThread* t) { return t->_prev; }
};

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
