#include "krlport/streams/text_scan.h"

#include <charconv>
#include <limits>
#include <string>

#include "krlport/platform/number_text.h"

namespace krl_internal {
namespace {

const int kEof = std::char_traits<char>::eof();

// Collects the characters num_get accepts for a floating value: a sign,
// digits with one decimal point, an exponent mark with its own sign and
// digits. Leading zeros shrink to one, as num_get keeps them. Returns the
// state bits of the reading (eofbit when the input ended).
std::ios_base::iostate collect_floating(std::streambuf* sb, std::string& text) {
  int c = sb->sgetc();
  if (c == '+' || c == '-') {
    text += static_cast<char>(c);
    c = sb->snextc();
  }
  bool mantissa = false;
  for (; c == '0'; c = sb->snextc()) {
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
      c = sb->snextc();
      if (c == '+' || c == '-') {
        text += static_cast<char>(c);
      } else {
        continue;  // the character after the mark is looked at afresh
      }
    } else {
      break;
    }
    c = sb->snextc();
  }
  return c == kEof ? std::ios_base::eofbit : std::ios_base::goodbit;
}

// strtod in the "C" locale, whatever setlocale the host made.
double c_strtod(const char* s, char** end, double*) { return c_text_to_double(s, end); }
float c_strtod(const char* s, char** end, float*) { return c_text_to_float(s, end); }

// Converts as num_get's conversion does: the whole text or nothing (0 and
// failbit); an overflow gives the largest finite value and failbit, an
// underflow is no error.
template <class T>
std::ios_base::iostate convert(const std::string& text, T& v) {
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
  std::string text;  // the usual texts fit its inline buffer
  std::ios_base::iostate err = collect_floating(s.rdbuf(), text);
  err |= convert(text, v);
  if (err != std::ios_base::goodbit) s.setstate(err);
}

}  // namespace

void scan_floating(std::istream& s, double& v) { scan(s, v); }
void scan_floating(std::istream& s, float& v) { scan(s, v); }

}  // namespace krl_internal
