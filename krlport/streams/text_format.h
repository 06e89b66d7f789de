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
#include <cstdint>
#include <cstring>
#include <ios>
#include <locale>
#include <ostream>
#include <streambuf>
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
  const std::locale& loc = s._M_getloc();
#else
  const std::locale loc = s.getloc();
#endif
  // A copy of the classic locale shares its representation, so the usual
  // case is told by the bytes alone, without two calls into the runtime.
  // Bytes that differ prove nothing, and operator== then decides.
  static const std::locale& classic = std::locale::classic();
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  return std::memcmp(&loc, &classic, sizeof(std::locale)) == 0 || loc == classic;
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

// The put area of a stream buffer, written in place as sputc does, a
// character at a time, but with one bounds test for a whole number. The
// protected members are reached through pointers to members named by a
// derived class; no object of that class exists.
struct PutArea : std::streambuf {
  static char* next(std::streambuf* b) { return (b->*&PutArea::pptr)(); }
  static char* end(std::streambuf* b) { return (b->*&PutArea::epptr)(); }
  static void advance(std::streambuf* b, int n) { (b->*&PutArea::pbump)(n); }
};

// Writes a text of at most kNumberTextSize bytes that format(out) makes and
// returns the end of: in place when the put area has room, through sputn
// otherwise.
template <class Format>
inline void write_formatted(std::ostream& s, Format format) {
  std::streambuf* b = s.rdbuf();
  char* out = PutArea::next(b);
  if (PutArea::end(b) - out >= kNumberTextSize) {
    PutArea::advance(b, static_cast<int>(format(out) - out));
  } else {
    char text[kNumberTextSize];
    write_raw(s, text, format(text) - text);
  }
}

// "00" to "99": two digits a step halve the divisions.
constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// 10^0, 10^1 ... as many as fit in U.
template <class U>
struct PowersOfTen {
  static constexpr int kCount = sizeof(U) == 4 ? 10 : 20;
  U value[kCount];
  constexpr PowersOfTen() : value() {
    U power = 1;
    for (int i = 0; i < kCount; ++i, power *= 10) value[i] = power;
  }
};

// The number of decimal digits of v (1 for 0): log10 from the bit length,
// corrected by one comparison.
template <class U>
inline int digit_count(U v) {
  static constexpr PowersOfTen<U> kPowers;
  const int bits = sizeof(U) == 4 ? 32 - __builtin_clz(static_cast<std::uint32_t>(v | 1))
                                  : 64 - __builtin_clzll(static_cast<std::uint64_t>(v | 1));
  const int t = (bits * 1233) >> 12;  // 1233 / 4096 is just above log10(2)
  return t + ((v | 1) >= kPowers.value[t]);
}

// Writes the digits of v backward, ending just before end.
inline void put_digits_backward(char* end, std::uint32_t v) {
  while (v >= 100) {
    const std::uint32_t pair = v % 100;
    v /= 100;
    end -= 2;
    std::memcpy(end, kDigitPairs + 2 * pair, 2);
  }
  if (v >= 10) {
    std::memcpy(end - 2, kDigitPairs + 2 * v, 2);
  } else {
    end[-1] = static_cast<char>('0' + v);
  }
}

// Exactly eight digits of v < 10^8, leading zeros included, backward.
inline void put_eight_digits_backward(char* end, std::uint32_t v) {
  const std::uint32_t high = v / 10000;
  const std::uint32_t low = v % 10000;
  std::memcpy(end - 2, kDigitPairs + 2 * (low % 100), 2);
  std::memcpy(end - 4, kDigitPairs + 2 * (low / 100), 2);
  std::memcpy(end - 6, kDigitPairs + 2 * (high % 100), 2);
  std::memcpy(end - 8, kDigitPairs + 2 * (high / 100), 2);
}

// The decimal digits of v at out; returns their end. The arithmetic stays
// 32 bits wide but for one or two divisions by 10^8 of a larger value.
inline char* put_unsigned(char* out, std::uint32_t v) {
  char* end = out + digit_count(v);
  put_digits_backward(end, v);
  return end;
}

inline char* put_unsigned(char* out, std::uint64_t v) {
  if (v <= 0xFFFFFFFFu) return put_unsigned(out, static_cast<std::uint32_t>(v));
  char* end = out + digit_count(v);
  char* p = end;
  do {
    const std::uint64_t q = v / 100000000;
    put_eight_digits_backward(p, static_cast<std::uint32_t>(v - q * 100000000));
    p -= 8;
    v = q;
  } while (v > 0xFFFFFFFFu);
  put_digits_backward(p, static_cast<std::uint32_t>(v));
  return end;
}

// Formats v and the separator " " into out; returns the end. Integers only.
// The text is std::to_chars's: an optional minus and plain decimal digits.
template <class T>
inline char* format_integer(char* out, T v) {
  static_assert(std::is_integral<T>::value, "integers only");
  using U = typename std::conditional<sizeof(T) <= 4, std::uint32_t, std::uint64_t>::type;
  U magnitude = static_cast<U>(v);
  if constexpr (std::is_signed<T>::value) {
    if (v < 0) {
      *out++ = '-';
      magnitude = U(0) - magnitude;
    }
  }
  char* end = put_unsigned(out, magnitude);
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
