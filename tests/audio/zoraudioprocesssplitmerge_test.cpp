// The parallel stage: every stage on its own copy, sums over the overlap of
// shapes, the gain over the whole block, and no allocation once warm.
#include "audio/zoraudioprocesssplitmerge.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "allocationcounter.h"
#include "audiotesting.h"

namespace {

constexpr uint32_t kFrames = 8;
constexpr uint32_t kChannels = 2;
constexpr uint32_t kRate = 48000;

// A stage that does what its function says to the block it is given.
class ShapeStage : public IZORAudioProcess<float> {
 public:
  explicit ShapeStage(std::function<void(IZORAudioData<float>&)> act) : m_act(std::move(act)) {}
  bool Init(uint32_t, uint32_t) override { return true; }
  void SetBypass(bool) override {}
  bool GetBypass() const override { return false; }
  uint32_t GetLatency() const override { return 0; }
  void Process(IZORAudioData<float>* data) override { m_act(*data); }

 private:
  std::function<void(IZORAudioData<float>&)> m_act;
};

void Scale(IZORAudioData<float>& data, float factor) {
  float* samples = data.GetData(true, false);
  for (uint32_t i = 0; i < data.GetSampleCount(); ++i) samples[i] *= factor;
  data.ReleaseData();
}
const auto kPass = [](IZORAudioData<float>&) {};
const auto kTriple = [](IZORAudioData<float>& data) { Scale(data, 3.0f); };
const auto kNegate = [](IZORAudioData<float>& data) { Scale(data, -1.0f); };
// Keeps channel 0 only, as a stage with one output channel.
const auto kFirstChannel = [](IZORAudioData<float>& data) {
  std::vector<float> first(data.GetData(false, false), data.GetData(false, false) + data.GetFrames());
  data.ReleaseData();
  data.AssignMemory(first.data(), data.GetFrames(), 1, false, data.GetSampleRate());
};
// Returns only the first half of the frames.
const auto kHalfFrames = [](IZORAudioData<float>& data) { data.SetFrames(data.GetFrames() / 2); };
// Returns twice the frames, the added ones loud.
const auto kDoubleFrames = [](IZORAudioData<float>& data) {
  std::vector<float> longer(size_t{data.GetFrames()} * 2 * data.GetChannels(), 100.0f);
  const float* samples = data.GetData(false, true);
  std::copy(samples, samples + data.GetSampleCount(), longer.begin());
  data.ReleaseData();
  data.AssignMemory(longer.data(), data.GetFrames() * 2, data.GetChannels(), true, data.GetSampleRate());
};

struct Case {
  const char* name;
  std::vector<std::function<void(IZORAudioData<float>&)>> stages;
  float gain;
  bool bypass;
  // The output sample at (frame, channel) for the input sample x there.
  std::function<float(uint32_t frame, uint32_t channel, float x)> expected;
};

TEST(ZORAudioProcessSplitMergeTest, SumsEachStagesOwnCopyOverTheOverlapThenScales) {
  const Case cases[] = {
      {"no stages: silence", {}, 1.0f, false, [](uint32_t, uint32_t, float) { return 0.0f; }},
      {"two unchanged: doubled", {kPass, kPass}, 1.0f, false, [](uint32_t, uint32_t, float x) { return 2 * x; }},
      {"two unchanged at gain 0.5: unchanged", {kPass, kPass}, 0.5f, false,
       [](uint32_t, uint32_t, float x) { return x; }},
      {"copies are independent", {kTriple, kNegate}, 1.0f, false, [](uint32_t, uint32_t, float x) { return 2 * x; }},
      {"bypass is ignored", {kTriple}, 0.25f, true, [](uint32_t, uint32_t, float x) { return 0.75f * x; }},
      {"fewer channels add to the ones they have", {kFirstChannel, kPass}, 1.0f, false,
       [](uint32_t, uint32_t c, float x) { return c == 0 ? 2 * x : x; }},
      {"fewer frames add to the frames they have", {kHalfFrames, kPass}, 1.0f, false,
       [](uint32_t f, uint32_t, float x) { return f < kFrames / 2 ? 2 * x : x; }},
      {"more frames add only up to the block's", {kDoubleFrames}, 2.0f, false,
       [](uint32_t, uint32_t, float x) { return 2 * x; }},
  };
  const std::vector<float> input = velapo::test::Ramp(kFrames, kChannels);
  for (const Case& c : cases) {
    std::vector<std::unique_ptr<ShapeStage>> stages;
    ZORAudioProcessSplitMerge split;
    for (const auto& act : c.stages) {
      stages.push_back(std::make_unique<ShapeStage>(act));
      split.AddProcess(stages.back().get());
    }
    split.SetGain(c.gain);
    split.SetBypass(c.bypass);
    ZORAudioDataFloat data;
    data.AssignMemory(input.data(), kFrames, kChannels, true, kRate);
    split.Process(&data);

    ASSERT_EQ(data.GetFrames(), kFrames) << c.name;
    ASSERT_EQ(data.GetChannels(), kChannels) << c.name;
    const float* out = data.GetData(false, true);
    for (uint32_t f = 0; f < kFrames; ++f) {
      for (uint32_t ch = 0; ch < kChannels; ++ch) {
        const size_t i = size_t{f} * kChannels + ch;
        EXPECT_FLOAT_EQ(out[i], c.expected(f, ch, input[i])) << c.name << " frame " << f << " channel " << ch;
      }
    }
    data.ReleaseData();
  }
}

TEST(ZORAudioProcessSplitMergeTest, SteadyStateAllocatesNothing) {
  ShapeStage first(kTriple);
  ShapeStage second(kHalfFrames);
  ZORAudioProcessSplitMerge split;
  split.AddProcess(&first);
  split.AddProcess(&second);
  const std::vector<float> input = velapo::test::Noise(480 * 2, 7);
  ZORAudioDataFloat data;
  // As the audio path hands it over: a fresh interleaved block per call.
  const auto run = [&] {
    data.AssignMemory(input.data(), 480, 2, true, kRate);
    split.Process(&data);
  };
  run();  // warms the copies
  run();
  velapo::test::AllocationCounter counter;
  for (int i = 0; i < 4; ++i) run();
  EXPECT_EQ(counter.Count(), 0u);
}

}  // namespace
