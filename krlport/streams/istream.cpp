// KRListream: construction, tables, scalars, arrays and raw reads. The
// strings are in istream_strings.cpp.
#include "krlport/streams/istream.h"

#include <cmath>
#include <istream>
#include <limits>

#include "krlport/frame/wstring_var.h"
#include "krlport/streams/table_array.h"
#include "krlport/streams/text_format.h"
#include "krlport/streams/text_scan.h"

using krl_internal::default_format;
using krl_internal::skip_space;

namespace {

krl_internal::TableArrayRef tables_of(KRLOffsetTable**& t, int& count, int& capacity) {
  return {t, count, capacity};
}

// One value by the extractor, read by the fast scanners in the default format.
template <class T>
void extract(std::istream& s, T& v) {
  if (!default_format(s)) {
    s >> v;
  } else if (skip_space(s)) {
    if constexpr (std::is_same<T, char>::value) {
      v = static_cast<char>(s.rdbuf()->sbumpc());  // skip_space saw a character
    } else if constexpr (std::is_same<T, short>::value || std::is_same<T, int>::value) {
      krl_internal::scan_narrow(s, v);
    } else if constexpr (std::is_floating_point<T>::value) {
      krl_internal::scan_floating(s, v);
    } else {
      krl_internal::scan_integer(s, v);
    }
  }
}

// The separator behind a value: one character by istream::get(), dropped.
void drop_separator(std::istream& s) {
  if (s.tie() == nullptr) {
    krl_internal::drop_one(s);
  } else {
    s.get();
  }
}

// A 64-bit integer travels as a double: truncated toward zero, and a value
// outside T's range (or a NaN) saturates.
template <class T>
T truncate_double(double d, T old) {
  if (std::isnan(d)) return old;  // nothing was extracted
  const double limit = std::is_signed<T>::value ? 9223372036854775808.0 : 18446744073709551616.0;
  if (d >= limit) return std::numeric_limits<T>::max();
  if (std::is_signed<T>::value ? d < -limit : d <= -1.0) return std::numeric_limits<T>::min();
  return static_cast<T>(d);
}

template <class T>
void extract_int64(std::istream& s, T& v) {
  double d = std::numeric_limits<double>::quiet_NaN();  // the extractor never stores NaN
  extract(s, d);
  v = truncate_double(d, v);
}

// n values, then the separator. Once the stream has failed, no extraction can
// store anything, so the loop stops there.
template <class T>
void extract_array(std::istream& s, T* p, unsigned int n) {
  for (unsigned int i = 0; i < n && s.good(); ++i) extract(s, p[i]);
  drop_separator(s);
}

template <class T>
void extract_int64_array(std::istream& s, T* p, unsigned int n) {
  for (unsigned int i = 0; i < n && s.good(); ++i) extract_int64(s, p[i]);
  drop_separator(s);
}

}  // namespace

KRListream::KRListream(std::istream& s)
    : _tables(nullptr), _table_count(0), _table_capacity(0), _offset(0), _strm(&s) {}

KRListream::KRListream()
    : _tables(nullptr), _table_count(0), _table_capacity(0), _offset(0), _strm(nullptr) {}

KRListream::KRListream(const KRListream&) : KRListream() {}

void KRListream::operator=(const KRListream&) {}

KRListream::~KRListream() {
  krl_internal::release_tables(tables_of(_tables, _table_count, _table_capacity));
}

void KRListream::reset() {
  krl_internal::clear_tables(tables_of(_tables, _table_count, _table_capacity));
  _offset = 0;
}

KRLOffsetTable* KRListream::get_in_table(int kind) {
  return krl_internal::find_table(tables_of(_tables, _table_count, _table_capacity), kind);
}

void KRListream::set_in_table(int, KRLOffsetTable* table) {
  krl_internal::append_table(tables_of(_tables, _table_count, _table_capacity), table);
}

void KRListream::copy_in_tables(const KRListream& source) {
  krl_internal::share_tables(tables_of(_tables, _table_count, _table_capacity), source._tables,
                             source._table_count, source._table_capacity);
}

long KRListream::cur_in_offset() const { return _offset; }

int KRListream::is_available(unsigned long) { return 1; }

int KRListream::_type_number() { return 0; }

void KRListream::eatSpace() {
  _strm->get();
  krl_internal::advance_offset(_offset, 1);
}

KRListream& KRListream::operator>>(KRLWChar& c) { return *this >> c.wc(); }

KRListream& KRListream::operator>>(char& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 2);
  return *this;
}

KRListream& KRListream::operator>>(unsigned char& v) {
  int wide = v;
  extract(*_strm, wide);
  v = static_cast<unsigned char>(wide);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRListream& KRListream::operator>>(short& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 3);
  return *this;
}

KRListream& KRListream::operator>>(unsigned short& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 3);
  return *this;
}

KRListream& KRListream::operator>>(int& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRListream& KRListream::operator>>(unsigned int& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRListream& KRListream::operator>>(long& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRListream& KRListream::operator>>(unsigned long& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRListream& KRListream::operator>>(float& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 5);
  return *this;
}

KRListream& KRListream::operator>>(double& v) {
  extract(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 9);
  return *this;
}

KRListream& KRListream::operator>>(long long& v) {
  extract_int64(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 9);
  return *this;
}

KRListream& KRListream::operator>>(unsigned long long& v) {
  extract_int64(*_strm, v);
  drop_separator(*_strm);
  krl_internal::advance_offset(_offset, 9);
  return *this;
}

KRListream& KRListream::get(short* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{2} * n + 1);
  return *this;
}

KRListream& KRListream::get(unsigned short* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{2} * n + 1);
  return *this;
}

KRListream& KRListream::get(int* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{4} * n + 1);
  return *this;
}

KRListream& KRListream::get(unsigned int* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{4} * n + 1);
  return *this;
}

KRListream& KRListream::get(long* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{4} * n + 1);
  return *this;
}

KRListream& KRListream::get(unsigned long* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{4} * n + 1);
  return *this;
}

KRListream& KRListream::get(float* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{4} * n + 1);
  return *this;
}

KRListream& KRListream::get(double* p, unsigned int n) {
  extract_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{8} * n + 1);
  return *this;
}

KRListream& KRListream::get(long long* p, unsigned int n) {
  extract_int64_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{8} * n + 1);
  return *this;
}

KRListream& KRListream::get(unsigned long long* p, unsigned int n) {
  extract_int64_array(*_strm, p, n);
  krl_internal::advance_offset(_offset, std::size_t{8} * n + 1);
  return *this;
}

KRListream& KRListream::get_wcbuf(unsigned short* p, unsigned int n) { return get(p, n); }

KRListream& KRListream::get(char* p, unsigned int n) {
  _strm->read(p, n);
  krl_internal::advance_offset(_offset, n);
  return *this;
}

KRListream& KRListream::get(unsigned char* p, unsigned int n) {
  return KRListream::get(reinterpret_cast<char*>(p), n);
}

KRListream& KRListream::get(char& c) {
  _strm->get(c);
  krl_internal::advance_offset(_offset, 1);
  return *this;
}

KRListream& KRListream::get(unsigned char& c) {
  char byte = static_cast<char>(c);
  _strm->get(byte);
  c = static_cast<unsigned char>(byte);
  krl_internal::advance_offset(_offset, 1);
  return *this;
}

int KRListream::get() {
  krl_internal::advance_offset(_offset, 4);
  return _strm->get();
}
