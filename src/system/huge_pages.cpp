#include "system/huge_pages.h"

#include <sys/mman.h>

#include <memory>

void PreferHugePages(void* begin, std::size_t size) {
  constexpr std::size_t kHugePageSize = std::size_t{2} * 1024 * 1024;  // bytes
  if (std::align(kHugePageSize, kHugePageSize, begin, size) != nullptr) {
    madvise(begin, size / kHugePageSize * kHugePageSize, MADV_HUGEPAGE);
  }
}
