// Times the inner loops with Google Benchmark, without the product's commands and their pipes.

#include <benchmark/benchmark.h>

#include "inner_loops.h"

namespace {

void Register(const InnerLoop& loop) {
#ifndef __clang_analyzer__  // takes the registration, which lasts, for a leak
  const auto time_loop = [loop](benchmark::State& state) {
    while (state.KeepRunning()) {
      loop.run();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(loop.units));
  };
  benchmark::RegisterBenchmark(loop.name.c_str(), time_loop)->Unit(benchmark::kMillisecond);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  constexpr std::size_t kUnits = 100'000;
  benchmark::Initialize(&argc, argv);
  for (const InnerLoop& loop : InnerLoops(kUnits, FieldLength::kAsPrinted)) {
    Register(loop);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
