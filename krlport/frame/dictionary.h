/// @file
/// KRLDictionary<K, V>: the keyed container behind every registry of the
/// library, with its entry type KRLDictionaryNode<K, V> and the cursor
/// KRLDictionaryIterator<K, V>.
///
/// Design
///
/// Open addressing with linear probing that steps DOWNWARD. A key's home slot is
/// the top `_bits` bits of the 32-bit product _krl_hash(key) * 0x9e3779b9
/// (Fibonacci hashing: the multiplier spreads weak key hashes, such as small
/// integers or the shift-xor hash of strings, over the top bits). A probe starts
/// at the home slot and steps to slot - 1, from 0 on to the highest slot, until
/// it meets the key or an empty (null) slot. Slots hold pointers to nodes that
/// are allocated singly, so an entry never moves in memory while it is present.
///
/// Load. After each insertion the dictionary restores `_count + 4 <= _capacity`
/// by resize(_capacity * 2), which gives four times the slots (see _size_for).
/// At least 4 slots are always empty, so every probe ends.
///
/// Deletion. Knuth's Algorithm R (TAOCP vol. 3, 6.4), mirrored for a downward
/// probe: the hole a removed node leaves is refilled by the first node below it
/// whose probe runs through the hole, and the scan goes on from that node's old
/// slot until an empty slot. There are no tombstones; a miss stops at the first
/// empty slot, and every node stays reachable from its home slot over occupied
/// slots only.
///
/// Hint. `_last_slot` remembers where a lookup last hit. Every use compares the
/// key found there (after its cached hash), so a stale hint (after growth,
/// removal or a move by Algorithm R) is never wrong, and a repeated lookup of
/// one key costs one hash, one word test and one comparison, and no probe.
///
/// Cached hash. Beside the slot pointers the table keeps one 32-bit word a
/// slot: the key's product _krl_hash(key) * 0x9e3779b9 with its lowest bit
/// forced to 1, or 0 for an empty slot (`_hashes`: `_inline_hashes` for the
/// inline table, the tail of the same block for a heap table). A probe, and the
/// check of the remembered slot, pass a slot whose word differs without
/// touching its node or calling compare; Algorithm R and growth take home
/// slots from the words instead of hashing keys again. A large table is
/// searched eight words at a time (see DictionaryCore::probe). This only
/// saves work: the probe order, the home slots and the moves are exactly
/// those of the rules above. It costs 4 bytes a slot, and 32 bytes of pad
/// words a heap table.
///
/// Storage. The first 32 slots live inside the object (`_inline_table`), so a
/// dictionary of up to 28 entries allocates no table. The first growth moves to
/// a heap table for good. Up to 32 nodes of removed entries wait on a free list
/// (a stack) for the next insertions. Key and value are destroyed as soon as a
/// node leaves the table and are constructed anew when it is reused. Nodes and
/// tables come from the global operator new and go back to operator delete.
///
/// Allocation failure. std::bad_alloc from a node or a table propagates out of
/// insert/add/resize, and the dictionary is left exactly as it was before the
/// call; a null node is never stored.
///
/// Keys. The key type supplies `unsigned long _krl_hash(const K&)` and
/// `long compare(const K&, const K&)` (0 for equal keys), found unqualified.
///
/// Thread-safety: none. Lookups write `_last_slot`, so every access, reads
/// included, must be under one lock of the caller's or confined to one thread.
#ifndef KRLPORT_FRAME_DICTIONARY_H_
#define KRLPORT_FRAME_DICTIONARY_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "krlport/exceptions/system_exception.h"

// The probe reads eight slot words at once where SSE2 is there (every x86-64
// build); elsewhere it walks the slots one at a time. Both give the same slot.
#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

/// One entry, allocated singly: the key, then the value, both owned.
template <class K, class V>
struct KRLDictionaryNode {
  /// Copies key and value in.
  KRLDictionaryNode(const K& key, const V& value) : _key(key), _value(value) {}

