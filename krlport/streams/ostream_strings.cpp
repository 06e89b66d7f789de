// KRLostream: narrow and wide strings.
#include <cstring>
#include <iostream>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "krlport/frame/utf16.h"
#include "krlport/streams/ostream.h"
#include "krlport/streams/text_format.h"

namespace {

// Escaped forms of the bytes that do not stand for themselves; 0 marks a byte
// written as itself. Printable means the "C" locale's isprint, 0x20 to 0x7E,
// whatever setlocale the host made, so the text does not depend on it.
struct EscapeTable {
  char second[256];  // the letter behind the backslash, or 'x' for \xhh
  constexpr EscapeTable() : second() {
    for (int b = 0; b < 256; ++b) second[b] = (b < 0x20 || b > 0x7E) ? 'x' : 0;
    second[0x08] = 'b';
    second[0x09] = 't';
    second[0x0A] = 'n';
    second[0x0C] = 'f';
    second[0x0D] = 'r';
    second[0x22] = '"';
    second[0x5C] = '\\';
    second[0x7B] = '[';
    second[0x7D] = ']';
  }
};
constexpr EscapeTable kEscapes;
const char kHexDigits[] = "0123456789abcdef";

// How many of the n bytes at p stand for themselves, counted from the start.
// Sixteen at a time where SSE2 is there: a signed compare with 0x20 catches
// both the control bytes and those from 0x80 up.
std::size_t plain_run(const unsigned char* p, std::size_t n) {
  std::size_t i = 0;
#if defined(__SSE2__)
  const __m128i space = _mm_set1_epi8(0x20);
  const __m128i del = _mm_set1_epi8(0x7F);
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  const __m128i left = _mm_set1_epi8('{');
  const __m128i right = _mm_set1_epi8('}');
  for (; i + 16 <= n; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    const __m128i bad = _mm_or_si128(
        _mm_or_si128(_mm_cmplt_epi8(v, space), _mm_cmpeq_epi8(v, del)),
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
                     _mm_or_si128(_mm_cmpeq_epi8(v, left), _mm_cmpeq_epi8(v, right))));
    const int mask = _mm_movemask_epi8(bad);
    if (mask != 0) return i + static_cast<std::size_t>(__builtin_ctz(mask));
  }
#endif
  while (i < n && kEscapes.second[p[i]] == 0) ++i;
  return i;
}

// Collects output and hands it to the stream in blocks: straight to the
// stream buffer while the stream is good and nothing is tied to it or flushed
// per write, by ostream::write (with its sentry) otherwise.
class ChunkWriter {
 public:
  explicit ChunkWriter(std::ostream& s)
      : _s(s),
        _direct(s.rdstate() == std::ios_base::goodbit && s.tie() == nullptr &&
                !(s.flags() & std::ios_base::unitbuf)),
        _used(0) {}
  ~ChunkWriter() { flush(); }
  char* room(int n) {
    if (_used + n > kSize) flush();
    return _buf + _used;
  }
  void commit(int n) { _used += n; }
  void append(const char* p, std::size_t n) {
    if (_used + n > kSize) {
      flush();
      if (n > kSize / 2) return write(p, n);
    }
    std::memcpy(_buf + _used, p, n);
    _used += static_cast<int>(n);
  }
  void flush() {
    if (_used != 0) write(_buf, _used);
    _used = 0;
  }

 private:
  void write(const char* p, std::size_t n) {
    if (_direct) {
      krl_internal::write_raw(_s, p, static_cast<std::streamsize>(n));
    } else {
      _s.write(p, static_cast<std::streamsize>(n));
    }
  }

  static constexpr int kSize = 512;
  std::ostream& _s;
  const bool _direct;
  int _used;
  char _buf[kSize];
};

// The text of n as the unsigned int inserter gives it, with no separator.
void write_count(std::ostream& s, unsigned int n) {
  if (krl_internal::default_format(s)) {
    char text[krl_internal::kNumberTextSize];
    krl_internal::write_raw(s, text, krl_internal::format_integer(text, n) - text - 1);
  } else {
    s << n;
  }
}

}  // namespace

KRLostream& KRLostream::operator<<(const char* s) {
  const std::size_t length = s == nullptr ? 0 : std::strlen(s);
  if (_strm == &std::cout || _strm == &std::cerr) {
    if (s != nullptr) *_strm << s;
    krl_internal::advance_offset(_offset, length + 1);
    return *this;
  }
  const unsigned int n = s == nullptr ? 0 : static_cast<unsigned int>(length + 1);
  write_count(*_strm, n);
  krl_internal::advance_offset(_offset, 4);
  if (n > 1) return putCString(s);
  _strm->put(' ');
  krl_internal::advance_offset(_offset, 1);
  return *this;
}

KRLostream& KRLostream::putCString(const char* s) {
  ChunkWriter out(*_strm);
  *out.room(1) = '"';
  out.commit(1);
  std::size_t added = 3;  // the two quotes and the line feed
  const unsigned char* p = reinterpret_cast<const unsigned char*>(s);
  const unsigned char* const end = p + std::strlen(s);
  for (;;) {
    const std::size_t run = plain_run(p, static_cast<std::size_t>(end - p));
    out.append(reinterpret_cast<const char*>(p), run);
    added += run;
    p += run;
    if (p == end) break;
    const char second = kEscapes.second[*p];
    char* at = out.room(4);
    at[0] = '\\';
    at[1] = second;
    if (second != 'x') {
      out.commit(2);
      added += 2;
    } else {
      at[2] = kHexDigits[*p >> 4];
      at[3] = kHexDigits[*p & 0xF];
      out.commit(4);
      added += 4;
    }
    ++p;
  }
  char* at = out.room(2);
  at[0] = '"';
  at[1] = '\n';
  out.commit(2);
  krl_internal::advance_offset(_offset, added);
  return *this;
}

// The settled wide form: the unit count with the terminator, as an unsigned
// long, then every unit as put(const unsigned short*, n) writes it, the 0
// last. So "hi" is "3 104 105 0 ". The offset grows by twice the count plus
// 2, and by what put adds.
KRLostream& KRLostream::operator<<(const unsigned short* s) {
  static const unsigned short kEmpty[1] = {0};
  if (s == nullptr) s = kEmpty;
  const unsigned long count = krl_internal::wide_length(s) + 1;
  write_count(*_strm, static_cast<unsigned int>(count));
  _strm->put(' ');
  krl_internal::advance_offset(_offset, 2 * std::size_t{count} + 2);
  return put(s, static_cast<unsigned int>(count));
}
