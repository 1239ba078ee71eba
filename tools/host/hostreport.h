#pragma once
// What velapo-host tells of a run: report.json (for scripts and tests),
// report.md (for people) and, where gnuplot is installed, report.png: the
// level of input and output over time with the script's actions and the
// chain switches marked, and the two spectra.

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "audiofile.h"
#include "config/zorapoconfigurationfile.h"
#include "hoststage.h"
#include "hoststream.h"
#include "scriptplayer.h"

struct ReportInputs {
  std::string inputPath;
  std::string outputPath;
  std::string stage;
  std::string location;
  uint32_t locationCode = 1;
  uint32_t blockFrames = 0;
  bool realtime = false;
  HostFormat format;
  std::string configPath;
  const ZORAPOConfigurationFile* config = nullptr;
  std::string endpointGuid;
  bool privateEndpoint = true;
  std::string chainAtStart;
  std::string chainAtEnd;
  std::vector<std::string> effects;
  const std::vector<ScriptAction>* actions = nullptr;
  const std::vector<ScriptEvent>* events = nullptr;
  const StreamMeasures* measures = nullptr;
  bool switchesFromOutput = false;  // found by OutputSwitchFinder, not told by the stage
  int64_t reportedLatency = 0;      // units of 10 ns
  int64_t measuredLatencyFrames = -1;  // -1: not measured
  double cpuSeconds = 0;            // process CPU time of the run
};

class HostReport {
 public:
  // Window of the level curve and of the per-action levels.
  static constexpr double kLevelWindowSeconds = 0.01;
  // The level after an action is measured from this long after its switch
  // (or after the action, without one): past the fade.
  static constexpr double kSettleSeconds = 0.1;

  static nlohmann::json Build(const ReportInputs& inputs, const AudioClip& input, const AudioClip& output);
  static std::string Markdown(const nlohmann::json& report);
  // Writes report.json, report.md and, when gnuplot runs, report.png with
  // its data files into `directory` (made if missing). False, with `error`,
  // when a file cannot be written; a missing gnuplot only leaves
  // "picture" null in the report.
  static bool Write(const std::string& directory, nlohmann::json& report, const AudioClip& input,
                    const AudioClip& output, std::string& error);

  // RMS level in dBFS of frames [from, to) of all channels; -200 for silence.
  static double LevelDb(const AudioClip& clip, uint64_t from, uint64_t to);
  // Per channel peak in dBFS.
  static std::vector<double> PeaksDb(const AudioClip& clip);

 private:
  static bool DrawPicture(const std::string& directory, const nlohmann::json& report, const AudioClip& input,
                          const AudioClip& output, std::string& error);
};
