// velapo-host as a user runs it, in a process of its own: the README's main
// job on a short programme, and the command lines it must refuse.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "audiofile.h"
#include "hostreport.h"

namespace {

namespace fs = std::filesystem;

struct HostRun {
  int code = -1;
  std::string err;
};

HostRun RunHost(const std::string& arguments, const fs::path& dir) {
  const fs::path err = dir / "stderr.txt";
  const std::string command = std::string(VELAPO_HOST_EXE) + " " + arguments + " 2>" + err.string() + " >/dev/null";
  const int status = std::system(command.c_str());
  std::ifstream file(err);
  std::stringstream text;
  text << file.rdbuf();
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text.str()};
}

// A folder with a short programme in it.
class HostFiles : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir = fs::temp_directory_path() / ("velapo-host-test-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    ASSERT_EQ(RunHost("generate " + (dir / "in.wav").string() + " --seconds 3", dir).code, 0);
  }
  static void TearDownTestSuite() { fs::remove_all(dir); }

  static inline fs::path dir;
};

// One script, run once through the effect objects (the default) and once
// through the process manager alone, shared by the checks below.
class MainJob : public HostFiles, public ::testing::WithParamInterface<const char*> {
 protected:
  static void SetUpTestSuite() {
    HostFiles::SetUpTestSuite();
    std::ofstream(dir / "script.txt") << "# the README's job, shortened\n"
                                         "0.3 public MFX-Volume:Gain-Level = -600\n"
                                         "1.0 mode Movie\n"
                                         "1.5 global APO4-Process Enable = 0\n"
                                         "2.5 global APO4-Process Enable = 1\n";
    for (const char* stage : {"apo", "manager"}) {
      const fs::path out = dir / stage;
      runs[stage] = RunHost((dir / "in.wav").string() + " " + (out / "out.wav").string() + " --stage " + stage +
                                " --location MFX -q --script " + (dir / "script.txt").string() + " --report " +
                                out.string(),
                            dir);
      std::ifstream(out / "report.json") >> reports[stage];
    }
  }
  const HostRun& Run() const { return runs[GetParam()]; }
  const nlohmann::json& Report() const { return reports[GetParam()]; }
  fs::path Out() const { return dir / GetParam(); }

  static inline std::map<std::string, HostRun> runs;
  static inline std::map<std::string, nlohmann::json> reports;
};

INSTANTIATE_TEST_SUITE_P(Stages, MainJob, ::testing::Values("apo", "manager"));

// Measured from the files: processing off gives the input within 0.1 dB, on changes it.
TEST_P(MainJob, WritesTheWholeFileWhoseLevelFollowsTheProcessingSwitch) {
  ASSERT_EQ(Run().code, 0) << Run().err;
  AudioClip in, out;
  std::string error;
  ASSERT_TRUE(ReadAudioFile((dir / "in.wav").string(), in, error)) << error;
  ASSERT_TRUE(ReadAudioFile((Out() / "out.wav").string(), out, error)) << error;
  EXPECT_EQ(out.Frames(), in.Frames());
  EXPECT_EQ(out.channels, in.channels);
  EXPECT_GT(fs::file_size(Out() / "report.png"), 1000u);
  EXPECT_TRUE(fs::exists(Out() / "report.md"));
  const auto level = [&](const AudioClip& clip, double from, double to) {
    return HostReport::LevelDb(clip, uint64_t(from * clip.rate), uint64_t(to * clip.rate));
  };
  // Past the fade where the stream shows its switch (the manager's stage); else past the
  // settings' way to the worker, its rate limit and the fade, which a busy machine stretches.
  const nlohmann::json& off = Report()["actions"][2];
  const double from = off.contains("switch_s") ? off["switch_s"].get<double>() + 0.1
                                               : off["applied_s"].get<double>() + 0.4;
  const double to = 2.5;
  EXPECT_NEAR(level(out, from, to), level(in, from, to), 0.1);
  EXPECT_GT(std::fabs(level(out, 0.9, 1.0) - level(in, 0.9, 1.0)), 3.0) << "the gain of -6 dB plays";
}

