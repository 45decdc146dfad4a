#include "catalog/image_texts.h"

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(ImageTexts, WhatIsKeptIsACopy) {
  ImageTexts texts;
  std::string row = "first";
  const std::string_view kept = texts.Keep(row);
  row = "other";
  EXPECT_EQ(kept, "first");
}

TEST(ImageTexts, NothingMovesWhenMoreIsKept) {
  ImageTexts texts;
  std::vector<std::string_view> kept;
  for (int i = 0; i < 100'000; ++i) {  // more than the first blocks hold
    kept.push_back(texts.Keep("row " + std::to_string(i)));
  }
  for (int i = 0; i < 100'000; ++i) {
    ASSERT_EQ(kept[static_cast<std::size_t>(i)], "row " + std::to_string(i));
  }
}

TEST(ImageTexts, AnyLengthIsKept) {
  using namespace std::string_literals;
  ImageTexts texts;
  const std::string long_row(5'000'000, 'x');
  const std::string_view nothing = texts.Keep("");
  const std::string_view kept = texts.Keep(long_row);
  EXPECT_EQ(nothing, "");
  EXPECT_TRUE(kept == long_row);
  EXPECT_EQ(texts.Keep("a\0b"s), "a\0b"s);
}

}  // namespace
