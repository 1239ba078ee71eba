// velapo-host in-process: both stages under the audio loop on a private
// endpoint, the script's control actions through the real stores, and the
// control thread handing over actions while the loop plays.
#include "hoststream.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "apostage.h"
#include "control/controlpanel.h"
#include "hostcontrol.h"
#include "hostendpoint.h"
#include "platform/modulelookup.h"
#include "platform/text.h"
#include "managerstage.h"
#include "programme.h"
#include "scriptplayer.h"

namespace {

const std::string kLaptop = std::string(VELAPO_EXAMPLES_DIR) + "/laptop.xml";

// A private endpoint of the laptop example, gone with the test.
class LaptopEndpoint : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(endpoint.MakePrivate(kLaptop, error)) << error; }
  HostEndpoint endpoint;
  std::string error;
};

std::unique_ptr<IHostStage> Stage(const std::string& name) {
  if (name == "apo") return std::make_unique<ApoStage>();
  return std::make_unique<ManagerStage>();
}

struct StreamCase {
  const char* stage;
  uint32_t blockFrames;  // 480 is 10 ms; 441 leaves a partial last buffer
  double seconds;
};

class HostStreams : public LaptopEndpoint, public ::testing::WithParamInterface<StreamCase> {};

// Any block length: output as long as input, silent buffers flagged, latency reported.
TEST_P(HostStreams, KeepLengthAndMarkSilentBuffers) {
  const StreamCase& c = GetParam();
  const AudioClip input = MakeProgramme(c.seconds, 48000);
  HostFormat format{48000, 2, 2};
  std::unique_ptr<IHostStage> stage = Stage(c.stage);
  ASSERT_TRUE(stage->Start(endpoint, 2, format, error)) << error;
  HostStream stream(*stage, input, format, c.blockFrames, false, nullptr);
  stream.Start();
  stream.Join();
  EXPECT_TRUE(stream.Finished());
  EXPECT_EQ(stream.Output().Frames(), input.Frames());
  EXPECT_EQ(stream.Position(), input.Frames());
  uint32_t silent = 0;
  for (uint64_t first = 0; first < input.Frames(); first += c.blockFrames) {
    const uint64_t end = std::min<uint64_t>(first + c.blockFrames, input.Frames()) * 2;
    silent += std::all_of(input.samples.begin() + first * 2, input.samples.begin() + end, [](float s) { return s == 0; });
  }
  const StreamMeasures& m = stream.Measures();
  EXPECT_EQ(m.silentBuffers, silent);
  EXPECT_EQ(m.bufferMicros.size(), (input.Frames() + c.blockFrames - 1) / c.blockFrames);
  EXPECT_EQ(m.shortBuffers, 0u);
  // Both stages bind, Windows included: the host lists its endpoint.
  EXPECT_GT(stage->Latency(), 0) << "the MFX limiter looks ahead";
  EXPECT_NE(stream.Output().samples, input.samples) << "the MFX chain processes";
  stage->Stop();
}

INSTANTIATE_TEST_SUITE_P(Table, HostStreams,
                         ::testing::Values(StreamCase{"apo", 480, 2.0}, StreamCase{"apo", 441, 1.5},
                                           StreamCase{"manager", 480, 2.0}, StreamCase{"manager", 64, 1.0},
                                           StreamCase{"manager", 48000, 0.6}));

// Refused: formats the objects don't take, a location without a class, a bad --module.
TEST_F(LaptopEndpoint, TheApoStageRefusesFormatsAndModulesItCannotRun) {
  HostFormat stereo{48000, 2, 2}, mono{48000, 1, 1}, fast{384000, 2, 2};
  const auto tech = HostModule::DefaultPaths().front().parent_path() /
                    zor::os::Utf16ToUtf8(zor::os::OwnModuleFileName(zor::os::OwnModule::Tech));
  const std::string missing =
      "no-such-folder/" + std::filesystem::path(HostModule::DefaultPaths().front()).filename().string();
  const struct {
    std::string module;
    uint32_t location;
    HostFormat* format;
    const char* message;
  } cases[] = {{"", 1, &mono, "the SFX effect object refused 1 channels"},
               {"", 2, &fast, "the MFX effect object refused 2 channels"},
               {"", 6, &fast, "the module has no effect class at location 6"},
               {missing, 1, &stereo, "does not load"},
               {tech.string(), 1, &stereo, "lacks the engine module's exports"}};
  for (const auto& c : cases) {
    ApoStage stage(c.module);
    EXPECT_FALSE(stage.Start(endpoint, c.location, *c.format, error));
    EXPECT_NE(error.find(c.message), std::string::npos) << error;
  }
}

