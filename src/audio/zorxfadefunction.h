#pragma once
#include <cstdint>

#include "audio/izoraudiodata.h"

// Mixes the chain going out with the chain coming in during a change of chain
// on a running stream. A delay phase, as long as the chains' latency, lets the
// new chain's first real output arrive before any of it is heard; then the new
// chain's gain rises linearly in decibels from -120 dB to 0 dB, so nearly all
// of the audible change happens at the end, and the old chain gets 1 - gain.
class ZORXFadeFunction {
 public:
  virtual ~ZORXFadeFunction() = default;

  // Arms the fade. Times are in units of 10 ns. Configuration thread while the
  // stream is stopped, or audio thread when a finished fade is rearmed.
  void Init(uint32_t sampleRate, uint64_t fadeTime, uint64_t delayTime);

  // Mixes `oldBlock` into `newBlock` for the frames of this block; frames past
  // the end of the fade keep the new chain's samples. Audio thread.
  void Process(IZORAudioData<float>& oldBlock, IZORAudioData<float>& newBlock);

  // Frames done over delay plus fade: 0.0 nothing done, 1.0 complete. With both
  // lengths 0 the quotient is not a number, which compares false both ways.
  float GetPosition() const;

  void Reset();

  uint32_t GetFadeFrames() const { return m_fadeFrames; }
  uint32_t GetDelayFrames() const { return m_delayFrames; }

  // The gain of the new chain at `framesIntoFade` frames past the delay; the
  // one formula that Process applies, kept apart so that tests pin it.
  static float GainAt(uint32_t framesIntoFade, uint32_t fadeFrames);

 private:
  uint32_t m_fadeFrames = 0;
  uint32_t m_delayFrames = 0;
  uint32_t m_position = 0;
  float m_level = 0.0f;  // kept for tracing; mixing does not read it
  bool m_armed = false;  // kept for tracing; mixing does not read it
};
