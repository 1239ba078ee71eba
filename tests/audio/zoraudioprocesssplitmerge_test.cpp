// The parallel stage: own copies, sums over the overlap of shapes, the gain last, no allocation once warm.
#include "audio/zoraudioprocesssplitmerge.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "allocationcounter.h"
#include "audiotesting.h"

namespace {

using Act = std::function<void(IZORAudioData<float>&)>;

// A stage that does to its block what its function says.
struct Stage : IZORAudioProcess<float> {
  explicit Stage(Act a) : act(std::move(a)) {}
  bool Init(uint32_t, uint32_t) override { return true; }
  void SetBypass(bool) override {}
  bool GetBypass() const override { return false; }
  uint32_t GetLatency() const override { return 0; }
  void Process(IZORAudioData<float>* data) override { act(*data); }
  Act act;
};

Act Scale(float factor) {
  return [factor](IZORAudioData<float>& data) {
    float* samples = data.GetData(true, false);
    for (uint32_t i = 0; i < data.GetSampleCount(); ++i) samples[i] *= factor;
  };
}
// Keeps channel 0 only; keeps the first half of the frames; doubles them, the new ones loud.
const Act kFirstChannel = [](IZORAudioData<float>& data) {
  const std::vector<float> first(data.GetData(false, false), data.GetData(false, false) + data.GetFrames());
  data.AssignMemory(first.data(), data.GetFrames(), 1, false, data.GetSampleRate());
};
const Act kHalfFrames = [](IZORAudioData<float>& data) { data.SetFrames(data.GetFrames() / 2); };
const Act kDoubleFrames = [](IZORAudioData<float>& data) {
  std::vector<float> longer(data.GetSampleCount() * 2, 100.0f);
  std::copy_n(data.GetData(false, true), data.GetSampleCount(), longer.begin());
  data.AssignMemory(longer.data(), data.GetFrames() * 2, data.GetChannels(), true, data.GetSampleRate());
};

// Each case runs thrice on a fresh block; third runs of stages that allocate nothing allocate nothing.
TEST(ZORAudioProcessSplitMergeTest, SumsEachStagesOwnCopyOverTheOverlapThenScales) {
  struct Case {
    const char* name;
    std::vector<Act> stages;
    float gain;
    std::function<float(uint32_t frame, uint32_t channel)> factor;  // output over input
    bool stagesAllocate;
  } const cases[] = {
      {"no stages: silence", {}, 1.0f, [](uint32_t, uint32_t) { return 0.0f; }, false},
      {"own copies, then the gain", {Scale(3), Scale(-1)}, 0.5f, [](uint32_t, uint32_t) { return 1.0f; }, false},
      {"fewer channels", {kFirstChannel, Scale(1)}, 1.0f, [](uint32_t, uint32_t c) { return c == 0 ? 2.0f : 1.0f; }, true},
      {"fewer frames", {kHalfFrames, Scale(1)}, 1.0f, [](uint32_t f, uint32_t) { return f < 4 ? 2.0f : 1.0f; }, false},
      {"more frames", {kDoubleFrames}, 1.0f, [](uint32_t, uint32_t) { return 1.0f; }, true},
  };
  const std::vector<float> input = velapo::test::Ramp(8, 2);
  for (const Case& c : cases) {
    std::vector<Stage> stages(c.stages.begin(), c.stages.end());
    ZORAudioProcessSplitMerge split;
    for (Stage& stage : stages) split.AddProcess(&stage);
    split.SetGain(c.gain);
    split.SetBypass(true);  // ignored
    ZORAudioDataFloat data;
    for (int run = 0; run < 3; ++run) {
      data.AssignMemory(input.data(), 8, 2, true, 48000);
      const velapo::test::AllocationCounter allocations;
      split.Process(&data);
      EXPECT_TRUE(run < 2 || c.stagesAllocate || allocations.Count() == 0) << c.name;
    }
    ASSERT_EQ(data.GetFrames() * 10 + data.GetChannels(), 82u) << c.name;
    for (uint32_t i = 0; i < 16; ++i) {
      EXPECT_FLOAT_EQ(data.GetData(false, true)[i], input[i] * c.factor(i / 2, i % 2)) << c.name << " sample " << i;
    }
  }
}

}  // namespace
