// The wrapper around a tech process, against the test module: value routing,
// control reading, block adaption around the process, the side channel and
// the handing over of state.
#include "audio/zorapoprocesswrapper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "audio/zorapoprocesschain.h"
#include "support/zorlogcapture.h"
#include "techtesting.h"

namespace {

using techtest::ModuleDirectory;
using techtest::TestModuleLog;
using Lines = std::vector<std::string>;

class ZORAPOProcessWrapperTest : public ::testing::Test {
 protected:
  // Loads a wrapper of the test module and forgets the log lines so far.
  std::unique_ptr<ZORAPOProcessWrapper> Make(const std::string& techId, const std::string& instanceId) {
    auto wrapper = std::make_unique<ZORAPOProcessWrapper>();
    EXPECT_TRUE(wrapper->Load(techId, instanceId, "", 0)) << techId;
    m_log.Lines();
    return wrapper;
  }

  ModuleDirectory m_directory{techtest::TestModuleDirectory()};
  TestModuleLog m_log;
};

// A block whose channel c holds c * 1000 + frame, with the given roles.
ZORAudioDataFloat Ramp(uint32_t frames, std::vector<uint32_t> roles, uint32_t rate = 48000) {
  ZORAudioDataFloat block;
  block.Allocate(frames, static_cast<uint32_t>(roles.size()), rate);
  float* samples = block.GetData(true, false);
  for (uint32_t c = 0; c < roles.size(); ++c) {
    block.SetChannelRole(c, roles[c]);
    for (uint32_t f = 0; f < frames; ++f) samples[c * frames + f] = static_cast<float>(c * 1000 + f);
  }
  block.ReleaseData();
  return block;
}

class RecordingHook : public IZORAPOProcessWrapperHook {
 public:
  explicit RecordingHook(float replacement = -1.0f) : m_replacement(replacement) {}
  void OnChannelData(ZORAPOProcessWrapper* wrapper, IZORAudioData<float>& data) override {
    ++calls;
    lastWrapper = wrapper;
    frames = data.GetFrames();
    channels = data.GetChannels();
    role = data.GetChannelRole(0);
    rate = data.GetSampleRate();
    float* samples = data.GetData(m_replacement >= 0.0f, false);
    firstSample = samples[0];
    if (m_replacement >= 0.0f) std::fill_n(samples, data.GetFrames(), m_replacement);
    data.ReleaseData();
  }
  int calls = 0;
  ZORAPOProcessWrapper* lastWrapper = nullptr;
  uint32_t frames = 0, channels = 0, role = 0, rate = 0;
  float firstSample = 0.0f;

 private:
  float m_replacement;
};

}  // namespace

TEST_F(ZORAPOProcessWrapperTest, LoadAndInitDriveTheProcessInOrder) {
  ZORAPOProcessWrapper wrapper;
  EXPECT_EQ(wrapper.GetName(), "");
  EXPECT_FALSE(wrapper.Init(2, 48000));  // nothing loaded
  ASSERT_TRUE(wrapper.Load("probe", "EQ", "some-hook", 0));
  EXPECT_EQ(wrapper.GetName(), "EQ");
  ASSERT_TRUE(wrapper.Init(2, 48000));
  EXPECT_EQ(wrapper.GetChannels(), 2u);
  EXPECT_EQ(wrapper.GetSampleRate(), 48000u);
  EXPECT_EQ(wrapper.GetLatency(), 0u);
  EXPECT_EQ(wrapper.GetTotalLatency(), 7u);
  EXPECT_EQ(m_log.Lines(), (Lines{"create probe EQ", "init 2 48000", "blocksize", "latency"}));

  // A second Load starts anew: the old process goes, the new one comes.
  ASSERT_TRUE(wrapper.Load("probe", "EQ2", "", 0));
  EXPECT_EQ(wrapper.GetName(), "EQ2");
  EXPECT_EQ(wrapper.GetChannels(), 0u);
  EXPECT_EQ(m_log.Lines(), (Lines{"destroy probe EQ", "create probe EQ2"}));
}

