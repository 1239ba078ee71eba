#include "ctl/inputlevelcommand.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <thread>

#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"
#include "monitor/zorvistapeakinputmonitor.h"
#include "platform/text.h"

namespace {

constexpr double kFloorDb = -90.0;
constexpr int kBarWidth = 40;
// A device that gives no reading in this long could not be opened. A working
// one reads within tens of milliseconds, but a busy machine took over 2 s to
// start the meter's own capture.
constexpr auto kFirstReadingWait = std::chrono::seconds(5);

double ToDb(float level) {
  return level > 0.0f ? std::max(kFloorDb, 20.0 * std::log10(static_cast<double>(level))) : kFloorDb;
}

// Keeps the latest reading and the loudest since the last look.
class LevelListener : public IZORAudioInputListener {
 public:
  void OnFormat(MonitorFormat*) override {}
  void OnReserved() override {}
  void OnData(const void* samples, uint32_t* frames) override {
    if (*frames == 0) return;
    const float level = *static_cast<const float*>(samples);
    float held = m_peak.load();
    while (level > held && !m_peak.compare_exchange_weak(held, level)) {
    }
    ++m_readings;
  }
  uint64_t Readings() const { return m_readings; }
  float TakePeak() { return m_peak.exchange(0.0f); }

 private:
  std::atomic<float> m_peak{0.0f};
  std::atomic<uint64_t> m_readings{0};
};

// The ids of the active capture devices, for the message that names none.
std::string ActiveIds(IZORAudioInputMonitor& monitor) {
  std::string ids;
  monitor.EnumDevices(
      [](LPCWSTR id, void* context) {
        auto& all = *static_cast<std::string*>(context);
        all += (all.empty() ? "" : ", ") + zor::os::Utf16ToUtf8(zor::com::FromComText(id));
      },
      &ids);
  return ids;
}

}  // namespace

InputLevelCommand::InputLevelCommand(CLI::App& app) {
  m_command = app.add_subcommand("input-level", "What a capture device hears: a live peak level bar");
  m_command->add_option("device", m_device, "The device's friendly name or id (see velapo-ctl devices)")
      ->required();
  m_command->add_flag("--once", m_once, "Print one reading (the loudest of the first 100 ms) and exit");
  m_command->add_option("--seconds", m_seconds, "Stop the live bar after this long");
}

int InputLevelCommand::Run(const CtlSession& session) {
  const std::u16string name = zor::os::Utf8ToUtf16(m_device);
  ZORVistaPeakInputMonitor monitor;
  LevelListener listener;
  MonitorFormat format{};
  if (!monitor.Open(name.c_str(), &listener, &format)) {
    const std::string known = ActiveIds(monitor);
    session.err << "velapo-ctl: no active capture device is named '" << m_device << "'"
                << (known.empty() ? "; there is none" : "; active: " + known) << "\n";
    return kCtlExitFailed;
  }
  if (!monitor.Start()) {
    session.err << "velapo-ctl: capture device '" << m_device << "' cannot be opened\n";
    return kCtlExitFailed;
  }
  using Clock = std::chrono::steady_clock;
  const auto first = Clock::now() + kFirstReadingWait;
  while (listener.Readings() == 0 && Clock::now() < first && !session.interrupted) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (listener.Readings() == 0) {
    session.err << "velapo-ctl: capture device '" << m_device << "' cannot be opened: it gives no level\n";
    return kCtlExitFailed;
  }
  if (m_once) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const float peak = listener.TakePeak();
    monitor.Close();
    if (session.options.json) {
      session.PrintJson({{"device", m_device}, {"peak", peak}, {"db", ToDb(peak)}});
    } else {
      char line[64];
      std::snprintf(line, sizeof line, "peak %.4f (%.1f dB)\n", static_cast<double>(peak), ToDb(peak));
      session.out << line;
    }
    return kCtlExitOk;
  }
  const auto end = Clock::now() + std::chrono::duration<double>(m_seconds);
  while (!session.interrupted && (m_seconds < 0 || Clock::now() < end)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const float peak = listener.TakePeak();
    const double db = ToDb(peak);
    if (session.options.json) {
      session.out << nlohmann::json{{"peak", peak}, {"db", db}}.dump() << "\n";
    } else {
      const int filled = static_cast<int>(std::lround((db - kFloorDb) / -kFloorDb * kBarWidth));
      char value[16];
      std::snprintf(value, sizeof value, "%6.1f dB", db);
      session.out << "\r[" << std::string(filled, '#') << std::string(kBarWidth - filled, ' ') << "] " << value;
    }
    session.out.flush();
  }
  if (!session.options.json) session.out << "\n";
  monitor.Close();
  return kCtlExitOk;
}
