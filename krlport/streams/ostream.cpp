// KRLostream: construction, tables, scalars and arrays. The strings are in
// ostream_strings.cpp.
#include "krlport/streams/ostream.h"

#include <ostream>

#include "krlport/frame/wstring_var.h"
#include "krlport/streams/table_array.h"
#include "krlport/streams/text_format.h"

using krl_internal::default_format;

namespace {

krl_internal::TableArrayRef tables_of(KRLOffsetTable**& t, int& count, int& capacity) {
  return {t, count, capacity};
}

// One integer and its separator: formatted here in the default state, by the
// inserter otherwise.
template <class T, class Inserted = T>
void write_integer(std::ostream& s, T v) {
  if (default_format(s)) {
    krl_internal::write_formatted(
        s, [v](char* out) { return krl_internal::format_integer(out, Inserted(v)); });
  } else {
    s << Inserted(v) << ' ';
  }
}

// One floating value through the double inserter, as ostream does for float
// too, and its separator.
void write_floating(std::ostream& s, double v) {
  const int precision = krl_internal::effective_precision(s);
  if (default_format(s) && precision <= krl_internal::kMaxFastPrecision &&
      v - v == 0) {  // finite: no inf or nan text here
    krl_internal::write_formatted(
        s, [v, precision](char* out) { return krl_internal::format_floating(out, v, precision); });
  } else {
    s << v << ' ';
  }
}

template <class T, class Inserted = T>
void write_integers(std::ostream& s, const T* p, unsigned int n) {
  for (unsigned int i = 0; i < n; ++i) write_integer<T, Inserted>(s, p[i]);
}

}  // namespace

KRLostream::KRLostream(std::ostream& s)
    : _tables(nullptr), _table_count(0), _table_capacity(0), _offset(0), _strm(&s) {}

KRLostream::KRLostream()
    : _tables(nullptr), _table_count(0), _table_capacity(0), _offset(0), _strm(nullptr) {}

KRLostream::KRLostream(const KRLostream&) : KRLostream() {}

void KRLostream::operator=(const KRLostream&) {}

KRLostream::~KRLostream() {
  krl_internal::release_tables(tables_of(_tables, _table_count, _table_capacity));
}

void KRLostream::reset() {
  krl_internal::clear_tables(tables_of(_tables, _table_count, _table_capacity));
  _offset = 0;
}

KRLOffsetTable* KRLostream::get_out_table(int kind) {
  return krl_internal::find_table(tables_of(_tables, _table_count, _table_capacity), kind);
}

void KRLostream::set_out_table(int, KRLOffsetTable* table) {
  krl_internal::append_table(tables_of(_tables, _table_count, _table_capacity), table);
}

void KRLostream::copy_out_tables(const KRLostream& source) {
  krl_internal::share_tables(tables_of(_tables, _table_count, _table_capacity), source._tables,
                             source._table_count, source._table_capacity);
}

long KRLostream::cur_out_offset() const { return _offset; }

int KRLostream::_type_number() { return 0; }

KRLostream& KRLostream::operator<<(KRLWChar c) { return *this << c.wc(); }

KRLostream& KRLostream::operator<<(char v) {
  if (default_format(*_strm)) {
    const char text[2] = {v, ' '};
    krl_internal::write_raw(*_strm, text, 2);
  } else {
    *_strm << v << ' ';
  }
  krl_internal::advance_offset(_offset, 2);
  return *this;
}

KRLostream& KRLostream::operator<<(unsigned char v) {
  write_integer<unsigned char, int>(*_strm, v);
  krl_internal::advance_offset(_offset, 2);
  return *this;
}

KRLostream& KRLostream::operator<<(short v) {
  write_integer(*_strm, v);
  krl_internal::advance_offset(_offset, 3);
  return *this;
}

KRLostream& KRLostream::operator<<(unsigned short v) {
  write_integer(*_strm, v);
  krl_internal::advance_offset(_offset, 3);
  return *this;
}

KRLostream& KRLostream::operator<<(int v) {
  write_integer(*_strm, v);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRLostream& KRLostream::operator<<(unsigned int v) {
  write_integer(*_strm, v);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRLostream& KRLostream::operator<<(long v) {
  write_integer(*_strm, v);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRLostream& KRLostream::operator<<(unsigned long v) {
  write_integer(*_strm, v);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRLostream& KRLostream::operator<<(float v) {
  write_floating(*_strm, v);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRLostream& KRLostream::operator<<(double v) {
  write_floating(*_strm, v);
  krl_internal::advance_offset(_offset, 9);
  return *this;
}

KRLostream& KRLostream::operator<<(long long v) {
  write_floating(*_strm, static_cast<double>(v));
  krl_internal::advance_offset(_offset, 9);
  return *this;
}

KRLostream& KRLostream::operator<<(unsigned long long v) {
  write_floating(*_strm, static_cast<double>(v));
  krl_internal::advance_offset(_offset, 9);
  return *this;
}

KRLostream& KRLostream::put(char c) {
  _strm->put(c);
  krl_internal::advance_offset(_offset, 1);
  return *this;
}

KRLostream& KRLostream::put(const char* p, unsigned int n) {
  if (n != 0) _strm->write(p, n);
  krl_internal::advance_offset(_offset, n);
  return *this;
}

KRLostream& KRLostream::put(const unsigned char* p, unsigned int n) {
  return KRLostream::put(reinterpret_cast<const char*>(p), n);
}

KRLostream& KRLostream::put(const short* p, unsigned int n) {
  write_integers(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{3} * n);
  return *this;
}

KRLostream& KRLostream::put(const unsigned short* p, unsigned int n) {
  write_integers(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{3} * n);
  return *this;
}

KRLostream& KRLostream::put(const int* p, unsigned int n) {
  write_integers(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{5} * n);
  return *this;
}

KRLostream& KRLostream::put(const unsigned int* p, unsigned int n) {
  write_integers(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{5} * n);
  return *this;
}

KRLostream& KRLostream::put(const long* p, unsigned int n) {
  write_integers(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{5} * n);
  return *this;
}

KRLostream& KRLostream::put(const unsigned long* p, unsigned int n) {
  write_integers(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{5} * n);
  return *this;
}

KRLostream& KRLostream::put(const float* p, unsigned int n) {
  for (unsigned int i = 0; i < n; ++i) write_floating(*_strm, p[i]);
  krl_internal::advance_offset(_offset, std::size_t{5} * n);
  return *this;
}

KRLostream& KRLostream::put(const double* p, unsigned int n) {
  for (unsigned int i = 0; i < n; ++i) write_floating(*_strm, p[i]);
  krl_internal::advance_offset(_offset, std::size_t{9} * n);
  return *this;
}

KRLostream& KRLostream::put(const long long* p, unsigned int n) {
  for (unsigned int i = 0; i < n; ++i) write_floating(*_strm, static_cast<double>(p[i]));
  krl_internal::advance_offset(_offset, std::size_t{9} * n);
  return *this;
}

KRLostream& KRLostream::put(const unsigned long long* p, unsigned int n) {
  for (unsigned int i = 0; i < n; ++i) write_floating(*_strm, static_cast<double>(p[i]));
  krl_internal::advance_offset(_offset, std::size_t{9} * n);
  return *this;
}

KRLostream& KRLostream::put_wcbuf(const unsigned short* p, unsigned int n) { return put(p, n); }

KRLostream& endl(KRLostream& s) {
  if (s._strm == nullptr) return s << "\n";
  std::endl(*s._strm);
  return s;
}
