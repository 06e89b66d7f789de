// Internal: the extractors of the typed input stream for a std::istream in the
// default format (see text_format.h), reading the stream buffer directly.
//
// Each function behaves as the std extractor of the same type does in that
// state, state bits and stored value included: white space is skipped first
// (the end of input there sets eofbit and failbit and leaves the value
// alone); no digit stores 0 with failbit; an integer out of range stores the
// type's limit with failbit, and a negative text read into an unsigned type
// wraps as strtoul's does; a floating value that overflows stores the largest
// finite value with failbit. Reaching the end of input sets eofbit.
#ifndef KRLPORT_STREAMS_TEXT_SCAN_H_
#define KRLPORT_STREAMS_TEXT_SCAN_H_

#include <istream>
#include <limits>
#include <streambuf>
#include <type_traits>

namespace krl_internal {

inline bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The sentry of a formatted read: skips white space; false, with eofbit and
// failbit set, at the end of input.
inline bool skip_space(std::istream& s) {
  std::streambuf* sb = s.rdbuf();
  int c = sb->sgetc();
  while (c != std::char_traits<char>::eof() && is_space(c)) c = sb->snextc();
  if (c != std::char_traits<char>::eof()) return true;
  s.setstate(std::ios_base::eofbit | std::ios_base::failbit);
  return false;
}

// Reads a decimal integer of type T (long, unsigned short, unsigned int,
// unsigned long) as num_get does, after skip_space succeeded.
template <class T>
void scan_integer(std::istream& s, T& v) {
  using U = typename std::make_unsigned<T>::type;
  const int eof = std::char_traits<char>::eof();
  std::streambuf* sb = s.rdbuf();
  int c = sb->sgetc();
  const bool negative = c == '-';
  if (c == '-' || c == '+') c = sb->snextc();
  const bool to_min = negative && std::is_signed<T>::value;
  const U max = to_min ? U(-static_cast<U>(std::numeric_limits<T>::min()))
                       : static_cast<U>(std::numeric_limits<T>::max());
  const U max_tenth = max / 10;
  U result = 0;
  bool any = false;
  bool overflow = false;
  for (; c != eof && c >= '0' && c <= '9'; c = sb->snextc()) {
    const unsigned digit = static_cast<unsigned>(c - '0');
    any = true;
    if (result > max_tenth) {
      overflow = true;
    } else {
      result = static_cast<U>(result * 10);
      overflow |= result > max - digit;
      result = static_cast<U>(result + digit);
    }
  }
  std::ios_base::iostate err = c == eof ? std::ios_base::eofbit : std::ios_base::goodbit;
  if (!any) {
    v = 0;
    err |= std::ios_base::failbit;
  } else if (overflow) {
    v = to_min ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
    err |= std::ios_base::failbit;
  } else {
    v = static_cast<T>(negative ? U(-result) : result);
  }
  if (err != std::ios_base::goodbit) s.setstate(err);
}

// short and int are read as a long and then range-checked, as
// istream::operator>>(short&) and (int&) do.
template <class T>
void scan_narrow(std::istream& s, T& v) {
  long l = 0;
  scan_integer(s, l);
  if (l < std::numeric_limits<T>::min()) {
    v = std::numeric_limits<T>::min();
    s.setstate(std::ios_base::failbit);
  } else if (l > std::numeric_limits<T>::max()) {
    v = std::numeric_limits<T>::max();
    s.setstate(std::ios_base::failbit);
  } else {
    v = static_cast<T>(l);
  }
}

// A floating value, after skip_space succeeded.
void scan_floating(std::istream& s, double& v);
void scan_floating(std::istream& s, float& v);

// The separator: one character by istream::get(), dropped. Reads nothing on
// a failed stream, as the sentry of get() refuses it.
inline void drop_one(std::istream& s) {
  if (s.rdstate() != std::ios_base::goodbit) {
    s.setstate(std::ios_base::failbit);
    return;
  }
  if (s.rdbuf()->sbumpc() == std::char_traits<char>::eof())
    s.setstate(std::ios_base::eofbit | std::ios_base::failbit);
}

}  // namespace krl_internal

#endif  // KRLPORT_STREAMS_TEXT_SCAN_H_
