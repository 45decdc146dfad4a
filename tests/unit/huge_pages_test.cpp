// Which memory is to be in huge pages, as the kernel tells it.

#include "system/huge_pages.h"

#include <sys/mman.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

/// What the kernel notes of the mapping that holds `address`: "hg" where huge pages are preferred.
std::string FlagsAt(const char* address) {
  const auto wanted = reinterpret_cast<std::uintptr_t>(address);
  std::ifstream mappings("/proc/self/smaps");
  bool is_there = false;
  for (std::string line; std::getline(mappings, line);) {
    std::istringstream range(line);
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char dash = 0;
    if (range >> std::hex >> begin >> dash >> end && dash == '-') {
      is_there = begin <= wanted && wanted < end;
    } else if (is_there && line.starts_with("VmFlags:")) {
      return line + " ";
    }
  }
  return "";
}

bool IsPreferredAt(const char* address) {
  return FlagsAt(address).find(" hg ") != std::string::npos;
}

/// 8 MiB of fresh memory that begin at a multiple of 2 MiB.
class HugePages : public testing::Test {
 protected:
  HugePages() {
    void* const mapping =
        mmap(nullptr, 10 * kMiB, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(mapping, MAP_FAILED);
    mapping_ = static_cast<char*>(mapping);
    memory_ = mapping_ + (2 * kMiB - reinterpret_cast<std::uintptr_t>(mapping_) % (2 * kMiB));
  }

  ~HugePages() override { munmap(mapping_, 10 * kMiB); }

  HugePages(const HugePages&) = delete;
  HugePages& operator=(const HugePages&) = delete;

  void SetUp() override {
    if (madvise(memory_, 2 * kMiB, MADV_HUGEPAGE) != 0) {
      GTEST_SKIP() << "This kernel has no huge pages for ordinary memory.";
    }
    madvise(memory_, 2 * kMiB, MADV_NOHUGEPAGE);
  }

  [[nodiscard]] char* memory() const { return memory_; }

 private:
  char* mapping_ = nullptr;
  char* memory_ = nullptr;
};

TEST_F(HugePages, ArePreferredWhereWholeOnesFit) {
  PreferHugePages(memory() + 100, 6 * kMiB);
  EXPECT_FALSE(IsPreferredAt(memory()));
  EXPECT_TRUE(IsPreferredAt(memory() + 2 * kMiB));
  EXPECT_TRUE(IsPreferredAt(memory() + 6 * kMiB - 1));
  EXPECT_FALSE(IsPreferredAt(memory() + 6 * kMiB));
}

TEST_F(HugePages, FitFromTheFirstByteToTheLast) {
  PreferHugePages(memory() + 2 * kMiB, 2 * kMiB);
  EXPECT_FALSE(IsPreferredAt(memory() + 2 * kMiB - 1));
  EXPECT_TRUE(IsPreferredAt(memory() + 2 * kMiB));
  EXPECT_TRUE(IsPreferredAt(memory() + 4 * kMiB - 1));
  EXPECT_FALSE(IsPreferredAt(memory() + 4 * kMiB));
}

TEST_F(HugePages, NeedTwoMebibytes) {
  PreferHugePages(memory() + 2 * kMiB, 2 * kMiB - 1);
  PreferHugePages(memory() + 4 * kMiB + 1, 4 * kMiB - 2);
  PreferHugePages(memory() + 2 * kMiB, 0);
  EXPECT_FALSE(IsPreferredAt(memory() + 2 * kMiB));
  EXPECT_FALSE(IsPreferredAt(memory() + 4 * kMiB));
}

}  // namespace
