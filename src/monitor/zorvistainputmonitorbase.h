#pragma once

#include <cstdint>
#include <vector>

#include "monitor/izoraudioinputmonitor.h"
#include "platform/event.h"
#include "platform/thread.h"

// What the peak and capture monitors share: the list of active capture
// devices, finding one by name, the state with its checked changes, and the
// reading thread with its stop event.
class ZORVistaInputMonitorBase : public IZORAudioInputMonitor {
 public:
  static constexpr uint32_t kStopWaitMs = 5000;

  ~ZORVistaInputMonitorBase() override;

  bool EnumDevices(DeviceCallback callback, void* context) override;
  uint32_t GetMonitorState() override { return m_state; }
  uint32_t Reserved() override { return 1; }

 protected:
  ZORVistaInputMonitorBase() = default;

  // Closes, lists the devices again and answers the first whose friendly
  // name, then id, equals `name` regardless of case; null when none does.
  IMMDevice* FindDevice(const char16_t* name);
  // The checked change; false (and no change) where it is not allowed.
  bool ChangeState(uint32_t to);
  // Starts `entry(this)` unless a thread runs; false when it cannot start.
  bool StartThread(zor::os::ThreadEntry entry);
  // Sets the stop event and waits for the thread. One that ignores the stop
  // for kStopWaitMs is killed where the platform can; POSIX cannot, and
  // waits it out, since the thread uses this object. False after such a
  // time-out.
  bool StopThread();
  zor::os::Event& StopEvent() { return m_stopEvent; }

  std::vector<ZORComPtr<IMMDevice>> m_devices;
  ZORComPtr<IMMDevice> m_pDevice;

 private:
  zor::os::Thread m_thread;
  zor::os::Event m_stopEvent{zor::os::EventReset::Manual};
  uint32_t m_state = kNotInitialised;
};
