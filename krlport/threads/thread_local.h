/// @file
/// KRLThreadLocal: base of objects that exist once per thread and key.
///
/// A user takes a key once (get_unique_id), derives a class, constructs an
/// object on the thread it belongs to and finds it again with instance(key).
/// The objects of a thread are finalised when that thread calls _exit_thread,
/// which KRLThread does at the end of every thread it starts; a thread made
/// otherwise calls it itself, or its objects stay.
///
/// All state sits behind _mutex (recursive), which is held across every
/// finalize() call. instance() of an object that the calling thread already
/// found before takes no lock: a per-thread cache answers it for as long as no
/// object of any thread has been unregistered since.
#ifndef KRLPORT_THREADS_THREAD_LOCAL_H_
#define KRLPORT_THREADS_THREAD_LOCAL_H_

#include "krlport/frame/dictionary.h"
#include "krlport/frame/export.h"
#include "krlport/threads/mutex.h"
#include "krlport/threads/thread_id.h"
#include "krlport/threads/unique_id.h"

class CurrentEnvironment;
namespace krl_internal {
struct ThreadLocalAccess;
struct ThreadLocalPeer;
}

/// Base of objects that exist once per thread and key; see the file
/// description. Every static member is safe from any thread.
class KRL_EXPORT KRLThreadLocal {
 public:
  /// One thread's objects by key.
  typedef KRLDictionary<KRLUniqueId, KRLThreadLocal*> ThreadDict;
  /// Every thread's dictionary by thread id.
  typedef KRLDictionary<KRLThreadId, ThreadDict*> KeyDict;

  /// A new key: 1, 2, 3 ... in the order of the calls.
  static unsigned long get_unique_id();
  /// The calling thread's object for key, or null. Null too inside the
  /// finalize() calls of the thread's own _exit_thread.
  static KRLThreadLocal* instance(unsigned long key);
  /// Finalises every object of the calling thread; arg is not looked at.
  static void _exit_thread(void* arg);

  /// The key the object was registered under.
  unsigned long key_id() const { return _key; }

 protected:
  /// Registers the object for the calling thread under key. A second object
  /// for the same thread and key throws CORBA_BAD_PARAM (0, COMPLETED_NO).
  explicit KRLThreadLocal(unsigned long key);
  /// Unregisters the object; any thread may destroy it.
  virtual ~KRLThreadLocal();
  /// Called at thread end with _mutex held; deletes the object by default.
  virtual void finalize();

 private:
  friend class CurrentEnvironment;                // takes its key under its own lock
  friend struct krl_internal::ThreadLocalAccess;  // the look-up behind the cache
  friend struct krl_internal::ThreadLocalPeer;    // tests

  KRLThreadLocal(const KRLThreadLocal&) = delete;
  KRLThreadLocal& operator=(const KRLThreadLocal&) = delete;

  // The outer dictionary, made at first need; never deleted.
  static KeyDict& _dict_instance();

  KRLThreadId _thread;
  unsigned long _key;

  static unsigned long _cnt;
  static KeyDict* _key_dict;
  static KRLMutex _mutex;
};

#endif  // KRLPORT_THREADS_THREAD_LOCAL_H_
