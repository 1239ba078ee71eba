// Costs of a settings block shared between processes: Write and Read of a
// 64-entry set through the block, each with its mutex taken and given back,
// as a tuning tool and a chain's 200 ms poll pay them.
#include <benchmark/benchmark.h>

#include <string>

#include "values/zorpropertysetsharedmem.h"

namespace {

void Fill(ZORPropertySet& set, int count) {
  for (int i = 0; i < count; ++i) {
    const std::string narrow = "MFX:Corvo-Control " + std::to_string(i);
    const std::u16string name(narrow.begin(), narrow.end());
    if (i % 2 == 0) {
      set.SetPropertyLong(name, i);
    } else {
      set.SetPropertyAString(name, "-12.5");
    }
  }
}

const std::u16string kBlockName = u"Local\\velapo-bench-settings";

void BM_SharedBlockWrite(benchmark::State& state) {
  ZORPropertySet set;
  Fill(set, static_cast<int>(state.range(0)));
  ZORPropertySetSharedMem block;
  block.SetPropertySet(&set);
  if (!block.Open(kBlockName, 0)) state.SkipWithError("no block");
  for (auto _ : state) benchmark::DoNotOptimize(block.Write());
}
BENCHMARK(BM_SharedBlockWrite)->Arg(64);

void BM_SharedBlockRead(benchmark::State& state) {
  ZORPropertySet set;
  Fill(set, static_cast<int>(state.range(0)));
  ZORPropertySetSharedMem block;
  block.SetPropertySet(&set);
  if (!block.Open(kBlockName, 0) || block.Write() != 0) state.SkipWithError("no block");
  const bool merge = state.range(1) != 0;
  for (auto _ : state) benchmark::DoNotOptimize(block.Read(merge, true, true));
}
// Replacing, and merging as a chain's poll does (every value unchanged).
BENCHMARK(BM_SharedBlockRead)->Args({64, 0})->Args({64, 1});

}  // namespace
BENCHMARK_MAIN();
