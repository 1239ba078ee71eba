#include "hostreport.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "hostplatform.h"
#include "platform/text.h"
#include "spectrum.h"

using nlohmann::json;

namespace {

double Seconds(uint64_t frames, uint32_t rate) { return rate == 0 ? 0.0 : double(frames) / rate; }

double Percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(share * double(values.size() - 1))];
}

json ModesOf(const ReportInputs& in) {
  json modes = json::array();
  if (in.config == nullptr) return modes;
  for (const auto& mode : in.config->GetOperatingModes()) {
    ZORAPOChainDesc chain;
    json processes = json::array();
    const bool found = mode->GetChainDefinition().FindChain(
        LayoutFromChannels(in.format.channelsIn), LayoutFromChannels(in.format.channelsOut), chain, true);
    for (const ZORAPOProcessDesc& process : chain.processes) {
      processes.push_back(process.techId + " (" + process.instanceId + ")");
    }
    modes.push_back({{"operating_mode", mode->GetModeId().operatingMode.GetText()},
                     {"speaker_type", mode->GetModeId().speakerType.GetText()},
                     {"default", mode->GetModeId() == in.config->GetDefaultMode()},
                     {"chain", found ? processes : json()}});
  }
  return modes;
}

// Every action with its time, and for those that did something the level of
// input and output from the fade's end to the next action.
json ActionsOf(const ReportInputs& in, const AudioClip& input, const AudioClip& output) {
  json actions = json::array();
  if (in.actions == nullptr) return actions;
  const auto& list = *in.actions;
  const auto& switches = in.measures->switchFrames;
  const uint32_t rate = input.rate;
  for (size_t i = 0; i < list.size(); ++i) {
    const ScriptAction& action = list[i];
    const ScriptEvent& event = in.events->at(i);
    json entry = {{"line", action.line},
                  {"time_s", double(action.timeUs) / 1e6},
                  {"action", action.Describe()},
                  {"ok", event.ok},
                  {"applied_s", double(event.appliedUs) / 1e6}};
    if (!event.ok) entry["error"] = event.error.empty() ? "not carried out" : event.error;
    const uint64_t applied = event.appliedUs * rate / 1000000;
    const uint64_t next = i + 1 < list.size() ? list[i + 1].timeUs * rate / 1000000 : input.Frames();
    const auto sw = std::find_if(switches.begin(), switches.end(), [&](uint64_t f) { return f >= applied; });
    if (sw != switches.end() && *sw < next) entry["switch_s"] = Seconds(*sw, rate);
    const uint64_t from = (sw != switches.end() && *sw < next ? *sw : applied) +
                          static_cast<uint64_t>(HostReport::kSettleSeconds * rate);
    const uint64_t to = std::min<uint64_t>(next, input.Frames());
    if (event.ok && from < to) {
      entry["level_from_s"] = Seconds(from, rate);
      entry["level_to_s"] = Seconds(to, rate);
      entry["input_db"] = HostReport::LevelDb(input, from, to);
      entry["output_db"] = HostReport::LevelDb(output, from, to);
    }
    actions.push_back(entry);
  }
  return actions;
}

std::string Fixed(double value, int digits) {
  std::ostringstream text;
  text.setf(std::ios::fixed);
  text.precision(digits);
  text << value;
  return text.str();
}

std::string Number(const json& value, int digits) {
  return value.is_number() ? Fixed(value.get<double>(), digits) : "n/a";
}

}  // namespace

double HostReport::LevelDb(const AudioClip& clip, uint64_t from, uint64_t to) {
  to = std::min<uint64_t>(to, clip.Frames());
  double sum = 0;
  for (uint64_t i = from * clip.channels; i < to * clip.channels; ++i) sum += double(clip.samples[i]) * clip.samples[i];
  const double count = double(to > from ? (to - from) * clip.channels : 1);
  return sum > 0 ? 10.0 * std::log10(sum / count) : -200.0;
}

std::vector<double> HostReport::PeaksDb(const AudioClip& clip) {
  std::vector<double> peaks(clip.channels, 0.0);
  for (size_t i = 0; i < clip.samples.size(); ++i) {
    peaks[i % clip.channels] = std::max(peaks[i % clip.channels], double(std::fabs(clip.samples[i])));
  }
  for (double& peak : peaks) peak = peak > 0 ? 20.0 * std::log10(peak) : -200.0;
  return peaks;
}

