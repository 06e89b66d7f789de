/// @file
/// KRLUniqueId: a small key value drawn from a process-wide counter, the key
/// type of per-thread dictionaries.
#ifndef KRLPORT_THREADS_UNIQUE_ID_H_
#define KRLPORT_THREADS_UNIQUE_ID_H_

#include <cstdint>

#include "krlport/frame/export.h"

/// A key value drawn from a process-wide counter. The object is not locked;
/// drawing a number is safe from any thread.
class KRL_EXPORT KRLUniqueId {
 public:
  /// Draws the next number: 0 for the first default-constructed id, then 1,
  /// 2 ... Safe from any thread, also for the very first construction.
  KRLUniqueId();
  /// Takes id as it is; the counter is not touched.
  KRLUniqueId(unsigned long id) : _id(id) {}
  /// Copies the number; draws none.
  KRLUniqueId(const KRLUniqueId&) = default;
  /// Copies the number; draws none.
  KRLUniqueId& operator=(const KRLUniqueId&) = default;

  /// The number.
  unsigned long id() const { return _id; }
  /// The number.
  operator unsigned long() const { return _id; }
  /// Sets the number; the counter is not touched.
  void id(unsigned long id) { _id = id; }

 private:
  unsigned long _id;
  static unsigned long _globalId;  // next number; guarded by its own mutex
};

/// Dictionary key protocol: the id's own 32-bit value, and the difference.
inline unsigned long _krl_hash(const KRLUniqueId& k) { return static_cast<std::uint32_t>(k.id()); }
/// 0 for equal numbers.
inline long compare(const KRLUniqueId& a, const KRLUniqueId& b) {
  return static_cast<long>(a.id() - b.id());
}

#endif  // KRLPORT_THREADS_UNIQUE_ID_H_
