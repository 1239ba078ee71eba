#include "audio/zoraudioprocessdelay.h"

#include <algorithm>

bool ZORAudioProcessDelay::Init(uint32_t channels, uint32_t /*sampleRate*/) {
  if (m_lines.size() != channels) {
    m_lines.resize(channels);
  }
  if (m_delay == 0) {
    return true;
  }
  for (Line& line : m_lines) {
    Reshape(line, m_delay);
  }
  return true;
}

void ZORAudioProcessDelay::SetDelay(uint32_t frames) {
  m_delay = frames;
  Init(static_cast<uint32_t>(m_lines.size()), 44100);
}

void ZORAudioProcessDelay::Reshape(Line& line, uint32_t delay) {
  if (line.samples.size() == delay && line.next == 0) {
    return;
  }
  // Oldest first, then silence after the newest, or the newest cut off.
  std::rotate(line.samples.begin(),
              line.samples.begin() + static_cast<std::ptrdiff_t>(line.next), line.samples.end());
  line.samples.resize(delay, 0.0f);
  line.next = 0;
}

// audio thread
void ZORAudioProcessDelay::Process(IZORAudioData<float>* data) {
  if (m_delay == 0) {
    return;
  }
  const uint32_t channels = std::min(static_cast<uint32_t>(m_lines.size()), data->GetChannels());
  if (channels == 0) {
    return;
  }
  const uint32_t frames = data->GetFrames();
  float* planar = data->GetData(true, false);
  if (planar != nullptr) {
    for (uint32_t c = 0; c < channels; ++c) {
      Line& line = m_lines[c];
      const size_t length = line.samples.size();
      if (length == 0) {
        continue;
      }
      float* channel = planar + size_t{c} * frames;
      size_t next = line.next;
      for (uint32_t f = 0; f < frames; ++f) {
        std::swap(channel[f], line.samples[next]);
        if (++next == length) {
          next = 0;
        }
      }
      line.next = next;
    }
  }
  data->ReleaseData();
}
