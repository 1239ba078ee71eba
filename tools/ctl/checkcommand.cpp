#include "ctl/checkcommand.h"

#include <ostream>

#include "audio/zorapoprocesslibrary.h"
#include "config/zorapoconfigurationfile.h"
#include "control/configurationcheck.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"
#include "platform/text.h"

namespace {

nlohmann::json ToJson(const ConfigurationReport& report) {
  nlohmann::json chains = nlohmann::json::array();
  for (const CheckedChain& chain : report.chains) {
    chains.push_back({{"location", ZORAPOConfigurationFile::LocationName(chain.location)},
                      {"mode", chain.mode},
                      {"input", ConfigurationCheck::LayoutText(chain.inputLayouts)},
                      {"output", ConfigurationCheck::LayoutText(chain.outputLayouts)},
                      {"type", chain.isRender ? "render" : "capture"},
                      {"processes", chain.processes}});
  }
  nlohmann::json problems = nlohmann::json::array();
  for (const ControlProblem& problem : report.problems) {
    problems.push_back({{"mode", problem.mode}, {"control", problem.control}, {"reason", problem.reason}});
  }
  return {{"path", report.path},         {"status", report.status},
          {"product", report.product},   {"default_mode", report.defaultMode},
          {"modes", report.modes},       {"chains", chains},
          {"tech_module", {{"loaded", report.moduleLoaded}, {"path", report.modulePath}, {"tech_ids", report.techIds}}},
          {"problems", problems}};
}

void PrintText(std::ostream& out, const ConfigurationReport& report) {
  out << report.path << ": status " << report.status << "\n"
      << "product: " << report.product << "\n"
      << "default mode: " << report.defaultMode << "\n"
      << "tech module: " << (report.moduleLoaded ? report.modulePath : "not found") << "\n";
  for (const std::string& mode : report.modes) {
    out << "mode " << mode << "\n";
    for (const CheckedChain& chain : report.chains) {
      if (chain.mode != mode) continue;
      out << "  " << ZORAPOConfigurationFile::LocationName(chain.location) << " "
          << (chain.isRender ? "render" : "capture") << " "
          << ConfigurationCheck::LayoutText(chain.inputLayouts) << " -> "
          << ConfigurationCheck::LayoutText(chain.outputLayouts) << ":";
      for (const std::string& process : chain.processes) out << " " << process;
      out << "\n";
    }
  }
  for (const ControlProblem& problem : report.problems) {
    out << "problem: " << problem.mode << ": " << problem.control << ": " << problem.reason << "\n";
  }
  if (report.problems.empty()) out << "every control reaches a control of its process\n";
}

}  // namespace

CheckCommand::CheckCommand(CLI::App& app) {
  m_command = app.add_subcommand(
      "check", "Load a configuration: status, product, modes, chains, and controls that reach nothing");
  m_command->add_option("file", m_file, "The configuration file (default: the endpoint's)");
  m_command->add_option("--tech-module", m_techModule, "Check against the tech module in this file's directory (its usual name, libveltech.so or veltech64.dll)")
      ->check(CLI::ExistingFile);
}

int CheckCommand::Run(const CtlSession& session) {
  std::string path = m_file;
  if (path.empty()) {
    ControlEndpoint endpoint;
    if (ControlResult opened = session.OpenEndpoint(endpoint, false); !opened) {
      return session.Fail(opened, kCtlExitFailed);
    }
    path = session.options.configPath.empty() ? endpoint.ConfigPath() : session.options.configPath;
  }
  if (!m_techModule.empty()) {
    ZORAPOProcessLibrary::SetModulePath(zor::os::NarrowToWide(m_techModule).c_str());
  }
  ConfigurationReport report;
  const ControlResult checked = ConfigurationCheck::Run(path, report);
  if (session.options.json) {
    session.PrintJson(ToJson(report));
  } else if (checked) {
    PrintText(session.out, report);
  }
  if (!checked) return session.Fail(checked, kCtlExitNotLoaded);
  return report.problems.empty() ? kCtlExitOk : kCtlExitCheckFindings;
}
