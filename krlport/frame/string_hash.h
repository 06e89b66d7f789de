// The string hash of dictionary keys, shared by narrow and wide texts.
#ifndef KRLPORT_FRAME_STRING_HASH_H_
#define KRLPORT_FRAME_STRING_HASH_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

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

// The same hash of a narrow text of n bytes, eight bytes at a time.
//
// Unrolled, the loop above gives h = XOR over the bytes c of sext(c) << d,
// modulo 2^32, where d is the byte's distance from the end (0 for the last
// byte). Bytes 32 or more from the end shift out entirely, so only the last 32
// count. Split sext(c) = c ^ (0xFFFFFF00 if c >= 0x80): the zero-extended
// bytes give XOR of c << d, which shift_xor_block forms eight bytes at a time;
// each byte from 0x80 up adds 0xFFFFFF00 << d, the bits from d + 8 up, and
// those sum (in xor) to the prefix parity of the mask of such bytes, shifted
// left by 8.

// For eight bytes b0..b7 in the little-endian word x (b7 the last):
// XOR of b_i << (7 - i), by pairs, then quads, then the two halves.
inline std::uint32_t shift_xor_block(std::uint64_t x) {
  constexpr std::uint64_t kBytes = 0x00FF00FF00FF00FFull;
  constexpr std::uint64_t kPairs = 0x0000FFFF0000FFFFull;
  const std::uint64_t pairs = ((x & kBytes) << 1) ^ ((x >> 8) & kBytes);           // 9 bits a lane
  const std::uint64_t quads = ((pairs & kPairs) << 2) ^ ((pairs >> 16) & kPairs);  // 11 bits
  return static_cast<std::uint32_t>((quads << 4) ^ (quads >> 32));
}

// shift_xor_block for a word whose bytes are all below 0x80. Doubling such
// a byte, or a pair of them, never carries out of its lane, so each step
// needs one mask instead of two.
inline std::uint32_t shift_xor_block_ascii(std::uint64_t x) {
  const std::uint64_t pairs = ((x << 1) ^ (x >> 8)) & 0x00FF00FF00FF00FFull;  // 8 bits a lane
  const std::uint64_t quads = ((pairs << 2) ^ (pairs >> 16)) & 0x000003FF000003FFull;  // 10 bits
  return static_cast<std::uint32_t>((quads << 4) ^ (quads >> 32));
}

// Bit 7 - i set for each byte b_i of x from 0x80 up. The multiplication
// moves bit 8i to bit 63 - i with no carry into the top byte.
inline std::uint32_t shift_xor_signs(std::uint64_t x) {
  return static_cast<std::uint32_t>((((x >> 7) & 0x0101010101010101ull) * 0x8040201008040201ull) >>
                                    56);
}

#if defined(_WIN32) || (defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
constexpr bool kLittleEndian = true;
#else
constexpr bool kLittleEndian = false;  // the byte loop only
#endif

inline std::uint64_t load_le64(const char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// shift_xor_hash of the n bytes at s, which end in a terminator.
inline unsigned long shift_xor_hash(const char* s, std::size_t n) {
  if (!kLittleEndian || n < 8) return shift_xor_hash(s);
  const char* const end = s + n;
  const std::size_t window = n < 32 ? n : 32;
  std::uint32_t h = 0;
  std::uint32_t high = 0;  // bit d: the byte at distance d is from 0x80 up
  for (std::size_t m = 0; 8 * m < window; ++m) {
    // Block m: the bytes at distances 8m to 8m + 7. A last, partial block is
    // the text's first word shifted up, the bytes of block m - 1 out.
    const std::uint64_t x = 8 * (m + 1) <= window ? load_le64(end - 8 * (m + 1))
                                                  : load_le64(s) << (8 * (8 * (m + 1) - n));
    h ^= shift_xor_block(x) << (8 * m);
    if ((x & 0x8080808080808080ull) != 0) high |= shift_xor_signs(x) << (8 * m);
  }
  std::uint32_t fill = high << 8;  // bit j: parity of the high bytes at distance <= j - 8
  fill ^= fill << 1;
  fill ^= fill << 2;
  fill ^= fill << 4;
  fill ^= fill << 8;
  fill ^= fill << 16;
  return (h ^ fill) & 0x7FFFFFFFu;
}

// CORBA::hash of the text at s (not null), in one pass from its start, so
// that no strlen has to finish first. Rolled over a word of eight bytes
// b0..b7 the byte loop turns h into (h << 8) ^ XOR of sext(b_i) << (7 - i);
// for bytes below 0x80 that is shift_xor_block_ascii. A text with a byte
// from 0x80 up is rare (ids never have one) and takes the fold above once
// its length is known.
//
// The reads are aligned words. Such a word never straddles two pages, so
// reading the whole word that holds the first byte or the terminator is safe
// wherever the text lies; the bytes before s and after the terminator in it
// are masked out and do not change the result. The sanitizers would still
// report those bytes (or a racing write to them) as out of bounds, hence
// their exemption here, and here only.
#if defined(__GNUC__)
// Out of line, so that the common case needs no saved registers.
__attribute__((noinline, cold)) inline unsigned long shift_xor_hash_rare(const char* s,
                                                                         std::size_t n) {
  return shift_xor_hash(s, n);
}

__attribute__((no_sanitize("address", "thread"))) inline unsigned long shift_xor_hash_text(
    const char* s) {
  if (!kLittleEndian) return shift_xor_hash(s, std::strlen(s));
  typedef std::uint64_t Word __attribute__((may_alias));
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  constexpr std::uint64_t kHighs = 0x8080808080808080ull;
  const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(s);
  const auto offset = static_cast<unsigned>(address & 7);
  const char* p = reinterpret_cast<const char*>(address - offset);
  // The bytes before s count as zeros in the fold (h is still 0 there) and as
  // non-zero in the search for the terminator.
  const std::uint64_t before = (std::uint64_t{1} << (8 * offset)) - 1;
  std::uint64_t x = *reinterpret_cast<const Word*>(p) & ~before;
  std::uint64_t probe = x | before;
  std::uint64_t h = 0;  // exact in its low 32 bits, the only ones kept
  std::uint64_t seen = 0;
  std::uint64_t zeros;
  while ((zeros = (probe - kOnes) & ~probe & kHighs) == 0) {
    h = (h << 8) ^ shift_xor_block_ascii(x);
    seen |= x;
    p += 8;
    x = probe = *reinterpret_cast<const Word*>(p);
  }
  // The lowest flag is the terminator's; the k bytes below it end the text.
  // The mask is made from k, not from the flags, whose bits above the
  // terminator valgrind takes as undefined where the bytes lie past a block.
  const auto k = static_cast<unsigned>(__builtin_ctzll(zeros)) / 8;
  const std::uint64_t tail = x & ((std::uint64_t{1} << (8 * k)) - 1);
  if (((seen | tail) & kHighs) != 0)
    return shift_xor_hash_rare(s, static_cast<std::size_t>(p + k - s));
  // Folding the tail as a whole word shifts everything 8 - k places too far.
  return static_cast<unsigned long>(((h << 8) ^ shift_xor_block_ascii(tail)) >> (8 - k)) &
         0x7FFFFFFFu;
}
#else
inline unsigned long shift_xor_hash_text(const char* s) {
  return shift_xor_hash(s, std::strlen(s));
}
#endif

}  // namespace krl_internal

#endif  // KRLPORT_FRAME_STRING_HASH_H_
