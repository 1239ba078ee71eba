#include "ctl/tunecommand.h"

#include <chrono>
#include <istream>
#include <map>
#include <ostream>
#include <thread>

#include "control/controlpanel.h"
#include "control/tuningsession.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"

TuneCommand::TuneCommand(CLI::App& app) {
  m_command = app.add_subcommand(
      "tune", "Tune a mode live: hold its shared block, set values and the tuning mode");
  m_command->add_option("assignments", m_assignments,
                        "\"NAME=VALUE\" pairs, e.g. \"MFX-Volume:Gain-Level=-600\"");
  m_command->add_option("--mode", m_mode,
                        "The mode to tune (\"Operating Mode[/Speaker Type]\"); default: the mode in effect");
  m_command->add_option("--tuning-mode", m_tuningMode,
                        "0 public settings only, 1 block under public, 2 block over public, other neither");
  m_command->add_option("--hold", m_holdSeconds,
                        "Seconds to keep the block after writing (negative: until interrupted); "
                        "the block goes when its last holder does")
      ->check(CLI::Number);
  m_command->add_flag("-i,--interactive", m_interactive,
                      "Read NAME=VALUE, 'tuning-mode N', 'show' and 'quit' lines from the input");
}

bool TuneCommand::Apply(const CtlSession& session, TuningSession& tuning,
                        const std::string& assignment) {
  const size_t equals = assignment.find('=');
  if (equals == std::string::npos || equals == 0) {
    session.err << "velapo-ctl: '" << assignment << "' is not NAME=VALUE\n";
    return false;
  }
  const ControlResult set = tuning.SetValue(assignment.substr(0, equals), assignment.substr(equals + 1));
  if (!set) {
    session.err << "velapo-ctl: " << set.message << "\n";
    return false;
  }
  if (!session.options.json) session.out << set.message << "\n";
  return true;
}

void TuneCommand::Show(const CtlSession& session, TuningSession& tuning) {
  ZORUTSValueList values;
  tuning.Read(values);
  std::map<std::string, std::string> sorted;
  for (const auto& [name, value] : values) sorted[name] = value.GetText();
  if (session.options.json) {
    session.PrintJson({{"block", tuning.BlockName()}, {"mode", tuning.ModeText()}, {"values", sorted}});
    return;
  }
  for (const auto& [name, text] : sorted) session.out << name << " = " << text << "\n";
}

int TuneCommand::Interactive(const CtlSession& session, TuningSession& tuning) const {
  int failures = 0;
  std::string line;
  while (!session.interrupted && std::getline(session.in, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    if (line == "quit" || line == "exit") break;
    if (line == "show") {
      Show(session, tuning);
    } else if (line.starts_with("tuning-mode ")) {
      const std::string number = line.substr(12);
      char* end = nullptr;
      const long mode = std::strtol(number.c_str(), &end, 10);
      if (number.empty() || *end != '\0') {
        session.err << "velapo-ctl: '" << number << "' is not a tuning mode number\n";
        ++failures;
      } else if (ControlResult set = tuning.SetTuningMode(static_cast<int32_t>(mode)); !set) {
        session.err << "velapo-ctl: " << set.message << "\n";
        ++failures;
      } else if (!session.options.json) {
        session.out << set.message << "\n";
      }
    } else if (!Apply(session, tuning, line)) {
      ++failures;
    }
  }
  return failures == 0 ? kCtlExitOk : kCtlExitFailed;
}

void TuneCommand::Hold(const CtlSession& session) const {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(m_holdSeconds);
  while (!session.interrupted && (m_holdSeconds < 0 || Clock::now() < end)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

int TuneCommand::Run(const CtlSession& session) {
  ControlEndpoint endpoint;
  if (ControlResult opened = session.OpenEndpoint(endpoint, true); !opened) {
    return session.Fail(opened, kCtlExitFailed);
  }
  ZORAPOOperatingMode mode;
  if (ControlResult picked = ControlPanel(endpoint).PickMode(m_mode, mode); !picked) {
    return session.Fail(picked, kCtlExitFailed);
  }
  TuningSession tuning;
  if (ControlResult opened = tuning.Open(endpoint, mode); !opened) {
    return session.Fail(opened, kCtlExitFailed);
  }
  if (!session.options.json) session.out << "tuning " << tuning.ModeText() << " (" << tuning.BlockName() << ")\n";
  int code = kCtlExitOk;
  if (m_command->count("--tuning-mode") > 0) {
    const ControlResult set = tuning.SetTuningMode(m_tuningMode);
    if (!set) return session.Fail(set, kCtlExitFailed);
    if (!session.options.json) session.out << set.message << "\n";
  }
  for (const std::string& assignment : m_assignments) {
    if (!Apply(session, tuning, assignment)) code = kCtlExitFailed;
  }
  if (m_interactive) {
    if (const int interactive = Interactive(session, tuning); interactive != kCtlExitOk) code = interactive;
  } else {
    Hold(session);
  }
  if (session.options.json) Show(session, tuning);
  return code;
}
