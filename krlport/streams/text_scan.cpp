#include "krlport/streams/text_scan.h"

#include <charconv>
#include <cstddef>
#include <limits>
#include <streambuf>
#include <string>

#include "krlport/platform/number_text.h"

namespace krl_internal {
namespace {

const int kEof = std::char_traits<char>::eof();

// Where collect_floating reads from: the stream buffer itself, through
// sgetc and snextc, or the characters already in its get area, where the end
// of the area reads as the end of input and nothing is consumed until the
// caller says so.
class BufferSource {
 public:
  explicit BufferSource(std::streambuf* b) : _b(b) {}
  int current() { return _b->sgetc(); }
  int next() { return _b->snextc(); }

 private:
  std::streambuf* _b;
};

class MemorySource {
 public:
  MemorySource(const char* first, const char* last) : _p(first), _last(last) {}
  int current() const { return _p != _last ? std::char_traits<char>::to_int_type(*_p) : kEof; }
  int next() {
    ++_p;
    return current();
  }
  const char* position() const { return _p; }

 private:
  const char* _p;
  const char* _last;
};

// A number's characters in a fixed array; longer texts only say so.
class ShortText {
 public:
  static constexpr int kRoom = 64;
  void operator+=(char c) {
    if (_size < kRoom - 1) {
      _chars[_size++] = c;
    } else {
      _full = true;
    }
  }
  bool full() const { return _full; }
  const char* data() const { return _chars; }
  std::size_t size() const { return static_cast<std::size_t>(_size); }
  // strtod's fallback needs the terminator.
  const char* c_str() {
    _chars[_size] = '\0';
    return _chars;
  }

 private:
  char _chars[kRoom];
  int _size = 0;
  bool _full = false;
};

// The get area of a stream buffer, read in place as sbumpc does. Pointers to
// the protected members, named through a derived class that is never made.
struct GetArea : std::streambuf {
  static char* next(std::streambuf* b) { return (b->*&GetArea::gptr)(); }
  static char* end(std::streambuf* b) { return (b->*&GetArea::egptr)(); }
  static void advance(std::streambuf* b, int n) { (b->*&GetArea::gbump)(n); }
};

// Collects the characters num_get accepts for a floating value: a sign,
// digits with one decimal point, an exponent mark with its own sign and
// digits. Leading zeros shrink to one, as num_get keeps them. Returns the
// state bits of the reading (eofbit when the input ended).
template <class Source, class Text>
std::ios_base::iostate collect_floating(Source& in, Text& text) {
  int c = in.current();
  if (c == '+' || c == '-') {
    text += static_cast<char>(c);
    c = in.next();
  }
  bool mantissa = false;
  for (; c == '0'; c = in.next()) {
    if (!mantissa) text += '0';
    mantissa = true;
  }
  bool point = false;
  bool exponent = false;
  while (c != kEof) {
    if (c >= '0' && c <= '9') {
      text += static_cast<char>(c);
      mantissa = true;
    } else if (c == '.' && !point && !exponent) {
      text += '.';
      point = true;
    } else if ((c == 'e' || c == 'E') && !exponent && mantissa) {
      text += 'e';
      exponent = true;
      c = in.next();
      if (c == '+' || c == '-') {
        text += static_cast<char>(c);
      } else {
        continue;  // the character after the mark is looked at afresh
      }
    } else {
      break;
    }
    c = in.next();
  }
  return c == kEof ? std::ios_base::eofbit : std::ios_base::goodbit;
}

// strtod in the "C" locale, whatever setlocale the host made.
double c_strtod(const char* s, char** end, double*) { return c_text_to_double(s, end); }
float c_strtod(const char* s, char** end, float*) { return c_text_to_float(s, end); }

// Converts as num_get's conversion does: the whole text or nothing (0 and
// failbit); an overflow gives the largest finite value and failbit, an
// underflow is no error.
template <class T, class Text>
std::ios_base::iostate convert(Text& text, T& v) {
  const char* first = text.data();
  const char* last = first + text.size();
  if (first != last && *first == '+') ++first;  // from_chars takes no '+'
  T value = 0;
  const auto [ptr, ec] = std::from_chars(first, last, value);
  if (ec == std::errc() && ptr == last) {
    v = value;
    return std::ios_base::goodbit;
  }
  if (ec != std::errc::result_out_of_range || ptr != last) {
    v = 0;
    return std::ios_base::failbit;
  }
  // Out of range: strtod tells an overflow (infinity) from an underflow.
  char* end = nullptr;
  value = c_strtod(text.c_str(), &end, static_cast<T*>(nullptr));
  if (value == std::numeric_limits<T>::infinity()) {
    v = std::numeric_limits<T>::max();
    return std::ios_base::failbit;
  }
  if (value == -std::numeric_limits<T>::infinity()) {
    v = -std::numeric_limits<T>::max();
    return std::ios_base::failbit;
  }
  v = value;
  return std::ios_base::goodbit;
}

template <class T>
void scan(std::istream& s, T& v) {
  std::streambuf* b = s.rdbuf();
  // The usual number lies whole in the get area, ended by its separator:
  // read there, and consumed at once. One that reaches the end of the area
  // is read again through the buffer.
  const char* first = GetArea::next(b);
  MemorySource in(first, GetArea::end(b));
  ShortText short_text;
  collect_floating(in, short_text);
  if (in.current() != kEof && !short_text.full()) {
    GetArea::advance(b, static_cast<int>(in.position() - first));
    const std::ios_base::iostate err = convert(short_text, v);
    if (err != std::ios_base::goodbit) s.setstate(err);
    return;
  }
  BufferSource whole(b);
  std::string text;
  std::ios_base::iostate err = collect_floating(whole, text);
  err |= convert(text, v);
  if (err != std::ios_base::goodbit) s.setstate(err);
}

}  // namespace

void scan_floating(std::istream& s, double& v) { scan(s, v); }
void scan_floating(std::istream& s, float& v) { scan(s, v); }

}  // namespace krl_internal
