#include "livecommand.h"

#include <cctype>
#include <filesystem>
#include <map>

CLI::App* AddLiveCommand(CLI::App& app, LiveOptions& options) {
  CLI::App* live = app.add_subcommand("live", "Run the effects live as a JACK client (PipeWire: through pw-jack)");
  live->add_option("--config", options.config, "Configuration of the private endpoint")
      ->capture_default_str()
      ->check(CLI::ExistingFile);
  live->add_option("--location", options.locationName, "APO location: LFX, SFX, MFX, EFX, OSFX, OMFX")
      ->capture_default_str()
      ->check(CLI::IsMember({"LFX", "SFX", "MFX", "EFX", "OSFX", "OMFX"}, CLI::ignore_case));
  live->add_option("--store", options.store, "Settings store to join, with --endpoint");
  live->add_option("--endpoint", options.endpoint, "Endpoint GUID to join instead of a private one")
      ->needs(live->get_option("--store"))
      ->excludes(live->get_option("--config"));
  live->add_option("--module", options.module, "The engine's module (default: beside the program)");
  // The render objects take 2, 4, 6 or 8 channels.
  live->add_option("--channels", options.channels, "Ports each way")
      ->capture_default_str()
      ->check(CLI::IsMember({2u, 4u, 6u, 8u}));
  live->add_option("--name", options.clientName, "JACK client name")->capture_default_str();
  live->add_flag("--connect", options.connect, "Connect the outputs to the sound card's playback ports");
  live->add_option("--seconds", options.seconds, "Stop after this long (default: run until Ctrl-C)")
      ->check(CLI::Range(0.0, 86400.0));
  live->add_option("--stats", options.stats, "Write the run's measures here as JSON at the end");
  live->add_option("--log", options.log, "Write the engine's log here");
  live->add_flag("-q,--quiet", options.quiet, "No banner and no summary");
  return live;
}

void ResolveLiveOptions(const CLI::App& command, LiveOptions& options) {
  static const std::map<std::string, uint32_t> locations{{"LFX", 0}, {"SFX", 1}, {"MFX", 2},
                                                         {"EFX", 3}, {"OSFX", 4}, {"OMFX", 5}};
  for (auto& c : options.locationName) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  options.location = locations.at(options.locationName);
  if (command.count("--config") == 0 && !std::filesystem::exists(options.config)) {
    options.config = std::string(VELAPO_HOST_EXAMPLES_DIR) + "/laptop.xml";
  }
}
