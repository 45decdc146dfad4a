// Goes once through each inner loop and prints what it allocates: a line of its name, its unit, the
// number of units, of allocations, and of bytes that it holds at its peak, separated by tabs.
// Under callgrind each loop ends with a dump of its own that bears its name.

#include <malloc.h>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_DUMP_STATS_AT(name)
#endif

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <new>

#include "inner_loops.h"

namespace {

struct {
  std::size_t allocations = 0;
  std::size_t held = 0;  // bytes
  std::size_t peak = 0;
} counts;

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  ++counts.allocations;
  counts.held += malloc_usable_size(memory);
  counts.peak = std::max(counts.peak, counts.held);
  return memory;
}

void operator delete(void* memory) noexcept {
  counts.held -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
}

// The macros of Valgrind nest deeply.
int main() {  // NOLINT(readability-function-size)
  constexpr std::size_t kUnits = 20'000;
  for (const InnerLoop& loop : InnerLoops(kUnits, FieldLength::kBeyondSmallText)) {
    const std::size_t held = counts.held;
    counts.peak = held;
    counts.allocations = 0;
    CALLGRIND_DUMP_STATS_AT("between loops");
    loop.run();
    CALLGRIND_DUMP_STATS_AT(loop.name.c_str());
    const auto result = counts;
    std::cout << loop.name << '\t' << loop.unit << '\t' << loop.units << '\t' << result.allocations
              << '\t' << result.peak - held << '\n';
  }
  return 0;
}
