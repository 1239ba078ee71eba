#include "ctl/devicescommand.h"

#include <chrono>
#include <mutex>
#include <ostream>
#include <thread>
#include <vector>

#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"
#include "monitor/zoraudiodevicehelpers.h"
#include "monitor/zorvistaaudiodevicemonitor.h"
#include "platform/text.h"

namespace {

const char* const kCodeNames[] = {"added", "removed", "disabled", "active", "not present", "unplugged", "other"};

struct Report {
  std::string id;
  uint32_t code;
};

// Collects the monitor's reports; they come on the notification thread.
struct Reports {
  std::mutex mutex;
  std::vector<Report> pending;

  static void Callback(LPCWSTR id, uint32_t code, void* context) {
    auto* self = static_cast<Reports*>(context);
    const std::lock_guard<std::mutex> lock(self->mutex);
    self->pending.push_back({zor::os::Utf16ToUtf8(zor::com::FromComText(id)), code});
  }
  std::vector<Report> Take() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(pending, {});
  }
};

std::string FriendlyName(IMMDeviceEnumerator* enumerator, const std::string& id) {
  ZORComPtr<IMMDevice> device;
  const std::u16string wide = zor::os::Utf8ToUtf16(id);
  if (!enumerator || FAILED(enumerator->GetDevice(zor::com::ToComText(wide.c_str()), device.Put()))) return {};
  return zor::os::Utf16ToUtf8(ZORAudioDeviceFriendlyName(device.Get()));
}

}  // namespace

DevicesCommand::DevicesCommand(CLI::App& app) {
  m_command = app.add_subcommand("devices", "The capture devices and their states");
  m_command->add_flag("--watch", m_watch, "Then print each change (added, removed, a new state) until interrupted");
  m_command->add_option("--seconds", m_seconds, "Stop watching after this long");
}

int DevicesCommand::Run(const CtlSession& session) {
  ZORComPtr<IMMDeviceEnumerator> enumerator;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              enumerator.PutVoid()))) {
    session.err << "velapo-ctl: the system's device enumerator is not available\n";
    return kCtlExitFailed;
  }
  Reports reports;
  ZORVistaAudioDeviceMonitor monitor;
  monitor.SetDeviceCallback(&Reports::Callback, &reports);
  const auto print = [&](const Report& report, bool change) {
    const std::string name = report.code == ZORVistaAudioDeviceMonitor::kRemoved
                                 ? std::string()
                                 : FriendlyName(enumerator.Get(), report.id);
    const char* state = kCodeNames[std::min<uint32_t>(report.code, 6)];
    if (session.options.json) {
      nlohmann::json line = {{"id", report.id}, {"name", name}, {"state", state}, {"code", report.code}};
      if (change) line["event"] = true;
      session.out << line.dump() << "\n";
    } else {
      session.out << (change ? "* " : "") << report.id << "  " << state << (name.empty() ? "" : "  " + name) << "\n";
    }
  };
  const std::vector<Report> present = reports.Take();
  if (session.options.json && !m_watch) {
    nlohmann::json list = nlohmann::json::array();
    for (const Report& report : present) {
      list.push_back({{"id", report.id},
                      {"name", FriendlyName(enumerator.Get(), report.id)},
                      {"state", kCodeNames[std::min<uint32_t>(report.code, 6)]},
                      {"code", report.code}});
    }
    session.PrintJson(list);
    return kCtlExitOk;
  }
  for (const Report& report : present) print(report, false);
  if (!m_watch) return kCtlExitOk;
  session.out.flush();
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(m_seconds);
  while (!session.interrupted && (m_seconds < 0 || Clock::now() < end)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (const Report& report : reports.Take()) print(report, true);
    session.out.flush();
  }
  monitor.StopMonitoring();
  for (const Report& report : reports.Take()) print(report, true);
  return kCtlExitOk;
}
