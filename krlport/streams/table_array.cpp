#include "krlport/streams/table_array.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <new>

#include "krlport/exceptions/system_exception.h"
#include "krlport/streams/offset_table.h"

namespace krl_internal {

namespace {
// The arrays hold pointers to tables.
constexpr std::size_t kSlot = sizeof(KRLOffsetTable*);  // NOLINT(bugprone-sizeof-expression)
}  // namespace

void append_table(TableArrayRef a, KRLOffsetTable* table) {
  if (a.count == a.capacity) {
    // The count is an int: an array that cannot double is a failed allocation.
    if (a.capacity > INT_MAX / 2) throw std::bad_alloc();
    const int capacity = a.capacity == 0 ? 1 : 2 * a.capacity;
    auto* grown = static_cast<KRLOffsetTable**>(::operator new(kSlot * capacity));
    if (a.count != 0) std::memcpy(grown, a.tables, kSlot * a.count);
    if (a.tables != nullptr) ::operator delete(a.tables);
    a.tables = grown;
    a.capacity = capacity;
  }
  a.tables[a.count++] = table;
}

KRLOffsetTable* find_table(TableArrayRef a, int kind) {
  for (int i = 0; i < a.count; ++i) {
    if (a.tables[i]->content_type() == kind) return a.tables[i];
  }
  return nullptr;
}

void share_tables(TableArrayRef a, KRLOffsetTable* const* source, int count, int capacity) {
  if (a.count != 0) throw CORBA_BAD_INV_ORDER(4, CORBA::COMPLETED_MAYBE);
  if (count == 0) return;
  auto* copy = static_cast<KRLOffsetTable**>(::operator new(kSlot * capacity));
  if (a.tables != nullptr) ::operator delete(a.tables);  // empty, left by nothing but growth
  a.tables = copy;
  a.capacity = capacity;
  for (int i = 0; i < count; ++i) {
    source[i]->_ref();
    a.tables[i] = source[i];
  }
  a.count = count;
}

void clear_tables(TableArrayRef a) {
  for (int i = 0; i < a.count; ++i) a.tables[i]->clear();
}

void release_tables(TableArrayRef a) {
  for (int i = 0; i < a.count; ++i) a.tables[i]->_unref();
  ::operator delete(a.tables);
  a.tables = nullptr;
  a.count = 0;
  a.capacity = 0;
}

}  // namespace krl_internal