  /// The key, owned by the node.
  K _key;
  /// The value, owned by the node.
  V _value;
};

/// The dictionary's own view of a key's hash and equality: _krl_hash(k) and
/// compare(a, b) == 0. A key type may give inline overloads of these (found
/// by argument-dependent lookup) that return exactly the same, to spare a call
/// into the library on every probe.
template <class K>
inline unsigned long krl_dictionary_hash(const K& k) {
  return _krl_hash(k);
}
/// See krl_dictionary_hash.
template <class K>
inline bool krl_dictionary_equal(const K& a, const K& b) {
  return compare(a, b) == 0;
}

namespace krl_internal {

// 2^32 divided by the golden ratio. Odd, so multiplying by it permutes the
// 32-bit values: two keys have equal mixed hashes only if their hashes are
// equal.
constexpr std::uint32_t kDictionaryMultiplier = 0x9e3779b9u;
static_assert(kDictionaryMultiplier % 2 == 1, "the multiplier must be odd");

constexpr unsigned long kDictionaryInlineSlots = 32;
constexpr unsigned long kDictionaryInlineBits = 5;
constexpr unsigned short kDictionaryFreeNodes = 32;
// Slots kept empty after every insertion.
constexpr unsigned long kDictionarySpareSlots = 4;

// The most slots a table has: 2^30. The home slot is computed in 32 bits and
// slot words (see below) keep one bit less, and an iterator walks the slots
// with a long index, which is 32 bits on Windows: its capacity must stay a
// positive long.
constexpr unsigned long kDictionaryMaxBits = 30;

// Slots a probe of a large table looks at in one step: a window of eight
// words that ends at the home slot. A heap table keeps seven words before
// slot 0 (kDictionaryPadWord: never empty, never a key's word), so the window
// of a home slot below 7 needs no special case.
constexpr unsigned long kDictionaryWindow = 8;
constexpr unsigned long kDictionaryPadWords = kDictionaryWindow;  // 7, rounded to keep alignment
constexpr std::uint32_t kDictionaryPadWord = 2;
// Tables of at least 2^14 slots (64 KiB of words) use the window; smaller ones
// stay in the first levels of cache, where the plain loop's branches are the
// cheaper path.
constexpr unsigned long kDictionaryWindowBits = 14;

// log2 of the capacity for a size request n (0 counts as 16): the number of
// significant bits of n, one more if n is not a power of two. So 16 gives 32
// slots, 64 gives 128 and 17 gives 64. A request for more than 2^30 slots is
// an allocation failure.
inline unsigned long dictionary_bits_for(unsigned long n) {
  if (n == 0) n = 16;
  unsigned long bits = 0;
  for (unsigned long v = n; v != 0; v >>= 1) ++bits;
  if ((n & (n - 1)) != 0) ++bits;
  if (bits > kDictionaryMaxBits) throw std::bad_alloc();
  return bits;
}

// Bytes of a heap table of `capacity` slots: the node pointers, then the pad
// words, then the words. Counted in std::size_t, never in unsigned long, which is 32 bits on
// Windows: 2^30 slots take 12 GiB there as here, and the request must fail as
// a whole, not wrap to a small block.
template <class Node>
std::size_t dictionary_table_bytes(unsigned long capacity) {
  constexpr std::size_t kSlotBytes = sizeof(Node*) + sizeof(std::uint32_t);
  constexpr std::size_t kPadBytes = kDictionaryPadWords * sizeof(std::uint32_t);
  if (capacity > (SIZE_MAX - kPadBytes) / kSlotBytes) throw std::bad_alloc();
  return static_cast<std::size_t>(capacity) * kSlotBytes + kPadBytes;
}

// An unsigned long that many threads may read and write at once: the hint of
// a table that concurrent readers look up in. Relaxed loads and stores, plain
// moves on x86-64; every use of the hint compares the key found there, so a
// value another reader just stored is as good as any.
class SharedWord {
 public:
  operator unsigned long() const { return _word.load(std::memory_order_relaxed); }
  SharedWord& operator=(unsigned long v) {
    _word.store(v, std::memory_order_relaxed);
    return *this;
  }

