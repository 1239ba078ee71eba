#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>

// A view of interleaved samples, used for one copy between blocks whose
// channel counts differ. It doesn't own the memory.
template <typename T>
class ZORChannelBox {
 public:
  ZORChannelBox() = default;
  ZORChannelBox(T* samples, uint32_t channelCount, uint32_t frameCount)
      : data(samples), channels(channelCount), frames(frameCount) {}
  virtual ~ZORChannelBox() = default;
  ZORChannelBox(const ZORChannelBox&) = default;
  ZORChannelBox& operator=(const ZORChannelBox&) = default;

  // Copies `frameCount` frames into `target`, frame by frame, the first
  // min(channels) channels of each; the target's other channels keep what
  // they hold. The count is cut to what both boxes hold, and a box without
  // memory takes part in nothing. Returns the frames copied. Any thread;
  // audio thread.
  uint32_t CopyTo(ZORChannelBox& target, uint32_t frameCount) const {
    if (data == nullptr || target.data == nullptr) {
      return 0;
    }
    const uint32_t count = std::min({frameCount, frames, target.frames});
    const size_t width = std::min(channels, target.channels);
    for (size_t f = 0; f < count; ++f) {
      std::copy_n(data + f * channels, width, target.data + f * target.channels);
    }
    return count;
  }

  T* data = nullptr;
  uint32_t channels = 0;
  uint32_t frames = 0;
};
