#pragma once
// TechProcess: what every veltech process shares. It is the process object
// the host sees (its first word points to the operation table of the tech
// border), keeps the control values, and turns the host's channel list into
// an array of channel pointers for the kind's own Run.
//
// Threads: control values are atomics, so the host's worker may set them
// while the audio thread runs; a kind reads them at the start of each short
// stretch of audio and glides to them. Init runs while the process isn't
// playing and is the only place that allocates; Process and CopyState run on
// the audio thread and never allocate, lock or wait.

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "controltable.h"
#include "veltech/veltech_abi.h"

namespace veltech {

class TechProcess {
 public:
  explicit TechProcess(const ControlTable& controls);
  virtual ~TechProcess();
  TechProcess(const TechProcess&) = delete;
  TechProcess& operator=(const TechProcess&) = delete;

  // The object handed to the host, and back.
  ZORTechProcess* Abi() { return &m_abi.header; }
  // The process behind a host pointer; null for a pointer this module didn't
  // hand out.
  static TechProcess* FromAbi(ZORTechProcess* process);

  // Operations of the border. Worker thread unless said otherwise.
  virtual uint32_t GetBlockSize() const { return 0; }
  virtual uint32_t GetLatency() const { return 0; }
  int32_t GetControls(const ZORTechControl** first) const;
  // Values outside a control's range are limited to it.
  bool SetControlLong(const char* name, int32_t value);
  bool SetControlString(const char* name, const char* text);
  bool GetControlLong(const char* name, int32_t* value) const;
  // The value's name, for enumerated controls only.
  bool GetControlString(const char* name, const char** text) const;
  // Takes over the running state of a process of the same kind, channel
  // count and rate. Audio thread.
  bool CopyState(const TechProcess& other);
  bool Init(uint32_t channels, uint32_t sampleRate);
  // Processes the first Init-channels nodes of the list in place (copying
  // `in` to `out` first where they differ); nodes beyond are left as they
  // are. Audio thread.
  void Process(ZORChannelNode* in, ZORChannelNode* out, uint32_t frames);

  const ControlTable& Controls() const { return m_controls; }
  uint32_t Channels() const { return m_channels; }
  uint32_t SampleRate() const { return m_sampleRate; }

  // The ramp length of every smoothed parameter: long enough that a change
  // is heard as a glide, short enough to feel immediate.
  static constexpr double kGlideSeconds = 0.020;

 protected:
  // Allocates what Run needs for this shape. Worker thread.
  virtual bool Prepare(uint32_t channels, uint32_t sampleRate) = 0;
  // Processes `count` channels (at most Channels()) of `frames` frames in
  // place. Audio thread.
  virtual void Run(float* const* channels, uint32_t count, uint32_t frames) = 0;
  // Copies the running state of `other`, which has this kind and shape.
  // Audio thread.
  virtual void TakeState(const TechProcess& other) = 0;

  // The current value of a control, by index in the kind's table.
  int32_t Control(size_t index) const { return m_values[index].load(std::memory_order_relaxed); }
  // True once after Init: the first audio starts at the controls' values
  // instead of gliding to them from the defaults. CopyState clears it, so
  // that a process taking over glides from the state it took.
  bool TakeStartFlag() {
    const bool start = m_start;
    m_start = false;
    return start;
  }
  // Frames of a glide at the current rate, or at `sampleRate` (for Prepare,
  // which runs before the rate is current); at least 1.
  uint32_t GlideFrames() const { return GlideFramesAt(m_sampleRate); }
  static uint32_t GlideFramesAt(uint32_t sampleRate);

 private:
  struct AbiObject {
    ZORTechProcess header;  // first, so its address is the object's
    TechProcess* owner;
  };

  AbiObject m_abi;
  const ControlTable& m_controls;
  std::unique_ptr<std::atomic<int32_t>[]> m_values;
  std::vector<float*> m_channelPointers;
  uint32_t m_channels = 0;
  uint32_t m_sampleRate = 0;
  bool m_start = true;
};

// The table every veltech process hands the host.
const ZORTechProcessTable& ProcessTable();

}  // namespace veltech
