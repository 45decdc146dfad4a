// What a size text of the listing stands for.

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "catalog/backup_sets.h"

namespace {

/// `bytes` as it comes out modulo 2^64.
constexpr std::uint64_t Wrapped(std::int64_t bytes) {
  return static_cast<std::uint64_t>(bytes);
}

TEST(SizeText, EachUnitIs1024OfTheOneBefore) {
  EXPECT_EQ(BytesFromSize("1K"), 1024U);
  EXPECT_EQ(BytesFromSize("1M"), 1048576U);
  EXPECT_EQ(BytesFromSize("1G"), 1073741824U);
  EXPECT_EQ(BytesFromSize("1T"), 1099511627776U);
  EXPECT_EQ(BytesFromSize("1P"), 1125899906842624U);
}

TEST(SizeText, FractionsAreTruncatedToBytes) {
  EXPECT_EQ(BytesFromSize("1.5K"), 1536U);
  EXPECT_EQ(BytesFromSize("0.1K"), 102U);
  EXPECT_EQ(BytesFromSize("0.0009K"), 0U);
  EXPECT_EQ(BytesFromSize("0.999M"), 1047527U);
  EXPECT_EQ(BytesFromSize(".5K"), 512U);
  EXPECT_EQ(BytesFromSize("3.K"), 3072U);
  EXPECT_EQ(BytesFromSize("0K"), 0U);
}

TEST(SizeText, TheNumberIsWhatTheLibraryReads) {
  EXPECT_EQ(BytesFromSize("1e3K"), 1024000U);
  EXPECT_EQ(BytesFromSize("0x10K"), 16384U);
  EXPECT_EQ(BytesFromSize("0x1P"), 1125899906842624U);  // a unit, not an exponent
  EXPECT_EQ(BytesFromSize("+2K"), 2048U);
  EXPECT_EQ(BytesFromSize(" \t2K"), 2048U);
  EXPECT_EQ(BytesFromSize("2 K"), 2048U);
  EXPECT_EQ(BytesFromSize("2KK"), 2048U);
  EXPECT_EQ(BytesFromSize("2x7K"), 2048U);
  EXPECT_EQ(BytesFromSize("1,5K"), 1024U);
  EXPECT_EQ(BytesFromSize("1eK"), 1024U);
  EXPECT_EQ(BytesFromSize("1e-400K"), 0U);
  EXPECT_EQ(BytesFromSize("0.000000000000000000000000000001e30K"), 1024U);
}

TEST(SizeText, TextThatIsNoNumberCountsZero) {
  EXPECT_EQ(BytesFromSize(""), 0U);
  EXPECT_EQ(BytesFromSize("K"), 0U);
  EXPECT_EQ(BytesFromSize("P"), 0U);
  EXPECT_EQ(BytesFromSize("abcK"), 0U);
  EXPECT_EQ(BytesFromSize("-K"), 0U);
  EXPECT_EQ(BytesFromSize(".K"), 0U);
  EXPECT_EQ(BytesFromSize("_1K"), 0U);
}

TEST(SizeText, AnyOtherLastCharacterCountsZero) {
  EXPECT_EQ(BytesFromSize("512"), 0U);
  EXPECT_EQ(BytesFromSize("3k"), 0U);
  EXPECT_EQ(BytesFromSize("3K\n"), 0U);
  EXPECT_EQ(BytesFromSize("3KB"), 0U);
  for (int last = 1; last <= 0xFF; ++last) {
    const char c = static_cast<char>(last);
    if (std::string("KMGTP").find(c) == std::string::npos) {
      EXPECT_EQ(BytesFromSize(std::string("3") + c), 0U) << last;
    }
  }
}

TEST(SizeText, SizesReachTo64UnsignedBits) {
  EXPECT_EQ(BytesFromSize("8191P"), 9222246136947933184U);
  EXPECT_EQ(BytesFromSize("8192P"), 9223372036854775808U);    // 2^63
  EXPECT_EQ(BytesFromSize("12288P"), 13835058055282163712U);  // 3 * 2^62
  EXPECT_EQ(BytesFromSize("16383P"), 18445618173802708992U);
}

TEST(SizeText, SizesBeyond64BitsCountZero) {
  EXPECT_EQ(BytesFromSize("16384P"), 0U);  // 2^64
  EXPECT_EQ(BytesFromSize("1e300P"), 0U);
  EXPECT_EQ(BytesFromSize("1e400K"), 0U);
  EXPECT_EQ(BytesFromSize("infK"), 0U);
  EXPECT_EQ(BytesFromSize("nanK"), 0U);
}

TEST(SizeText, NegativeSizesWrap) {
  EXPECT_EQ(BytesFromSize("-1K"), Wrapped(-1024));
  EXPECT_EQ(BytesFromSize("-1.5K"), Wrapped(-1536));
  EXPECT_EQ(BytesFromSize("-0.1K"), Wrapped(-102));
  EXPECT_EQ(BytesFromSize("-0.0001K"), 0U);
  EXPECT_EQ(BytesFromSize("-0K"), 0U);
  EXPECT_EQ(BytesFromSize("-8192P"), 9223372036854775808U);   // -2^63
  EXPECT_EQ(BytesFromSize("-12288P"), 4611686018427387904U);  // -3 * 2^62
  EXPECT_EQ(BytesFromSize("-16383P"), 1125899906842624U);
}

TEST(SizeText, NegativeSizesBeyond64BitsCountZero) {
  EXPECT_EQ(BytesFromSize("-16384P"), 0U);  // -2^64
  EXPECT_EQ(BytesFromSize("-1e300P"), 0U);
  EXPECT_EQ(BytesFromSize("-infK"), 0U);
}

}  // namespace
