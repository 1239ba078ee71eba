#include "audio/zoraudioprocesschain.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "audio/zoraudiodatafloat.h"

namespace {

// A stage that notes its calls in a shared log and adds its id to the first
// sample, so that order and presence both show.
class LoggingStage : public IZORAudioProcess<float> {
 public:
  LoggingStage(int id, std::vector<int>& log, bool initResult = true, uint32_t latency = 0)
      : m_id(id), m_log(log), m_initResult(initResult), m_latency(latency) {}

  bool Init(uint32_t /*channels*/, uint32_t /*sampleRate*/) override {
    m_log.push_back(-m_id);
    return m_initResult;
  }
  void SetBypass(bool bypass) override { m_bypass = bypass; }
  bool GetBypass() const override { return m_bypass; }
  uint32_t GetLatency() const override { return m_latency; }
  void Process(IZORAudioData<float>* data) override {
    m_log.push_back(m_id);
    data->GetData(true, true)[0] += static_cast<float>(m_id);
    data->ReleaseData();
  }

 private:
  int m_id;
  std::vector<int>& m_log;
  bool m_initResult;
  uint32_t m_latency;
  bool m_bypass = false;
};

float FirstSample(ZORAudioDataFloat& data) { return data.GetData(false, true)[0]; }

}  // namespace

TEST(ZORAudioProcessChain, RunsStagesInOrderUnlessBypassed) {
  std::vector<int> log;
  LoggingStage one(1, log), two(2, log), three(3, log);
  ZORAudioProcessChain<float> chain;
  chain.AddProcess(&two);
  chain.AddProcess(&one);
  chain.AddProcess(&three);
  ZORAudioDataFloat data;
  data.Allocate(4, 2, 48000);
  chain.Process(&data);
  EXPECT_EQ(log, (std::vector<int>{2, 1, 3}));
  EXPECT_EQ(FirstSample(data), 6.0f);

  chain.SetBypass(true);
  EXPECT_TRUE(chain.GetBypass());
  chain.Process(&data);
  EXPECT_EQ(log.size(), 3u);
  EXPECT_EQ(FirstSample(data), 6.0f);
}

TEST(ZORAudioProcessChain, InitReachesEveryStageAfterAFailure) {
  std::vector<int> log;
  LoggingStage good(1, log), bad(2, log, false), last(3, log);
  ZORAudioProcessChain<float> chain;
  EXPECT_TRUE(chain.Init(2, 48000));  // empty
  chain.AddProcess(&good);
  chain.AddProcess(&bad);
  chain.AddProcess(&last);
  EXPECT_FALSE(chain.Init(2, 48000));
  EXPECT_EQ(log, (std::vector<int>{-1, -2, -3}));
  chain.RemoveProcess(&bad);
  EXPECT_TRUE(chain.Init(2, 48000));
}

TEST(ZORAudioProcessChain, LatencyIsTheSumEvenWhenBypassed) {
  std::vector<int> log;
  LoggingStage a(1, log, true, 128), b(2, log, true, 0), c(3, log, true, 480);
  ZORAudioProcessChain<float> chain;
  EXPECT_EQ(chain.GetLatency(), 0u);
  chain.AddProcess(&a);
  chain.AddProcess(&b);
  chain.AddProcess(&c);
  EXPECT_EQ(chain.GetLatency(), 608u);
  chain.SetBypass(true);
  EXPECT_EQ(chain.GetLatency(), 608u);
}

TEST(ZORAudioProcessChain, RemoveDropsOnlyTheFirstMatch) {
  std::vector<int> log;
  LoggingStage a(1, log), b(2, log), absent(9, log);
  ZORAudioProcessChain<float> chain;
  chain.AddProcess(&a);
  chain.AddProcess(&b);
  chain.AddProcess(&a);
  chain.RemoveProcess(&absent);
  EXPECT_EQ(chain.GetProcessCount(), 3u);
  chain.RemoveProcess(&a);
  EXPECT_EQ(chain.GetProcessCount(), 2u);
  ZORAudioDataFloat data;
  data.Allocate(1, 1, 48000);
  chain.Process(&data);
  EXPECT_EQ(log, (std::vector<int>{2, 1}));

  chain.ClearProcesses();
  EXPECT_EQ(chain.GetProcessCount(), 0u);
  chain.Process(&data);
  EXPECT_EQ(log.size(), 2u);
  EXPECT_EQ(FirstSample(data), 3.0f);
}
