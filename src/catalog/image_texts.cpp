#include "catalog/image_texts.h"

std::string_view ImageTexts::Keep(std::string_view row) {
  auto* const copy = static_cast<char*>(memory_.allocate(row.size(), alignof(char)));
  return {copy, row.copy(copy, row.size())};
}
