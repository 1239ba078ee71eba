// Costs of the settings path: blob writing and reading for a set of the size
// a control panel keeps, the echo merge that ends a registry round trip, and
// the float and double text that every saved value goes through.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "values/velfixedtext.h"
#include "values/zorpropertyset.h"

namespace {

// `count` properties, mixed as real settings are: mostly numbers and text.
void Fill(ZORPropertySet& set, int count) {
  for (int i = 0; i < count; ++i) {
    const std::string narrow = "MFX:Corvo-Control " + std::to_string(i);
    const std::u16string name(narrow.begin(), narrow.end());
    switch (i % 4) {
      case 0: set.SetPropertyLong(name, i); break;
      case 1: set.SetPropertyAString(name, "Enabled"); break;
      case 2: set.SetPropertyWString(name, u"Headphone Name " + name); break;
      default: set.SetProperty(name, VELAnyValFloat(static_cast<float>(i) * 0.1f)); break;
    }
  }
}

void BM_WriteBlob(benchmark::State& state) {
  ZORPropertySet set;
  Fill(set, static_cast<int>(state.range(0)));
  std::vector<uint8_t> blob;
  for (auto _ : state) {
    set.GetAllPropertiesBinary(blob);
    benchmark::DoNotOptimize(blob.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blob.size()));
}
BENCHMARK(BM_WriteBlob)->Arg(8)->Arg(64);

void BM_ReadBlob(benchmark::State& state) {
  ZORPropertySet source;
  Fill(source, static_cast<int>(state.range(0)));
  std::vector<uint8_t> blob;
  source.GetAllPropertiesBinary(blob);
  ZORPropertySet target;
  for (auto _ : state) {
    benchmark::DoNotOptimize(target.SetAllPropertiesBinary(blob));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blob.size()));
}
BENCHMARK(BM_ReadBlob)->Arg(8)->Arg(64);

// A watcher reloading its own write: every property is found equal.
void BM_MergeUnchangedBlob(benchmark::State& state) {
  ZORPropertySet set;
  Fill(set, static_cast<int>(state.range(0)));
  std::vector<uint8_t> blob;
  set.GetAllPropertiesBinary(blob);
  for (auto _ : state) set.MergePropertiesBinary(blob, true, false);
}
BENCHMARK(BM_MergeUnchangedBlob)->Arg(8)->Arg(64);

void BM_DoubleText(benchmark::State& state) {
  std::string text;
  double value = 2.0 / 15.0;
  for (auto _ : state) {
    VELFormatFixed(value, 17, text);
    benchmark::DoNotOptimize(text.data());
    value += 1.0;
  }
}
BENCHMARK(BM_DoubleText);

void BM_LargeDoubleText(benchmark::State& state) {
  std::string text;
  for (auto _ : state) {
    VELFormatFixed(1.7e308, 17, text);
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(BM_LargeDoubleText);

}  // namespace

BENCHMARK_MAIN();
