// Costs on the audio thread per host block of 480 frames (10 ms at 48 kHz):
// the mixing kernels of the bypass path and block adaption, each beside a
// plain copy of the same data as the floor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessblock.h"
#include "audio/zormixkernels.h"

namespace {

constexpr uint32_t kHostFrames = 480;

std::vector<float> Noise(size_t count) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  std::vector<float> samples(count);
  for (float& sample : samples) {
    sample = value(random);
  }
  return samples;
}

void Mix(benchmark::State& state, ZORMixKernel kernel, uint32_t inChannels, uint32_t outChannels) {
  const std::vector<float> source = Noise(size_t{kHostFrames} * inChannels);
  std::vector<float> target(size_t{kHostFrames} * outChannels);
  for (auto _ : state) {
    kernel(source.data(), target.data(), kHostFrames);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kHostFrames);
}

// The floor for any stage: moving the host block once.
void CopyBlock(benchmark::State& state) {
  const auto channels = static_cast<uint32_t>(state.range(0));
  const std::vector<float> source = Noise(size_t{kHostFrames} * channels);
  std::vector<float> target(source.size());
  for (auto _ : state) {
    std::memcpy(target.data(), source.data(), source.size() * sizeof(float));
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kHostFrames);
}

// A fixed-block stage that does no work of its own, so that what is measured
// is the adaption around it.
class PassStage : public ZORAudioProcessBlock {
 public:
  bool Init(uint32_t, uint32_t) override { return true; }
  void SetBypass(bool) override {}
  bool GetBypass() const override { return false; }

 protected:
  void ProcessBlock(IZORAudioData<float>* data) override {
    benchmark::DoNotOptimize(data->GetData(false, false));
    data->ReleaseData();
  }
};

// As the manager drives it: the engine's interleaved buffer copied in, the
// stage run, the result read back interleaved.
void ProcessBlockAdaption(benchmark::State& state) {
  const auto blockFrames = static_cast<uint32_t>(state.range(0));
  constexpr uint32_t kChannels = 2;
  const std::vector<float> engine = Noise(size_t{kHostFrames} * kChannels);
  PassStage stage;
  stage.SetBlockSize(blockFrames, kChannels);
  ZORAudioDataFloat host;
  for (auto _ : state) {
    host.AssignMemory(engine.data(), kHostFrames, kChannels, true, 48000);
    stage.Process(&host);
    benchmark::DoNotOptimize(host.GetData(false, true));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kHostFrames);
}

}  // namespace

// The in-place folds of the downmix stage, on a block of their own width.
void MixInPlace(benchmark::State& state, ZORMixInPlaceKernel kernel, uint32_t channels) {
  const std::vector<float> source = Noise(size_t{kHostFrames} * channels);
  std::vector<float> block(source.size());
  for (auto _ : state) {
    // Refilled each time, so that every run folds the same audio; the copy
    // is the CopyBlock floor of the same width.
    std::memcpy(block.data(), source.data(), source.size() * sizeof(float));
    kernel(block.data(), kHostFrames);
    benchmark::DoNotOptimize(block.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kHostFrames);
}

BENCHMARK_CAPTURE(Mix, 6to2, &ZORMix51ToStereo, 6, 2);
BENCHMARK_CAPTURE(MixInPlace, 6to2_in_place, &ZORMixInPlace51ToStereo, 6);
BENCHMARK_CAPTURE(MixInPlace, 2to1_in_place, &ZORMixInPlaceStereoToMono, 2);
BENCHMARK_CAPTURE(MixInPlace, 1to2_in_place, &ZORMixInPlaceMonoToBoth, 2);
BENCHMARK_CAPTURE(Mix, 8to6, &ZORMix71To51, 8, 6);
BENCHMARK(CopyBlock)->Arg(6)->Arg(8)->Arg(2);
BENCHMARK(ProcessBlockAdaption)->Arg(0)->Arg(128)->Arg(480);

BENCHMARK_MAIN();
