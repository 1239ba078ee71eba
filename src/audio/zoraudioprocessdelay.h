#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/izoraudioprocess.h"

// Delays every channel by a set number of frames. A chain holds one on its
// bypass path, so that the bypass path can report the latency of the tuned
// path.
//
// Each channel keeps exactly the delay in frames between calls. It is a
// ring rather than a queue that grows and shrinks per block, so Process
// never allocates; only Init and SetDelay, which reshape the rings, do.
//
// Init, SetDelay and the bypass belong to the thread that builds the chain;
// Process to the audio thread.
class ZORAudioProcessDelay : public IZORAudioProcess<float> {
 public:
  ZORAudioProcessDelay() = default;
  ~ZORAudioProcessDelay() override = default;
  ZORAudioProcessDelay(const ZORAudioProcessDelay&) = delete;
  ZORAudioProcessDelay& operator=(const ZORAudioProcessDelay&) = delete;

  // Gives the stage one delay line per channel (new lines hold silence,
  // surplus ones go) and brings every line to the delay: a longer delay adds
  // silence after the audio a line holds, a shorter one drops the newest
  // samples. With delay 0 the lines keep what they hold. The rate plays no
  // part. Always true.
  bool Init(uint32_t channels, uint32_t sampleRate) override;
  // Kept for the interface; Process doesn't consult it.
  void SetBypass(bool bypass) override { m_bypass = bypass; }
  bool GetBypass() const override { return m_bypass; }
  // The delay set, whether or not there are lines to apply it.
  uint32_t GetLatency() const override { return m_delay; }
  // Delays the channels that have a line; others pass unchanged. With delay
  // 0 the block isn't touched at all, not even converted between layouts.
  // audio thread
  void Process(IZORAudioData<float>* data) override;

  // Sets the delay and reshapes the lines there are. Before any Init there
  // are none, so the delay is a figure only and the audio passes as it is.
  void SetDelay(uint32_t frames);

  uint32_t GetChannelCount() const { return static_cast<uint32_t>(m_lines.size()); }

 private:
  // One channel's delay line: the samples in order from oldest, starting at
  // `next`, which is also where the newest sample goes.
  struct Line {
    std::vector<float> samples;
    size_t next = 0;
  };

  static void Reshape(Line& line, uint32_t delay);

  uint32_t m_delay = 0;
  bool m_bypass = false;
  std::vector<Line> m_lines;
};