TEST_F(ZORAPOProcessWrapperTest, FailuresShowOnlyInTheResults) {
  ZORLogCapture log;
  ZORAPOProcessWrapper wrapper;
  ASSERT_TRUE(wrapper.Load("probe", "EQ", "", 0));
  EXPECT_FALSE(wrapper.Load("refuse", "EQ", "", 0));
  EXPECT_EQ(wrapper.GetName(), "");
  EXPECT_EQ(wrapper.GetTechProcess(), nullptr);
  EXPECT_FALSE(wrapper.Load("null", "EQ", "", 0));
  EXPECT_EQ(wrapper.GetTechProcess(), nullptr);
  EXPECT_FALSE(wrapper.Init(2, 48000));
  // Without a process every face answers nothing, and nothing crashes.
  ZORUTSValue value("Gain", 3);
  EXPECT_FALSE(wrapper.SetControl(value));
  EXPECT_FALSE(wrapper.GetControl(value));
  std::vector<ZORUTSControlInfo> controls(3);
  EXPECT_EQ(wrapper.EnumControls(controls), 0u);
  EXPECT_TRUE(controls.empty());
  EXPECT_EQ(wrapper.PassThroughFirst(1, nullptr, 2), 0);
  EXPECT_EQ(wrapper.GetTotalLatency(), 0u);
  ZORAudioDataFloat block = Ramp(16, {0, 1});
  wrapper.Process(&block);
  EXPECT_EQ(block.GetData(false, false)[17], 1001.0f);
  block.ReleaseData();

  ASSERT_TRUE(wrapper.Load("fail-init", "EQ", "", 0));
  EXPECT_FALSE(wrapper.Init(2, 48000));
  EXPECT_EQ(wrapper.GetChannels(), 0u);
  EXPECT_EQ(wrapper.GetSampleRate(), 0u);
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ZORAPOProcessWrapperTest, ValuesReachTheProcessesTheyAddress) {
  auto eq = Make("probe", "EQ");
  auto other = Make("probe", "Other");
  ZORUTSValue addressed("EQ:Gain", std::string("12"));
  EXPECT_TRUE(eq->SetControl(addressed));
  EXPECT_FALSE(other->SetControl(addressed));
  ZORUTSValue bare("Gain", std::string("5"));
  EXPECT_TRUE(eq->SetControl(bare));
  EXPECT_TRUE(other->SetControl(bare));
  // Everything after the first colon names the control.
  EXPECT_TRUE(eq->SetControl(ZORUTSValue("EQ:Band:Gain", std::string("1"))));
  // The target is compared exactly.
  EXPECT_FALSE(eq->SetControl(ZORUTSValue("eq:Gain", std::string("1"))));
  EXPECT_FALSE(eq->SetControl(ZORUTSValue("EQ2:Gain", std::string("1"))));
  // The module's answer is the result.
  EXPECT_FALSE(eq->SetControl(ZORUTSValue("EQ:Refused", std::string("1"))));
  EXPECT_EQ(m_log.Lines(), (Lines{"setlong Gain 12", "setlong Gain 5", "setlong Gain 5",
                                  "setlong Band:Gain 1", "setlong Refused 1"}));
}

TEST_F(ZORAPOProcessWrapperTest, OffloadPositionsTakeTheValuesOfTheirFamily) {
  auto osfx = Make("probe", "OSFX_EQ");
  auto omfx = Make("probe", "OMFX_EQ");
  auto bareOsfx = Make("probe", "OSFX");
  auto mfx = Make("probe", "MFX");
  const ZORUTSValue toSfx("SFX_EQ:Gain", 1);
  const ZORUTSValue toMfx("MFX_EQ:Gain", 2);
  EXPECT_TRUE(osfx->SetControl(toSfx));
  EXPECT_FALSE(osfx->SetControl(toMfx));
  EXPECT_TRUE(omfx->SetControl(toMfx));
  EXPECT_FALSE(omfx->SetControl(toSfx));
  const ZORUTSValue tk("SFX:Corvo-TK Enable", std::string("Enabled"));
  EXPECT_TRUE(bareOsfx->SetControl(tk));
  EXPECT_FALSE(mfx->SetControl(tk));
  EXPECT_EQ(m_log.Lines(), (Lines{"setlong Gain 1", "setlong Gain 2", "setlong Corvo-TK Enable 1"}));

  // Reading has no family rule.
  ZORUTSValue read("SFX_EQ:Gain", 0);
  EXPECT_FALSE(osfx->GetControl(read));
  ZORUTSValue readM("MFX_EQ:Gain", 0);
  EXPECT_FALSE(omfx->GetControl(readM));
  EXPECT_TRUE(m_log.Lines().empty());
}

