// What velapo-host reads and writes: audio files, the example programme, and
// the report's figures from measures of a known shape.
#include "hostreport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "outputswitchfinder.h"
#include "programme.h"

namespace {

namespace fs = std::filesystem;

class HostFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("velapo-host-report-" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

// The programme is the same every time, as long as asked, peaks at -12 dBFS
// and has silence between its noise bursts; written and read back as float
// WAV it is bit for bit the same, as FLAC within 24-bit steps.
TEST_F(HostFilesTest, ProgrammeRoundTripsThroughFiles) {
  const AudioClip programme = MakeProgramme(2.0, 44100);
  EXPECT_EQ(programme.Frames(), 88200u);
  EXPECT_EQ(programme.samples, MakeProgramme(2.0, 44100).samples);
  for (const double peak : HostReport::PeaksDb(programme)) EXPECT_NEAR(peak, -12.0, 0.01);
  EXPECT_EQ(HostReport::LevelDb(programme, 55125, 66150), -200.0) << "a gap between bursts";
  std::string error;
  for (const char* name : {"p.wav", "p.flac"}) {
    if (!VELAPO_HOST_WRITES_FLAC && std::string(name) == "p.flac") continue;  // Windows writes WAV only
    ASSERT_TRUE(WriteAudioFile((dir / name).string(), programme, error)) << error;
    AudioClip back;
    ASSERT_TRUE(ReadAudioFile((dir / name).string(), back, error)) << error;
    ASSERT_EQ(back.Frames(), programme.Frames());
    EXPECT_EQ(back.rate, 44100u);
    double worst = 0;
    for (size_t i = 0; i < back.samples.size(); ++i) worst = std::max(worst, double(std::fabs(back.samples[i] - programme.samples[i])));
    EXPECT_LE(worst, std::string(name) == "p.wav" ? 0.0 : 1.0 / 8388608.0) << name;
  }
}

TEST_F(HostFilesTest, UnreadableFilesAreRefusedWithTheirName) {
  std::ofstream(dir / "text.wav") << "RIFF but not really";
  std::ofstream(dir / "empty.wav");
  AudioClip clip;
  std::string error;
  for (const char* name : {"text.wav", "empty.wav", "missing.wav"}) {
    EXPECT_FALSE(ReadAudioFile((dir / name).string(), clip, error)) << name;
    EXPECT_NE(error.find(name), std::string::npos) << error;
  }
  EXPECT_FALSE(WriteAudioFile((dir / "no-dir" / "o.wav").string(), MakeProgramme(0.1, 8000), error));
  EXPECT_NE(error.find("cannot write"), std::string::npos) << error;
}

// Buffer times of a known spread, a script with a switch after its first
// action and a failed second one: the figures the report derives.
TEST(HostReport, DerivesFiguresFromTheMeasures) {
  const AudioClip input = MakeProgramme(1.0, 48000);
  AudioClip output = input;
  for (float& s : output.samples) s *= 0.5f;
  StreamMeasures measures;
  for (int i = 1; i <= 100; ++i) measures.bufferMicros.push_back(i * 10.0);
  measures.switchFrames = {24480};
  measures.allocations = 3;
  HostScript script;
  std::string error;
  ASSERT_TRUE(script.Parse("0.5 mode Movie\n0.8 mode Nothing\n", error));
  std::vector<ScriptEvent> events(2);
  events[0] = {true, true, 500000, {}};
  events[1] = {true, false, 800000, "no such mode"};
  ReportInputs in;
  in.format = {48000, 2, 2};
  in.blockFrames = 480;
  in.actions = &script.Actions();
  in.events = &events;
  in.measures = &measures;
  in.reportedLatency = 1000000;
  in.measuredLatencyFrames = 480;
  in.cpuSeconds = 0.25;
  const nlohmann::json r = HostReport::Build(in, input, output);
  EXPECT_EQ(r["cpu"]["median_us"], 500.0);
  EXPECT_EQ(r["cpu"]["p99_us"], 990.0);
  EXPECT_EQ(r["cpu"]["max_us"], 1000.0);
  EXPECT_DOUBLE_EQ(r["cpu"]["max_share"].get<double>(), 0.1);
  EXPECT_DOUBLE_EQ(r["cpu"]["realtime_factor"].get<double>(), 4.0);
  EXPECT_DOUBLE_EQ(r["latency"]["reported_ms"].get<double>(), 10.0);
  EXPECT_DOUBLE_EQ(r["latency"]["measured_ms"].get<double>(), 10.0);
  const nlohmann::json& first = r["actions"][0];
  EXPECT_DOUBLE_EQ(first["switch_s"].get<double>(), 0.51);
  EXPECT_DOUBLE_EQ(first["level_from_s"].get<double>(), 0.61);
  EXPECT_DOUBLE_EQ(first["level_to_s"].get<double>(), 0.8);
  EXPECT_NEAR(first["input_db"].get<double>() - first["output_db"].get<double>(), 20 * std::log10(2.0), 1e-6);
  const nlohmann::json& second = r["actions"][1];
  EXPECT_EQ(second["error"], "no such mode");
  EXPECT_FALSE(second.contains("switch_s")) << "the switch came before it";
  EXPECT_FALSE(second.contains("input_db")) << "a failed action changed nothing to measure";
  const std::string markdown = HostReport::Markdown(r);
  EXPECT_NE(markdown.find("| 2 | 0.800 | mode Nothing **failed: no such mode** |"), std::string::npos) << markdown;
}

}  // namespace

// Switches heard in the output: a level step that holds is found where the
// fade passes the threshold, after the action and with the latency allowed
// for; no step, a step that does not hold, or silent input show none.
TEST(OutputSwitchFinder, FindsHeldLevelStepsAfterActionsOnly) {
  AudioClip input{48000, 1, std::vector<float>(48000 * 3)};
  for (size_t i = 0; i < input.samples.size(); ++i) input.samples[i] = 0.25f * float(std::sin(0.05 * double(i)));
  const int64_t latency = 240;
  auto through = [&](auto gainAt) {
    AudioClip output = input;
    for (size_t i = 0; i < output.samples.size(); ++i) {
      output.samples[i] = i < size_t(latency) ? 0.0f : input.samples[i - latency] * float(gainAt(i));
    }
    return output;
  };
  const AudioClip halved = through([](size_t i) { return i < 60000 ? 1.0 : 0.5; });
  const std::vector<uint64_t> found = OutputSwitchFinder::Find(input, halved, latency, {48000, 96000});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_NEAR(double(found[0]), 60000.0, 480.0);
  EXPECT_TRUE(OutputSwitchFinder::Find(input, through([](size_t) { return 1.0; }), latency, {48000}).empty());
  EXPECT_TRUE(OutputSwitchFinder::Find(input, through([](size_t i) { return i / 480 == 110 ? 0.5 : 1.0; }), latency,
                                       {48000}).empty());
  const AudioClip silence{48000, 1, std::vector<float>(48000 * 3)};
  EXPECT_TRUE(OutputSwitchFinder::Find(silence, silence, 0, {48000}).empty());
}
