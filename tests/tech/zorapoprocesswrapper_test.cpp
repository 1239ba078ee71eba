// The wrapper around a tech process, against the test module: value routing,
// control reading, block adaption around the process, the side channel and
// the handing over of state.
#include "audio/zorapoprocesswrapper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

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

class RecordingHook : public IZORAPOProcessWrapperHook {
 public:
  explicit RecordingHook(float replacement = -1.0f) : m_replacement(replacement) {}
  void OnChannelData(ZORAPOProcessWrapper* wrapper, IZORAudioData<float>& data) override {
    ++calls;
    lastWrapper = wrapper;
    shape = {data.GetFrames(), data.GetChannels(), data.GetChannelRole(0), data.GetSampleRate()};
    float* samples = data.GetData(m_replacement >= 0.0f, false);
    firstSample = samples[0];
    if (m_replacement >= 0.0f) std::fill_n(samples, data.GetFrames(), m_replacement);
    data.ReleaseData();
  }
  int calls = 0;
  ZORAPOProcessWrapper* lastWrapper = nullptr;
  std::vector<uint32_t> shape;  // frames, channels, role, rate
  float firstSample = 0.0f;

 private:
  float m_replacement;
};

}  // namespace

TEST_F(ZORAPOProcessWrapperTest, LoadsInitsAndFailsOnlyInItsResults) {
  ZORLogCapture log;
  ZORAPOProcessWrapper wrapper;
  EXPECT_FALSE(wrapper.Init(2, 48000));  // nothing loaded
  ASSERT_TRUE(wrapper.Load("probe", "EQ", "some-hook", 0));
  EXPECT_EQ(wrapper.GetName(), "EQ");
  ASSERT_TRUE(wrapper.Init(2, 48000));
  EXPECT_EQ(wrapper.GetSampleRate(), 48000u);
  EXPECT_EQ(wrapper.GetLatency(), 0u);
  EXPECT_EQ(wrapper.GetTotalLatency(), 7u);
  // A second Load starts anew: the old process goes before the new comes.
  ASSERT_TRUE(wrapper.Load("probe", "EQ2", "", 0));
  EXPECT_EQ(wrapper.GetChannels(), 0u);
  EXPECT_EQ(m_log.Lines(), (Lines{"create probe EQ", "init 2 48000", "blocksize", "latency",
                                  "destroy probe EQ", "create probe EQ2"}));

  // Refused, or said yes to without a process: no name, no process, and
  // every face answers nothing.
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
  EXPECT_EQ(wrapper.GetChannels(), 0u);
  EXPECT_EQ(wrapper.GetSampleRate(), 0u);
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ZORAPOProcessWrapperTest, ValuesReachTheProcessesTheyAddress) {
  auto eq = Make("probe", "EQ");
  auto other = Make("probe", "Other");
  auto osfx = Make("probe", "OSFX_EQ");
  auto omfx = Make("probe", "OMFX_EQ");
  auto mfx = Make("probe", "MFX");
  const ZORUTSValue addressed("EQ:Gain", std::string("12"));
  EXPECT_TRUE(eq->SetControl(addressed));
  EXPECT_FALSE(other->SetControl(addressed));
  EXPECT_TRUE(other->SetControl(ZORUTSValue("Gain", std::string("5"))));  // bare: for all
  // Everything after the first colon names the control; the target is
  // compared exactly; the module's answer is the result.
  EXPECT_TRUE(eq->SetControl(ZORUTSValue("EQ:Band:Gain", 1)));
  EXPECT_FALSE(eq->SetControl(ZORUTSValue("eq:Gain", 1)));
  EXPECT_FALSE(eq->SetControl(ZORUTSValue("EQ:Refused", 1)));
  // Offload positions take their family's values, reading excepted.
  EXPECT_TRUE(osfx->SetControl(ZORUTSValue("SFX_EQ:Gain", 2)));
  EXPECT_FALSE(osfx->SetControl(ZORUTSValue("MFX_EQ:Gain", 2)));
  EXPECT_TRUE(omfx->SetControl(ZORUTSValue("MFX_EQ:Gain", 3)));
  EXPECT_FALSE(omfx->SetControl(ZORUTSValue("SFX_EQ:Gain", 3)));
  EXPECT_FALSE(mfx->SetControl(ZORUTSValue("SFX:Corvo-TK Enable", 1)));
  ZORUTSValue read("SFX_EQ:Gain", 0);
  EXPECT_FALSE(osfx->GetControl(read));
  EXPECT_EQ(m_log.Lines(), (Lines{"setlong Gain 12", "setlong Gain 5", "setlong Band:Gain 1",
                                  "setlong Refused 1", "setlong Gain 2", "setlong Gain 3"}));
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
      {ZORUTSValue("EQ:A", std::string("")), "settext A "},
      {ZORUTSValue("EQ:Headphone Name", std::string("7")), "settext Headphone Name 7"},
      {ZORUTSValue("Headphone Name", std::string("Studio -1")), "settext Headphone Name Studio -1"},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_TRUE(eq->SetControl(value)) << value.GetText();
    EXPECT_EQ(m_log.Lines(), Lines{expected}) << value.GetText();
  }
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
  ZORUTSValue unknown("EQ:Unknown", 9);
  EXPECT_FALSE(eq->GetControl(unknown));
  EXPECT_EQ(unknown.GetLong(), 9);
  ZORUTSValue elsewhere("Other:Level", 0);
  EXPECT_FALSE(eq->GetControl(elsewhere));

  std::vector<ZORUTSControlInfo> controls;
  ASSERT_EQ(eq->EnumControls(controls), 2u);
  EXPECT_EQ(controls[0].second, 1200);
  EXPECT_EQ(controls[0].GetScale(), 100.0f);
  EXPECT_EQ(controls[1].enumNames, (ZORUTSNameList{"Quiet", "Loud"}));
  int payload = 0;
  EXPECT_EQ(eq->PassThroughFirst(3, &payload, 40), 3040);
  EXPECT_EQ(eq->PassThroughSecond(1, nullptr, 0), -1000);
  EXPECT_EQ(m_log.Lines(), (Lines{"getlong Level", "getlong Name", "gettext Name", "getlong Unknown",
                                  "gettext Unknown", "controls", "pass1 3 40 data", "pass2 1 0 null"}));
}

