#include "hostapp.h"

#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

#include "apostage.h"
#include "audiofile.h"
#include "config/zorapoconfigurationfile.h"
#include "hostcontrol.h"
#include "hostendpoint.h"
#include "hostplatform.h"
#include "hostreport.h"
#include "hostscript.h"
#include "hoststream.h"
#include "managerstage.h"
#include "outputswitchfinder.h"
#include "platform/debugoutput.h"
#include "programme.h"
#include "scriptplayer.h"

namespace {

std::unique_ptr<IHostStage> MakeStage(const std::string& name, const std::string& module) {
  if (name == "manager") return std::make_unique<ManagerStage>();
  if (name == "apo") return std::make_unique<ApoStage>(module);
  return nullptr;
}

// The stage's delay in frames: an impulse after silence, found again in the
// output at its largest sample. -1 when the output holds no sound at all.
int64_t MeasureLatency(const std::string& stageName, const std::string& module, HostEndpoint& endpoint, uint32_t location, HostFormat format,
                       uint32_t blockFrames) {
  std::unique_ptr<IHostStage> stage = MakeStage(stageName, module);
  std::string ignored;
  if (!stage->Start(endpoint, location, format, ignored)) return -1;
  const uint64_t impulseAt = format.rate / 10;
  const uint64_t length = format.rate + static_cast<uint64_t>(stage->Latency()) * format.rate / 100000000;
  const uint64_t buffers = (length + blockFrames - 1) / blockFrames;
  std::vector<float> in(size_t(blockFrames) * format.channelsIn), out(size_t(blockFrames) * format.channelsOut);
  float peak = 0;
  int64_t peakAt = -1;
  for (uint64_t b = 0; b < buffers; ++b) {
    std::fill(in.begin(), in.end(), 0.0f);
    const uint64_t first = b * blockFrames;
    const bool holdsImpulse = impulseAt >= first && impulseAt < first + blockFrames;
    if (holdsImpulse) {
      for (uint32_t c = 0; c < format.channelsIn; ++c) in[(impulseAt - first) * format.channelsIn + c] = 0.5f;
    }
    const uint32_t written = stage->Process(in.data(), out.data(), blockFrames, !holdsImpulse);
    for (uint64_t i = 0; i < uint64_t(written) * format.channelsOut; ++i) {
      if (std::fabs(out[i]) > peak) {
        peak = std::fabs(out[i]);
        peakAt = static_cast<int64_t>(first + i / format.channelsOut) - static_cast<int64_t>(impulseAt);
      }
    }
  }
  stage->Stop();
  return peakAt;
}

// The engine's log lines: into the report folder's velapo.log, or nowhere,
// so that they never mix with the progress bar and the summary.
void WriteLogLine(void* context, const char* line, bool) {
  if (context != nullptr) std::fputs(line, static_cast<std::FILE*>(context));
}

class EngineLog {
 public:
  explicit EngineLog(const std::string& directory) {
    if (!directory.empty()) {
      std::error_code ignored;
      std::filesystem::create_directories(directory, ignored);
      m_file = std::fopen((std::filesystem::path(directory) / "velapo.log").string().c_str(), "w");
    }
    zor::os::SetDebugSink(&WriteLogLine, m_file);
  }
  ~EngineLog() {
    zor::os::SetDebugSink(nullptr, nullptr);
    if (m_file != nullptr) std::fclose(m_file);
  }
  EngineLog(const EngineLog&) = delete;
  EngineLog& operator=(const EngineLog&) = delete;

 private:
  std::FILE* m_file = nullptr;
};

void DrawProgress(const HostStream& stream, uint64_t frames, uint32_t rate) {
  const double done = frames == 0 ? 1.0 : double(stream.Position()) / double(frames);
  const int width = 40, filled = static_cast<int>(done * width);
  std::fprintf(stderr, "\r[%s%s] %3d%%  %.1f / %.1f s", std::string(filled, '#').c_str(),
               std::string(width - filled, ' ').c_str(), static_cast<int>(done * 100),
               double(stream.Position()) / rate, double(frames) / rate);
  std::fflush(stderr);
}

}  // namespace

int RunGenerate(const std::string& path, double seconds, uint32_t rate, std::ostream& err) {
  std::string error;
  if (!WriteAudioFile(path, MakeProgramme(seconds, rate), error)) {
    err << "velapo-host: " << error << '\n';
    return kExitCannotWrite;
  }
  return kExitOk;
}

