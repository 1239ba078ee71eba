// velapo-ctl as its own process: a tuning session's block lives exactly as
// long as the tool holds it, and what it wrote is what another process's
// engine classes read.
#include <chrono>
#include <thread>

#include "childprocess.h"
#include "control/controlendpoint.h"
#include "control/controlpanel.h"
#include "ctlfixture.h"
#include "system/zorapotunedsettings.h"
#include "values/zorsharedmemory.h"

namespace {

using CtlProcess = CtlFixture;

TEST_F(CtlProcess, ATunedBlockLivesWhileTheToolHoldsItAndGoesWithIt) {
  ControlEndpoint endpoint;
  ASSERT_TRUE(endpoint.Open(m_guid));
  ASSERT_TRUE(endpoint.LoadConfiguration());
  ZORAPOOperatingMode mode;
  ASSERT_TRUE(endpoint.ResolveMode("Voice/Headphones", "", mode));
  const std::u16string block = ZORAPOTunedSettings::BlockName(endpoint.Info().GetEndpointGuid().Text(), mode.GetModeId());
  ASSERT_FALSE(ZORSharedMemory::Exists(block));

  std::vector<std::string> args = StoreArgs();
  args.insert(args.end(), {"-e", m_guid, "tune", "--mode", "Voice/Headphones", "--tuning-mode", "2",
                           "MFX-Volume:Gain-Level=-700", "--hold", "-1"});
  velapo::test::ChildProcess tool;
  ASSERT_TRUE(tool.Start(velapo::test::HelperBesideTest("velapo-ctl"), args));
  // What a chain does: join the block only if a tool made it, then follow it.
  ZORAPOTunedSettings chain;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(velapo::test::kMustNotTimeOutMs);
  bool tuned = false;
  while (!tuned && std::chrono::steady_clock::now() < deadline) {
    tuned = chain.Open(endpoint.Info(), mode, true) && chain.GetTuningMode(true) == 2;
    if (!tuned) {
      chain.Close();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ASSERT_TRUE(tuned) << "the tool never wrote its block";
  ZORUTSValueList values;
  ASSERT_TRUE(chain.ReadAll(values, true));
  EXPECT_EQ(values.Find("MFX-Volume:Gain-Level")->GetLong(), -700);
  EXPECT_EQ(RunOn({"--json", "dump", "--tuned", "Voice/Headphones"}).code, 0);
  chain.Close();

  EXPECT_EQ(tool.Wait(0), velapo::test::ChildProcess::kStillRunning);
  tool.Kill();
  tool.Wait(velapo::test::kMustNotTimeOutMs);
  EXPECT_FALSE(ZORSharedMemory::Exists(block));
}

}  // namespace
