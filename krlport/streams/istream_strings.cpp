// KRListream: narrow strings, their quoted form, and wide strings.
//
// Memory is never sized by a declared length alone, whatever the class of the
// stream. A narrow string declared longer than kTrustedLength bytes, or a new
// wide string declared longer than kTrustedUnits units, is read into a buffer
// that grows with the text actually read, and the result is allocated from
// that. The wide units still come through the virtual get(unsigned short*, n),
// in pieces; the quoted form cannot be read in pieces through the virtual
// getCString, whose buffer must have the declared size before the text is
// seen, so a long narrow string is read by this file's own reader.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <vector>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "krlport/frame/corba.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/text_format.h"
#include "krlport/streams/text_scan.h"

namespace {

constexpr unsigned int kTrustedLength = 1u << 16;
constexpr unsigned long kTrustedUnits = 1ul << 15;
const int kEof = std::char_traits<char>::eof();

constexpr std::size_t kMaxRun = 1u << 20;

// The get area of a stream buffer, reached through its protected members by
// pointers to members named in a derived class: defined behaviour, and the
// way to scan buffered text without a virtual call per character.
struct GetArea : std::streambuf {
  static char* next(std::streambuf* b) { return (b->*&GetArea::gptr)(); }
  static char* end(std::streambuf* b) { return (b->*&GetArea::egptr)(); }
  static void bump(std::streambuf* b, int n) { (b->*&GetArea::gbump)(n); }
};

// How many of the n characters at p stand for themselves inside quotes:
// all but the quote, the backslash and the line feed. Sixteen at a time where
// SSE2 is there.
std::size_t plain_run(const char* p, std::size_t n) {
  std::size_t i = 0;
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  const __m128i line_feed = _mm_set1_epi8('\n');
  for (; i + 16 <= n; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    const int mask = _mm_movemask_epi8(
        _mm_or_si128(_mm_cmpeq_epi8(v, quote),
                     _mm_or_si128(_mm_cmpeq_epi8(v, backslash), _mm_cmpeq_epi8(v, line_feed))));
    if (mask != 0) return i + static_cast<std::size_t>(__builtin_ctz(mask));
  }
#endif
  while (i < n && p[i] != '"' && p[i] != '\\' && p[i] != '\n') ++i;
  return i;
}

// Characters one at a time, as istream::get() gives them: straight from the
// stream buffer unless a tied stream has to be flushed first.
class CharReader {
 public:
  explicit CharReader(std::istream& s) : _s(s), _sb(s.rdbuf()), _direct(s.tie() == nullptr) {}

  int get() {
    if (!_direct) return _s.get();
    if (_s.rdstate() != std::ios_base::goodbit) {
      _s.setstate(std::ios_base::failbit);
      return kEof;
    }
    const int c = _sb->sbumpc();
    if (c == kEof) _s.setstate(std::ios_base::eofbit | std::ios_base::failbit);
    return c;
  }
  int peek() { return _s.rdstate() == std::ios_base::goodbit ? _sb->sgetc() : kEof; }
  // std::ws, which in the classic locale skips exactly what is_space takes.
  void skip_space() {
    if (!_direct || _s.rdstate() != std::ios_base::goodbit ||
        !krl_internal::has_classic_locale(_s)) {
      _s >> std::ws;
      return;
    }
    int c = _sb->sgetc();
    while (c != kEof && krl_internal::is_space(c)) c = _sb->snextc();
    if (c == kEof) _s.setstate(std::ios_base::eofbit);
  }
  // Moves the characters that stand for themselves inside quotes from the
  // stream buffer's get area to sink, as many as it has room for, and returns
  // how many. 0 at a special character, at the end, or when not direct.
  template <class Sink>
  std::size_t take_run(Sink& sink) {
    if (!_direct || _s.rdstate() != std::ios_base::goodbit) return 0;
    if (GetArea::next(_sb) == GetArea::end(_sb) && _sb->sgetc() == kEof) return 0;
    const char* g = GetArea::next(_sb);
    std::size_t n = static_cast<std::size_t>(GetArea::end(_sb) - g);
    if (n > sink.room_left()) n = sink.room_left();
    if (n > kMaxRun) n = kMaxRun;
    const std::size_t k = plain_run(g, n);
    sink.put_run(g, k);
    GetArea::bump(_sb, static_cast<int>(k));
    return k;
  }
  void unget() { _s.unget(); }
  std::istream& stream() { return _s; }

