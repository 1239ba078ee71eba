// Chains built from configuration: their shape, the failures that leave them
// on the bypass path, the stacking and delivery of values, and the examples.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "audio/zorapoprocesswrapper.h"
#include "chaintesting.h"
#include "childprocess.h"
#include "config/zorutscontrolinfo.h"
#include "support/zorlogcapture.h"
#include "system/zorapotunedsettings.h"
#include "platform/text.h"
#include "techtesting.h"

namespace {

using velapo::test::ChainEndpoint;
using velapo::test::RunChain;

size_t CountFragment(const std::vector<std::string>& lines, const std::string& fragment) {
  return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) {
    return l.find(fragment) != std::string::npos;
  }));
}

class ChainBuild : public ChainEndpoint {
 protected:
  void SetUp() override {
    ChainEndpoint::SetUp();
    UseTestModule();
  }
};

}  // namespace

TEST_F(ChainBuild, ShapeWidthAndProcessingRateFollowTheWorkspace) {
  struct Row {
    uint32_t location, in, out, rate;
    bool render;
    size_t processes;
    uint32_t chainChannels, internalRate;
    const char* init;  // the first process's Init, or null
  } const rows[] = {
      {1, 2, 2, 48000, true, 2, 2, 0, "init 2 48000"},
      {1, 2, 2, 44100, true, 2, 2, 0, "init 2 44100"},
      {1, 2, 2, 22050, true, 2, 2, 32000, "init 2 32000"},
      {1, 2, 2, 38050, true, 2, 2, 32000, "init 2 32000"},
      {1, 2, 2, 38051, true, 2, 2, 44100, "init 2 44100"},
      {1, 2, 6, 48000, true, 1, 6, 0, "init 2 48000"},  // upmix: processes at the input width
      {4, 2, 6, 48000, true, 1, 6, 0, "init 2 48000"},
      {1, 1, 2, 22050, true, 0, 2, 32000, nullptr},  // no processes, still resampled
      {1, 2, 2, 48000, false, 1, 2, 16000, "init 2 16000"},
      {1, 2, 2, 16000, false, 1, 2, 0, "init 2 16000"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.location << " " << row.in << ">" << row.out << " @"
                                    << row.rate << (row.render ? " render" : " capture"));
    techtest::TestModuleLog log;
    MakeEndpoint(velapo::test::kProbeConfig, row.render);
    ZORAPOProcessChain chain;
    ZORAPOWorkspace workspace = Workspace(row.location, row.in, row.out, row.rate);
    if (row.processes == 0) {  // files drop such chains; an embedder's mode may hold one
      workspace.mode.chainDefinition.chains.insert(
          workspace.mode.chainDefinition.chains.begin(),
          ZORAPOChainDesc{kZORLayoutMono, kZORLayoutStereo, true, {}, {}});
    }
    ASSERT_TRUE(chain.ConstructChain(workspace, row.location));
    EXPECT_TRUE(chain.IsBuilt());
    EXPECT_EQ(chain.GetProcessCount(), row.processes);
    EXPECT_EQ(chain.GetChainChannels(), row.chainChannels);
    EXPECT_EQ(chain.GetInternalRate(), row.internalRate);
    const auto lines = log.Lines();
    if (row.init != nullptr) {
      EXPECT_EQ(CountFragment(lines, row.init), row.processes);
    }
    // The tuned path runs: a stream block comes back at the stream's width.
    const auto out = RunChain(chain, velapo::test::Sine(480, row.in, row.rate, 0.5f), row.in,
                              row.out, row.rate);
    EXPECT_EQ(out.size(), 480u * row.out);
  }
}

