// The audio thread's share of metering: one meter write per 480-frame block
// (10 ms at 48 kHz), with and without the peaks of the block it reports.
// The write must stay far below a block's budget; the aim is 100 ns.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "system/zoraposharedmeter.h"

namespace {

constexpr size_t kFrames = 480;

void BM_MeterWrite(benchmark::State& state) {
  ZORAPOSharedMeter meter;
  if (!meter.OpenCreateNamed(ZORAPOSharedMeter::BlockName(u"velapo bench", 0))) {
    state.SkipWithError("no meter");
  }
  std::vector<float> levels(static_cast<size_t>(state.range(0)), 0.5f);
  for (auto _ : state) {
    levels[0] = levels[0] > 0.9f ? 0.1f : levels[0] + 0.01f;
    benchmark::DoNotOptimize(meter.ReadWrite(levels, false));
  }
}
BENCHMARK(BM_MeterWrite)->Arg(2)->Arg(8);

// Peaks of a planar stereo block of 480 frames, then the write.
void BM_MeterPeaksAndWrite(benchmark::State& state) {
  ZORAPOSharedMeter meter;
  if (!meter.OpenCreateNamed(ZORAPOSharedMeter::BlockName(u"velapo bench", 1))) {
    state.SkipWithError("no meter");
  }
  std::vector<float> audio(2 * kFrames);
  for (size_t i = 0; i < audio.size(); ++i) audio[i] = std::sin(static_cast<float>(i) * 0.01f);
  std::vector<float> levels(2, 0.0f);
  for (auto _ : state) {
    for (size_t channel = 0; channel < 2; ++channel) {
      float peak = 0.0f;
      for (size_t frame = 0; frame < kFrames; ++frame) {
        peak = std::max(peak, std::fabs(audio[channel * kFrames + frame]));
      }
      levels[channel] = peak;
    }
    benchmark::DoNotOptimize(meter.ReadWrite(levels, false));
  }
}
BENCHMARK(BM_MeterPeaksAndWrite);

}  // namespace
BENCHMARK_MAIN();