 private:
  std::atomic<unsigned long> _word{0};
};

static_assert(kDictionaryInlineSlots == 1UL << kDictionaryInlineBits,
              "the inline table is the table of the size request 16");

inline std::uint32_t dictionary_mix(unsigned long hash) {
  return static_cast<std::uint32_t>(hash) * kDictionaryMultiplier;
}

// Home slot in a table of 2^bits slots: the top `bits` bits of the mixed hash.
inline unsigned long dictionary_home_slot(std::uint32_t mixed, unsigned long bits) {
  return static_cast<unsigned long>(mixed >> (32 - bits));
}

// Slot word: the mixed hash with its lowest bit set, so that 0 means an empty
// slot. The home slot, made of the top bits only, can be read
// from it in any table of at most 2^31 slots.
inline std::uint32_t dictionary_word(std::uint32_t mixed) { return mixed | 1u; }

// The lowest and the highest set bit of m, m != 0. With GCC and Clang the
// lowest is tzcnt where the processor has it, which unlike bsf and bsr does
// not wait for the old value of its destination register.
inline unsigned dictionary_low_bit(unsigned m) {
#if defined(__GNUC__)
  return static_cast<unsigned>(__builtin_ctz(m));
#else
  unsigned bit = 0;
  for (; (m & 1u) == 0; m >>= 1) ++bit;
  return bit;
#endif
}
inline unsigned dictionary_high_bit(unsigned m) {
#if defined(__GNUC__)
  return static_cast<unsigned>(__builtin_clz(m)) ^ 31u;
#else
  unsigned bit = 0;
  while ((m >>= 1) != 0) ++bit;
  return bit;
#endif
}

// True when a node in slot i whose home slot is r can be reached without
// passing slot j, for a probe that steps downward: r lies cyclically in [i, j).
inline bool dictionary_home_between(unsigned long i, unsigned long r, unsigned long j) {
  return (i <= r && r < j) || (r < j && j < i) || (j < i && i <= r);
}

// The table and its algorithms, written once for every dictionary type that
// has the fields of KRLDictionary under their names (whatever else lies
// between them), `_hashes` and `_inline_hashes`, and the member types
// key_type, mapped_type and node_type. The callers own the locking, if any.
//
// A heap table is one block: `_capacity` node pointers, kDictionaryPadWords
// pad words, then `_capacity` slot words (see dictionary_word) that mirror
// the pointers; the inline table's words are
// `_inline_hashes`. `_hashes` points at the words of the current table.
template <class Dict>
struct DictionaryCore {
  using Key = typename Dict::key_type;
  using Value = typename Dict::mapped_type;
  using Node = typename Dict::node_type;

  // "No slot": a miss.
  static constexpr unsigned long kNone = ~0UL;

  // The state after construction: 32 inline slots, nothing free, no hint.
  static void init(Dict& d) {
    d._capacity = kDictionaryInlineSlots;
    d._count = 0;
    d._table = d._inline_table;
    std::uninitialized_fill_n(d._inline_table, kDictionaryInlineSlots, nullptr);
    d._free_count = 0;
    std::uninitialized_fill_n(d._free_nodes, kDictionaryFreeNodes, nullptr);
    d._last_slot = 0;
    d._bits = kDictionaryInlineBits;
    d._mask = kDictionaryInlineSlots - 1;
    d._cleanup = nullptr;
    d._hashes = d._inline_hashes;
    std::uninitialized_fill_n(d._inline_hashes, kDictionaryInlineSlots, 0u);
  }