TEST_F(ZORAPOProcessWrapperTest, BlockSizeZeroSeesTheHostsBlockAndRoles) {
  auto eq = Make("probe", "EQ");
  ASSERT_TRUE(eq->Init(3, 48000));
  EXPECT_EQ(eq->GetLatency(), 0u);
  m_log.Lines();
  ZORAudioDataFloat block = Ramp(480, {4, 5, 9});
  eq->SetBypass(true);  // kept for whoever asks, not consulted
  EXPECT_TRUE(eq->GetBypass());
  eq->Process(&block);
  EXPECT_EQ(m_log.Lines(), Lines{"process 480 inplace nohook roles 4 5 9"});
  // In place, no delay, each node on its own channel.
  const float* samples = block.GetData(false, false);
  for (uint32_t c = 0; c < 3; ++c) {
    for (uint32_t f : {0u, 479u}) EXPECT_EQ(samples[c * 480 + f], static_cast<float>((c + 1) * (c * 1000 + f)));
  }
  block.ReleaseData();
}

TEST_F(ZORAPOProcessWrapperTest, BlockSize256SeesFixedBlocksAndDelaysByTwoBlocks) {
  auto limiter = Make("probe-256", "LIM");
  ASSERT_TRUE(limiter->Init(3, 48000));
  EXPECT_EQ(limiter->GetLatency(), 512u);
  EXPECT_EQ(limiter->GetTotalLatency(), 519u);
  m_log.Lines();
  // Three host blocks of 480 frames with roles of their own.
  std::vector<float> out[3];
  for (uint32_t call = 0; call < 3; ++call) {
    ZORAudioDataFloat block = Ramp(480, {9, 9, 9});
    float* samples = block.GetData(true, false);
    for (uint32_t i = 0; i < 3 * 480; ++i) samples[i] += static_cast<float>(call * 480 + 1);
    block.ReleaseData();
    limiter->Process(&block);
    const float* processed = block.GetData(false, false);
    for (uint32_t c = 0; c < 3; ++c) out[c].insert(out[c].end(), processed + c * 480, processed + (c + 1) * 480);
    block.ReleaseData();
  }
  const Lines lines = m_log.Lines();
  EXPECT_GE(lines.size(), 3u);  // the 928 frames that came out went through it
  for (const std::string& line : lines) EXPECT_EQ(line, "process 256 inplace nohook roles 0 1 2");
  for (uint32_t c = 0; c < 3; ++c) {
    for (size_t i = 0; i < 512; ++i) ASSERT_EQ(out[c][i], 0.0f) << c << " " << i;
    for (size_t i = 512; i < out[c].size(); ++i) {
      ASSERT_EQ(out[c][i], static_cast<float>((c + 1) * (c * 1000 + i - 512 + 1))) << c << " " << i;
    }
  }
}

TEST_F(ZORAPOProcessWrapperTest, SideChannelReachesTheHooksOnlyAsALoneRoleSevenNode) {
  auto side = Make("sidechannel", "SIDE");
  ASSERT_TRUE(side->Init(2, 44100));
  m_log.Lines();
  ZORAudioDataFloat block = Ramp(64, {0, 1});
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
  EXPECT_EQ(pre.shape, (std::vector<uint32_t>{64, 1, 7, 44100}));
  EXPECT_EQ(pre.firstSample, 0.5f);
  EXPECT_EQ(post.calls, 1);

  // A pre-hook alone reads the side channel and leaves it as it was.
  RecordingHook readOnly;
  side->SetHooks(&readOnly, nullptr);
  side->Process(&block);
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

// Init sizes all that the audio thread uses, so that even the first block of
// any width, with its side channel, allocates nothing; a side channel longer
// than Init prepared for reaches the hooks in parts.
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
  EXPECT_FALSE(empty.TransferState(*outgoing));
  EXPECT_FALSE(outgoing->TransferState(empty));
  EXPECT_EQ(m_log.Lines(), (Lines{"copystate probe IN <- probe OUT", "copystate probe IN <- sidechannel SIDE"}));
}

TEST(ZORAPOProcessWrapper, ThePlainCModuleOfTheGuideRunsThroughTheHost) {
  ModuleDirectory directory(techtest::MinimalModuleDirectory());
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), Lines{"silence"});
  ZORAPOProcessWrapper silence, other;
  EXPECT_FALSE(silence.Load("noise", "S", "", 0));
  ASSERT_TRUE(silence.Load("silence", "S", "", 0));
  ASSERT_TRUE(other.Load("silence", "T", "", 0));
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