json HostReport::Build(const ReportInputs& in, const AudioClip& input, const AudioClip& output) {
  const StreamMeasures& m = *in.measures;
  const double bufferUs = 1e6 * in.blockFrames / in.format.rate;
  const double median = Percentile(m.bufferMicros, 0.5), p99 = Percentile(m.bufferMicros, 0.99);
  const double maximum = m.bufferMicros.empty() ? 0 : *std::max_element(m.bufferMicros.begin(), m.bufferMicros.end());
  json switches = json::array();
  for (const uint64_t frame : m.switchFrames) switches.push_back(Seconds(frame, in.format.rate));
  const double reportedMs = double(in.reportedLatency) / 100000.0;
  json config = {{"path", in.configPath}};
  if (in.config != nullptr) {
    config["product"] = zor::os::Utf16ToUtf8(in.config->GetProductName());
    config["default_mode"] = in.config->GetDefaultMode().operatingMode.GetText() + " / " +
                             in.config->GetDefaultMode().speakerType.GetText();
  }
  return {
      {"host", {{"stage", in.stage}, {"location", in.location}, {"buffer_frames", in.blockFrames},
                {"buffer_ms", bufferUs / 1000.0}, {"realtime", in.realtime}}},
      {"input", {{"path", in.inputPath}, {"rate", input.rate}, {"channels", input.channels},
                 {"frames", input.Frames()}, {"seconds", input.Seconds()}}},
      {"output", {{"path", in.outputPath}, {"rate", output.rate}, {"channels", output.channels},
                  {"frames", output.Frames()}, {"format", "32-bit float"}}},
      {"stream_format", {{"rate", in.format.rate}, {"channels_in", in.format.channelsIn},
                         {"channels_out", in.format.channelsOut}}},
      {"endpoint", {{"guid", in.endpointGuid}, {"private", in.privateEndpoint}}},
      {"configuration", config},
      {"modes", ModesOf(in)},
      {"chain_at_start", in.chainAtStart},
      {"chain_at_end", in.chainAtEnd},
      {"effects", in.effects},
      {"actions", ActionsOf(in, input, output)},
      {"switches_s", switches},
      {"switches_from", in.switchesFromOutput ? "output" : "stage"},
      {"latency", {{"reported_units", in.reportedLatency}, {"reported_ms", reportedMs},
                   {"measured_frames", in.measuredLatencyFrames < 0 ? json() : json(in.measuredLatencyFrames)},
                   {"measured_ms", in.measuredLatencyFrames < 0
                                       ? json()
                                       : json(1000.0 * double(in.measuredLatencyFrames) / in.format.rate)}}},
      {"cpu", {{"buffers", m.bufferMicros.size()}, {"median_us", median}, {"p99_us", p99}, {"max_us", maximum},
               {"median_share", median / bufferUs}, {"p99_share", p99 / bufferUs}, {"max_share", maximum / bufferUs},
               {"cpu_seconds", in.cpuSeconds}, {"wall_seconds", m.wallSeconds},
               {"realtime_factor", in.cpuSeconds > 0 ? input.Seconds() / in.cpuSeconds : 0.0}}},
      {"audio_thread_allocations", {{"total", m.allocations}, {"after_first_buffer", m.steadyAllocations}}},
      {"buffers", {{"silent", m.silentBuffers}, {"short", m.shortBuffers}}},
      {"peaks_dbfs", {{"input", PeaksDb(input)}, {"output", PeaksDb(output)}}},
      {"picture", nullptr},
  };
}