  // Drops every entry (with _cleanup if asked), then frees the heap table and
  // the free nodes, the last pushed first.
  static void destroy(Dict& d, bool run_cleanup) {
    clear(d, run_cleanup);
    if (d._table != d._inline_table) ::operator delete(d._table);
    while (d._free_count != 0) ::operator delete(d._free_nodes[--d._free_count]);
  }

  // The key's slot word: its mixed hash, never 0.
  static std::uint32_t word_of(const Key& key) {
    return dictionary_word(dictionary_mix(krl_dictionary_hash(key)));
  }

  // The key's node, or null. `slot` receives the key's slot, or the empty
  // slot that ends its probe. Equal keys have equal words, so a slot with
  // another word is passed without reading its node.
  static Node* probe(const Dict& d, const Key& key, std::uint32_t word, unsigned long& slot) {
    const std::uint32_t* const hashes = d._hashes;
    const unsigned long mask = d._mask;
    const unsigned long home = dictionary_home_slot(word, d._bits);
    unsigned long s = home;
#if defined(__SSE2__) || defined(_M_X64)  // see the include of <emmintrin.h>
    // A large table tests the words of the home slot and the seven below it
    // at once. Keys are unique and every key lies above the first empty slot
    // below its home, so a node in the window that holds the key is the hit,
    // whichever lane it is in: a hit needs only the lanes with the key's
    // word, tried in any order, and only a miss looks for the first empty
    // slot going down, the highest empty lane. The lanes come from bit scans,
    // not from branches on the words: a hit branches on having a candidate
    // and on its key comparison, a miss on having none, all well predicted,
    // and a miss reads no node pointer. A window without an empty slot goes
    // on with the eight slots below it, from the top after slot 0.
    if (d._bits >= kDictionaryWindowBits) {
      const __m128i zero = _mm_setzero_si128();
      const __m128i want = _mm_set1_epi32(static_cast<int>(word));
      for (;; s = s >= kDictionaryWindow ? s - kDictionaryWindow : mask) {
        // Slots s - 7 to s, lane k being slot s - 7 + k; below slot 0 lie
        // pad words. Packed to 16 bits a lane, so lane k is bit 2k of a mask.
        const std::uint32_t* const window = hashes + s - (kDictionaryWindow - 1);
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(window));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(window + 4));
        const unsigned kLanes = 0x5555u;
        for (unsigned match = kLanes & static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi32(
                                           _mm_cmpeq_epi32(lo, want), _mm_cmpeq_epi32(hi, want))));
             match != 0; match &= match - 1) {
          const unsigned long at = s - (kDictionaryWindow - 1) + dictionary_low_bit(match) / 2;
          Node* node = d._table[at];
          if (krl_dictionary_equal(node->_key, key)) {
            slot = at;
            return node;
          }
        }
        const unsigned empty = kLanes & static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi32(
                                            _mm_cmpeq_epi32(lo, zero), _mm_cmpeq_epi32(hi, zero))));
        if (empty != 0) {
          slot = s - (kDictionaryWindow - 1) + dictionary_high_bit(empty) / 2;
          return nullptr;
        }
      }
    }
