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
