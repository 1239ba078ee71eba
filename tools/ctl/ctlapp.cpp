#include "ctl/ctlapp.h"

#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "control/controlcontext.h"
#include "ctl/checkcommand.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"
#include "ctl/devicescommand.h"
#include "ctl/dumpcommand.h"
#include "ctl/endpointscommand.h"
#include "ctl/inputlevelcommand.h"
#include "ctl/meterscommand.h"
#include "ctl/modecommand.h"
#include "ctl/settingscommand.h"
#include "ctl/tunecommand.h"

namespace {

constexpr const char* kFooter =
    "Exit codes: 0 done, 1 the operation failed, 2 bad command line, "
    "3 check found controls that reach nothing, 4 the configuration does not load.\n";

}  // namespace

int CtlApp::Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                std::istream& in, const std::atomic<bool>& interrupted) {
  CLI::App app("velapo-ctl: the control panel and tuning tool of velapo", "velapo-ctl");
  app.footer(kFooter);
  app.fallthrough();
  // Paths start with '/' on Linux and may under Wine: never read them as
  // Windows-style options.
  app.allow_windows_style_options(false);
  app.require_subcommand(1);
  CtlOptions options;
  app.add_option("--store", options.storeRoot,
                 "Root directory of the settings store (Linux; default /var/lib/velapo for root, "
                 "else $XDG_STATE_HOME/velapo)");
  app.add_option("-e,--endpoint", options.endpoint, "The endpoint's GUID (default: the default render endpoint)");
  app.add_flag("--capture", options.capture, "The endpoint is a capture endpoint");
  app.add_option("--config", options.configPath, "Use this configuration instead of the endpoint's");
  app.add_flag("--json", options.json, "Print data as JSON");
  app.add_flag("-v,--verbose", options.verbose, "Show the engine's log lines on standard error");

  std::vector<std::unique_ptr<CtlCommand>> commands;
  commands.push_back(std::make_unique<EndpointsCommand>(app));
  commands.push_back(std::make_unique<ModeCommand>(app));
  commands.push_back(std::make_unique<SettingsCommand>(app));
  commands.push_back(std::make_unique<TuneCommand>(app));
  commands.push_back(std::make_unique<MetersCommand>(app));
  commands.push_back(std::make_unique<DumpCommand>(app));
  commands.push_back(std::make_unique<CheckCommand>(app));
  commands.push_back(std::make_unique<DevicesCommand>(app));
  commands.push_back(std::make_unique<InputLevelCommand>(app));

  // CLI11 would only say that a command is missing; name the word it took
  // for one instead.
  for (size_t index = 0; index < args.size(); ++index) {
    const std::string& arg = args[index];
    if (arg == "--store" || arg == "-e" || arg == "--endpoint" || arg == "--config") {
      ++index;
      continue;
    }
    if (arg.starts_with("-")) continue;
    std::string known;
    bool found = false;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
      known += (known.empty() ? "" : ", ") + command->get_name();
      found = found || command->get_name() == arg;
    }
    if (!found) {
      err << "velapo-ctl: unknown command '" << arg << "'; commands: " << known << "\n";
      return kCtlExitUsage;
    }
    break;
  }
  // CLI11 takes the arguments last first.
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error, out, err);
    return code == 0 ? kCtlExitOk : kCtlExitUsage;
  }
  if (!options.storeRoot.empty() && !ControlContext::StoreRootSelectable()) {
    err << "velapo-ctl: --store has no meaning here: the registry is the store\n";
    return kCtlExitUsage;
  }
  const ControlContext context(options.storeRoot, !options.verbose);
  const CtlSession session(options, out, err, in, interrupted);
  for (const auto& command : commands) {
    if (command->Chosen()) return command->Run(session);
  }
  return kCtlExitUsage;
}