// A private endpoint leaves nothing behind; joining needs one that exists.
TEST(HostEndpoint, PrivateEndpointsComeAndGo) {
  std::string error;
  HostEndpoint missing;
  EXPECT_FALSE(missing.MakePrivate("/no/such/laptop.xml", error));
  EXPECT_EQ(error, "cannot read the configuration '/no/such/laptop.xml': no such file");
  std::string guid;
  {
    HostEndpoint endpoint;
    ASSERT_TRUE(endpoint.MakePrivate(kLaptop, error)) << error;
    guid = endpoint.GuidText();
    EXPECT_TRUE(endpoint.IsPrivate());
    EXPECT_EQ(endpoint.ConfigPath(), std::filesystem::absolute(kLaptop).string());
    ControlEndpoint control;
    EXPECT_TRUE(control.Open(guid).ok);
  }
  ControlEndpoint gone;
  EXPECT_FALSE(gone.Open(guid).ok) << "the endpoint was removed with its object";
}

// Every control action through the stores, read back as a control panel reads it; refusals write nothing.
TEST_F(LaptopEndpoint, HostControlCarriesActionsOutThroughTheStores) {
  HostControl control;
  ASSERT_TRUE(control.Open(endpoint.GuidText(), 2, error)) << error;
  HostScript script;
  ASSERT_TRUE(script.Parse("0 mode Movie\n"
                           "0 public MFX-Volume:Gain-Level = -600\n"
                           "0 global APO4-Process Enable = 0\n"
                           "0 tune MFX-Volume:Gain-Level = 1\n"
                           "0 tune open\n"
                           "0 tune MFX-Volume:Gain-Level = -1200\n"
                           "0 tune-mode 2\n"
                           "0 sysfx off\n"
                           "0 mode Karaoke\n"
                           "0 public MFX-Limiter:Limiter-Threshold = 0\n"
                           "0 global Volume = 3\n",
                           error))
      << error;
  const bool expected[] = {true, true, true, false, true, true, true, true, false, false, false};
  const auto& actions = script.Actions();
  for (size_t i = 0; i < actions.size(); ++i) {
    std::string why;
    EXPECT_EQ(control.Apply(actions[i], why), expected[i]) << actions[i].Describe() << ": " << why;
    EXPECT_EQ(why.empty(), expected[i]) << actions[i].Describe();
  }
  ControlEndpoint reader;
  ASSERT_TRUE(reader.Open(endpoint.GuidText()).ok);
  ASSERT_TRUE(reader.LoadConfiguration({}, 2).ok);
  const ControlPanel panel(reader);
  ZORAPOModeId mode;
  bool stored = false;
  ASSERT_TRUE(panel.GetMode(mode, stored).ok);
  EXPECT_TRUE(stored);
  EXPECT_EQ(mode.operatingMode.GetText(), "APO4-Movie");
  ZORUTSValueList global;
  ASSERT_TRUE(panel.ReadGlobalSettings(global).ok);
  const ZORUTSValue* processing = global.Find("APO4-Process Enable");
  ASSERT_NE(processing, nullptr);
  EXPECT_EQ(processing->GetLong(), 0);
  ZORAPOEndpointInfo info = endpoint.Info();
  ASSERT_TRUE(info.Refresh());
  EXPECT_TRUE(info.IsSysFxDisabled());
}

// The control thread carries out what the audio loop hands over, in order,
// while the loop goes on; stalls are the loop's own and keep their records.
TEST_F(LaptopEndpoint, ScriptPlayerCarriesOutHandedOverActionsInOrderFromItsThread) {
  HostControl control;
  ASSERT_TRUE(control.Open(endpoint.GuidText(), 1, error)) << error;
  HostScript script;
  ASSERT_TRUE(script.Parse("0.1 mode Movie\n0.2 stall 50\n0.3 mode Nothing\n0.4 sysfx off\n", error));
  ScriptPlayer player(script.Actions(), control);
  player.Start();
  for (size_t i = 0; i < script.Actions().size(); ++i) {
    player.SetPosition(script.Actions()[i].timeUs);
    if (!script.Actions()[i].IsControl()) {
      player.RecordStall(i, script.Actions()[i].timeUs);
    }
    player.Post(i);
  }
  player.Stop();
  const auto& events = player.Events();
  ASSERT_EQ(events.size(), 4u);
  EXPECT_TRUE(player.IsDone(3));
  const bool ok[] = {true, true, false, true};
  for (size_t i = 0; i < events.size(); ++i) {
    EXPECT_TRUE(events[i].done);
    EXPECT_EQ(events[i].ok, ok[i]) << i << ": " << events[i].error;
    EXPECT_GE(events[i].appliedUs, script.Actions()[i].timeUs);
  }
  EXPECT_NE(events[2].error.find("Nothing"), std::string::npos) << events[2].error;
}

}  // namespace
