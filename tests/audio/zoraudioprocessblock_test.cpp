// Fixed-block stages behind any host block size: sample order, call counts, fresh blocks,
// and a block size change dropping held audio.
#include "audio/zoraudioprocessblock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "allocationcounter.h"
#include "audio/zoraudiodatafloat.h"
#include "audiotesting.h"

namespace {

// A fixed-block stage that negates its block, so that what comes out shows
// it went through the stage, and that records what it was handed.
class NegatingStage : public ZORAudioProcessBlock {
 public:
  explicit NegatingStage(uint32_t blockFrames) : m_blockFrames(blockFrames) {}

  bool Init(uint32_t channels, uint32_t /*sampleRate*/) override {
    SetBlockSize(0, 0);
    SetBlockSize(m_blockFrames, channels);
    return true;
  }
  void SetBypass(bool /*bypass*/) override {}
  bool GetBypass() const override { return false; }

  uint32_t calls = 0;
  IZORAudioData<float>* lastBlock = nullptr;
  std::vector<uint32_t> lastRoles;
  uint32_t lastRate = 0;
  std::vector<uint32_t> tagsOnEntry;

 protected:
  void ProcessBlock(IZORAudioData<float>* data) override {
    ++calls;
    lastBlock = data;
    lastRate = data->GetSampleRate();
    tagsOnEntry.push_back(data->GetUserTag());
    lastRoles.clear();
    for (uint32_t c = 0; c < data->GetChannels(); ++c) {
      lastRoles.push_back(data->GetChannelRole(c));
    }
    float* samples = data->GetData(true, true);
    for (uint32_t i = 0; i < data->GetSampleCount(); ++i) {
      samples[i] = -samples[i];
    }
    data->SetUserTag(77);
    data->ReleaseData();
  }

 private:
  uint32_t m_blockFrames;
};

// Feeds `input` (interleaved) through `stage` in host blocks of the given
// sizes, cycling through them, and returns the output joined up.
std::vector<float> RunStream(ZORAudioProcessBlock& stage, const std::vector<float>& input,
                             uint32_t channels, const std::vector<uint32_t>& hostSizes) {
  std::vector<float> output;
  ZORAudioDataFloat host;
  const size_t totalFrames = input.size() / channels;
  size_t done = 0;
  for (size_t i = 0; done < totalFrames; ++i) {
    const auto frames = static_cast<uint32_t>(
        std::min<size_t>(hostSizes[i % hostSizes.size()], totalFrames - done));
    host.AssignMemory(input.data() + done * channels, frames, channels, true, 48000);
    stage.Process(&host);
    EXPECT_EQ(host.GetFrames(), frames);
    if (const float* samples = host.GetData(false, true)) {
      output.insert(output.end(), samples, samples + size_t{frames} * channels);
    }
    done += frames;
  }
  return output;
}

// The input delayed by `delay` frames and negated, silence before it.
std::vector<float> DelayedNegated(const std::vector<float>& input, uint32_t channels,
                                  uint32_t delay) {
  std::vector<float> expected(input.size(), 0.0f);
  for (size_t i = size_t{delay} * channels; i < input.size(); ++i) {
    expected[i] = -input[i - size_t{delay} * channels];
  }
  return expected;
}

}  // namespace

TEST(ZORAudioProcessBlock, RandomHostSizesKeepTheSampleSequence) {
  constexpr uint32_t kBlock = 32;
  constexpr uint32_t kChannels = 3;
  std::mt19937 random(1234);
  std::vector<uint32_t> hostSizes(97);
  for (uint32_t& frames : hostSizes) frames = random() % (5 * kBlock + 1);
  const std::vector<float> input = velapo::test::Noise(kChannels * 6000, 1234);
  NegatingStage stage(kBlock);
  stage.Init(kChannels, 48000);
  EXPECT_EQ(RunStream(stage, input, kChannels, hostSizes),
            DelayedNegated(input, kChannels, 2 * kBlock));
}

// Once per block of input, whatever the host's sizes, each call giving back
// its full host block; the stage works on a fresh block of its own (roles
// and tag its own), or without adaption on the host's.
TEST(ZORAudioProcessBlock, RunsOncePerBlockOnItsOwnFreshBlock) {
  constexpr uint32_t kBlock = 64;
  NegatingStage stage(kBlock);
  stage.Init(2, 48000);
  ZORAudioDataFloat host;
  host.Allocate(3 * kBlock, 2, 44100);
  host.SetChannelRole(1, 7);
  stage.Process(&host);
  EXPECT_EQ(stage.calls, 3u);
  EXPECT_NE(stage.lastBlock, &host);
  EXPECT_EQ(stage.lastRate, 44100u);
  EXPECT_EQ(stage.lastRoles, (std::vector<uint32_t>{0, 1}));
  std::vector<uint32_t> perCall;
  for (int i = 0; i < 8; ++i) {
    const uint32_t before = stage.calls;
    host.Allocate(kBlock / 4, 2, 48000);
    stage.Process(&host);
    EXPECT_EQ(host.GetFrames(), kBlock / 4);
    perCall.push_back(stage.calls - before);
  }
  EXPECT_EQ(perCall, (std::vector<uint32_t>{1, 0, 0, 0, 1, 0, 0, 0}));
  EXPECT_EQ(stage.tagsOnEntry.back(), 0u) << "the tag a stage leaves never reaches its next host call";

  NegatingStage direct(0);
  direct.Init(2, 48000);
  const std::vector<float> input = {1.0f, 2.0f, 3.0f, 4.0f};
  host.AssignMemory(input.data(), 2, 2, true, 48000);
  host.SetChannelRole(1, 7);
  direct.Process(&host);
  EXPECT_EQ(direct.lastBlock, &host);
  EXPECT_EQ(direct.lastRoles, (std::vector<uint32_t>{0, 7}));
  EXPECT_EQ(host.GetData(false, true)[3], -4.0f);
}

TEST(ZORAudioProcessBlock, SetBlockSizeDropsHeldAudio) {
  constexpr uint32_t kBlock = 32;
  NegatingStage stage(kBlock);
  stage.Init(1, 48000);
  RunStream(stage, std::vector<float>(3 * kBlock, 1.0f), 1, {kBlock});
  stage.Init(1, 48000);
  const std::vector<float> quiet(3 * kBlock, 0.0f);
  EXPECT_EQ(RunStream(stage, quiet, 1, {kBlock}), quiet);

  // A block too large to ring lets audio pass untouched instead of stalling.
  NegatingStage huge(0x80000000u);
  huge.Init(2, 48000);
  EXPECT_EQ(huge.GetLatency(), 0u);
  const std::vector<float> input = {1.0f, 2.0f, 3.0f, 4.0f};
  EXPECT_EQ(RunStream(huge, input, 2, {2}), input);
  EXPECT_EQ(huge.calls, 0u);

  // So do rings that could not get their memory, which would never move.
  NegatingStage starved(kBlock);
  {
    velapo::test::NothrowAllocationFailure outOfMemory;
    starved.Init(2, 48000);
  }
  EXPECT_EQ(starved.GetLatency(), 0u);
  EXPECT_EQ(RunStream(starved, input, 2, {2}), input);
  EXPECT_EQ(starved.calls, 0u);
}
