#include "audio/zorxfadefunction.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int64_t kTimeUnitsPerSecond = 100000000;  // units of 10 ns

uint32_t FramesFromTime(uint32_t sampleRate, uint64_t time) {
  return static_cast<uint32_t>(static_cast<int64_t>(sampleRate) * static_cast<int64_t>(time) /
                               kTimeUnitsPerSecond);
}

}  // namespace

void ZORXFadeFunction::Init(uint32_t sampleRate, uint64_t fadeTime, uint64_t delayTime) {
  m_fadeFrames = FramesFromTime(sampleRate, fadeTime);
  m_delayFrames = FramesFromTime(sampleRate, delayTime);
  m_armed = true;
  m_position = 0;
  m_level = 1.0f;
}

void ZORXFadeFunction::Reset() {
  m_position = 0;
  m_level = 1.0f;
}

float ZORXFadeFunction::GetPosition() const {
  return static_cast<float>(m_position) / static_cast<float>(m_delayFrames + m_fadeFrames);
}

float ZORXFadeFunction::GainAt(uint32_t framesIntoFade, uint32_t fadeFrames) {
  // Single precision throughout, in this grouping: the Windows and Linux builds
  // and the vectorised loops must all give the same gains.
  const float decibels =
      static_cast<float>(framesIntoFade) * (120.0f / static_cast<float>(fadeFrames)) - 120.0f;
  return std::pow(10.0f, decibels / 20.0f);
}

// audio thread
void ZORXFadeFunction::Process(IZORAudioData<float>& oldBlock, IZORAudioData<float>& newBlock) {
  // Both blocks should have one shape; where a chain left another one, mix
  // only what both hold rather than read or write past either store.
  const uint32_t oldChannels = oldBlock.GetChannels();
  const uint32_t newChannels = newBlock.GetChannels();
  const uint32_t channels = std::min(oldChannels, newChannels);
  uint32_t frames = std::min(oldBlock.GetFrames(), newBlock.GetFrames());
  const uint32_t fadeEnd = m_delayFrames + m_fadeFrames;
  const float* source = oldBlock.GetData(false, true);
  float* target = newBlock.GetData(true, true);
  if (source == nullptr || target == nullptr) {
    // Frames without channels still move the fade on, as they would through
    // the loops below, so that such a stream cannot hold a fade open.
    if (m_position < fadeEnd) {
      m_position += std::min(frames, fadeEnd - m_position);
    }
    oldBlock.ReleaseData();
    newBlock.ReleaseData();
    return;
  }

  uint32_t position = m_position;
  if (position < m_delayFrames) {
    const uint32_t end = std::min(position + frames, m_delayFrames);
    for (; position < end; ++position) {
      std::copy_n(source, channels, target);
      source += oldChannels;
      target += newChannels;
    }
    frames -= end - m_position;
  }
  if (position >= m_delayFrames) {
    const uint32_t end = std::min(position + frames, fadeEnd);
    for (; position < end; ++position) {
      const float gain = GainAt(position - m_delayFrames, m_fadeFrames);
      const float keep = 1.0f - gain;
      for (uint32_t c = 0; c < channels; ++c) {
        target[c] = source[c] * keep + gain * target[c];
      }
      source += oldChannels;
      target += newChannels;
    }
  }
  m_position = position;
  oldBlock.ReleaseData();
  newBlock.ReleaseData();
}
