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

}  // namespace krl_internal