#endif
    for (;; s = (s - 1) & mask) {
      const std::uint32_t w = hashes[s];
      if (w == word) {
        Node* node = d._table[s];
        if (krl_dictionary_equal(node->_key, key)) {
          slot = s;
          return node;
        }
      } else if (w == 0) {
        slot = s;
        return nullptr;
      }
    }
  }

  static unsigned long find_slot(const Dict& d, const Key& key) {
    unsigned long slot;
    probe(d, key, word_of(key), slot);
    return slot;
  }

  // `_last_slot` if it holds the key, else kNone. The hint is read once: in
  // a table shared by readers another one may store it meanwhile. A hint left
  // beyond the table by a resize to fewer slots names no slot of the table.
  static unsigned long hint_slot(const Dict& d, const Key& key, std::uint32_t word) {
    const unsigned long slot = d._last_slot;
    if (slot > d._mask || d._hashes[slot] != word) return kNone;
    return krl_dictionary_equal(d._table[slot]->_key, key) ? slot : kNone;
  }

  // The node of a present key for get/lookup, or null. A probe hit becomes
  // the hint; a hint hit leaves it.
  static Node* lookup_node(Dict& d, const Key& key) {
    const std::uint32_t word = word_of(key);
    unsigned long slot = hint_slot(d, key, word);
    if (slot != kNone) return d._table[slot];
    if (d._bits < kDictionaryWindowBits) {
      // In a small table most hits lie in the home slot or the one below it.
      // Both words and both node pointers are loaded at once and the
      // candidate is chosen without a branch, so that one lookup's loads
      // overlap the next one's; any other case takes the full probe, which
      // gives the same slot.
      const unsigned long home = dictionary_home_slot(word, d._bits);
      const unsigned long below = (home - 1) & d._mask;
      const std::uint32_t w0 = d._hashes[home];
      const std::uint32_t w1 = d._hashes[below];
      Node* const n0 = d._table[home];
      Node* const n1 = d._table[below];
      const bool at_home = w0 == word;
      Node* const candidate = at_home ? n0 : n1;
      const unsigned long candidate_slot = at_home ? home : below;
      if ((at_home | ((w0 != 0) & (w1 == word))) && krl_dictionary_equal(candidate->_key, key)) {
        d._last_slot = candidate_slot;
        return candidate;
      }
    }
    Node* node = probe(d, key, word, slot);
    if (node != nullptr) d._last_slot = slot;
    return node;
  }

  // The slot of a present key for remove/take/extract, or kNone. Sets
  // `hint_hit` when the hint held the key; the caller then resets the hint to 0
  // after the removal. A probe hit leaves the hint alone.
  static unsigned long removal_slot(const Dict& d, const Key& key, bool& hint_hit) {
    const std::uint32_t word = word_of(key);
    unsigned long slot = hint_slot(d, key, word);
    hint_hit = slot != kNone;
    if (hint_hit) return slot;
    return probe(d, key, word, slot) == nullptr ? kNone : slot;
  }

  // Gives the storage of a node whose key and value are destroyed back to the
  // free list, or to operator delete when the list is full.
  static void release_storage(Dict& d, void* storage) {
    if (d._free_count < kDictionaryFreeNodes) {
      d._free_nodes[d._free_count++] = static_cast<Node*>(storage);
    } else {
      ::operator delete(storage);
    }
  }

  // A node from the free list, or a new one, with key and value copied in. If
  // the allocation or a copy throws, nothing has changed.
  static Node* new_node(Dict& d, const Key& key, const Value& value) {
    void* storage =
        d._free_count != 0 ? d._free_nodes[--d._free_count] : ::operator new(sizeof(Node));
    try {
      return ::new (storage) Node(key, value);
    } catch (...) {
      release_storage(d, storage);
      throw;
    }
  }

  static void free_node(Dict& d, Node* node) {
    node->~Node();
    release_storage(d, node);
  }

  // Stores a new entry in `slot`, the empty slot that ended the probe for a
  // key of word `word`, makes it the hint if asked, and grows the table if
  // fewer than 4 slots stay empty. If the node or the grown table cannot be
  // had, std::bad_alloc leaves the dictionary as it was.
  static void insert_at(Dict& d, unsigned long slot, const Key& key, const Value& value,
                        std::uint32_t word, bool set_hint) {
    Node* node = new_node(d, key, value);
    const unsigned long old_hint = d._last_slot;
    d._table[slot] = node;
    d._hashes[slot] = word;
    if (set_hint) d._last_slot = slot;
    ++d._count;
    if (d._count + kDictionarySpareSlots <= d._capacity) return;
    try {
      resize(d, d._capacity * 2);
    } catch (...) {
      // The slot was empty and ended the probe, so no chain ran through it:
      // emptying it again restores the table exactly.
      d._table[slot] = nullptr;
      d._hashes[slot] = 0;
      --d._count;
      d._last_slot = old_hint;
      free_node(d, node);
      throw;
    }
  }

  // insert and add: false, changing nothing, if the key is present.
  static bool add(Dict& d, const Key& key, const Value& value) {
    const std::uint32_t word = word_of(key);
    unsigned long slot;
    if (probe(d, key, word, slot) != nullptr) return false;
    insert_at(d, slot, key, value, word, true);
    return true;
  }

  // Capacity for a size request; see dictionary_bits_for.
  static unsigned long size_for(unsigned long size) { return 1UL << dictionary_bits_for(size); }

  // Moves every node into a new, zeroed heap table for the size request
  // `size`, visiting the old slots in ascending order. A request too small for
  // `_count + 4` entries is doubled until it fits. The new table is allocated
  // before anything changes. `_last_slot` is left as it is.
  static void resize(Dict& d, unsigned long size) {
    unsigned long bits = dictionary_bits_for(size);
    while ((1UL << bits) < d._count + kDictionarySpareSlots) {
      if (++bits > kDictionaryMaxBits) throw std::bad_alloc();
    }
    const unsigned long capacity = 1UL << bits;
    static_assert(alignof(Node*) % alignof(std::uint32_t) == 0, "words follow the pointers");
    Node** table = static_cast<Node**>(::operator new(dictionary_table_bytes<Node>(capacity)));
    std::uint32_t* const pad = reinterpret_cast<std::uint32_t*>(table + capacity);
    std::uint32_t* const hashes = pad + kDictionaryPadWords;
    std::uninitialized_fill_n(table, capacity, nullptr);
    std::uninitialized_fill_n(pad, kDictionaryPadWords, kDictionaryPadWord);
    std::uninitialized_fill_n(hashes, capacity, 0u);

    Node** const old_table = d._table;
    const std::uint32_t* const old_hashes = d._hashes;
    const unsigned long old_capacity = d._capacity;
    const unsigned long old_count = d._count;
    d._table = table;
    d._hashes = hashes;
    d._capacity = capacity;
    d._bits = bits;
    d._mask = capacity - 1;
    d._count = 0;
    if (old_count != 0 && old_capacity != 0) {
      for (unsigned long s = 0; s < old_capacity; ++s) {
        const std::uint32_t w = old_hashes[s];
        if (w == 0) continue;
        // Keys are unique, so the probe can only end at an empty slot: no
        // comparison is needed to find it.
        unsigned long slot = dictionary_home_slot(w, bits);
        while (hashes[slot] != 0) slot = (slot - 1) & d._mask;
        table[slot] = old_table[s];
        hashes[slot] = w;
        ++d._count;
      }
    }
    if (old_table != d._inline_table) ::operator delete(old_table);
  }

  // Algorithm R for a downward probe: frees the node in `slot` (after
  // _cleanup if asked and set) and closes the hole.
  static void remove_slot(Dict& d, unsigned long slot, bool run_cleanup) {
    Node** const table = d._table;
    std::uint32_t* const hashes = d._hashes;
    Node* node = table[slot];
    if (run_cleanup && d._cleanup != nullptr) d._cleanup(node->_key, node->_value);
    free_node(d, node);
    unsigned long hole = slot;
    table[hole] = nullptr;
    hashes[hole] = 0;
    for (unsigned long i = hole;;) {
      i = (i - 1) & d._mask;
      const std::uint32_t w = hashes[i];
      if (w == 0) break;
      if (dictionary_home_between(i, dictionary_home_slot(w, d._bits), hole)) continue;
      table[hole] = table[i];
      hashes[hole] = w;
      table[i] = nullptr;
      hashes[i] = 0;
      hole = i;
    }
    --d._count;
  }

  // Drops all entries in ascending slot order (with _cleanup if asked and
  // set). The table keeps its size; the hint is left as it is.
  static void clear(Dict& d, bool run_cleanup) {
    for (unsigned long s = 0; d._count != 0 && s < d._capacity; ++s) {
      Node* node = d._table[s];
      if (node == nullptr) continue;
      if (run_cleanup && d._cleanup != nullptr) d._cleanup(node->_key, node->_value);
      free_node(d, node);
      --d._count;
      d._table[s] = nullptr;
      d._hashes[s] = 0;
    }
  }
};

}  // namespace krl_internal

