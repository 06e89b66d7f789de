// Internal helpers for wide strings, which are arrays of 16-bit units
// (wchar_t is 32 bits on Linux, so the C library's wcs* functions do not fit).
#ifndef KRLPORT_FRAME_UTF16_H_
#define KRLPORT_FRAME_UTF16_H_

#include <cstddef>
#include <string>

namespace krl_internal {

// Units before the terminating zero.
std::size_t wide_length(const unsigned short* s);

// Orders two non-null wide strings unit by unit: -1, 0 or 1.
long wide_compare(const unsigned short* a, const unsigned short* b);

// Appends the UTF-8 form of a UTF-16 text of n units to out. A surrogate
// without its partner becomes U+FFFD.
void append_utf8(std::string& out, const unsigned short* s, std::size_t n);

}  // namespace krl_internal

#endif  // KRLPORT_FRAME_UTF16_H_
