#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "krlport/frame/corba.h"
#include "krlport/frame/string_var.h"
#include "krlport/frame/string_wrapper.h"
#include "krlport/frame/utf16.h"

namespace {

// One unit exists for the terminator; null passes through.
TEST(CorbaStringTest, AllocOfZeroAndNulls) {
  char* p = CORBA::string_alloc(0);
  p[0] = 0;
  CORBA::string_free(p);
  unsigned short* w = CORBA::wstring_alloc(0);
  w[0] = 0;
  CORBA::wstring_free(w);
  EXPECT_EQ(CORBA::string_dup(nullptr), nullptr);
  EXPECT_EQ(CORBA::wstring_dup(nullptr), nullptr);
  CORBA::string_free(nullptr);
  CORBA::wstring_free(nullptr);
  CORBA::string_free(CORBA_String_var()._retn());  // the shared empty string: not freed
}

// len + 1 and 2 * len + 2 used to wrap to buffers of 0 or 2 bytes.
// On Windows (32-bit long) the sizes are counted in std::size_t, so they do not
// wrap either, and a buffer larger than an unsigned long counts is refused.
TEST(CorbaStringTest, AllocWithALengthWhoseSizeDoesNotFitThrowsBadAlloc) {
  constexpr auto kHuge =  // PTRDIFF_MAX, where an unsigned long holds it
      static_cast<unsigned long>(std::min<std::uintmax_t>(PTRDIFF_MAX, ULONG_MAX));
  EXPECT_THROW(CORBA::string_alloc(~0UL), std::bad_alloc);
  EXPECT_THROW(CORBA::string_alloc(kHuge), std::bad_alloc);
  EXPECT_THROW(CORBA::wstring_alloc(~0UL), std::bad_alloc);
  EXPECT_THROW(CORBA::wstring_alloc(~0UL / 2), std::bad_alloc);
  EXPECT_THROW(CORBA::wstring_alloc(kHuge / 2), std::bad_alloc);
}

TEST(CorbaStringTest, HashIsShiftXorOfSignExtendedBytes) {
  EXPECT_EQ(CORBA::hash("abc"), 0x123UL);
  EXPECT_EQ(CORBA::hash("\xFF"), 0x7FFFFFFFUL);  // kept to 31 bits where long has 64
  EXPECT_EQ(CORBA::hash(nullptr), 0UL);
}

// The hash reads the text a word at a time, so neither where the text lies
// nor the bytes around it may change its value. Every length 0 to 80 (every
// partial word, texts longer than the 32 bytes that count) at every offset
// 0 to 15 within a buffer of random bytes, and ending with its terminator as
// the last byte of a 4096-byte block; bytes drawn from the whole range, from
// 0x80 up only, and ASCII only.
TEST(CorbaStringTest, HashMatchesTheByteLoopWhereverTheTextLies) {
  const auto by_bytes = [](const char* text) {
    std::uint32_t h = 0;
    for (; *text != 0; ++text)
      h = (h << 1) ^ static_cast<std::uint32_t>(static_cast<signed char>(*text));
    return static_cast<unsigned long>(h & 0x7FFFFFFF);
  };
  struct alignas(4096) Blocks {
    char bytes[2 * 4096];
  };
  const std::unique_ptr<Blocks> blocks(new Blocks);
  char* const block_end = blocks->bytes + 4096;
  std::mt19937 rng(14);
  for (int round = 0; round < 12; ++round) {
    const unsigned low = round % 3 == 1 ? 0x80 : 1, high = round % 3 == 2 ? 0x7F : 0xFF;
    for (std::size_t length = 0; length <= 80; ++length) {
      for (std::size_t place = 0; place <= 16; ++place) {
        char* const text = place < 16 ? blocks->bytes + 64 + place : block_end - 1 - length;
        for (char* p = text - 16; p < text + length + 16; ++p) *p = static_cast<char>(rng());
        for (std::size_t i = 0; i < length; ++i)
          text[i] = static_cast<char>(low + rng() % (high - low + 1));
        text[length] = 0;
        ASSERT_EQ(CORBA::hash(text), by_bytes(text)) << round << " " << length << " " << place;
        ASSERT_EQ(_krl_hash(KRLStringWrapper(text)), by_bytes(text)) << round << " " << length;
      }
      // The last text again, in a heap block of its own size, whose end the
      // sanitizers watch.
      const std::unique_ptr<char[]> alone(new char[length + 1]);
      std::memcpy(alone.get(), block_end - 1 - length, length + 1);
      ASSERT_EQ(CORBA::hash(alone.get()), by_bytes(alone.get())) << round << " " << length;
    }
  }
}

TEST(CorbaStringTest, CompareOrdersNilFirstAndBytesUnsigned) {
  const KRLStringWrapper nil, empty(""), a("A"), e9("\xE9"), ab("AB");
  EXPECT_EQ(compare(nil, nil), 0);
  EXPECT_EQ(compare(nil, empty), -1);
  EXPECT_EQ(compare(empty, nil), 1);
  EXPECT_EQ(compare(e9, a), 1);
  EXPECT_EQ(compare(a, e9), -1);
  EXPECT_EQ(compare(a, ab), -1);
  EXPECT_EQ(compare(ab, KRLStringWrapper("AB")), 0);
  // The key protocol works through the holders too.
  EXPECT_EQ(compare(CORBA_String_var(static_cast<char*>(nullptr)), CORBA_String_var()), -1);
  EXPECT_EQ(compare(CORBA_String_var("\xE9"), CORBA_String_var("A")), 1);
  EXPECT_EQ(_krl_hash(CORBA_String_var("abc")), 0x123UL);
  EXPECT_EQ(_krl_hash(KRLStringWrapper()), 0UL);
  // The dictionary's inline equality agrees with compare == 0.
  const KRLStringWrapper all[] = {nil, empty, a, e9, ab, KRLStringWrapper("AC")};
  for (const KRLStringWrapper& x : all)
    for (const KRLStringWrapper& y : all)
      EXPECT_EQ(krl_dictionary_equal(x, y), compare(x, y) == 0) << x._str << " " << y._str;
  EXPECT_TRUE(krl_dictionary_equal(ab, KRLStringWrapper("AB")));
}

TEST(Utf16Test, Utf8FormReplacesLoneSurrogates) {
  const unsigned short text[] = {'a', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xD800, 'b', 0xDC00, 0};
  std::string out;
  krl_internal::append_utf8(out, text, krl_internal::wide_length(text));
  EXPECT_EQ(out,
            "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  const unsigned short lo[] = {'a', 0}, hi[] = {0xFFFF, 0};
  EXPECT_EQ(krl_internal::wide_compare(lo, hi), -1);
  EXPECT_EQ(krl_internal::wide_compare(hi, lo), 1);
  EXPECT_EQ(krl_internal::wide_compare(lo, lo), 0);
}

}  // namespace
