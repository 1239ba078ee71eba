// The stage list: order, bypass, latency sum, Init results, removal.
#include "audio/zoraudioprocesschain.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "audio/zoraudiodatafloat.h"

namespace {

// A stage that notes its calls in a shared log (Init as -id) and adds its
// id to the first sample, so that order and presence both show.
class LoggingStage : public IZORAudioProcess<float> {
 public:
  LoggingStage(int id, std::vector<int>& log, bool initResult = true, uint32_t latency = 0)
      : m_id(id), m_log(log), m_initResult(initResult), m_latency(latency) {}

  bool Init(uint32_t /*channels*/, uint32_t /*sampleRate*/) override {
    m_log.push_back(-m_id);
    return m_initResult;
  }
  void SetBypass(bool /*bypass*/) override {}
  bool GetBypass() const override { return false; }
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
};

}  // namespace

TEST(ZORAudioProcessChain, InitReachesEveryStageAndRemoveTakesTheFirstMatch) {
  std::vector<int> log;
  LoggingStage good(1, log), bad(2, log, false), absent(9, log);
  ZORAudioProcessChain<float> chain;
  chain.AddProcess(&bad);
  chain.AddProcess(&good);
  chain.AddProcess(&bad);
  EXPECT_FALSE(chain.Init(2, 48000));
  EXPECT_EQ(log, (std::vector<int>{-2, -1, -2}));

  chain.RemoveProcess(&absent);
  EXPECT_EQ(chain.GetProcessCount(), 3u);
  chain.RemoveProcess(&bad);
  log.clear();
  ZORAudioDataFloat data;
  data.Allocate(1, 1, 48000);
  chain.Process(&data);
  EXPECT_EQ(log, (std::vector<int>{1, 2}));

  chain.ClearProcesses();
  EXPECT_EQ(chain.GetProcessCount(), 0u);
  EXPECT_TRUE(chain.Init(2, 48000));
}
