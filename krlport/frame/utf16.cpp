#include "krlport/frame/utf16.h"

namespace krl_internal {

std::size_t wide_length(const unsigned short* s) {
  const unsigned short* p = s;
  while (*p != 0) ++p;
  return static_cast<std::size_t>(p - s);
}

long wide_compare(const unsigned short* a, const unsigned short* b) {
  while (*a != 0 && *a == *b) {
    ++a;
    ++b;
  }
  return (*a > *b) - (*a < *b);
}

namespace {

void put_code_point(std::string& out, unsigned long cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

bool is_high_surrogate(unsigned short u) { return u >= 0xD800 && u <= 0xDBFF; }
bool is_low_surrogate(unsigned short u) { return u >= 0xDC00 && u <= 0xDFFF; }

}  // namespace

void append_utf8(std::string& out, const unsigned short* s, std::size_t n) {
  constexpr unsigned long kReplacement = 0xFFFD;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned short u = s[i];
    if (is_high_surrogate(u) && i + 1 < n && is_low_surrogate(s[i + 1])) {
      put_code_point(out, 0x10000 + ((u - 0xD800UL) << 10) + (s[i + 1] - 0xDC00UL));
      ++i;
    } else if (is_high_surrogate(u) || is_low_surrogate(u)) {
      put_code_point(out, kReplacement);
    } else {
      put_code_point(out, u);
    }
  }
}

namespace {

// Length of the UTF-8 sequence that lead byte b starts, and the smallest code
// point that length may carry (anything less is an overlong form); 0 for a
// byte that can't start a sequence.
int utf8_sequence_length(unsigned char b, unsigned long& min_cp) {
  min_cp = 0;
  if (b < 0x80) return 1;
  if (b >= 0xC2 && b <= 0xDF) {
    min_cp = 0x80;
    return 2;
  }
  if (b >= 0xE0 && b <= 0xEF) {
    min_cp = 0x800;
    return 3;
  }
  if (b >= 0xF0 && b <= 0xF4) {
    min_cp = 0x10000;
    return 4;
  }
  return 0;
}

}  // namespace

bool utf8_to_utf16(const char* s, std::size_t n, unsigned short* out) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(s);
  std::size_t i = 0;
  while (i < n) {
    unsigned long min_cp = 0;
    const int len = utf8_sequence_length(p[i], min_cp);
    if (len == 0 || n - i < static_cast<std::size_t>(len)) return false;
    unsigned long cp = len == 1 ? p[i] : p[i] & (0x7F >> len);
    for (int k = 1; k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (p[i + k] & 0x3F);
    }
    if (cp < min_cp || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      *out++ = static_cast<unsigned short>(0xD800 + (cp >> 10));
      *out++ = static_cast<unsigned short>(0xDC00 + (cp & 0x3FF));
    } else {
      *out++ = static_cast<unsigned short>(cp);
    }
    i += static_cast<std::size_t>(len);
  }
  *out = 0;
  return true;
}

}  // namespace krl_internal
