// Times the inner loops with Google Benchmark, without the product's commands and their pipes.

#include <benchmark/benchmark.h>

#include "inner_loops.h"

int main(int argc, char** argv) {
  constexpr std::size_t kUnits = 100'000;
  benchmark::Initialize(&argc, argv);
  for (const InnerLoop& loop : InnerLoops(kUnits, FieldLength::kAsPrinted)) {
    benchmark::RegisterBenchmark(loop.name.c_str(), [loop](benchmark::State& state) {
      while (state.KeepRunning()) {
        loop.run();
      }
      state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(loop.units));
    })->Unit(benchmark::kMillisecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
