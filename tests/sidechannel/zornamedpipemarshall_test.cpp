#include "sidechannel/zornamedpipemarshall.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "allocationcounter.h"
#include "audio/zoraudiodatafloat.h"
#include "platform/criticalsection.h"
#include "registrytestarea.h"
#include "sidechannel/pipetesting.h"

namespace {

struct FifoCase {
  const char* name;
  uint32_t capacity;
  std::vector<float> queued;  // pushed at the back first
  std::vector<float> pushed;  // then these, one call
  uint32_t frontZeros;
  std::vector<float> expected;  // the whole FIFO, front first
  uint32_t dropped;
};

class PipeFifoTest : public testing::TestWithParam<FifoCase> {};

TEST_P(PipeFifoTest, KeepsTheNewestAndPadsTheFront) {
  const FifoCase& c = GetParam();
  ZORPipeFifo fifo;
  fifo.Allocate(c.capacity);
  const float seed[] = {-1.0f, -2.0f};  // wraps the positions before the case
  fifo.PushBack(seed, std::min<uint32_t>(2, c.capacity));
  float sink[2];
  fifo.PopFront(sink, 2);
  fifo.PushBack(c.queued.data(), static_cast<uint32_t>(c.queued.size()));
  EXPECT_EQ(fifo.PushBack(c.pushed.data(), static_cast<uint32_t>(c.pushed.size())), c.dropped);
  fifo.PushFrontZeros(c.frontZeros);
  std::vector<float> all(fifo.Size() + 3, 99.0f);
  ASSERT_EQ(fifo.PopFront(all.data(), static_cast<uint32_t>(all.size())), c.expected.size());
  all.resize(c.expected.size());
  EXPECT_EQ(all, c.expected);
  EXPECT_EQ(fifo.Size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PipeFifoTest,
    testing::Values(FifoCase{"Fits", 4, {}, {1, 2, 3}, 0, {1, 2, 3}, 0},
                    FifoCase{"ZerosGoFirst", 6, {1}, {2}, 3, {0, 0, 0, 1, 2}, 0},
                    FifoCase{"ZerosOnlyAsFarAsThereIsRoom", 4, {}, {1, 2, 3}, 3, {0, 1, 2, 3}, 0},
                    FifoCase{"OverflowDropsTheOldest", 3, {}, {1, 2, 3, 4, 5}, 0, {3, 4, 5}, 2},
                    FifoCase{"OverflowDropsTheOldestQueued", 3, {1, 2}, {3, 4}, 0, {2, 3, 4}, 1},
                    FifoCase{"NoCapacityTakesNothing", 0, {}, {1, 2}, 2, {}, 2}),
    [](const testing::TestParamInfo<FifoCase>& param) { return param.param.name; });

ZORAudioDataFloat Block(uint32_t frames, uint32_t channels, uint32_t rate, float value) {
  ZORAudioDataFloat block;
  block.Allocate(frames, channels, rate);
  float* samples = block.GetData(true, true);
  for (uint32_t i = 0; i < frames * channels; ++i) samples[i] = value * static_cast<float>(i % channels + 1);
  block.ReleaseData();
  return block;
}

class MarshallTest : public testing::Test {
 protected:
  // A running render marshall whose pipe has no writer: the test feeds its
  // ring directly.
  void OpenReader() {
    m_marshall.OpenPipe(0, true);
    m_marshall.StartPipe();
    ASSERT_TRUE(m_marshall.IsRunning());
  }
  void Feed(uint32_t packets, float value, uint32_t rate = kTestRate, uint32_t count = 480) {
    ZORPipePacket packet;
    packet.count = count;
    packet.sampleRate = rate;
    std::fill(std::begin(packet.samples), std::end(packet.samples), value);
    for (uint32_t i = 0; i < packets; ++i) ASSERT_TRUE(m_marshall.GetPipe().WritePacket(packet));
  }

  velapo::test::RegistryTestArea m_area;
  ZORNamedPipeMarshall m_marshall;
};

// Nothing before the first packet; then, at the pipe's rate, the ring goes
// straight into the block, marked as the side channel.
TEST_F(MarshallTest, AtThePipesRateTheRingIsReadStraightAndMarkedAsSideChannel) {
  ZORAudioDataFloat block = Block(480, 1, 48000, 0.25f);
  EXPECT_EQ(m_marshall.ReadPipe(block), 0u);  // not running
  OpenReader();
  EXPECT_EQ(m_marshall.ReadPipe(block), 0u);
  EXPECT_EQ(m_marshall.GetFifoSize(), ZORNamedPipeMarshall::kFifoLeadZeros);
  Feed(1, 0.5f, 48000, 100);
  EXPECT_EQ(m_marshall.ReadPipe(block), 100u);
  const float* samples = block.GetData(false, false);
  EXPECT_EQ(samples[99], 0.5f);
  EXPECT_EQ(samples[100], 0.25f);  // frames not delivered stay as they were
  EXPECT_EQ(block.GetChannelRole(0), kZORPipeChannelRole);
}

// At another rate: a shortage is heard first as silence and counted, and a
// render block asks the pipe for its share and five more, unmarked.
TEST_F(MarshallTest, AnUnderrunPutsSilenceFirstAndABlockAsksForItsShareAndFiveMore) {
  OpenReader();
  Feed(1, 1.0f, kTestRate, 100);  // about 300 frames at 48 kHz
  ZORAudioDataFloat block = Block(480, 1, 48000, 0.25f);
  const uint32_t atHand = m_marshall.ReadPipe(block);
  EXPECT_LT(atHand, 480u);
  EXPECT_GT(atHand, 250u);
  EXPECT_EQ(m_marshall.GetUnderruns(), 1u);
  const float* samples = block.GetData(false, false);
  for (uint32_t i = 0; i < 480 - atHand; ++i) ASSERT_EQ(samples[i], 0.0f) << i;
  EXPECT_GT(std::fabs(samples[479]), 0.5f);
  EXPECT_NE(block.GetChannelRole(0), kZORPipeChannelRole);
  Feed(8, 0.5f);
  m_marshall.ReadPipe(block);
  std::vector<float> rest(kZORPipeRingSamples);
  EXPECT_EQ(m_marshall.GetPipe().ReadSamples(rest.data(), kZORPipeRingSamples), 3840u - 165u);
}

TEST_F(MarshallTest, SteadyStateTakesOneLockAndAllocatesNothing) {
  OpenReader();
  ZORAudioDataFloat block = Block(480, 1, 48000, 0.0f);
  for (int warm = 0; warm < 4; ++warm) {
    Feed(1, 0.5f, kTestRate, 160);
    m_marshall.ReadPipe(block);
  }
  for (int round = 0; round < 50; ++round) {
    Feed(1, 0.5f, kTestRate, 160);
    const velapo::test::AllocationCounter allocations;
    const uint64_t locks = zor::os::CriticalSection::EntriesOnThisThread();
    m_marshall.ReadPipe(block);
    ASSERT_EQ(zor::os::CriticalSection::EntriesOnThisThread() - locks, 1u);
    ASSERT_EQ(allocations.Count(), 0u);
  }
  EXPECT_EQ(m_marshall.GetUnderruns(), 0u);
}

// A capture block folds in place, in pairs: left carries (L + R) x 0.707,
// right is cleared; a six-channel block folds only its first third.
TEST_F(MarshallTest, CaptureBlocksFoldInPlaceInPairs) {
  m_marshall.OpenPipe(kZORCapturePipeRate, false);
  m_marshall.StartPipe();
  for (const uint32_t channels : {2u, 6u}) {
    ZORAudioDataFloat block = Block(480, channels, 48000, 0.25f);
    m_marshall.WritePipe(block);
    const float* samples = block.GetData(false, true);
    EXPECT_FLOAT_EQ(samples[0], (0.25f + 0.5f) * 0.707f);
    EXPECT_EQ(samples[1], 0.0f);
    EXPECT_EQ(samples[959], 0.0f) << channels;  // the 480th pair
    if (channels == 6) {
      EXPECT_NE(samples[961], 0.0f);  // no 481st
    }
  }
}

}  // namespace
