#pragma once

#include <cstdint>

#include "platform/com.h"

// The sample format a caller asks of a monitor, and the one it is told.
struct MonitorFormat {
  uint32_t channels = 0;
  uint32_t sampleRate = 0;  // Hz
  uint32_t bits = 0;        // per sample
  bool isFloat = false;
};

// Receives what an input monitor finds, on the monitor's thread.
class IZORAudioInputListener {
 public:
  virtual ~IZORAudioInputListener() = default;
  // The format OnData's samples come in.
  virtual void OnFormat(MonitorFormat* format) = 0;
  // Kept for the listener's slot order; no monitor calls it.
  virtual void OnReserved() = 0;
  // `frames` frames of interleaved samples; the listener writes into
  // `frames` how many it took. The rest comes again in the next call.
  virtual void OnData(const void* samples, uint32_t* frames) = 0;
};

// One capture device watched on a thread of the monitor's own. Open, Start,
// Stop and Close belong to one control thread.
class IZORAudioInputMonitor {
 public:
  // States; the checked changes are CanChangeState's.
  enum State : uint32_t { kOpen = 0, kClosed = 1, kRunning = 2, kStopped = 3, kNotInitialised = 4 };
  using DeviceCallback = void (*)(LPCWSTR deviceId, void* context);

  virtual ~IZORAudioInputMonitor() = default;
  // Lists the active capture devices, calling `callback` (may be null) for
  // each; whether any was found.
  virtual bool EnumDevices(DeviceCallback callback, void* context) = 0;
  // `device` is a friendly name or an id, matched without regard to case.
  virtual bool CheckFormat(const char16_t* device, MonitorFormat* format) = 0;
  virtual bool Open(const char16_t* device, IZORAudioInputListener* listener, MonitorFormat* format) = 0;
  virtual void Close() = 0;
  virtual void GetLatencyMs(uint32_t* latencyMs) = 0;
  virtual void GetBufferFrames(uint32_t* frames) = 0;
  virtual bool Start() = 0;
  virtual bool Stop() = 0;
  virtual uint32_t GetMonitorState() = 0;
  // Kept for the interface's slot order; answers 1.
  virtual uint32_t Reserved() = 0;

  // The checked form of a state change: from open to closed, running or
  // stopped; closed to open; running to stopped; stopped to closed or
  // running; from not initialised to anything; and to the state itself.
  static bool CanChangeState(uint32_t from, uint32_t to);
};
