#include "archive/text_search.h"

#include <string>

#include <gtest/gtest.h>

TEST(TextSearch, FindsWhatIsThereFirst) {
  for (const std::string wanted : {"a", "ab", "aba", "abababababababababab"}) {
    for (std::size_t size = 0; size < 70; ++size) {
      for (std::size_t place = 0; place <= size; ++place) {
        // Its first byte stands everywhere, and its last one often.
        std::string text(size, 'a');
        for (std::size_t i = 2; i < size; i += 3) {
          text[i] = wanted.back();
        }
        text.insert(place, wanted);
        for (const std::size_t from : {std::size_t{0}, place / 2, place, place + 1}) {
          EXPECT_EQ(FindText(text, wanted, from), text.find(wanted, from))
              << text << ' ' << wanted << ' ' << from;
        }
      }
    }
  }
}

TEST(TextSearch, FindsNothingBehindTheText) {
  const std::string text = std::string(40, 'x') + "ab";
  EXPECT_EQ(FindText(std::string_view(text).substr(0, 41), "ab", 0), std::string_view::npos);
  EXPECT_EQ(FindText("", "ab", 0), std::string_view::npos);
  EXPECT_EQ(FindText("a", "ab", 0), std::string_view::npos);
}
