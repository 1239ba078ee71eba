// The wrapper around a tech process, against the test module: failures, value
// routing, control reading, block adaption, the side channel and state hand-over.
#include "audio/zorapoprocesswrapper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "allocationcounter.h"
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
ZORAudioDataFloat Ramp(uint32_t frames, const std::vector<uint32_t>& roles) {
  ZORAudioDataFloat block;
  block.Allocate(frames, static_cast<uint32_t>(roles.size()), 48000);
  float* samples = block.GetData(true, false);
  for (uint32_t c = 0; c < roles.size(); ++c) {
    block.SetChannelRole(c, roles[c]);
    for (uint32_t f = 0; f < frames; ++f) samples[c * frames + f] = static_cast<float>(c * 1000 + f);
  }
  block.ReleaseData();
  return block;
}

// Records what the side channel brings; writes `replacement` into it when >= 0.
struct RecordingHook : IZORAPOProcessWrapperHook {
  explicit RecordingHook(float replace = -1.0f) : replacement(replace) {}
  void OnChannelData(ZORAPOProcessWrapper* wrapper, IZORAudioData<float>& data) override {
    ++calls;
    lastWrapper = wrapper;
    shape = {data.GetFrames(), data.GetChannels(), data.GetChannelRole(0), data.GetSampleRate()};
    float* samples = data.GetData(replacement >= 0.0f, false);
    firstSample = samples[0];
    if (replacement >= 0.0f) std::fill_n(samples, data.GetFrames(), replacement);
    data.ReleaseData();
  }
  float replacement;
  int calls = 0;
  ZORAPOProcessWrapper* lastWrapper = nullptr;
  std::vector<uint32_t> shape;  // frames, channels, role, rate
  float firstSample = 0.0f;
};

}  // namespace

TEST_F(ZORAPOProcessWrapperTest, FailuresShowOnlyInResultsAndAudioPasses) {
  ZORLogCapture log;
  ZORAPOProcessWrapper wrapper;
  EXPECT_FALSE(wrapper.Init(2, 48000));  // nothing loaded
  ASSERT_TRUE(wrapper.Load("probe", "EQ", "some-hook", 0));
  ASSERT_TRUE(wrapper.Init(2, 48000));
  EXPECT_EQ(wrapper.GetTotalLatency(), 7u);
  // A second Load starts anew: the old process goes before the new comes.
  ASSERT_TRUE(wrapper.Load("probe", "EQ2", "", 0));
  EXPECT_EQ(wrapper.GetChannels(), 0u);
  EXPECT_EQ(m_log.Lines(), (Lines{"create probe EQ", "init 2 48000", "blocksize", "latency", "destroy probe EQ",
                                  "create probe EQ2"}));
  // Refused, or said yes to without a process: every face answers nothing.
  for (const char* techId : {"refuse", "null"}) {
    EXPECT_FALSE(wrapper.Load(techId, "EQ", "", 0));
    EXPECT_EQ(wrapper.GetName(), "");
    EXPECT_EQ(wrapper.GetTechProcess(), nullptr);
  }
  EXPECT_FALSE(wrapper.Init(2, 48000));
  ZORUTSValue value("Gain", 3);
  EXPECT_FALSE(wrapper.SetControl(value) || wrapper.GetControl(value));
  std::vector<ZORUTSControlInfo> controls(3);
  EXPECT_EQ(wrapper.EnumControls(controls) + wrapper.GetTotalLatency(), 0u);
  ZORAudioDataFloat block = Ramp(16, {0, 1});
  wrapper.Process(&block);
  EXPECT_EQ(block.GetData(false, false)[17], 1001.0f);
  block.ReleaseData();
  ASSERT_TRUE(wrapper.Load("fail-init", "EQ", "", 0));
  EXPECT_FALSE(wrapper.Init(2, 48000));
  EXPECT_EQ(wrapper.GetSampleRate(), 0u);
  EXPECT_TRUE(log.Lines().empty());
}