std::string HostReport::Markdown(const json& r) {
  std::ostringstream md;
  md << "# velapo-host report\n\n";
  md << "| | |\n|---|---|\n";
  md << "| input | `" << r["input"]["path"].get<std::string>() << "`: " << r["input"]["channels"] << " channels, "
     << r["input"]["rate"] << " Hz, " << Fixed(r["input"]["seconds"].get<double>(), 3) << " s |\n";
  md << "| output | `" << r["output"]["path"].get<std::string>() << "`, 32-bit float |\n";
  md << "| stage, location | " << r["host"]["stage"].get<std::string>() << ", "
     << r["host"]["location"].get<std::string>() << " |\n";
  md << "| buffer | " << r["host"]["buffer_frames"] << " frames (" << Number(r["host"]["buffer_ms"], 2)
     << " ms)" << (r["host"]["realtime"].get<bool>() ? ", paced in real time" : "") << " |\n";
  md << "| configuration | `" << r["configuration"]["path"].get<std::string>() << "` |\n";
  if (r["configuration"].contains("product")) {
    md << "| product, default mode | " << r["configuration"]["product"].get<std::string>() << ", "
       << r["configuration"]["default_mode"].get<std::string>() << " |\n";
  }
  md << "| chain at start | " << r["chain_at_start"].get<std::string>() << " |\n";
  md << "| chain at end | " << r["chain_at_end"].get<std::string>() << " |\n\n";

  md << "## Modes and their chains at this location\n\n| mode | speaker type | chain |\n|---|---|---|\n";
  for (const json& mode : r["modes"]) {
    std::string chain = "none: audio passes";
    if (mode["chain"].is_array()) {
      chain.clear();
      for (const json& p : mode["chain"]) chain += (chain.empty() ? "" : " -> ") + p.get<std::string>();
    }
    md << "| " << mode["operating_mode"].get<std::string>() << (mode["default"].get<bool>() ? " (default)" : "")
       << " | " << mode["speaker_type"].get<std::string>() << " | " << chain << " |\n";
  }

  md << "\n## Script\n\n| line | at (s) | action | carried out (s) | switch (s) | input dB | output dB |\n"
        "|---|---|---|---|---|---|---|\n";
  for (const json& a : r["actions"]) {
    md << "| " << a["line"] << " | " << Number(a["time_s"], 3) << " | " << a["action"].get<std::string>()
       << (a["ok"].get<bool>() ? "" : " **failed: " + a.value("error", std::string()) + "**") << " | "
       << Number(a["applied_s"], 3) << " | " << Number(a.value("switch_s", json()), 3) << " | "
       << Number(a.value("input_db", json()), 2) << " | " << Number(a.value("output_db", json()), 2) << " |\n";
  }
  md << "\nSwitches of chains (s):";
  for (const json& s : r["switches_s"]) md << " " << Number(s, 3);
  md << (r["switches_s"].empty() ? " none" : "")
     << (r.value("switches_from", "") == "output" ? " (heard in the output: a level step after an action)" : "") << "\n";

  const json& lat = r["latency"];
  const json& cpu = r["cpu"];
  md << "\n## Measures\n\n| | |\n|---|---|\n";
  md << "| latency reported | " << lat["reported_units"] << " units of 10 ns (" << Number(lat["reported_ms"], 3)
     << " ms) |\n";
  md << "| latency measured on an impulse | " << Number(lat["measured_ms"], 3) << " ms |\n";
  md << "| time per buffer: median, p99, max | " << Number(cpu["median_us"], 1) << ", " << Number(cpu["p99_us"], 1)
     << ", " << Number(cpu["max_us"], 1) << " us (" << Number(cpu["median_share"].get<double>() * 100, 2) << " %, "
     << Number(cpu["p99_share"].get<double>() * 100, 2) << " %, " << Number(cpu["max_share"].get<double>() * 100, 2)
     << " % of the buffer) |\n";
  md << "| real-time factor | " << Number(cpu["realtime_factor"], 1) << " s of audio per s of CPU |\n";
  md << "| allocations on the audio thread | " << r["audio_thread_allocations"]["total"] << " ("
     << r["audio_thread_allocations"]["after_first_buffer"] << " after the first buffer) |\n";
  md << "| silent buffers | " << r["buffers"]["silent"] << " |\n";
  std::string in, out;
  for (const json& p : r["peaks_dbfs"]["input"]) in += (in.empty() ? "" : ", ") + Number(p, 2);
  for (const json& p : r["peaks_dbfs"]["output"]) out += (out.empty() ? "" : ", ") + Number(p, 2);
  md << "| peaks per channel, input | " << in << " dBFS |\n| peaks per channel, output | " << out << " dBFS |\n";
  if (r["picture"].is_string()) md << "\n![level and spectra](" << r["picture"].get<std::string>() << ")\n";
  return md.str();
}