TEST_F(ChainBuild, FailuresLeaveTheChainUnbuiltAndAudioOnTheBypassPath) {
  struct Row {
    const char* what;
    uint32_t in, out, rate;
    size_t processesLeft;  // a refused workspace leaves the chain as it stood
  } const rows[] = {
      {"layout 0", 3, 2, 48000, 2},  {"layout all bits", 2, 0, 48000, 2},
      {"rate 0", 2, 2, 0, 2},        {"no chain for the layouts", 8, 8, 48000, 0},
      {"refused process", 6, 2, 48000, 0}, {"no process handed out", 1, 1, 48000, 0},
      {"Init refused", 8, 2, 48000, 0},
  };
  MakeEndpoint(velapo::test::kProbeConfig);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ZORAPOProcessChain chain;
    ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 48000), 1));
    ZORAPOWorkspace workspace = Workspace(1, row.in, row.out, row.rate);
    if (row.out == 0) workspace.outputLayout = ZORAPOWorkspace::kNoLayout;
    EXPECT_FALSE(chain.ConstructChain(workspace, 1));
    EXPECT_FALSE(chain.IsBuilt());
    EXPECT_EQ(chain.GetProcessCount(), row.processesLeft);
    const uint32_t out = std::max(row.out, 1u);
    const auto input = velapo::test::Sine(480, row.in, 48000, 0.5f);
    ZORAPOProcessChain untouched;
    const auto expected = RunChain(untouched, input, row.in, out, 48000);
    EXPECT_EQ(RunChain(chain, input, row.in, out, 48000), expected);
    EXPECT_GT(*std::max_element(expected.begin(), expected.end()), 0.4f);
  }
}

TEST_F(ChainBuild, SameWorkspaceKeepsProcessesAndResendsEveryValue) {
  MakeEndpoint(velapo::test::kProbeConfig);
  techtest::TestModuleLog log;
  ZORLogCapture hostLog;
  ZORAPOProcessChain chain;
  ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 48000), 1));
  const auto first = log.Lines();
  ZORAPOProcessWrapper* const process = chain.GetProcess(0);
  // Mode default, then the chain's own control on top.
  EXPECT_EQ(CountFragment(first, "setlong Probe-Level 100"), 1u);
  EXPECT_EQ(CountFragment(first, "setlong Probe-Level -100"), 1u);
  EXPECT_EQ(CountFragment(first, "settext Probe-Mode Loud"), 1u);
  EXPECT_EQ(CountFragment(first, "pass2 1 0 null"), 1u) << "a first delivery resets";

  ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 48000), 1));
  const auto again = log.Lines();
  EXPECT_TRUE(hostLog.Contains("ConstrucChain: m_lastChain == cd !!!"));
  EXPECT_EQ(chain.GetProcess(0), process);
  EXPECT_EQ(CountFragment(again, "create"), 0u);
  EXPECT_EQ(CountFragment(again, "pass2 0 0 null"), 1u);
  EXPECT_EQ(CountFragment(again, "set"), CountFragment(first, "set"));

  // Nothing differs: nothing is sent. One value differs: all are sent.
  ZORUTSValueList values = chain.GetAppliedValues();
  EXPECT_FALSE(chain.ApplyValues(values));
  EXPECT_EQ(CountFragment(log.Lines(), "set"), 0u);
  values.Insert(ZORUTSValue("P1:Probe-Level", "200"));
  EXPECT_TRUE(chain.ApplyValues(values));
  EXPECT_EQ(CountFragment(log.Lines(), "set"), CountFragment(first, "set"));

  ASSERT_TRUE(chain.ConstructChain(Workspace(1, 2, 2, 44100), 1));
  EXPECT_EQ(CountFragment(log.Lines(), "create probe"), 2u) << "another rate rebuilds";
}