// Which wrapper takes a value, and whether as a number or as text.
TEST_F(ZORAPOProcessWrapperTest, ValuesReachTheProcessesTheyAddressInTheirForm) {
  struct Row {
    const char* instance;
    ZORUTSValue value;
    bool taken;
    const char* logged;  // nullptr: the process isn't asked
  };
  const Row rows[] = {
      {"EQ", {"EQ:Gain", std::string("12")}, true, "setlong Gain 12"},
      {"Other", {"EQ:Gain", std::string("12")}, false, nullptr},
      {"Other", {"Gain", std::string("5")}, true, "setlong Gain 5"},  // bare: for all
      {"EQ", {"EQ:Band:Gain", 1}, true, "setlong Band:Gain 1"},     // after the first colon
      {"EQ", {"eq:Gain", 1}, false, nullptr},                        // the target exactly
      {"EQ", {"EQ:Refused", 1}, false, "setlong Refused 1"},         // the module's answer
      {"OSFX_EQ", {"SFX_EQ:Gain", 2}, true, "setlong Gain 2"},       // offload: its family's values
      {"OSFX_EQ", {"MFX_EQ:Gain", 2}, false, nullptr},
      {"OMFX_EQ", {"MFX_EQ:Gain", 3}, true, "setlong Gain 3"},
      {"OMFX_EQ", {"SFX_EQ:Gain", 3}, false, nullptr},
      {"MFX", {"SFX:Corvo-TK Enable", 1}, false, nullptr},
      {"EQ", {"EQ:A", std::string("-1")}, true, "setlong A -1"},
      {"EQ", {"EQ:A", std::string("x-1")}, true, "setlong A -1"},
      {"EQ", {"EQ:A", std::string("abc")}, true, "settext A abc"},
      {"EQ", {"EQ:A", std::string("+5")}, true, "settext A +5"},
      {"EQ", {"EQ:A", std::string("1.9")}, true, "setlong A 1"},
      {"EQ", {"EQ:A", std::string("Enabled")}, true, "setlong A 1"},
      {"EQ", {"EQ:A", std::string("")}, true, "settext A "},
      {"EQ", {"EQ:Headphone Name", std::string("7")}, true, "settext Headphone Name 7"},
      {"EQ", {"Headphone Name", std::string("Studio -1")}, true, "settext Headphone Name Studio -1"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.instance << " <- " << row.value.name << " " << row.value.GetText());
    auto wrapper = Make("probe", row.instance);
    EXPECT_EQ(wrapper->SetControl(row.value), row.taken);
    EXPECT_EQ(m_log.Lines(), row.logged != nullptr ? Lines{row.logged} : Lines{});
  }
  auto osfx = Make("probe", "OSFX_EQ");
  ZORUTSValue read("SFX_EQ:Gain", 0);
  EXPECT_FALSE(osfx->GetControl(read));  // reading excepted
}

TEST_F(ZORAPOProcessWrapperTest, ReadsControlsAsNumberThenTextAndListsTheTable) {
  auto eq = Make("probe", "EQ");
  ASSERT_TRUE(eq->SetControl(ZORUTSValue("EQ:Level", 5)));
  ASSERT_TRUE(eq->SetControl(ZORUTSValue("EQ:Name", std::string("Studio"))));
  m_log.Lines();
  ZORUTSValue level("EQ:Level", std::string("stale"));
  ASSERT_TRUE(eq->GetControl(level));
  EXPECT_NE(dynamic_cast<const VELAnyValLong*>(level.value.get()), nullptr);
  EXPECT_EQ(level.GetLong(), 5);
  ZORUTSValue name("Name", 0);
  ASSERT_TRUE(eq->GetControl(name));
  EXPECT_EQ(name.GetText(), "Studio");
  ZORUTSValue unknown("EQ:Unknown", 9), elsewhere("Other:Level", 0);
  EXPECT_FALSE(eq->GetControl(unknown) || eq->GetControl(elsewhere));
  EXPECT_EQ(unknown.GetLong(), 9);
  std::vector<ZORUTSControlInfo> controls;
  ASSERT_EQ(eq->EnumControls(controls), 2u);
  EXPECT_EQ(controls[0].GetScale(), 100.0f);
  EXPECT_EQ(controls[1].enumNames, (ZORUTSNameList{"Quiet", "Loud"}));
  int payload = 0;
  EXPECT_EQ(eq->PassThroughFirst(3, &payload, 40), 3040);
  EXPECT_EQ(eq->PassThroughSecond(1, nullptr, 0), -1000);
  EXPECT_EQ(m_log.Lines(), (Lines{"getlong Level", "getlong Name", "gettext Name", "getlong Unknown",
                                  "gettext Unknown", "controls", "pass1 3 40 data", "pass2 1 0 null"}));
}

