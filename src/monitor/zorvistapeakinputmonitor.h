#pragma once

#include "monitor/zorvistainputmonitorbase.h"

// Delivers one level reading per device period, the device meter's peak,
// without taking audio: OnData gets one float and a count of 1. Its own
// shared stream keeps the device running while it reads.
class ZORVistaPeakInputMonitor : public ZORVistaInputMonitorBase {
 public:
  ZORVistaPeakInputMonitor() = default;
  ~ZORVistaPeakInputMonitor() override;

  bool CheckFormat(const char16_t*, MonitorFormat*) override { return true; }
  // Tells the listener by OnFormat: 1 channel of 32-bit float.
  bool Open(const char16_t* device, IZORAudioInputListener* listener, MonitorFormat* format) override;
  void Close() override;
  void GetLatencyMs(uint32_t* latencyMs) override;
  void GetBufferFrames(uint32_t* frames) override;
  bool Start() override;
  bool Stop() override;

 private:
  static unsigned PeakReadThread(void* self);
  unsigned ReadPeaks();

  ZORComPtr<IAudioMeterInformation> m_pMeter;
  ZORComPtr<IAudioClient> m_pClient;
  IZORAudioInputListener* m_pListener = nullptr;
};
