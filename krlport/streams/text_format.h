// Internal: fast text of numbers for the typed streams.
//
// The streams must produce exactly what the std inserters and extractors give
// in the caller's format state. In the default state (flags dec|skipws, width
// 0, the classic locale, no tied stream) that text is fully known: integers in
// plain decimal, floating values as printf's "%.*g" with the stream's
// precision. There the streams format and parse through the stream buffer
// themselves, which is several times cheaper than num_put and num_get; in any
// other state they call the std operators. text_format_test.cpp holds the two
// paths against each other.
#ifndef KRLPORT_STREAMS_TEXT_FORMAT_H_
#define KRLPORT_STREAMS_TEXT_FORMAT_H_

#include <charconv>
#include <cstddef>
#include <ios>
#include <locale>
#include <ostream>
#include <type_traits>

namespace krl_internal {

// Adds amount to a stream's running offset. The offset is a long, 32 bits on
// Windows: it wraps there, as unsigned arithmetic does, where a plain +=
// would overflow.
inline void advance_offset(long& offset, std::size_t amount) {
  offset =
      static_cast<long>(static_cast<unsigned long>(offset) + static_cast<unsigned long>(amount));
}

// Room for the longest text the fast paths make: a "%.17g" double, a sign,
// the separator.
constexpr int kNumberTextSize = 40;
// The largest precision the fast path takes; larger ones go through num_put.
constexpr std::streamsize kMaxFastPrecision = 17;

inline bool has_classic_locale(const std::ios_base& s) {
#if defined(__GLIBCXX__)
  // libstdc++ hands out the stream's locale by reference; getloc() would copy
  // it, two atomic count changes per value.
  return s._M_getloc() == std::locale::classic();
#else
  return s.getloc() == std::locale::classic();
#endif
}

// The stream is good, untied and in the default numeric format.
inline bool default_format(const std::basic_ios<char>& s) {
  return s.rdstate() == std::ios_base::goodbit && s.tie() == nullptr &&
         s.flags() == (std::ios_base::dec | std::ios_base::skipws) && s.width() == 0 &&
         has_classic_locale(s);
}

// Writes n bytes to s's buffer; a short write sets badbit, as an inserter's
// failed write does.
inline void write_raw(std::ostream& s, const char* p, std::streamsize n) {
  if (s.rdbuf()->sputn(p, n) != n) s.setstate(std::ios_base::badbit);
}

// Formats v and the separator " " into out; returns the end. Integers only.
template <class T>
inline char* format_integer(char* out, T v) {
  static_assert(std::is_integral<T>::value, "integers only");
  char* end = std::to_chars(out, out + kNumberTextSize - 1, v).ptr;
  *end = ' ';
  return end + 1;
}

// Formats v as "%.*g" with precision p (0 < p <= kMaxFastPrecision) and the
// separator; returns the end. v must be finite.
template <class T>
inline char* format_floating(char* out, T v, int p) {
  char* end = std::to_chars(out, out + kNumberTextSize - 1, v, std::chars_format::general, p).ptr;
  *end = ' ';
  return end + 1;
}

// The precision "%.*g" uses for s, as num_put takes it: 6 for a negative
// one, and 0 means 1.
inline int effective_precision(const std::ios_base& s) {
  const std::streamsize p = s.precision();
  return p < 0 ? 6 : (p == 0 ? 1 : static_cast<int>(p));
}

}  // namespace krl_internal

#endif  // KRLPORT_STREAMS_TEXT_FORMAT_H_