TEST_F(ZORAPOProcessWrapperTest, SideChannelReachesTheHooksOnlyAsALoneRoleSevenNode) {
  auto side = Make("sidechannel", "SIDE");
  ASSERT_TRUE(side->Init(2, 44100));
  ZORAudioDataFloat block = Ramp(64, {0, 1});
  RecordingHook pre, post(0.25f), readOnly;
  side->SetHooks(&pre, &post);
  side->Process(&block);
  EXPECT_EQ(m_log.Lines(), (Lines{"init 2 44100", "blocksize", "process 64 inplace hook roles 0 1",
                                  "side lone7 0.250000", "side pair7 0.500000", "side lone0 0.500000"}));
  EXPECT_EQ(pre.calls, 1);
  EXPECT_EQ(pre.lastWrapper, side.get());
  EXPECT_EQ(pre.shape, (std::vector<uint32_t>{64, 1, 7, 44100}));
  EXPECT_EQ(pre.firstSample, 0.5f);
  EXPECT_EQ(post.calls, 1);
  // A pre-hook alone reads the side channel and leaves it as it was.
  side->SetHooks(&readOnly, nullptr);
  side->Process(&block);
  EXPECT_EQ(m_log.Lines()[1], "side lone7 0.500000");
  // A new Load drops the hooks.
  ASSERT_TRUE(side->Load("sidechannel", "SIDE", "", 0));
  ASSERT_TRUE(side->Init(2, 44100));
  m_log.Lines();
  side->Process(&block);
  EXPECT_EQ(m_log.Lines(), Lines{"process 64 inplace nohook roles 0 1"});
  EXPECT_EQ(readOnly.calls, 1);
}

// Even the first block of any width, with its side channel, allocates nothing;
// a side channel longer than Init prepared for reaches the hooks in parts.
TEST_F(ZORAPOProcessWrapperTest, TheAudioThreadAllocatesNothingFromTheFirstBlock) {
  struct FrameCounter : IZORAPOProcessWrapperHook {
    void OnChannelData(ZORAPOProcessWrapper*, IZORAudioData<float>& data) override {
      parts += 1;
      frames += data.GetFrames();
    }
    uint32_t parts = 0, frames = 0;
  } pre, post;
  auto side = Make("quietside", "SIDE");
  ASSERT_TRUE(side->Init(2, 48000));
  side->SetHooks(&pre, &post);
  for (const auto& [width, frames] : {std::pair{1u, 480u}, {2u, 480u}, {6u, 64u}, {24u, 480u}, {2u, 6000u}}) {
    ZORAudioDataFloat block = Ramp(frames, std::vector<uint32_t>(width, 0));
    velapo::test::AllocationCounter counter;
    side->Process(&block);
    EXPECT_EQ(counter.Count(), 0u) << width << " channels, " << frames << " frames";
  }
  EXPECT_EQ(pre.parts, 6u) << "6000 frames in parts of 4800";
  EXPECT_EQ(pre.frames, 480u * 3 + 64 + 6000);
  EXPECT_EQ(post.frames, pre.frames);
}

TEST_F(ZORAPOProcessWrapperTest, TransferStateAsksTheProcessOfThisWrapper) {
  auto incoming = Make("probe", "IN");
  auto outgoing = Make("probe", "OUT");
  auto different = Make("sidechannel", "SIDE");
  EXPECT_TRUE(incoming->TransferState(*outgoing));
  EXPECT_FALSE(incoming->TransferState(*different));
  ZORAPOProcessWrapper empty;
  EXPECT_FALSE(empty.TransferState(*outgoing) || outgoing->TransferState(empty));
  EXPECT_EQ(m_log.Lines(), (Lines{"copystate probe IN <- probe OUT", "copystate probe IN <- sidechannel SIDE"}));
}

// The plain C module of the guide runs through the host.
TEST(ZORAPOProcessWrapper, TheMinimalCModuleSilencesItsAudio) {
  ModuleDirectory directory(techtest::MinimalModuleDirectory());
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), Lines{"silence"});
  ZORAPOProcessWrapper silence, other;
  EXPECT_FALSE(silence.Load("noise", "S", "", 0));
  ASSERT_TRUE(silence.Load("silence", "S", "", 0) && other.Load("silence", "T", "", 0));
  ASSERT_TRUE(silence.Init(2, 48000));
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