TEST_F(ZORAPOProcessWrapperTest, NumbersGoAsNumbersAndEverythingElseAsText) {
  auto eq = Make("probe", "EQ");
  const std::pair<ZORUTSValue, std::string> cases[] = {
      {ZORUTSValue("EQ:A", std::string("12")), "setlong A 12"},
      {ZORUTSValue("EQ:A", std::string("-1")), "setlong A -1"},
      {ZORUTSValue("EQ:A", -1), "setlong A -1"},
      {ZORUTSValue("EQ:A", std::string("x-1")), "setlong A -1"},
      {ZORUTSValue("EQ:A", std::string("abc")), "settext A abc"},
      {ZORUTSValue("EQ:A", std::string("+5")), "settext A +5"},
      {ZORUTSValue("EQ:A", std::string("1.9")), "setlong A 1"},
      {ZORUTSValue("EQ:A", std::string("Enabled")), "setlong A 1"},
      {ZORUTSValue("EQ:A", std::string("Disabled")), "setlong A 0"},
      {ZORUTSValue("EQ:A", std::string("")), "settext A "},
      {ZORUTSValue("EQ:Headphone Name", std::string("7")), "settext Headphone Name 7"},
      {ZORUTSValue("Headphone Name", std::string("Studio -1")), "settext Headphone Name Studio -1"},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_TRUE(eq->SetControl(value)) << value.name << " = " << value.GetText();
    EXPECT_EQ(m_log.Lines(), Lines{expected}) << value.GetText();
  }
}

TEST_F(ZORAPOProcessWrapperTest, GetControlAsksForANumberThenForText) {
  auto eq = Make("probe", "EQ");
  ASSERT_TRUE(eq->SetControl(ZORUTSValue("EQ:Level", 5)));
  ASSERT_TRUE(eq->SetControl(ZORUTSValue("EQ:Name", std::string("Studio"))));
  m_log.Lines();

  ZORUTSValue level("EQ:Level", std::string("stale"));
  const ZORUTSValue before = level;
  ASSERT_TRUE(eq->GetControl(level));
  EXPECT_EQ(level.name, "EQ:Level");
  EXPECT_NE(dynamic_cast<const VELAnyValLong*>(level.value.get()), nullptr);
  EXPECT_EQ(level.GetLong(), 5);
  EXPECT_EQ(before.GetText(), "stale");  // copies keep the old value

  ZORUTSValue name("Name", 0);
  ASSERT_TRUE(eq->GetControl(name));
  EXPECT_NE(dynamic_cast<const VELAnyValAString*>(name.value.get()), nullptr);
  EXPECT_EQ(name.GetText(), "Studio");

  ZORUTSValue unknown("EQ:Unknown", 9);
  EXPECT_FALSE(eq->GetControl(unknown));
  EXPECT_EQ(unknown.GetLong(), 9);
  ZORUTSValue elsewhere("Other:Level", 0);
  EXPECT_FALSE(eq->GetControl(elsewhere));
  EXPECT_EQ(m_log.Lines(), (Lines{"getlong Level", "getlong Name", "gettext Name", "getlong Unknown",
                                  "gettext Unknown"}));
}