bool HostReport::DrawPicture(const std::string& directory, const json& report, const AudioClip& input,
                             const AudioClip& output, std::string& error) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::absolute(directory);
  const std::string dirText = dir.generic_string();
  if (dirText.find_first_of("'\"") != std::string::npos) {
    error = "the report folder's name has a quote, which gnuplot's script cannot carry";
    return false;
  }
  {
    std::ofstream levels(dir / "levels.dat");
    const uint64_t window = std::max<uint64_t>(1, static_cast<uint64_t>(kLevelWindowSeconds * input.rate));
    for (uint64_t from = 0; from < input.Frames(); from += window) {
      levels << Seconds(from, input.rate) << ' ' << std::max(-120.0, LevelDb(input, from, from + window)) << ' '
             << std::max(-120.0, LevelDb(output, from, from + window)) << '\n';
    }
  }
  const std::vector<double> inSpectrum = Spectrum::Of(input), outSpectrum = Spectrum::Of(output);
  if (!inSpectrum.empty()) {
    std::ofstream spectrum(dir / "spectrum.dat");
    for (size_t b = 1; b < inSpectrum.size(); ++b) {
      spectrum << double(b) * input.rate / Spectrum::kSize << ' ' << inSpectrum[b] << ' ' << outSpectrum[b] << '\n';
    }
  }
  std::ofstream script(dir / "report.gp");
  script << "set terminal pngcairo size 1200," << (inSpectrum.empty() ? 500 : 900) << " font ',10'\n"
         << "set output '" << dirText << "/report.png'\n"
         << (inSpectrum.empty() ? "" : "set multiplot layout 2,1\n")
         << "set title 'Level over time (RMS per 10 ms)'\nset xlabel 'time (s)'\nset ylabel 'dBFS'\n"
         << "set yrange [-90:6]\nset grid\nset key bottom right\n";
  for (const json& a : report["actions"]) {
    std::string text = a["action"].get<std::string>();
    std::replace_if(text.begin(), text.end(), [](char c) { return c == '\'' || c == '"' || c == '\\'; }, ' ');
    const double at = a["applied_s"].get<double>();
    script << "set arrow from " << at << ", graph 0 to " << at << ", graph 1 nohead lc rgb '#cc3333' dt 2\n"
           << "set label '" << text << "' at " << at << ", graph 0.98 rotate by -90 font ',8' tc rgb '#cc3333'\n";
  }
  for (const json& s : report["switches_s"]) {
    script << "set arrow from " << s.get<double>() << ", graph 0 to " << s.get<double>()
           << ", graph 1 nohead lc rgb '#3333cc'\n";
  }
  script << "plot '" << dirText << "/levels.dat' using 1:2 with lines lc rgb '#999999' title 'input', '' using 1:3 "
         << "with lines lc rgb '#000000' title 'output', NaN lc rgb '#cc3333' dt 2 title 'action', NaN lc rgb "
            "'#3333cc' title 'switch'\n";
  if (!inSpectrum.empty()) {
    script << "unset arrow\nunset label\nset title 'Spectrum (whole file)'\nset xlabel 'Hz'\nset logscale x\n"
           << "set xrange [20:" << input.rate / 2 << "]\nset yrange [-120:0]\n"
           << "plot '" << dirText << "/spectrum.dat' using 1:2 with lines lc rgb '#999999' title 'input', '' using 1:3 "
           << "with lines lc rgb '#000000' title 'output'\nunset multiplot\n";
  }
  script.close();
  const std::string command =
      "gnuplot \"" + dirText + "/report.gp\" >" + NullDevice() + " 2>&1";
  if (std::system(command.c_str()) != 0 || !fs::exists(dir / "report.png")) {
    error = "gnuplot did not draw the picture (is gnuplot installed?)";
    return false;
  }
  return true;
}

bool HostReport::Write(const std::string& directory, json& report, const AudioClip& input, const AudioClip& output,
                       std::string& error) {
  std::error_code fileError;
  std::filesystem::create_directories(directory, fileError);
  if (fileError) {
    error = "cannot make the report folder '" + directory + "': " + fileError.message();
    return false;
  }
  std::string pictureError;
  if (DrawPicture(directory, report, input, output, pictureError)) {
    report["picture"] = "report.png";
  } else {
    report["picture_error"] = pictureError;
  }
  std::ofstream jsonFile(std::filesystem::path(directory) / "report.json");
  jsonFile << report.dump(2) << '\n';
  std::ofstream markdown(std::filesystem::path(directory) / "report.md");
  markdown << Markdown(report);
  if (!jsonFile || !markdown) {
    error = "cannot write the report into '" + directory + "'";
    return false;
  }
  return true;
}
