// Internal: the array of offset tables that both typed streams carry.
//
// Each entry holds one counted reference. The array grows 0, 1, 2, 4 ... and
// is allocated with operator new; lookup goes by each table's content_type(),
// first match in array order.
#ifndef KRLPORT_STREAMS_TABLE_ARRAY_H_
#define KRLPORT_STREAMS_TABLE_ARRAY_H_

class KRLOffsetTable;

namespace krl_internal {

// The three fields of a stream that make up its table array.
struct TableArrayRef {
  KRLOffsetTable**& tables;
  int& count;
  int& capacity;
};

// Appends table, taking over the caller's reference.
void append_table(TableArrayRef a, KRLOffsetTable* table);
// The first table whose content_type() is kind, or null.
KRLOffsetTable* find_table(TableArrayRef a, int kind);
// Makes a (which must be empty) share source's tables, one _ref each.
// Throws CORBA_BAD_INV_ORDER(4, COMPLETED_MAYBE) when a holds a table.
void share_tables(TableArrayRef a, KRLOffsetTable* const* source, int count, int capacity);
// clear() on each table in array order.
void clear_tables(TableArrayRef a);
// _unref() on each table in array order, then frees the array.
void release_tables(TableArrayRef a);

}  // namespace krl_internal

#endif  // KRLPORT_STREAMS_TABLE_ARRAY_H_