// The values a stream hears, end to end through veltech's gain: the mode's
// default, the chain's own control, a user's value stored by another
// process, and a tuning tool's block in each tuning mode.
TEST_F(ChainBuild, ValuesStackByTuningModeAndChangeTheLevelExactly) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  const ZORAPOEndpointInfo& endpoint = MakeEndpoint({}, true, velapo::test::ExamplePath("minimal.xml"));
  const ZORAPOWorkspace stereo = Workspace(1, 2, 2, 48000);
  velapo::test::ChildProcess panel;
  ASSERT_TRUE(panel.Start(velapo::test::HelperBesideTest("velapo_chain_settings_helper"),
                          {m_area.Root(), zor::os::Utf16ToUtf8(endpoint.GetSettingsKeyPath()),
                           "APO4-Default", "APO4-Any Speaker", "SFX-Volume:Gain-Level", "-600"}));
  ASSERT_EQ(panel.Wait(20000), 0);
  ZORAPOTunedSettings tool;
  ASSERT_TRUE(tool.Open(endpoint, stereo.mode, false));

  struct Row {
    const char* what;
    uint32_t in;
    int tuningMode;  // -1: no tuning tool
    double expectedDb;
  } const rows[] = {
      {"user's value", 2, -1, -6.0}, {"chain control beats it", 6, -1, -3.0},
      {"tuning mode 0", 2, 0, -6.0}, {"tuning mode 1: user on top", 2, 1, -6.0},
      {"tuning mode 2: tuning on top", 2, 2, -12.0}, {"other: mode default", 2, 7, 0.0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ZORUTSValueList tuned;
    tuned.Insert(ZORUTSValue("SFX-Volume:Gain-Level", "-1200"));
    tuned.Insert(ZORUTSValue("APO4-Tuning Mode", row.tuningMode));
    if (row.tuningMode >= 0) {
      ASSERT_TRUE(tool.WriteAll(tuned));
    } else {
      tool.Close();
    }
    ZORAPOProcessChain chain;
    ASSERT_TRUE(chain.ConstructChain(Workspace(1, row.in, 2, 48000), 1));
    const auto input = velapo::test::Sine(480, row.in, 48000, 0.25f);
    std::vector<float> out;
    for (int block = 0; block < 40; ++block) out = RunChain(chain, input, row.in, 2, 48000);
    EXPECT_NEAR(velapo::test::LevelDb(out) - velapo::test::LevelDb(input), row.expectedDb, 0.01);
    if (row.tuningMode < 0) {
      ASSERT_TRUE(tool.Open(endpoint, stereo.mode, false));
    }
  }
  // A tool's change shows once, then the chain is up to date again.
  ZORAPOProcessChain chain;
  ASSERT_TRUE(chain.ConstructChain(stereo, 1));
  EXPECT_FALSE(chain.TuningChanged());
  ASSERT_TRUE(tool.WriteControl(ZORUTSValue("SFX-Volume:Gain-Level", "-300")));
  EXPECT_TRUE(chain.TuningChanged());
  EXPECT_FALSE(chain.TuningChanged());
}

// Every chain the examples declare builds at its location, and every
// control they name reaches a live veltech process that lists it.
TEST_F(ChainBuild, ExamplesBuildAndEveryControlReachesAProcessThatKnowsIt) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  for (const char* name : {"laptop.xml", "minimal.xml"}) {
    SCOPED_TRACE(name);
    const ZORAPOEndpointInfo& capture = MakeEndpoint({}, false, velapo::test::ExamplePath(name));
    const ZORAPOEndpointInfo& render = MakeEndpoint({}, true, velapo::test::ExamplePath(name));
    std::set<std::string> named, reached;
    for (uint32_t location = 1; location <= 3; ++location) {
      ZORAPOConfigurationFile config;
      ASSERT_EQ(config.Load(configPath.u16string(), 0, location), 0u);
      for (const auto& mode : config.GetOperatingModes()) {
        for (const auto& [valueName, value] : mode->GetAllControls()) named.insert(valueName);
        for (const ZORAPOChainDesc& desc : mode->GetChainDefinition().chains) {
          for (const auto& [valueName, value] : desc.controls) named.insert(valueName);
          const auto lowest = [](uint32_t mask) { return mask == kZORLayoutAny ? 2u : mask & -mask; };
          ZORAPOWorkspace workspace{desc.isRender ? render : capture, *mode, lowest(desc.inputLayouts),
                                    lowest(desc.outputLayouts), 48000};
          ZORAPOProcessChain chain;
          ASSERT_TRUE(chain.ConstructChain(workspace, location)) << location;
          for (size_t i = 0; i < chain.GetProcessCount(); ++i) {
            std::vector<ZORUTSControlInfo> controls;
            chain.GetProcess(i)->EnumControls(controls);
            for (const ZORUTSControlInfo& control : controls) {
              reached.insert(chain.GetProcess(i)->GetName() + ":" + control.name);
            }
          }
        }
      }
    }
    for (const std::string& valueName : named) {
      if (valueName.find(':') != std::string::npos) {
        EXPECT_TRUE(reached.count(valueName)) << valueName;
      }
    }
  }
}