TEST_F(ZORAPOProcessWrapperTest, ControlTableAndPassThroughsReachTheHost) {
  auto eq = Make("probe", "EQ");
  std::vector<ZORUTSControlInfo> controls;
  ASSERT_EQ(eq->EnumControls(controls), 2u);
  ASSERT_EQ(controls.size(), 2u);
  EXPECT_EQ(controls[0].name, "Probe-Level");
  EXPECT_EQ(controls[0].first, -2400);
  EXPECT_EQ(controls[0].second, 1200);
  EXPECT_EQ(controls[0].GetScale(), 100.0f);
  EXPECT_EQ(controls[1].name, "Probe-Mode");
  EXPECT_EQ(controls[1].enumNames, (ZORUTSNameList{"Quiet", "Loud"}));
  EXPECT_EQ(controls[1].GetScale(), 1.0f);

  int payload = 0;
  EXPECT_EQ(eq->PassThroughFirst(3, &payload, 40), 3040);
  EXPECT_EQ(eq->PassThroughSecond(1, nullptr, 0), -1000);
  EXPECT_EQ(m_log.Lines(), (Lines{"controls", "pass1 3 40 data", "pass2 1 0 null"}));
}

TEST_F(ZORAPOProcessWrapperTest, BlockSizeZeroSeesTheHostsBlockAndRoles) {
  auto eq = Make("probe", "EQ");
  ASSERT_TRUE(eq->Init(3, 48000));
  EXPECT_EQ(eq->GetLatency(), 0u);
  m_log.Lines();
  ZORAudioDataFloat block = Ramp(480, {4, 5, 9});
  eq->Process(&block);
  EXPECT_EQ(m_log.Lines(), Lines{"process 480 inplace nohook roles 4 5 9"});
  // In place, no delay, each node on its own channel.
  const float* samples = block.GetData(false, false);
  for (uint32_t c = 0; c < 3; ++c) {
    for (uint32_t f : {0u, 1u, 479u}) {
      EXPECT_EQ(samples[c * 480 + f], static_cast<float>((c + 1) * (c * 1000 + f))) << c << " " << f;
    }
  }
  block.ReleaseData();
  // The bypass flag is kept, not consulted.
  eq->SetBypass(true);
  EXPECT_TRUE(eq->GetBypass());
  eq->Process(&block);
  EXPECT_EQ(m_log.Lines().size(), 1u);
  eq->SetBypass(false);
  EXPECT_FALSE(eq->GetBypass());
}

TEST_F(ZORAPOProcessWrapperTest, BlockSize256SeesFixedBlocksAndDelaysByTwoBlocks) {
  auto limiter = Make("probe-256", "LIM");
  ASSERT_TRUE(limiter->Init(3, 48000));
  EXPECT_EQ(limiter->GetLatency(), 512u);
  EXPECT_EQ(limiter->GetTotalLatency(), 519u);
  m_log.Lines();

  // Three host blocks of 480 frames: 1440 frames in, 1440 - 512 = 928 of
  // them through the process, in blocks of 256 (the first two of silence).
  std::vector<float> out[3];
  for (int call = 0; call < 3; ++call) {
    ZORAudioDataFloat block;
    block.Allocate(480, 3, 48000);
    float* samples = block.GetData(true, false);
    for (uint32_t c = 0; c < 3; ++c) {
      block.SetChannelRole(c, 9);  // the host's roles don't reach the process
      for (uint32_t f = 0; f < 480; ++f) samples[c * 480 + f] = static_cast<float>(c * 10000 + call * 480 + f + 1);
    }
    block.ReleaseData();
    limiter->Process(&block);
    const float* processed = block.GetData(false, false);
    for (uint32_t c = 0; c < 3; ++c) out[c].insert(out[c].end(), processed + c * 480, processed + (c + 1) * 480);
    block.ReleaseData();
  }
  const Lines lines = m_log.Lines();
  ASSERT_FALSE(lines.empty());
  for (const std::string& line : lines) EXPECT_EQ(line, "process 256 inplace nohook roles 0 1 2");
  for (uint32_t c = 0; c < 3; ++c) {
    for (size_t i = 0; i < 512; ++i) ASSERT_EQ(out[c][i], 0.0f) << c << " " << i;
    for (size_t i = 512; i < out[c].size(); ++i) {
      ASSERT_EQ(out[c][i], static_cast<float>((c + 1) * (c * 10000 + i - 512 + 1))) << c << " " << i;
    }
  }
}

