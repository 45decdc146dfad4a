#include "export/packed_text.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "random_text.h"

namespace {

using testing::ElementsAre;

/// The pieces as they are read, each with its room checked.
std::vector<std::string> PiecesOf(const PackedText& text) {
  std::vector<std::string> pieces;
  text.ForEach([&pieces](std::string_view piece) {
    EXPECT_EQ(std::count(piece.end(), piece.end() + PackedText::kRoom, '\0'), PackedText::kRoom);
    pieces.emplace_back(piece);
  });
  return pieces;
}

TEST(PackedText, PiecesComeInTheirOrder) {
  PackedText text;
  EXPECT_THAT(PiecesOf(text), ElementsAre());
  text.Append("one");
  text.Append(std::string(1000, 'x'));
  text.Append(std::string("a\0b", 3));
  EXPECT_THAT(PiecesOf(text), ElementsAre("one", std::string(1000, 'x'), std::string("a\0b", 3)));
  EXPECT_THAT(PiecesOf(text), ElementsAre("one", std::string(1000, 'x'), std::string("a\0b", 3)));
}

TEST(PackedText, AnEmptyPieceIsNone) {
  PackedText text;
  text.Append("");
  text.Append("one");
  text.Append("");
  EXPECT_THAT(PiecesOf(text), ElementsAre("one"));
}

TEST(PackedText, WhatCannotBePackedIsHeldAllTheSame) {
  RandomText random(5);
  PackedText text;
  std::vector<std::string> pieces;
  for (const std::size_t size : {1U, 3000000U, 100U, 1048576U}) {
    pieces.push_back(random.Bytes(size, size));
    text.Append(pieces.back());
  }
  EXPECT_TRUE(PiecesOf(text) == pieces);
}

TEST(PackedText, HoldsMoreThanABlockAndPiecesLargerThanOne) {
  RandomText random(6);
  const std::string tile = random.Bytes(200000, 200000);  // too far apart to be found again
  std::string piece;
  for (int i = 0; i < 120; ++i) {
    piece += tile;
  }
  PackedText text;
  for (int i = 0; i < 3; ++i) {
    text.Append(piece);
  }
  const std::string large = piece + piece + piece;
  text.Append(large);
  EXPECT_TRUE(PiecesOf(text) == std::vector({piece, piece, piece, large}));
}

}  // namespace
