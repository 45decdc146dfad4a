#include "host/huge_pages.h"

#include <sys/mman.h>

#include <memory>

namespace {

constexpr std::size_t kHugePageSize = std::size_t{2} * 1024 * 1024;  // bytes

class HugePageResource : public std::pmr::memory_resource {
  void* do_allocate(std::size_t size, std::size_t alignment) override {
    void* const begin = std::pmr::new_delete_resource()->allocate(size, alignment);
    PreferHugePages(begin, size);
    return begin;
  }

  void do_deallocate(void* begin, std::size_t size, std::size_t alignment) override {
    std::pmr::new_delete_resource()->deallocate(begin, size, alignment);
  }

  [[nodiscard]] bool do_is_equal(const memory_resource& other) const noexcept override {
    return this == &other;
  }
};

HugePageResource resource;

}  // namespace

void PreferHugePages(void* begin, std::size_t size) {
  if (std::align(kHugePageSize, kHugePageSize, begin, size) != nullptr) {
    madvise(begin, size / kHugePageSize * kHugePageSize, MADV_HUGEPAGE);
  }
}

std::pmr::memory_resource* HugePageMemory() {
  return &resource;
}