int RunHost(const HostOptions& options, std::ostream& out, std::ostream& err) {
  std::string error;
  auto fail = [&](int code) {
    err << "velapo-host: " << error << '\n';
    return code;
  };

  const EngineLog log(options.report);
  HostScript script;
  if (!options.script.empty()) {
    std::ifstream file(options.script, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    if (!file) {
      error = "cannot read the script '" + options.script + "'";
      return fail(kExitBadInput);
    }
    if (!script.Parse(text.str(), error)) {
      error = options.script + ", " + error;
      return fail(kExitBadInput);
    }
  }

  AudioClip input;
  if (!ReadAudioFile(options.input, input, error)) return fail(kExitBadInput);
  if (input.Frames() == 0) {
    error = "'" + options.input + "' holds no audio";
    return fail(kExitBadInput);
  }

  HostEndpoint endpoint;
  ZORAPOConfigurationFile config;
  if (!endpoint.Open(options.store, options.endpoint, options.config, options.location, config, error)) {
    return fail(kExitBadInput);
  }

  HostFormat format{input.rate, input.channels, input.channels};
  const uint32_t blockFrames = static_cast<uint32_t>(uint64_t(input.rate) * options.blockMs / 1000);
  if (blockFrames == 0) {
    error = "a buffer of " + std::to_string(options.blockMs) + " ms holds no frame at " + std::to_string(input.rate) + " Hz";
    return fail(kExitBadInput);
  }
  std::unique_ptr<IHostStage> stage = MakeStage(options.stage, options.module);
  if (!stage) {
    error = "the stage '" + options.stage + "' is not in this build";
    return fail(kExitBadInput);
  }
  const int64_t measuredLatency = MeasureLatency(options.stage, options.module, endpoint, options.location, format, blockFrames);
  if (!stage->Start(endpoint, options.location, format, error)) return fail(kExitBadInput);
  const std::string chainAtStart = stage->ActiveChain();

  HostControl control;
  if (!control.Open(endpoint.GuidText(), options.location, error)) return fail(kExitBadInput);
  ScriptPlayer player(script.Actions(), control);
  HostStream stream(*stage, input, format, blockFrames, options.realtime, &player);
  const bool progress = !options.quiet && IsTerminal(stderr);
  if (options.realtime && !options.quiet) {
    out << "velapo-host: playing " << input.Seconds() << " s on endpoint " << endpoint.GuidText()
        << (endpoint.IsPrivate() ? " (private)" : "") << std::endl;
  }
  const std::clock_t cpuStart = std::clock();
  player.Start();
  stream.Start();
  while (!stream.Finished()) {
    if (progress) DrawProgress(stream, input.Frames(), input.rate);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  stream.Join();
  const double cpuSeconds = double(std::clock() - cpuStart) / CLOCKS_PER_SEC;
  player.Stop();
  if (progress) {
    DrawProgress(stream, input.Frames(), input.rate);
    std::fputc('\n', stderr);
  }
  const std::string chainAtEnd = stage->ActiveChain();
  const int64_t reportedLatency = stage->Latency();
  const std::vector<std::string> effects = stage->Effects();
  stage->Stop();

  for (size_t i = 0; i < player.Actions().size(); ++i) {
    if (!player.Events()[i].ok) {
      err << "velapo-host: " << options.script << ", line " << player.Actions()[i].line << ": "
          << player.Actions()[i].Describe() << " failed: " << player.Events()[i].error << '\n';
    }
  }
  if (!WriteAudioFile(options.output, stream.Output(), error)) return fail(kExitCannotWrite);

  ReportInputs inputs;
  inputs.inputPath = options.input;
  inputs.outputPath = options.output;
  inputs.stage = stage->Name();
  inputs.location = options.locationName;
  inputs.locationCode = options.location;
  inputs.blockFrames = blockFrames;
  inputs.realtime = options.realtime;
  inputs.format = format;
  inputs.configPath = endpoint.ConfigPath();
  inputs.config = &config;
  inputs.endpointGuid = endpoint.GuidText();
  inputs.privateEndpoint = endpoint.IsPrivate();
  inputs.chainAtStart = chainAtStart;
  inputs.chainAtEnd = chainAtEnd;
  inputs.effects = effects;
  inputs.actions = &player.Actions();
  inputs.events = &player.Events();
  StreamMeasures measures = stream.Measures();
  if (!stage->SeesSwitches()) {
    std::vector<uint64_t> applied;
    for (size_t i = 0; i < player.Events().size(); ++i) {
      const ScriptEvent& event = player.Events()[i];
      if (event.ok && player.Actions()[i].IsControl()) applied.push_back(event.appliedUs * input.rate / 1000000);
    }
    measures.switchFrames = OutputSwitchFinder::Find(input, stream.Output(), measuredLatency, applied);
    inputs.switchesFromOutput = true;
  }
  inputs.measures = &measures;
  inputs.reportedLatency = reportedLatency;
  inputs.measuredLatencyFrames = measuredLatency;
  inputs.cpuSeconds = cpuSeconds;
  nlohmann::json report = HostReport::Build(inputs, input, stream.Output());
  if (!options.report.empty()) {
    if (!HostReport::Write(options.report, report, input, stream.Output(), error)) return fail(kExitCannotWrite);
  }
  if (!options.quiet) {
    const auto& cpu = report["cpu"];
    out << "velapo-host: " << input.Seconds() << " s processed, real-time factor " << cpu["realtime_factor"].get<double>()
        << ", " << report["switches_s"].size() << " switches, chain " << chainAtEnd << '\n';
  }
  return kExitOk;
}
