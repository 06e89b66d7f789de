/// @file
/// KRLRWDictionary<K, V>: the table of KRLDictionary (same fields, same
/// algorithms, shared through krl_internal::DictionaryCore) with a KRLRWLock
/// of its own, for a registry that many threads read and few write.
///
/// count, contains and get run under the read lock and overlap; put, the
/// constructor and the destructor under the write lock. get stores the hint
/// `_last_slot` while it holds only the read lock: readers may store to it at
/// the same time, so the hint is a word with relaxed atomic loads and stores
/// (plain moves on x86-64), and every use of it compares the key found there.
///
/// `_cleanup` is null after construction and no operation calls it.
#ifndef KRLPORT_FRAME_RW_DICTIONARY_H_
#define KRLPORT_FRAME_RW_DICTIONARY_H_

#include <cstdint>

#include "krlport/frame/dictionary.h"
#include "krlport/threads/rw_lock.h"

namespace krl_internal {

// Internal, for tests: reaches the fields of a KRLRWDictionary.
struct RWDictionaryPeer;

}  // namespace krl_internal

/// Keys and values are copied in. No copy operation: the object points into
/// itself while the inline table is in use.
template <class K, class V>
class KRLRWDictionary {
 public:
  /// The key type; needs `compare(a, b)` (0 when equal) and `_krl_hash(k)`.
  typedef K key_type;
  /// The value type; copied in and out.
  typedef V mapped_type;
  /// One entry.
  typedef KRLDictionaryNode<K, V> node_type;
  /// Never called by this class; kept for the shared layout.
  typedef void (*cleanup_type)(K, V);

  KRLRWDictionary() {
    KRLWLock_var hold(_lock, 1);
    Core::init(*this);
  }
  /// Frees all nodes, a heap table and the free nodes under the write lock,
  /// without _cleanup; the lock itself goes afterwards.
  ~KRLRWDictionary() {
    KRLWLock_var hold(_lock, 1);
    Core::destroy(*this, false);
  }
  KRLRWDictionary(const KRLRWDictionary&) = delete;
  KRLRWDictionary& operator=(const KRLRWDictionary&) = delete;

  /// The number of entries.
  unsigned long count() const {
    KRLRLock_var hold(_lock, 1);
    return _count;
  }

  /// Probes without using or setting the hint.
  bool contains(const K& key) const {
    KRLRLock_var hold(_lock, 1);
    unsigned long slot;
    return Core::probe(*this, key, Core::word_of(key), slot) != nullptr;
  }

  /// Copies the key's value into `value` and gives true, or gives false and
  /// leaves `value` alone. A probe hit becomes the hint.
  bool get(const K& key, V& value) {
    KRLRLock_var hold(_lock, 1);
    const node_type* node = Core::lookup_node(*this, key);
    if (node == nullptr) return false;
    value = node->_value;
    return true;
  }

  /// A present key: copies its value to `old_value`, stores `value` and gives
  /// true. A missing key: adds the entry as KRLDictionary::insert does, growth
  /// included, and gives false. The hint stays as it was either way.
  /// std::bad_alloc from a growth leaves the dictionary as it was.
  bool put(const K& key, V value, V& old_value) {
    KRLWLock_var hold(_lock, 1);
    const std::uint32_t word = Core::word_of(key);
    unsigned long slot;
    node_type* node = Core::probe(*this, key, word, slot);
    if (node != nullptr) {
      old_value = node->_value;
      node->_value = value;
      return true;
    }
    Core::insert_at(*this, slot, key, value, word, false);
    return false;
  }

 private:
  typedef krl_internal::DictionaryCore<KRLRWDictionary> Core;
  friend struct krl_internal::DictionaryCore<KRLRWDictionary>;
  friend struct krl_internal::RWDictionaryPeer;

  // The fields of KRLDictionary in their order, with the lock behind the
  // inline table, and the slot words. All but `_lock` are guarded by `_lock`: written under the
  // write lock, read under either (`_last_slot` also written under the read
  // lock, see above).
  unsigned long _capacity;
  unsigned long _count;
  node_type** _table;
  node_type* _inline_table[krl_internal::kDictionaryInlineSlots];
  mutable KRLRWLock _lock;
  unsigned short _free_count;
  node_type* _free_nodes[krl_internal::kDictionaryFreeNodes];
  krl_internal::SharedWord _last_slot;
  unsigned long _bits;
  unsigned long _mask;
  cleanup_type _cleanup;
  std::uint32_t* _hashes;
  std::uint32_t _inline_hashes[krl_internal::kDictionaryInlineSlots];
};

#endif  // KRLPORT_FRAME_RW_DICTIONARY_H_