 private:
  std::istream& _s;
  std::streambuf* _sb;
  const bool _direct;
};

// Where the characters of a quoted string go: a caller's buffer of fixed
// size, or a buffer that grows up to a limit.
class FixedSink {
 public:
  FixedSink(char* buf, unsigned int size) : _buf(buf), _size(size), _used(0) {}
  bool room() { return _used < _size; }
  std::size_t room_left() { return _size - _used; }
  void put(char c) { _buf[_used++] = c; }
  void put_run(const char* p, std::size_t n) {
    std::memcpy(_buf + _used, p, n);
    _used += static_cast<unsigned int>(n);
  }
  void terminate() { _buf[_used] = '\0'; }  // only with room()

 private:
  char* _buf;
  unsigned int _size;
  unsigned int _used;
};

class GrowingSink {
 public:
  explicit GrowingSink(unsigned int limit) : _limit(limit) { _buf.reserve(kTrustedLength); }
  bool room() { return _buf.size() < _limit; }
  std::size_t room_left() { return _limit - _buf.size(); }
  void put(char c) { _buf.push_back(c); }
  void put_run(const char* p, std::size_t n) { _buf.insert(_buf.end(), p, p + n); }
  void terminate() {}
  const std::vector<char>& text() const { return _buf; }

 private:
  std::vector<char> _buf;  // grows by doubling, so by what the input holds
  unsigned int _limit;
};

void report(const char* const* pieces, int n) {
  for (int i = 0; i < n; ++i) std::cerr << pieces[i];
  std::cerr.flush();
}

void report_eof() {
  static const char* const kText[] = {"KRListream::getCString: Unexpected EOF\n"};
  report(kText, 1);
}

// Up to two characters behind "\x", never a line feed, as
// istream::get(buf, 3, '\n') takes them; their value as "%2x" reads it, or 0
// when they start with no hexadecimal digit.
int read_hex_escape(CharReader& in) {
  char text[3] = {0, 0, 0};
  for (int i = 0; i < 2; ++i) {
    const int c = in.peek();
    if (c == kEof || c == '\n') break;
    text[i] = static_cast<char>(in.get());
  }
  unsigned int value = 0;
  // Two hex digits cannot overflow, and a failed scan reads as 0.
  if (std::sscanf(text, "%2x", &value) != 1) value = 0;  // NOLINT(cert-err34-c)
  return static_cast<int>(value & 0xFF);
}

// The byte of the escape whose second character is c; adds its extra offset.
int read_escape(CharReader& in, int c, long& offset) {
  switch (c) {
    case 'n':
      krl_internal::advance_offset(offset, 1);
      return '\n';
    case 't':
      krl_internal::advance_offset(offset, 1);
      return '\t';
    case 'b':
      krl_internal::advance_offset(offset, 1);
      return '\b';
    case 'r':
      krl_internal::advance_offset(offset, 1);
      return '\r';
    case 'f':
      krl_internal::advance_offset(offset, 1);
      return '\f';
    case '\\':
      krl_internal::advance_offset(offset, 1);
      return '\\';
    case '"':
      krl_internal::advance_offset(offset, 1);
      return '"';
    case '[':
      krl_internal::advance_offset(offset, 1);
      return '{';
    case ']':
      krl_internal::advance_offset(offset, 1);
      return '}';
    case 'x':
      krl_internal::advance_offset(offset, 4);
      return read_hex_escape(in);
    default:
      break;
  }
  // A decimal escape, ended by a delimiter that is dropped.
  in.unget();
  int value = 0;
  in.stream() >> value;
  in.get();
  krl_internal::advance_offset(offset, 1);
  return value & 0xFF;
}

// The quoted form into sink. Messages go to std::cerr as getCString states.
template <class Sink>
void read_quoted(CharReader& in, Sink& sink, long& offset) {
  in.skip_space();
  const int first = in.get();
  krl_internal::advance_offset(offset, 1);
  if (in.stream().eof()) return report_eof();
  if (first != '"') {
    static const char* const kText[] = {"KRListream::getCString: Error reading Object ",
                                        "from  stream. Make sure your 'write' ",
                                        "function and constructor from stream are ", "correct\n"};
    return report(kText, 4);
  }
  for (;;) {
    for (std::size_t run; (run = in.take_run(sink)) != 0;)
      krl_internal::advance_offset(offset, run);
    int c = in.get();
    if (c == kEof) return report_eof();
    if (c == '"') {
      if (sink.room()) {
        sink.terminate();
        in.get();  // the line feed behind the closing quote
        krl_internal::advance_offset(offset, 1);
      }
      return;
    }
    krl_internal::advance_offset(offset, 1);
    if (c == '\n') continue;
    if (!sink.room()) {
      static const char* const kText[] = {"KRListream::getCString: String Overflow\n"};
      return report(kText, 1);
    }
    if (c == '\\') {
      c = in.get();
      if (c == kEof) return report_eof();
      c = read_escape(in, c, offset);
    }
    sink.put(static_cast<char>(c));
  }
}

// The decimal length in front of a string, by the unsigned int extractor.
unsigned int read_length(std::istream& s) {
  unsigned int n = 0;
  if (!krl_internal::default_format(s)) {
    s >> n;
  } else if (krl_internal::skip_space(s)) {
    krl_internal::scan_integer(s, n);
  }
  return n;
}

}  // namespace

