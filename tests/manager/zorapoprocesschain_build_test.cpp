// Chains built from configuration: their shape, the failures that leave them on the
// bypass path, and the stacking and delivery of values.
#include <algorithm>

#include "audio/zorapoprocesswrapper.h"
#include "chaintesting.h"
#include "childprocess.h"
#include "support/zorlogcapture.h"
#include "system/zorapotunedsettings.h"

namespace {

using namespace velapo::test;

size_t Count(const std::vector<std::string>& lines, const std::string& fragment) {
  return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) {
    return l.find(fragment) != std::string::npos;
  }));
}

class ChainBuild : public ChainEndpoint {};

}  // namespace

TEST_F(ChainBuild, ShapeWidthAndProcessingRateFollowTheWorkspace) {
  UseProbeModule();
  struct Row {
    uint32_t location, in, out, rate;
    bool render;
    size_t processes;
    uint32_t chainChannels, internalRate;
    const char* init;  // how every process was initialised
  } const rows[] = {
      {1, 2, 2, 48000, true, 2, 2, 0, "init 2 48000"},   {1, 2, 2, 44100, true, 2, 2, 0, "init 2 44100"},
      {1, 2, 2, 22050, true, 2, 2, 32000, "init 2 32000"}, {1, 2, 2, 38050, true, 2, 2, 32000, "init 2 32000"},
      {1, 2, 2, 38051, true, 2, 2, 44100, "init 2 44100"}, {1, 2, 6, 48000, true, 1, 6, 0, "init 2 48000"},
      {4, 2, 6, 48000, true, 1, 6, 0, "init 2 48000"},     {1, 1, 2, 22050, true, 0, 2, 32000, ""},
      {1, 2, 2, 48000, false, 1, 2, 16000, "init 2 16000"}, {1, 2, 2, 16000, false, 1, 2, 0, "init 2 16000"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.location << ": " << row.in << ">" << row.out << " @" << row.rate);
    techtest::TestModuleLog log;
    MakeEndpoint(DataFile("probe.xml"), row.render);
    ZORAPOWorkspace workspace = Workspace(row.location, row.in, row.out, row.rate);
    if (row.processes == 0) {  // files drop such chains; an embedder's mode may hold one
      workspace.mode.chainDefinition.chains.insert(workspace.mode.chainDefinition.chains.begin(),
                                                   {kZORLayoutMono, kZORLayoutStereo, true, {}, {}});
    }
    ZORAPOProcessChain chain;
    ASSERT_TRUE(chain.ConstructChain(workspace, row.location));
    EXPECT_EQ(chain.GetProcessCount(), row.processes);
    EXPECT_EQ(chain.GetChainChannels(), row.chainChannels);
    EXPECT_EQ(chain.GetInternalRate(), row.internalRate);
    EXPECT_EQ(row.processes == 0 ? 0u : Count(log.Lines(), row.init), row.processes);
    EXPECT_EQ(RunChain(chain, Noise(480u * row.in, 7, 0.5f), row.in, row.out, row.rate).size(), 480u * row.out);
  }
}

TEST_F(ChainBuild, FailuresLeaveTheChainUnbuiltAndAudioOnTheBypassPath) {
  UseProbeModule();
  struct Row {
    const char* what;
    uint32_t in, out, rate;
    size_t processesLeft;  // a refused workspace leaves the chain as it stood
  } const rows[] = {
      {"layout 0", 3, 2, 48000, 2},          {"layout all bits", 2, 0, 48000, 2},  {"rate 0", 2, 2, 0, 2},
      {"no chain", 8, 8, 48000, 0},          {"process refused", 6, 2, 48000, 0},
      {"no process handed out", 1, 1, 48000, 0}, {"Init refused", 8, 2, 48000, 0},
  };
  MakeEndpoint(DataFile("probe.xml"));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ZORAPOProcessChain chain, untouched;
    ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 48000), 1));
    ZORAPOWorkspace workspace = Workspace(1, row.in, row.out, row.rate);
    if (row.out == 0) workspace.outputLayout = ZORAPOWorkspace::kNoLayout;
    EXPECT_FALSE(chain.ConstructChain(workspace, 1));
    EXPECT_FALSE(chain.IsBuilt());
    EXPECT_EQ(chain.GetProcessCount(), row.processesLeft);
    const uint32_t out = std::max(row.out, 1u);
    const auto input = Noise(480u * row.in, 7, 0.5f);
    const auto bypassed = RunChain(untouched, input, row.in, out, 48000);
    EXPECT_EQ(RunChain(chain, input, row.in, out, 48000), bypassed);
    EXPECT_GT(*std::max_element(bypassed.begin(), bypassed.end()), 0.4f);
  }
}

