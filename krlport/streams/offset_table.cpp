#include "krlport/streams/offset_table.h"

// Defined here as well, so that a host that takes their address links.
const int KRLOffsetTable::TypeCodeIndirections;
const int KRLOffsetTable::ValueIndirections;
const int KRLOffsetTable::StringIndirections;
const int KRLOffsetTable::RepIdsIndirections;

KRLOffsetTable::KRLOffsetTable(int content_type, void (*cleanup)(void*))
    : _cleanup_fn(cleanup), _nest_level(0), _content_type(content_type), _count(0), _recu_level(0) {
  // One thread at a time uses a table, so its count needs no lock. This takes
  // the block now, with the count at 1: the creator's reference.
  _set_sharing(0);
}

KRLOffsetTable::~KRLOffsetTable() {
  cleanup();
  // The members then go in reverse order: _by_object, then _by_offset.
}

int KRLOffsetTable::content_type() { return _content_type; }

void KRLOffsetTable::add(long offset, void* object) {
  _by_offset.insert(KRLOffsetWrapper(offset), object);
  try {
    _by_object.insert(KRLObjWrap(object), offset);
  } catch (...) {
    // Left in one direction only, the offset would break the pairing, and
    // cleanup would hand its object over twice.
    _by_offset.remove(KRLOffsetWrapper(offset));
    throw;
  }
  ++_count;
}

void KRLOffsetTable::remove(void* object) {
  long offset;
  if (!_by_object.extract(KRLObjWrap(object), offset)) return;
  _by_offset.remove(KRLOffsetWrapper(offset));
  --_count;
}

long KRLOffsetTable::offset_of(void* object) {
  long offset;
  if (_count == 0 || !_by_object.lookup(KRLObjWrap(object), offset)) return -1;
  return offset;
}

void* KRLOffsetTable::object_at(long offset) {
  void* object;
  if (_count == 0 || !_by_offset.lookup(KRLOffsetWrapper(offset), object)) return nullptr;
  return object;
}

void KRLOffsetTable::cleanup() {
  if (_count == 0 || _cleanup_fn == nullptr) return;
  KRLDictionaryIterator<KRLOffsetWrapper, void*> it(&_by_offset);
  while (KRLDictionaryNode<KRLOffsetWrapper, void*>* node = it.next()) _cleanup_fn(node->_value);
}

void KRLOffsetTable::clear() {
  if (_count == 0) return;
  cleanup();
  _by_offset.clear();
  _by_object.clear();
  _nest_level = 0;
  _recu_level = 0;
  _count = 0;
}

KRLOffsetTable* KRLOffsetTable::_duplicate(KRLOffsetTable* table) {
  if (table != nullptr) table->_ref();
  return table;
}
