/// @file
/// KRLThreadId: the number of a thread, the key of the process-wide
/// thread-local dictionary.
#ifndef KRLPORT_THREADS_THREAD_ID_H_
#define KRLPORT_THREADS_THREAD_ID_H_

#include <cstdint>

#include "krlport/frame/export.h"

/// The number of a thread; the key of the thread-local dictionary. Not
/// locked, but a copy reads the number atomically.
class KRL_EXPORT KRLThreadId {
 public:
  /// Names the calling thread (the system's thread id).
  KRLThreadId();
  /// Copying reads the source's number atomically (relaxed), so a copy of
  /// KRLThread::id() taken while the new thread stores its id is race-free.
  /// Out of line: the header uses no compiler extension for the atomic read.
  KRLThreadId(const KRLThreadId& other);
  /// Copies other's number, read atomically as the copy constructor does.
  const KRLThreadId& operator=(const KRLThreadId& other);
  ~KRLThreadId() {}

  /// Names the calling thread again.
  void reset();

  /// The system's thread id.
  unsigned long _tid;
};

/// Dictionary key protocol: the number itself, and the difference.
inline unsigned long _krl_hash(const KRLThreadId& k) { return static_cast<std::uint32_t>(k._tid); }
/// 0 for the same thread.
inline long compare(const KRLThreadId& a, const KRLThreadId& b) {
  return static_cast<long>(a._tid - b._tid);
}

#endif  // KRLPORT_THREADS_THREAD_ID_H_
