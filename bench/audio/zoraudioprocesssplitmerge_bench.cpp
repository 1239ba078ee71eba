// The parallel stage on a host block of 480 stereo frames with two stages,
// each a gain, so that the figure is the split and merge itself: two copies
// of the block, two sums and the gain pass.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "audio/zoraudioprocesssplitmerge.h"

namespace {

class GainStage : public IZORAudioProcess<float> {
 public:
  explicit GainStage(float gain) : m_gain(gain) {}
  bool Init(uint32_t, uint32_t) override { return true; }
  void SetBypass(bool) override {}
  bool GetBypass() const override { return false; }
  uint32_t GetLatency() const override { return 0; }
  void Process(IZORAudioData<float>* data) override {
    float* samples = data->GetData(true, false);
    for (uint32_t i = 0; i < data->GetSampleCount(); ++i) samples[i] *= m_gain;
    data->ReleaseData();
  }

 private:
  float m_gain;
};

void BM_SplitMergeTwoStages480Stereo(benchmark::State& state) {
  constexpr uint32_t kFrames = 480;
  std::mt19937 random(7);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  std::vector<float> input(kFrames * 2);
  for (float& sample : input) sample = value(random);

  GainStage first(0.5f);
  GainStage second(0.25f);
  ZORAudioProcessSplitMerge split;
  split.AddProcess(&first);
  split.AddProcess(&second);
  ZORAudioDataFloat data;
  for (auto _ : state) {
    // As the audio path hands a block over: interleaved, fresh each call.
    data.AssignMemory(input.data(), kFrames, 2, true, 48000);
    split.Process(&data);
    benchmark::DoNotOptimize(data.GetData(false, true));
    data.ReleaseData();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFrames);
}
BENCHMARK(BM_SplitMergeTwoStages480Stereo);

}  // namespace
