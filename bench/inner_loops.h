#ifndef QUILLMERE_BENCH_INNER_LOOPS_H_
#define QUILLMERE_BENCH_INNER_LOOPS_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "canned_product.h"

/// One of the loops in which a run of the tool spends its time. `run` goes through it once, on
/// `units` units, and may be called any number of times.
struct InnerLoop {
  std::string name;
  std::string unit;
  std::size_t units;
  std::function<void()> run;
};

/// All loops, on canned data of `units` rows or entries. Their standard output goes nowhere.
std::vector<InnerLoop> InnerLoops(std::size_t units, FieldLength length);

#endif  // QUILLMERE_BENCH_INNER_LOOPS_H_