TEST_F(ChainBuild, SameWorkspaceKeepsProcessesAndResendsEveryValue) {
  UseProbeModule();
  MakeEndpoint(DataFile("probe.xml"));
  techtest::TestModuleLog log;
  ZORLogCapture hostLog;
  ZORAPOProcessChain chain;
  ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 48000), 1));
  const auto first = log.Lines();
  ZORAPOProcessWrapper* const process = chain.GetProcess(0);
  // The mode's defaults, the chain's own control, and a reset with them.
  for (const char* line : {"setlong Probe-Level 100", "setlong Probe-Level -100", "settext Probe-Mode Loud",
                           "pass2 1 0 null"}) {
    EXPECT_EQ(Count(first, line), 1u) << line;
  }
  ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 48000), 1));
  const auto again = log.Lines();
  EXPECT_TRUE(hostLog.Contains("ConstrucChain: m_lastChain == cd !!!"));
  EXPECT_EQ(chain.GetProcess(0), process);
  EXPECT_EQ(Count(again, "create"), 0u);
  EXPECT_EQ(Count(again, "pass2 0 0 null"), 1u);
  EXPECT_EQ(Count(again, "set"), Count(first, "set"));

  // Nothing differs: nothing is sent. One value differs: all are sent.
  ZORUTSValueList values = chain.GetAppliedValues();
  EXPECT_FALSE(chain.ApplyValues(values));
  EXPECT_EQ(Count(log.Lines(), "set"), 0u);
  values.Insert(ZORUTSValue("P1:Probe-Level", "200"));
  EXPECT_TRUE(chain.ApplyValues(values));
  EXPECT_EQ(Count(log.Lines(), "set"), Count(first, "set"));

  ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 44100), 1));
  EXPECT_EQ(Count(log.Lines(), "create probe"), 2u) << "another rate rebuilds";
}

// Gain heard through veltech: another process's value, the chain's, and each tuning mode.
TEST_F(ChainBuild, ValuesStackByTuningModeAndChangeTheLevelExactly) {
  const ZORAPOEndpointInfo& endpoint = MakeEndpoint(ExampleFile("minimal.xml"));
  const ZORAPOWorkspace stereo = Workspace(1, 2, 2, 48000);
  ChildProcess panel;
  ASSERT_TRUE(panel.Start(HelperBesideTest("velapo_chain_settings_helper"),
                          {m_area.Root(), "public", zor::os::Utf16ToUtf8(endpoint.GetSettingsKeyPath()), "APO4-Default",
                           "APO4-Any Speaker", "SFX-Volume:Gain-Level", "-600"}));
  ASSERT_EQ(panel.Wait(20000), 0);
  ZORAPOTunedSettings tool;
  struct Row {
    const char* what;
    uint32_t in;
    int tuningMode;  // -1: no tool
    double db;
  } const rows[] = {
      {"user's value", 2, -1, -6.0},         {"chain control beats it", 6, -1, -3.0},
      {"tuning mode 0", 2, 0, -6.0},         {"tuning mode 1: user on top", 2, 1, -6.0},
      {"tuning mode 2: tool on top", 2, 2, -12.0}, {"other: mode default", 2, 7, 0.0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ZORUTSValueList tuned;
    tuned.Insert(ZORUTSValue("SFX-Volume:Gain-Level", "-1200"));
    tuned.Insert(ZORUTSValue("APO4-Tuning Mode", row.tuningMode));
    if (row.tuningMode >= 0) {
      ASSERT_TRUE(tool.Open(endpoint, stereo.mode, false) && tool.WriteAll(tuned));
    }
    ZORAPOProcessChain chain;
    ASSERT_TRUE(chain.ConstructChain(Workspace(1, row.in, 2, 48000), 1));
    std::vector<float> input;  // one signal on every channel, so each channel heard has its level
    for (const float sample : Noise(480, 7, 0.25f)) input.insert(input.end(), row.in, sample);
    std::vector<float> out;
    for (int block = 0; block < 40; ++block) out = RunChain(chain, input, row.in, 2, 48000);
    EXPECT_NEAR(LevelDb(out) - LevelDb(input), row.db, 0.01);
  }
  // A tool's change shows once.
  ZORAPOProcessChain chain;
  ASSERT_TRUE(chain.ConstructChain(stereo, 1));
  EXPECT_FALSE(chain.TuningChanged());
  ASSERT_TRUE(tool.WriteControl(ZORUTSValue("SFX-Volume:Gain-Level", "-300")));
  EXPECT_TRUE(chain.TuningChanged());
  EXPECT_FALSE(chain.TuningChanged());
}