/// Open-addressing hash map from K to V; see the design notes above. Keys and
/// values are copied in. No copy operation: the object points into itself while
/// the inline table is in use.
///
/// The fields are public: users read `_count` for the number of entries, and
/// only the operations below write any of them.
template <class K, class V>
class KRLDictionary {
 public:
  /// The key type; needs `compare(a, b)` (0 when equal) and `_krl_hash(k)`.
  typedef K key_type;
  /// The value type; copied in and out.
  typedef V mapped_type;
  /// One entry.
  typedef KRLDictionaryNode<K, V> node_type;
  /// Called with the key and value of an entry that remove, take or clear
  /// drops (not extract). The library never installs one.
  typedef void (*cleanup_type)(K, V);

  KRLDictionary() { Core::init(*this); }
  /// clear (with _cleanup), then frees the heap table and the free nodes.
  ~KRLDictionary() { Core::destroy(*this, true); }
  KRLDictionary(const KRLDictionary&) = delete;
  KRLDictionary& operator=(const KRLDictionary&) = delete;

  /// Adds an entry; a present key throws CORBA_BAD_PARAM and changes nothing.
  void insert(K key, V value) {
    if (!Core::add(*this, key, value)) throw CORBA_BAD_PARAM();
  }

  /// Adds an entry and gives true; a present key gives false, changing nothing.
  bool add(K key, V value) { return Core::add(*this, key, value); }

