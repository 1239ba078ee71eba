// The process chain: tuned path in place or width-fitted, the bypass path,
// the pipe hook, and an internal rate that keeps the host's frames.
#include "audio/zorapoprocesschain.h"

#include <gtest/gtest.h>

#include <vector>

#include "audiotesting.h"

namespace {

using namespace velapo::test;

class RecordingHook : public IZORAPOProcessChainPipeHook {
 public:
  void OnPipeData(bool isRender, IZORAudioData<float>& data) override {
    calls.push_back({isRender, &data});
  }
  std::vector<std::pair<bool, IZORAudioData<float>*>> calls;
};

ZORAudioDataFloat NoiseBlock(uint32_t frames, uint32_t channels, uint32_t seed) {
  return Wrap(Noise(size_t{frames} * channels, seed), channels);
}

// A chain and one stage that doubles every sample, for the test to build.
class ZORAPOProcessChainTest : public testing::Test {
 protected:
  void SetUp() override { stage.gain = 2.0f; }
  ZORAPOProcessChain chain;
  RecordingStage stage;
  IZORAudioProcess<float>* stages[1] = {&stage};
};

}  // namespace

// Every path, with one object in and out and with two: the tuned path at the
// chain's width and fitted to another, and the bypass path. A two-channel
// chain doubles; what it doesn't reach stays as it was in place and silent
// apart, and the input of a call apart is never touched.
TEST_F(ZORAPOProcessChainTest, EveryPathRunsInPlaceAndApart) {
  for (const bool built : {true, false}) {
    for (const uint32_t channels : {2u, 6u}) {
      for (const bool inPlace : {true, false}) {
        SCOPED_TRACE(testing::Message() << (built ? "tuned " : "bypass ") << channels
                                        << (inPlace ? " in place" : " apart"));
        ZORAPOProcessChain fresh;
        if (built) fresh.BuildFromStages(2, 48000, true, stages);
        ZORAudioDataFloat input = NoiseBlock(17, channels, channels);
        const std::vector<float> in = Interleaved(input);
        ZORAudioDataFloat apart;
        apart.Allocate(17, channels, 48000);
        ZORAudioDataFloat& output = inPlace ? input : apart;
        stage.seen = nullptr;
        fresh.Process(input, output, nullptr);
        if (built) {
          EXPECT_EQ(stage.channels, 2u) << "the tuned path runs at the chain's width";
          EXPECT_EQ(stage.seen == &output, channels == 2) << "only an output of the chain's width is worked in";
        }
        const std::vector<float> out = Interleaved(output);
        ASSERT_EQ(out.size(), in.size());
        for (size_t i = 0; i < in.size(); ++i) {
          const bool reached = i % channels < 2;
          const float expected = !built ? in[i] : reached ? in[i] * 2.0f : inPlace ? in[i] : 0.0f;
          ASSERT_EQ(out[i], expected) << "sample " << i;
        }
        EXPECT_TRUE(inPlace || Interleaved(input) == in) << "the input of a call apart changed";
      }
    }
  }
}

TEST_F(ZORAPOProcessChainTest, OnlyACaptureChainFeedsThePipeOnTheBypassPath) {
  for (bool isRender : {true, false}) {
    ZORAPOProcessChain fresh;
    fresh.BuildFromStages(2, 48000, isRender, stages);
    fresh.SetChainBypass(true);
    RecordingHook hook;
    ZORAudioDataFloat input = NoiseBlock(8, 2, 6);
    ZORAudioDataFloat output;
    output.Allocate(8, 1, 48000);
    fresh.Process(input, output, &hook);
    if (isRender) {
      EXPECT_TRUE(hook.calls.empty()) << "a render chain never asks the pipe";
    } else {
      ASSERT_EQ(hook.calls.size(), 1u);
      EXPECT_FALSE(hook.calls[0].first) << "capture writes to the pipe";
      EXPECT_EQ(hook.calls[0].second, &output);
    }

    // A tech process's side-channel block reaches the hook of the running call, with the endpoint's direction.
    ZORAudioDataFloat side = NoiseBlock(8, 1, 7);
    hook.calls.clear();
    fresh.OnChannelData(nullptr, side);
    ASSERT_EQ(hook.calls.size(), 1u);
    EXPECT_EQ(hook.calls[0].first, isRender);
  }
}

TEST_F(ZORAPOProcessChainTest, AFailedBuildLeavesTheChainOnItsBypassPath) {
  stage.initResult = false;
  EXPECT_FALSE(chain.BuildFromStages(2, 48000, true, stages));
  EXPECT_FALSE(chain.IsBuilt());

  // A rate no converter takes fails the same way, stages or not.
  stage.initResult = true;
  EXPECT_FALSE(chain.BuildFromStages(2, 48000, true, stages, 100));
  EXPECT_FALSE(chain.IsBuilt());
  EXPECT_EQ(chain.GetRate(), 0u);

  ZORAudioDataFloat input = NoiseBlock(16, 2, 40);
  ZORAudioDataFloat output;
  output.Allocate(16, 2, 48000);
  chain.Process(input, output, nullptr);
  EXPECT_TRUE(stage.frames.empty()) << "the tuned path never ran";
  EXPECT_EQ(Interleaved(output), Interleaved(input));
}
