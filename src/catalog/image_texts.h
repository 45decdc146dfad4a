#ifndef QUILLMERE_CATALOG_IMAGE_TEXTS_H_
#define QUILLMERE_CATALOG_IMAGE_TEXTS_H_

#include <cstddef>
#include <memory_resource>
#include <string_view>

#include "host/huge_pages.h"

/// The rows of a listing, to which its records refer. They stay in their places until all of them
/// go with the object.
class ImageTexts {
 public:
  /// A copy of `row` that lives as long as this object.
  std::string_view Keep(std::string_view row);

 private:
  static constexpr std::size_t kFirstBlockSize = std::size_t{64} * 1024;  // bytes

  std::pmr::monotonic_buffer_resource memory_{kFirstBlockSize, HugePageMemory()};
};

#endif  // QUILLMERE_CATALOG_IMAGE_TEXTS_H_