  /// Probes without using or setting the hint.
  bool contains(const K& key) const {
    unsigned long slot;
    return Core::probe(*this, key, Core::word_of(key), slot) != nullptr;
  }

  /// A copy of the key's value; a missing key throws CORBA_OBJECT_NOT_EXIST.
  V get(const K& key) {
    const node_type* node = Core::lookup_node(*this, key);
    if (node == nullptr) throw CORBA_OBJECT_NOT_EXIST();
    return node->_value;
  }

  /// Copies the key's value into `value` and gives true, or gives false and
  /// leaves `value` alone.
  bool lookup(const K& key, V& value) {
    const node_type* node = Core::lookup_node(*this, key);
    if (node == nullptr) return false;
    value = node->_value;
    return true;
  }

  /// Drops the key's entry, calling _cleanup, and gives true; or gives false.
  bool remove(const K& key) {
    bool hint_hit;
    const unsigned long slot = Core::removal_slot(*this, key, hint_hit);
    if (slot == Core::kNone) return false;
    _remove_slot(slot, true);
    if (hint_hit) _last_slot = 0;
    return true;
  }

  /// Drops the key's entry, calling _cleanup, and gives its value; a missing
  /// key throws CORBA_OBJECT_NOT_EXIST.
  V take(const K& key) {
    bool hint_hit;
    const unsigned long slot = Core::removal_slot(*this, key, hint_hit);
    if (slot == Core::kNone) throw CORBA_OBJECT_NOT_EXIST();
    V value(_table[slot]->_value);
    _remove_slot(slot, true);
    if (hint_hit) _last_slot = 0;
    return value;
  }

  /// Moves the key's value into `value` and drops the entry WITHOUT calling
  /// _cleanup: the caller takes over what the value refers to. Gives false for
  /// a missing key.
  bool extract(const K& key, V& value) {
    bool hint_hit;
    const unsigned long slot = Core::removal_slot(*this, key, hint_hit);
    if (slot == Core::kNone) return false;
    value = std::move(_table[slot]->_value);
    _remove_slot(slot, false);
    if (hint_hit) _last_slot = 0;
    return true;
  }