// The actions in the script's order, each carried out at its time; where the
// stage can see them (the manager alone), each followed by a switch.
TEST_P(MainJob, ReportsTheScriptedSwitchesInOrder) {
  ASSERT_EQ(Run().code, 0) << Run().err;
  const char* expected[] = {"public MFX-Volume:Gain-Level = -600", "mode Movie", "global APO4-Process Enable = 0",
                            "global APO4-Process Enable = 1"};
  const nlohmann::json& actions = Report()["actions"];
  ASSERT_EQ(actions.size(), std::size(expected));
  double last = -1;
  for (size_t i = 0; i < actions.size(); ++i) {
    EXPECT_EQ(actions[i]["action"], expected[i]);
    EXPECT_EQ(actions[i]["line"], i + 2);
    EXPECT_TRUE(actions[i]["ok"].get<bool>()) << actions[i].dump();
    EXPECT_NEAR(actions[i]["applied_s"].get<double>(), actions[i]["time_s"].get<double>(), 0.0101);
    if (std::string(GetParam()) != "manager") continue;
    ASSERT_TRUE(actions[i].contains("switch_s")) << "the stream followed " << expected[i];
    EXPECT_GE(actions[i]["switch_s"].get<double>(), actions[i]["applied_s"].get<double>());
    EXPECT_GT(actions[i]["switch_s"].get<double>(), last);
    last = actions[i]["switch_s"].get<double>();
  }
}

struct BadCommand {
  const char* name;
  std::string arguments;
  int code;
  const char* message;
};

class HostCommandLine : public HostFiles, public ::testing::WithParamInterface<BadCommand> {};

TEST_P(HostCommandLine, RefusesWithAClearMessage) {
  std::ofstream(dir / "bad.xml") << "<zor_configuration><operating_mode/></zor_configuration>";
  std::ofstream(dir / "text.wav") << "not audio";
  std::ofstream(dir / "bad-script.txt") << "0.5 mode Movie\n1.0 flip\n";
  std::ofstream(dir / "a-file") << "x";
  fs::create_directories(dir / "store");
  std::string arguments = GetParam().arguments;
  for (size_t at; (at = arguments.find("@")) != std::string::npos;) arguments.replace(at, 1, dir.string() + "/");
  const HostRun bad = RunHost(arguments, dir);
  EXPECT_EQ(bad.code, GetParam().code) << bad.err;
  EXPECT_NE(bad.err.find(GetParam().message), std::string::npos) << bad.err;
  EXPECT_EQ(bad.err.find("Sanitizer"), std::string::npos) << bad.err;
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostCommandLine,
    ::testing::Values(
        BadCommand{"MissingInput", "@missing.wav @o.wav", 1, "cannot read '"},
        BadCommand{"NotAudio", "@text.wav @o.wav", 1, "cannot read '"},
        BadCommand{"NoOutput", "@in.wav", 1, "an input and an output file are needed"},
        BadCommand{"ConfigDoesNotLoad", "@in.wav @o.wav --config @bad.xml", 1, "does not load: status 3"},
        BadCommand{"ScriptLine", "@in.wav @o.wav --script @bad-script.txt", 1, "bad-script.txt, line 2: unknown action 'flip'"},
        BadCommand{"ScriptMissing", "@in.wav @o.wav --script @none.txt", 1, "cannot read the script"},
        BadCommand{"Location", "@in.wav @o.wav --location ABC", 105, "--location"},
        BadCommand{"BlockLength", "@in.wav @o.wav --block-ms 0", 105, "--block-ms"},
        BadCommand{"EndpointNotAGuid", "@in.wav @o.wav --store @store --endpoint 12", 1, "is not an endpoint GUID"},
        BadCommand{"EndpointUnknown", "@in.wav @o.wav --store @store --endpoint {11111111-2222-3333-4444-555555555555}",
                   1, "the store has no render endpoint"},
        BadCommand{"StoreMissing", "@in.wav @o.wav --endpoint {11111111-2222-3333-4444-555555555555}", 1,
                   "--store names no directory"},
        BadCommand{"ConfigWithEndpoint", "@in.wav @o.wav --config @bad.xml --store @store --endpoint x", 1,
                   "a joined endpoint has its own"},
        BadCommand{"ReportUnderAFile", "@in.wav @o.wav -q --report @a-file/report", 2, "cannot make the report folder"},
        BadCommand{"OutputUnwritable", "@in.wav @a-file/o.wav -q", 2, "cannot write '"}),
    [](const ::testing::TestParamInfo<BadCommand>& param) { return param.param.name; });

}  // namespace
