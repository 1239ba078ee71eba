// velapo-ctl's commands, run in-process: every subcommand's happy path and
// bad input from one table, and round trips whose results are read back
// through the engine's own classes, which is what proves the tool writes
// what the engine reads.
#include <filesystem>
#include <fstream>

#include "config/zorapoglobalsettings.h"
#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettings.h"
#include "control/controlendpoint.h"
#include "ctlfixture.h"
#include "platform/registry.h"
#include "system/zoraposharedmeter.h"
#include "values/zorpropertyblob.h"

namespace {

using ::testing::HasSubstr;

struct CtlCase {
  const char* name;
  std::vector<std::string> args;  // "@" is replaced by the test's endpoint GUID
  int code;
  const char* expected;  // in the output, or in the errors for a failure
};

class CtlTable : public CtlFixture, public ::testing::WithParamInterface<CtlCase> {};

const std::string kBadConfig = "bad-config";  // replaced by a file with a misspelt control

TEST_P(CtlTable, AnswersWithItsExitCodeAndSaysWhy) {
  const CtlCase& c = GetParam();
  std::vector<std::string> args;
  const auto bad = std::filesystem::temp_directory_path() / ("velapo-ctl-bad-" + m_adapter + ".xml");
  for (const std::string& arg : c.args) {
    if (arg == "@") {
      args.push_back(m_guid);
    } else if (arg == kBadConfig) {
      std::ifstream source(m_examples + "/minimal.xml");
      std::string text((std::istreambuf_iterator<char>(source)), std::istreambuf_iterator<char>());
      const size_t at = text.find(":Gain-Level");
      ASSERT_NE(at, std::string::npos);
      text.replace(at, 11, ":Gain-Levle");
      std::ofstream(bad) << text;
      args.push_back(bad.string());
    } else if (arg.starts_with("examples/")) {
      args.push_back(m_examples + arg.substr(8));
    } else {
      args.push_back(arg);
    }
  }
  const CtlRun run = Run(args);
  std::filesystem::remove(bad);
  EXPECT_EQ(run.code, c.code) << run.out << run.err;
  EXPECT_THAT(c.code == 0 || c.code == 3 ? run.out : run.err, HasSubstr(c.expected)) << run.out << run.err;
}

INSTANTIATE_TEST_SUITE_P(Commands, CtlTable, ::testing::Values(
    CtlCase{"Help", {"--help"}, 0, "Exit codes"},
    CtlCase{"SubcommandHelp", {"settings", "set", "--help"}, 0, "--mode"},
    CtlCase{"NoCommand", {}, 2, "subcommand"},
    CtlCase{"UnknownCommand", {"-e", "@", "volume"}, 2, "unknown command 'volume'; commands: endpoints, mode"},
    CtlCase{"List", {"endpoints"}, 0, "Speakers"},
    CtlCase{"AddTwice", {"endpoints", "add", "@"}, 1, "exists already"},
    CtlCase{"AddNotAGuid", {"endpoints", "add", "{1234}"}, 1, "is not an endpoint GUID"},
    CtlCase{"RemoveUnknown", {"endpoints", "remove", "{00000000-0000-0000-0000-0000000000AB}"}, 1, "cannot remove"},
    CtlCase{"SysfxBadState", {"-e", "@", "endpoints", "sysfx", "maybe"}, 2, "maybe"},
    CtlCase{"UnknownEndpoint", {"-e", "{00000000-0000-0000-0000-0000000000AB}", "mode", "get"}, 1, "no Render endpoint"},
    CtlCase{"ModeList", {"-e", "@", "mode", "list"}, 0, "APO4-Voice/APO4-Headphones"},
    CtlCase{"ModeGetDefault", {"-e", "@", "mode"}, 0, "none stored"},
    CtlCase{"ModeSetShort", {"-e", "@", "mode", "set", "Movie/Headphones"}, 0, "APO4-Movie/APO4-Headphones"},
    CtlCase{"ModeSetUnknown", {"-e", "@", "mode", "set", "Jazz"}, 1, "names no mode"},
    CtlCase{"ModeConfigMissing", {"-e", "@", "--config", "/nonexistent.xml", "mode"}, 1, "does not load"},
    CtlCase{"SettingsList", {"-e", "@", "settings", "list", "--mode", "Voice"}, 0, "MFX-Volume:Gain-Level = 300"},
    CtlCase{"SettingNotPublic", {"-e", "@", "settings", "set", "SFX-EQ:PEQ-Band1 Q", "5"}, 1, "not a public control"},
    CtlCase{"SettingGetUnknown", {"-e", "@", "settings", "get", "Nope"}, 1, "no setting named"},
    CtlCase{"SettingsNoAction", {"-e", "@", "settings"}, 2, "subcommand"},
    CtlCase{"GlobalUnknown", {"-e", "@", "settings", "global", "APO4-Volume", "1"}, 1, "not a global setting"},
    CtlCase{"GlobalList", {"-e", "@", "settings", "global"}, 0, "APO4-Process Enable = 1"},
    CtlCase{"TuneNotAssignment", {"-e", "@", "tune", "Gain-Level"}, 1, "is not NAME=VALUE"},
    CtlCase{"TuneUnknownControl", {"-e", "@", "tune", "MFX-Nope:X=1"}, 1, "is not a control of"},
    CtlCase{"TuneUnknownMode", {"-e", "@", "tune", "--mode", "Jazz"}, 1, "names no mode"},
    CtlCase{"MetersOnce", {"-e", "@", "meters", "--once"}, 0, "output: 0 0"},
    CtlCase{"MetersBadInterval", {"-e", "@", "meters", "--interval", "1"}, 2, "interval"},
    CtlCase{"DumpNoSource", {"dump"}, 2, "Exactly 1 option from [--value"},
    CtlCase{"DumpTwoSources", {"dump", "--file", "x", "--value", "y"}, 2, "2 were given"},
    CtlCase{"DumpMissingValue", {"-e", "@", "dump", "--value", "VelApoCurrOpMode"}, 1, "cannot read value"},
    CtlCase{"DumpMissingFile", {"dump", "--file", "/nonexistent.bin"}, 1, "cannot open"},
    CtlCase{"DumpNoBlock", {"-e", "@", "dump", "--tuned", "Voice"}, 1, "no shared block"},
    CtlCase{"CheckLaptop", {"check", "examples/laptop.xml"}, 0, "every control reaches"},
    CtlCase{"CheckMinimal", {"check", "examples/minimal.xml"}, 0, "every control reaches"},
    CtlCase{"CheckEndpoint", {"-e", "@", "check"}, 0, "Velapo Laptop Audio"},
    CtlCase{"CheckMissing", {"check", "/nonexistent.xml"}, 4, "status 6"},
    CtlCase{"CheckMisspelt", {"check", "bad-config"}, 3, "Gain-Levle: no process it reaches has a control"}),
    [](const auto& param) { return std::string(param.param.name); });

using CtlRoundTrip = CtlFixture;

TEST_F(CtlRoundTrip, ModeAndSettingsAreStoredWhereTheEngineClassesReadThem) {
  ASSERT_EQ(RunOn({"mode", "set", "APO4-Voice/APO4-Headphones"}).code, 0);
  ASSERT_EQ(RunOn({"settings", "set", "--mode", "Music/Headphones", "MFX-Volume:Gain-Level", "-450"}).code, 0);
  ASSERT_EQ(RunOn({"settings", "global", "APO4-Process Enable", "0"}).code, 0);
  const nlohmann::json got = RunOn({"--json", "mode", "get"}).Json();
  EXPECT_EQ(got["mode"], "APO4-Voice/APO4-Headphones");
  EXPECT_TRUE(got["stored"]);
  const nlohmann::json dump = RunOn({"--json", "dump", "--value", "VelApoCurrOpMode"}).Json();
  EXPECT_TRUE(dump["complete"]);
  EXPECT_EQ(dump["records"][0]["value"], "APO4-Voice");
  EXPECT_EQ(RunOn({"--json", "settings", "get", "--mode", "Music/Headphones", "MFX-Volume:Gain-Level"})
                .Json()["MFX-Volume:Gain-Level"], "-450");
  // The other mode of the same name keeps its own value.
  EXPECT_EQ(RunOn({"settings", "get", "--mode", "Music/Internal Stereo", "MFX-Volume:Gain-Level"}).out, "0\n");

  ControlEndpoint endpoint;
  ASSERT_TRUE(endpoint.Open(m_guid));
  ASSERT_TRUE(endpoint.LoadConfiguration());
  ZORAPOModeSelector selector;
  ASSERT_TRUE(selector.Init(endpoint.Info().GetSettingsKeyPath(), ZORAPOModeId()));
  ZORAPOModeId id;
  ASSERT_TRUE(selector.GetMode(id));
  EXPECT_EQ(id, ZORAPOModeId("APO4-Voice", "APO4-Headphones"));
  ZORAPOOperatingMode mode;
  ASSERT_TRUE(endpoint.ResolveMode("Music/Headphones", "", mode));
  ZORAPOPublicSettings settings;
  ASSERT_TRUE(settings.Init(endpoint.Info().GetSettingsKeyPath(), mode));
  ZORUTSValueList values;
  EXPECT_TRUE(settings.ReadAll(values, true));
  EXPECT_EQ(values.Find("MFX-Volume:Gain-Level")->GetLong(), -450);
  ZORAPOGlobalSettings global;
  ASSERT_TRUE(global.InitGlobal(endpoint.Info().GetSettingsKeyPath(), &endpoint.Configuration()));
  EXPECT_TRUE(global.ReadAll(values, true));
  EXPECT_EQ(values.Find(ZORAPOGlobalSettings::kProcessEnableName)->GetLong(), 0);
}

TEST_F(CtlRoundTrip, TheSystemEffectsSwitchIsMadeWhenMissingAndFlipped) {
  ControlEndpoint endpoint;
  ASSERT_TRUE(endpoint.Open(m_guid));
  {  // a driver that wrote no switch: FxProperties without the value
    zor::os::RegKey fx;
    ASSERT_EQ(zor::os::RegKey::Open(endpoint.Info().GetFxPropertiesPath(), zor::os::kKeyAllAccess, fx),
              zor::os::RegStatus::Ok);
    ASSERT_EQ(fx.DeleteValue(u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5"), zor::os::RegStatus::Ok);
  }
  for (const char* state : {"on", "off", "on"}) {
    ASSERT_EQ(RunOn({"endpoints", "sysfx", state}).code, 0) << state;
    ASSERT_TRUE(endpoint.Open(m_guid));
    EXPECT_EQ(endpoint.Info().IsSysFxDisabled(), std::string(state) == "off") << state;
  }
}

TEST_F(CtlRoundTrip, RemovingWithPurgeTakesTheSettingsKeyToo) {
  ASSERT_EQ(RunOn({"mode", "set", "Movie"}).code, 0);
  ControlEndpoint endpoint;
  ASSERT_TRUE(endpoint.Open(m_guid));
  ASSERT_EQ(Run({"endpoints", "remove", m_guid, "--purge"}).code, 0);
  zor::os::RegKey key;
  EXPECT_EQ(zor::os::RegKey::Open(endpoint.Info().GetSettingsKeyPath(), zor::os::kKeyRead, key),
            zor::os::RegStatus::NotFound);
  EXPECT_THAT(Run({"endpoints"}).out, ::testing::Not(HasSubstr(m_guid)));
  EXPECT_EQ(Run({"endpoints", "remove", m_guid}).code, 1);
}

TEST_F(CtlRoundTrip, MetersShowWhatTheAudioPathWroteOnceThenStartAgain) {
  ControlEndpoint endpoint;
  ASSERT_TRUE(endpoint.Open(m_guid));
  ZORAPOSharedMeter writer;  // the engine's side
  ASSERT_TRUE(writer.OpenCreate(endpoint.Info(), 1));
  const std::vector<float> levels{0.5f, 0.25f};
  ASSERT_TRUE(writer.Write(levels));
  const nlohmann::json first = RunOn({"--json", "meters", "--once"}).Json();
  EXPECT_EQ(first["output"]["levels"][0], 0.5f);
  EXPECT_NEAR(first["output"]["db"][1].get<double>(), -12.04, 0.01);
  EXPECT_EQ(first["input"]["levels"][0], 0.0f);
  EXPECT_EQ(RunOn({"--json", "meters", "--once"}).Json()["output"]["levels"][0], 0.0f);
  ASSERT_TRUE(writer.Write(levels));
  EXPECT_EQ(RunOn({"meters", "--zero"}).code, 0);
  EXPECT_EQ(RunOn({"--json", "meters", "--once"}).Json()["output"]["levels"][0], 0.0f);
  // The live view draws a bar per channel and meter, and stops when told.
  const CtlRun live = RunOn({"meters", "--seconds", "0.05", "--interval", "10", "--channels", "1"});
  EXPECT_EQ(live.code, 0);
  EXPECT_THAT(live.out, HasSubstr("output 0 ["));
}

TEST_F(CtlRoundTrip, InteractiveTuningWritesTheBlockAndReportsBadLines) {
  const CtlRun run = RunOn({"tune", "--mode", "Music/Internal Stereo", "-i"},
                           "MFX-Volume:Gain-Level=-600\n# a comment\ntuning-mode 2\ntuning-mode x\n"
                           "Gain=1\nshow\nquit\nMFX-Volume:Gain-Mute=1\n");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.out, HasSubstr("MFX-Volume:Gain-Level = -600\n"));
  EXPECT_THAT(run.out, HasSubstr("APO4-Tuning Mode = 2\n"));
  EXPECT_THAT(run.out, HasSubstr("MFX-Volume:Gain-Mute = 0\n"));  // after quit, nothing is read
  EXPECT_THAT(run.err, HasSubstr("'x' is not a tuning mode number"));
  EXPECT_THAT(run.err, HasSubstr("'Gain' is not a control of"));
}

TEST_F(CtlRoundTrip, DumpShowsWhereADamagedBlobStops) {
  ZORPropertyList list(2);
  list[0].name = u"APO4-Operating Mode";
  list[0].value = std::make_shared<VELAnyValAString>("APO4-Movie");
  list[1].name = u"Level";
  list[1].value = std::make_shared<VELAnyValLong>(-3);
  std::vector<uint8_t> blob;
  ASSERT_TRUE(ZORPropertyBlob::Write(list, blob));
  const auto file = std::filesystem::temp_directory_path() / ("velapo-ctl-dump-" + m_adapter);
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(blob.data()), blob.size() - 3);
  const CtlRun run = Run({"--json", "dump", "--file", file.string()});
  std::filesystem::remove(file);
  EXPECT_EQ(run.code, 1);
  const nlohmann::json dump = run.Json();
  EXPECT_FALSE(dump["complete"]);
  ASSERT_EQ(dump["records"].size(), 1u);
  EXPECT_EQ(dump["problem"], "malformed record at byte " + std::to_string(blob.size() - 27));
  EXPECT_THAT(run.err, HasSubstr("malformed record"));
}

}  // namespace