  /// Drops every entry, calling _cleanup for each. The table keeps its size.
  void clear() { Core::clear(*this, true); }

  /// Moves the entries into a new heap table for the size request `size` (0
  /// counts as 16; see _size_for). Insertion calls it with _capacity * 2.
  void resize(unsigned long size) { Core::resize(*this, size); }

  // Internal operations the above rest on.
  /// The key's slot, or the empty slot that ends its probe.
  unsigned long _find_slot(const K& key) const { return Core::find_slot(*this, key); }
  /// The capacity, a power of two, that a size request gives.
  static unsigned long _size_for(unsigned long size) { return Core::size_for(size); }
  /// A node for the entry, from the free list or the heap; std::bad_alloc
  /// if none can be had. Does not insert it.
  node_type* _new_node(K key, V value) { return Core::new_node(*this, key, value); }
  /// Destroys the node's key and value and parks or frees its storage.
  void _free_node(node_type* node) { Core::free_node(*this, node); }
  /// Drops the entry in slot (calling _cleanup if run_cleanup) and closes the
  /// gap in its probe run.
  void _remove_slot(unsigned long slot, bool run_cleanup) {
    Core::remove_slot(*this, slot, run_cleanup);
  }

  unsigned long _capacity;  ///< slots, a power of two
  unsigned long _count;     ///< occupied slots
  node_type** _table;       ///< _inline_table or a heap block of _capacity slots, then words
  /// The first 32 slots, inside the object.
  node_type* _inline_table[krl_internal::kDictionaryInlineSlots];
  unsigned short _free_count;                                  ///< nodes on the free list, 0 to 32
  node_type* _free_nodes[krl_internal::kDictionaryFreeNodes];  ///< a stack
  unsigned long _last_slot;  ///< hint: slot of the last hit; always re-checked
  unsigned long _bits;       ///< log2(_capacity)
  unsigned long _mask;       ///< _capacity - 1
  cleanup_type _cleanup;     ///< null: no call
  /// The slot words of _table (see dictionary_word): _inline_hashes, or the
  /// tail of the heap block.
  std::uint32_t* _hashes;
  /// The words of the inline table.
  std::uint32_t _inline_hashes[krl_internal::kDictionaryInlineSlots];

 private:
  typedef krl_internal::DictionaryCore<KRLDictionary> Core;
};

/// Cursor over the occupied slots of a dictionary in ascending slot order. It
/// sees the table as it is at each call: an insertion or removal in between may
/// move entries past it or make it visit one twice.
template <class K, class V>
class KRLDictionaryIterator {
 public:
  /// Starts before the first slot of dict, which it does not own and which
  /// must outlive it. Not locked: no thread may change dict meanwhile.
  explicit KRLDictionaryIterator(KRLDictionary<K, V>* dict) : _dict(dict), _index(-1) {}

  /// The node of the next occupied slot above _index, or null when none is
  /// left (then _index rests at _capacity).
  KRLDictionaryNode<K, V>* next() {
    const long capacity = static_cast<long>(_dict->_capacity);
    while (++_index < capacity) {
      KRLDictionaryNode<K, V>* node = _dict->_table[_index];
      if (node != nullptr) return node;
    }
    _index = capacity;
    return nullptr;
  }

  /// The node in the slot at _index; null before the first next() and after
  /// the last.
  KRLDictionaryNode<K, V>* current() const {
    if (_index < 0 || _index >= static_cast<long>(_dict->_capacity)) return nullptr;
    return _dict->_table[_index];
  }

  /// The dictionary walked; not owned.
  KRLDictionary<K, V>* _dict;
  /// The slot of current(); -1 before the first next().
  long _index;
};

#endif  // KRLPORT_FRAME_DICTIONARY_H_
