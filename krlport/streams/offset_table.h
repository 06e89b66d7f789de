/// @file
/// KRLOffsetTable: which object stands at which offset of one stream, the memory
/// behind marshalling by indirection; with its key types KRLOffsetWrapper and
/// KRLObjWrap.
///
/// A writer asks offset_of whether an object was written and, if not, records
/// it with add; a reader asks object_at what stands at an offset it has read.
/// Each pair stands in two dictionaries, one for each direction.
///
/// Ownership. A table is counted (KRLResource): it is made with a count of 1,
/// the creator's reference, and destroyed by the last _unref. A stream takes
/// over one reference in set_out_table / set_in_table and gives it back at its
/// end; to keep using a table or give it to a second stream, pass
/// KRLOffsetTable::_duplicate(table). The table stores object pointers without
/// owning them; the only thing it does to an object is hand it to the cleanup
/// function.
///
/// Thread-safety: none. A table has no lock and its count takes none: every
/// call, _ref and _unref included, comes from one thread at a time.
#ifndef KRLPORT_STREAMS_OFFSET_TABLE_H_
#define KRLPORT_STREAMS_OFFSET_TABLE_H_

#include <cstdint>

#include "krlport/frame/dictionary.h"
#include "krlport/frame/export.h"
#include "krlport/frame/resource.h"

/// Key: an offset of a stream.
struct KRL_EXPORT KRLOffsetWrapper {
  /// The key of offset o.
  KRLOffsetWrapper(long o = 0) : offset(o) {}
  /// Copies the offset.
  KRLOffsetWrapper(const KRLOffsetWrapper&) = default;
  /// Copies the offset.
  KRLOffsetWrapper& operator=(const KRLOffsetWrapper&) = default;

  /// The offset.
  long offset;
};

/// Key: an object, by its address only; it is never followed.
struct KRL_EXPORT KRLObjWrap {
  /// The key of the object at o; o is not owned.
  KRLObjWrap(void* o = nullptr) : object(o) {}
  /// Copies the address.
  KRLObjWrap(const KRLObjWrap&) = default;
  /// Copies the address.
  KRLObjWrap& operator=(const KRLObjWrap&) = default;

  /// The object's address; not owned.
  void* object;
};

/// Dictionary key protocol: the field's value as an unsigned number, and a
/// comparison that gives 0 for equal keys only.
///
/// The offset as an unsigned number.
inline unsigned long _krl_hash(const KRLOffsetWrapper& k) {
  return static_cast<unsigned long>(k.offset);
}
/// The difference of the offsets, taken modulo 2^N of an unsigned long, so
/// that far-apart offsets cannot overflow: 0 for equal offsets only.
inline long compare(const KRLOffsetWrapper& a, const KRLOffsetWrapper& b) {
  return static_cast<long>(static_cast<unsigned long>(a.offset) -
                           static_cast<unsigned long>(b.offset));
}
/// The address as a number; on Windows, where a long has 32 bits, its low 32.
inline unsigned long _krl_hash(const KRLObjWrap& k) {
  return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(k.object));
}
/// -1, 0 or 1 as the addresses compare. Never their difference: cut to a
/// 32-bit long (Windows), objects 4 GiB apart would compare equal.
inline long compare(const KRLObjWrap& a, const KRLObjWrap& b) {
  const std::uintptr_t x = reinterpret_cast<std::uintptr_t>(a.object);
  const std::uintptr_t y = reinterpret_cast<std::uintptr_t>(b.object);
  return x < y ? -1 : (x > y ? 1 : 0);
}

/// A two-way map between stream offsets and objects, for the indirections a
/// stream's user records; a counted resource that streams share. Not locked:
/// one thread at a time uses a table and the streams that hold it.
class KRL_EXPORT KRLOffsetTable : public virtual KRLResource {
 public:
  ///@{
  /// Kinds of entries: a plain tag by which streams find a table.
  static const int TypeCodeIndirections = 0;
  static const int ValueIndirections = 1;
  static const int StringIndirections = 2;
  static const int RepIdsIndirections = 3;
  ///@}

  /// An empty table of the given kind; cleanup (may be null) is applied to
  /// each object by cleanup(), clear() and the destructor. The count stands at
  /// 1, the creator's reference, and takes no lock. Throws std::bad_alloc if
  /// its count block cannot be had.
  KRLOffsetTable(int content_type, void (*cleanup)(void*));
  /// No copy: tables are shared by _duplicate, and two dictionaries cannot be
  /// copied member by member.
  KRLOffsetTable(const KRLOffsetTable&) = delete;
  KRLOffsetTable& operator=(const KRLOffsetTable&) = delete;

  /// The kind given at construction.
  virtual int content_type();

  /// Enters the pair. A present offset or object throws CORBA_BAD_PARAM (minor
  /// 0, COMPLETED_NO), std::bad_alloc may pass through, and either way the
  /// table is as before: a half-entered pair is taken out again.
  void add(long offset, void* object);
  /// Takes the object's pair out, without the cleanup function; the object goes
  /// back to the caller. An object that is not there is ignored.
  void remove(void* object);

  /// The object's offset, or -1.
  long offset_of(void* object);
  /// The object at the offset, or null; null is also a valid object, which
  /// offset_of tells apart.
  void* object_at(long offset);

  /// Hands each object to the cleanup function, in the slot order of the
  /// offset direction; the pairs stay. Nothing if empty or without a function.
  void cleanup();
  /// If not empty: cleanup(), then empties both directions and sets the pair
  /// count and both levels to 0. An empty table keeps its levels.
  void clear();

  /// Levels kept for the user; the table only zeroes them in clear().
  int nest_level() const { return _nest_level; }
  /// Sets the nesting level.
  void nest_level(int level) { _nest_level = level; }
  /// The recursion level.
  int recu_level() const { return _recu_level; }
  /// Raises the recursion level by one.
  void recu_inc() { ++_recu_level; }
  void recu_dec() { --_recu_level; }  ///< no lower bound

  /// Adds a reference to a non-null table and returns its argument.
  static KRLOffsetTable* _duplicate(KRLOffsetTable* table);

 protected:
  /// Destroyed by the last _unref: runs clear()'s cleanup over what it holds.
  virtual ~KRLOffsetTable();

 private:
  KRLDictionary<KRLOffsetWrapper, void*> _by_offset;  // offset to object
  KRLDictionary<KRLObjWrap, long> _by_object;         // object to offset
  void (*const _cleanup_fn)(void*);                   // may be null
  int _nest_level;
  const int _content_type;
  int _count;  // pairs added and not removed
  int _recu_level;
};

#endif  // KRLPORT_STREAMS_OFFSET_TABLE_H_