KRListream& KRListream::getCString(char* buf, unsigned int size) {
  CharReader in(*_strm);
  FixedSink sink(buf, size);
  read_quoted(in, sink, _offset);
  return *this;
}

// A string that getCString leaves unfinished is still a string: the whole
// buffer starts as zeros, so whatever is stored ends in a terminator.
KRListream& KRListream::operator>>(char*& s) {
  if (_strm == &std::cin) {
    if (s == nullptr) {
      std::cin.setstate(std::ios_base::failbit);
      return *this;
    }
    std::cin >> s;
    krl_internal::advance_offset(_offset, std::strlen(s));
    return *this;
  }
  const unsigned int n = read_length(*_strm);
  krl_internal::advance_offset(_offset, 4);
  CORBA::string_free(s);
  s = nullptr;
  if (n >= 2) {
    if (n > kTrustedLength) {
      s = read_long_string(n);
    } else {
      s = CORBA::string_alloc(n);
      std::memset(s, 0, n + 1UL);
      getCString(s, n);
    }
    // A line feed that ends a length without its terminator; anything else
    // stays for the next read. Peeking leaves a stream that has just ended
    // good, where a read would fail it.
    CharReader after(*_strm);
    if (after.peek() == '\n') after.get();
  } else if (n == 1) {
    const int c = _strm->peek();
    if (c == '"') {
      // The quoted empty string, read with room for 2 characters; one more
      // byte keeps a terminator behind them if the text holds 2.
      s = CORBA::string_alloc(2);
      std::memset(s, 0, 3);
      getCString(s, 2);
    } else {
      if (c != kEof) _strm->get();  // the separator
      s = CORBA::string_alloc(0);
      s[0] = '\0';
    }
  } else {
    _strm->get();
    krl_internal::advance_offset(_offset, 1);
  }
  return *this;
}

char* KRListream::read_long_string(unsigned int n) {
  CharReader in(*_strm);
  GrowingSink sink(n);
  read_quoted(in, sink, _offset);
  const std::vector<char>& text = sink.text();
  char* s = CORBA::string_alloc(text.size());
  if (!text.empty()) std::memcpy(s, text.data(), text.size());
  s[text.size()] = '\0';
  return s;
}

// Reads the count, then the units through the virtual get(s, n). The text of
// a count that fails to parse is 0: then nothing is read but the separator.
KRListream& KRListream::operator>>(unsigned short*& s) {
  unsigned long n = 0;
  if (!krl_internal::default_format(*_strm)) {
    *_strm >> n;
  } else if (krl_internal::skip_space(*_strm)) {
    krl_internal::scan_integer(*_strm, n);
  }
  if (s == nullptr) {
    if (n > kTrustedUnits) {
      s = read_new_wide(n);
      krl_internal::advance_offset(_offset, 2 * n);
      return *this;
    }
    s = static_cast<unsigned short*>(::operator new((n + 1) * sizeof(unsigned short)));
    std::memset(s, 0, (n + 1) * sizeof(unsigned short));
  }
  get(s, static_cast<unsigned int>(n));
  krl_internal::advance_offset(_offset, 2 * n);
  return *this;
}

// get(unsigned short*, n) for a count too large to trust, through the virtual
// get in pieces of kTrustedUnits units: the buffer grows only while the stream
// is good and says the next piece is there. The offset grows as for a single
// call of the text form (2 for each unit, 1 for the separator), since each
// piece added a separator of its own. Returns the units read, a 0 behind them.
unsigned short* KRListream::read_new_wide(unsigned long n) {
  std::vector<unsigned short> units;
  unsigned long left = n;
  unsigned long pieces = 0;
  do {
    const unsigned int step =
        static_cast<unsigned int>(left < kTrustedUnits ? left : kTrustedUnits);
    const std::size_t done = units.size();
    units.resize(done + step);
    get(units.data() + done, step);
    ++pieces;
    left -= step;
  } while (left != 0 && _strm->good() && is_available(2 * std::min(left, kTrustedUnits)) != 0);
  krl_internal::advance_offset(_offset, 2 * left - (pieces - 1));
  auto* s =
      static_cast<unsigned short*>(::operator new((units.size() + 1) * sizeof(unsigned short)));
  if (!units.empty()) std::memcpy(s, units.data(), units.size() * sizeof(unsigned short));
  s[units.size()] = 0;
  return s;
}
