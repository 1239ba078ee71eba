#pragma once

#include "monitor/zorvistainputmonitorbase.h"

// Delivers the device's audio through a shared-mode capture stream: each
// packet goes to the listener, which may take part of it and get the rest
// in the next round.
class ZORVistaWASAPIInputMonitor : public ZORVistaInputMonitorBase {
 public:
  ZORVistaWASAPIInputMonitor() = default;
  ~ZORVistaWASAPIInputMonitor() override;

  // Whether the device takes the record's format.
  bool CheckFormat(const char16_t* device, MonitorFormat* format) override;
  // A record whose channels x rate x bits is 0 is filled from the device's
  // mix format (the listener is not told); any other is asked for as is.
  bool Open(const char16_t* device, IZORAudioInputListener* listener, MonitorFormat* format) override;
  void Close() override;
  void GetLatencyMs(uint32_t* latencyMs) override;
  void GetBufferFrames(uint32_t* frames) override;
  bool Start() override;
  bool Stop() override;

  // The extensible format asked for from a record: one channel mask for any
  // channel count, float samples.
  static WAVEFORMATEXTENSIBLE FormatOfRecord(const MonitorFormat& format);
  // Latency in ms of a stream latency in 100 ns units, rounded half up.
  static uint32_t LatencyMsOf(REFERENCE_TIME latency);

 private:
  static unsigned CaptureReadThread(void* self);
  unsigned ReadPackets();

  ZORComPtr<IAudioClient> m_pClient;
  uint32_t m_bufferFrames = 0;
  uint32_t m_latencyMs = 0;
  ZORComPtr<IAudioCaptureClient> m_pCaptureClient;
  IZORAudioInputListener* m_pListener = nullptr;
};
