// The string hash of dictionary keys, shared by narrow and wide texts.
#ifndef KRLPORT_FRAME_STRING_HASH_H_
#define KRLPORT_FRAME_STRING_HASH_H_

#include <cstdint>

namespace krl_internal {

// Defined on 32 bits: for each unit, shift left by one and xor with the low
// byte of the unit sign-extended, so bytes from 0x80 up set all high bits; the
// result keeps 31 bits. "abc" gives 0x123 in either width. s is not null.
template <class Unit>
unsigned long shift_xor_hash(const Unit* s) {
  std::uint32_t h = 0;
  for (; *s != 0; ++s) {
    const auto low = static_cast<signed char>(static_cast<unsigned char>(*s & 0xFF));
    h = (h << 1) ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(low));
  }
  return h & 0x7FFFFFFFu;
}

}  // namespace krl_internal

#endif  // KRLPORT_FRAME_STRING_HASH_H_