TEST_F(ZORAPOProcessWrapperTest, SideChannelReachesTheHooksOnlyAsALoneRoleSevenNode) {
  auto side = Make("sidechannel", "SIDE");
  ASSERT_TRUE(side->Init(2, 44100));
  m_log.Lines();
  ZORAudioDataFloat block = Ramp(64, {0, 1});

  // No hook: the process gets none.
  side->Process(&block);
  EXPECT_EQ(m_log.Lines(), Lines{"process 64 inplace nohook roles 0 1"});

  RecordingHook pre;
  RecordingHook post(0.25f);
  side->SetHooks(&pre, &post);
  side->Process(&block);
  EXPECT_EQ(m_log.Lines(), (Lines{"process 64 inplace hook roles 0 1", "side lone7 0.250000",
                                  "side pair7 0.500000", "side lone0 0.500000"}));
  EXPECT_EQ(pre.calls, 1);
  EXPECT_EQ(pre.lastWrapper, side.get());
  EXPECT_EQ(pre.frames, 64u);
  EXPECT_EQ(pre.channels, 1u);
  EXPECT_EQ(pre.role, 7u);
  EXPECT_EQ(pre.rate, 44100u);
  EXPECT_EQ(pre.firstSample, 0.5f);
  EXPECT_EQ(post.calls, 1);

  // A pre-hook alone reads the side channel and leaves it as it was.
  RecordingHook readOnly;
  side->SetHooks(&readOnly, nullptr);
  side->Process(&block);
  EXPECT_EQ(readOnly.calls, 1);
  EXPECT_EQ(readOnly.firstSample, 0.5f);
  EXPECT_EQ(m_log.Lines()[1], "side lone7 0.500000");

  // A new Load drops the hooks.
  ASSERT_TRUE(side->Load("sidechannel", "SIDE", "", 0));
  ASSERT_TRUE(side->Init(2, 44100));
  m_log.Lines();
  side->Process(&block);
  EXPECT_EQ(m_log.Lines(), Lines{"process 64 inplace nohook roles 0 1"});
  EXPECT_EQ(readOnly.calls, 1);
}

TEST_F(ZORAPOProcessWrapperTest, TransferStateAsksTheProcessOfThisWrapper) {
  auto incoming = Make("probe", "IN");
  auto outgoing = Make("probe", "OUT");
  auto different = Make("sidechannel", "SIDE");
  EXPECT_TRUE(incoming->TransferState(*outgoing));
  EXPECT_FALSE(incoming->TransferState(*different));
  EXPECT_EQ(m_log.Lines(), (Lines{"copystate probe IN <- probe OUT", "copystate probe IN <- sidechannel SIDE"}));
  ZORAPOProcessWrapper empty;
  EXPECT_FALSE(empty.TransferState(*outgoing));
  EXPECT_FALSE(outgoing->TransferState(empty));
  EXPECT_TRUE(m_log.Lines().empty());
}

TEST(ZORAPOProcessWrapper, ThePlainCModuleOfTheGuideRunsThroughTheHost) {
  ModuleDirectory directory(techtest::MinimalModuleDirectory());
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), Lines{"silence"});
  ZORAPOProcessWrapper silence, other;
  ASSERT_TRUE(silence.Load("silence", "S", "", 0));
  ASSERT_TRUE(other.Load("silence", "T", "", 0));
  EXPECT_FALSE(silence.Load("noise", "S", "", 0));
  ASSERT_TRUE(silence.Load("silence", "S", "", 0));
  ASSERT_TRUE(silence.Init(2, 48000));
  EXPECT_EQ(silence.GetTotalLatency(), 0u);
  std::vector<ZORUTSControlInfo> controls;
  EXPECT_EQ(silence.EnumControls(controls), 0u);
  EXPECT_FALSE(silence.SetControl(ZORUTSValue("S:Anything", 1)));
  ZORAudioDataFloat block = Ramp(32, {0, 1});
  silence.Process(&block);
  const float* samples = block.GetData(false, false);
  EXPECT_TRUE(std::all_of(samples, samples + 64, [](float s) { return s == 0.0f; }));
  block.ReleaseData();
  EXPECT_TRUE(silence.TransferState(other));
}
