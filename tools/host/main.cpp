// velapo-host: plays an audio file through velapo as the audio engine would
// and reports what happened. `velapo-host --help` lists the options;
// docs/velapo-host.md tells the rest.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <map>

#include "hostapp.h"
#include "livecommand.h"

int main(int argc, char** argv) {
  CLI::App app{"Plays an audio file through velapo's effects, as the audio engine drives them, and reports.",
               "velapo-host"};
  app.set_version_flag("--version", "velapo-host 0.1");
  // Paths start with '/' under Wine as on Linux: never read them as options.
  app.allow_windows_style_options(false);
  HostOptions options;
  app.add_option("input", options.input, "Audio file to play (WAV, FLAC, ...)");
  app.add_option("output", options.output, "Processed file to write (32-bit float)");
  app.add_option("--config", options.config, "Configuration of the private endpoint")
      ->capture_default_str()
      ->check(CLI::ExistingFile);
  const std::map<std::string, uint32_t> locations{{"LFX", 0}, {"SFX", 1}, {"MFX", 2},
                                                  {"EFX", 3}, {"OSFX", 4}, {"OMFX", 5}};
  app.add_option("--location", options.locationName, "APO location: LFX, SFX, MFX, EFX, OSFX, OMFX")
      ->capture_default_str()
      ->check(CLI::IsMember({"LFX", "SFX", "MFX", "EFX", "OSFX", "OMFX"}, CLI::ignore_case));
  app.add_option("--block-ms", options.blockMs, "Buffer length in milliseconds")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  app.add_option("--stage", options.stage, "What to drive: apo (the effect objects) or manager (the process manager)")
      ->capture_default_str()
      ->check(CLI::IsMember({"apo", "manager"}));
  app.add_option("--module", options.module, "The engine's module for the apo stage (default: beside the program)");
  app.add_option("--store", options.store, "Settings store to join, with --endpoint (Linux)");
  app.add_option("--endpoint", options.endpoint, "Endpoint GUID to join instead of a private one");
  app.add_flag("--realtime", options.realtime, "Pace buffers at the stream's rate");
  app.add_option("--script", options.script, "Timed actions to carry out (docs/velapo-host.md)");
  app.add_option("--report", options.report, "Folder for report.json, report.md and report.png");
  app.add_flag("-q,--quiet", options.quiet, "No progress bar and no summary");

  CLI::App* generate = app.add_subcommand("generate", "Write the example programme: tones, a sweep, noise bursts");
  std::string programme;
  double seconds = 8.0;
  uint32_t rate = 48000;
  generate->add_option("output", programme, "File to write")->required();
  generate->add_option("--seconds", seconds, "Length")->capture_default_str()->check(CLI::Range(0.1, 3600.0));
  generate->add_option("--rate", rate, "Sample rate in Hz")->capture_default_str()->check(CLI::Range(8000, 192000));

  LiveOptions live;
  CLI::App* liveCommand = LiveHostBuilt() ? AddLiveCommand(app, live) : nullptr;

  CLI11_PARSE(app, argc, argv);
  if (*generate) return RunGenerate(programme, seconds, rate, std::cerr);
  if (liveCommand != nullptr && *liveCommand) {
    ResolveLiveOptions(*liveCommand, live);
    return RunLive(live, std::cout, std::cerr);
  }
  if (options.input.empty() || options.output.empty()) {
    std::cerr << "velapo-host: an input and an output file are needed (see --help)\n";
    return kExitBadInput;
  }
  for (auto& c : options.locationName) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  options.location = locations.at(options.locationName);
  options.configGiven = app.count("--config") > 0;
  // Run from the source tree the default is found as it is; elsewhere, in
  // the examples this build was made with.
  if (!options.configGiven && !std::filesystem::exists(options.config)) {
    options.config = std::string(VELAPO_HOST_EXAMPLES_DIR) + "/laptop.xml";
  }
  if (options.configGiven && !options.endpoint.empty()) {
    std::cerr << "velapo-host: --config names a private endpoint's file; a joined endpoint has its own\n";
    return kExitBadInput;
  }
  return RunHost(options, std::cout, std::cerr);
}
