#include "ctl/meterscommand.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <thread>

#include "control/metermonitor.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"

namespace {

constexpr double kFloorDb = -60.0;
constexpr int kBarWidth = 40;
const char* const kMeterNames[] = {"input", "output"};

double ToDb(float level) {
  return level > 0.0f ? std::max(kFloorDb, 20.0 * std::log10(static_cast<double>(level))) : kFloorDb;
}

std::string Bar(float level) {
  const double db = ToDb(level);
  const int filled = static_cast<int>(std::lround((db - kFloorDb) / -kFloorDb * kBarWidth));
  char value[16];
  std::snprintf(value, sizeof value, "%6.1f dB", db);
  return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] " + value;
}

}  // namespace

MetersCommand::MetersCommand(CLI::App& app) {
  m_command = app.add_subcommand("meters", "The endpoint's level meters (input and output of the effect)");
  m_command->add_flag("--once", m_once, "Read once and print the levels (then the meters restart)");
  m_command->add_flag("--zero", m_zero, "Clear both meters and exit");
  m_command->add_option("--interval", m_intervalMs, "Milliseconds between live readings")
      ->check(CLI::Range(10, 10000));
  m_command->add_option("--channels", m_channels, "Channels to draw live (1 to 8)")->check(CLI::Range(1, 8));
  m_command->add_option("--seconds", m_seconds, "Stop the live view after this long");
}

int MetersCommand::Run(const CtlSession& session) {
  ControlEndpoint endpoint;
  if (ControlResult opened = session.OpenEndpoint(endpoint, false); !opened) {
    return session.Fail(opened, kCtlExitFailed);
  }
  MeterMonitor monitor;
  if (ControlResult opened = monitor.Open(endpoint); !opened) return session.Fail(opened, kCtlExitFailed);
  if (m_zero) return session.Done(monitor.Zero());
  std::vector<float> levels[MeterMonitor::kMeterCount];
  if (m_once) {
    for (uint32_t index = 0; index < MeterMonitor::kMeterCount; ++index) {
      if (ControlResult read = monitor.Read(index, levels[index]); !read) {
        return session.Fail(read, kCtlExitFailed);
      }
    }
    if (session.options.json) {
      nlohmann::json result;
      for (uint32_t index = 0; index < MeterMonitor::kMeterCount; ++index) {
        nlohmann::json db = nlohmann::json::array();
        for (const float level : levels[index]) db.push_back(ToDb(level));
        result[kMeterNames[index]] = {{"block", monitor.BlockName(index)}, {"levels", levels[index]}, {"db", db}};
      }
      session.PrintJson(result);
    } else {
      for (uint32_t index = 0; index < MeterMonitor::kMeterCount; ++index) {
        session.out << kMeterNames[index] << ":";
        for (const float level : levels[index]) session.out << " " << level;
        session.out << "\n";
      }
    }
    return kCtlExitOk;
  }
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(m_seconds);
  const unsigned lines = MeterMonitor::kMeterCount * m_channels;
  bool drawn = false;
  while (!session.interrupted && (m_seconds < 0 || Clock::now() < end)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(m_intervalMs));
    for (uint32_t index = 0; index < MeterMonitor::kMeterCount; ++index) {
      // A busy meter keeps its last reading for this frame.
      monitor.Read(index, levels[index]);
    }
    if (drawn) session.out << "\x1b[" << lines << "A";
    for (uint32_t index = 0; index < MeterMonitor::kMeterCount; ++index) {
      for (unsigned channel = 0; channel < m_channels; ++channel) {
        const float level = channel < levels[index].size() ? levels[index][channel] : 0.0f;
        session.out << "\r\x1b[K" << kMeterNames[index] << (index == 0 ? "  " : " ") << channel << " "
                    << Bar(level) << "\n";
      }
    }
    session.out.flush();
    drawn = true;
  }
  return kCtlExitOk;
}
