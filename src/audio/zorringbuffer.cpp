#include "audio/zorringbuffer.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace {

// Moves a position on by `count` samples, round the end as often as needed.
// Only a view without channels can push a position more than one lap; the
// flag then keeps the parity of the laps, and the position stays inside.
template <typename T>
void AdvancePosition(ZORRingChannel<T>& channel, T*& position, uint32_t count) {
  if (position == nullptr || channel.capacity == 0) {
    return;
  }
  size_t offset = static_cast<size_t>(position - channel.begin) + count;
  if (offset >= channel.capacity) {
    if ((offset / channel.capacity) % 2 != 0) {
      channel.wrapped = !channel.wrapped;
    }
    offset %= channel.capacity;
  }
  position = channel.begin + offset;
}

// Copies up to `count` samples in at most two runs: up to the end of the
// memory, then from its start.
template <typename T>
uint32_t CopyIn(ZORRingChannel<T>& channel, const T* source, uint32_t count) {
  if (source == nullptr || count == 0 || channel.write == nullptr) {
    return 0;
  }
  const size_t first = channel.wrapped ? channel.read - channel.write : channel.end - channel.write;
  const size_t second = channel.wrapped ? 0 : channel.read - channel.begin;
  const size_t head = std::min<size_t>(first, count);
  const size_t tail = std::min<size_t>(second, count - head);
  std::copy_n(source, head, channel.write);
  std::copy_n(source + head, tail, channel.begin);
  const auto moved = static_cast<uint32_t>(head + tail);
  AdvancePosition(channel, channel.write, moved);
  return moved;
}

template <typename T>
uint32_t CopyOut(ZORRingChannel<T>& channel, T* target, uint32_t count) {
  if (target == nullptr || count == 0 || channel.read == nullptr) {
    return 0;
  }
  const size_t first = channel.wrapped ? channel.end - channel.read : channel.write - channel.read;
  const size_t second = channel.wrapped ? channel.write - channel.begin : 0;
  const size_t head = std::min<size_t>(first, count);
  const size_t tail = std::min<size_t>(second, count - head);
  std::copy_n(channel.read, head, target);
  std::copy_n(channel.begin, tail, target + head);
  const auto moved = static_cast<uint32_t>(head + tail);
  AdvancePosition(channel, channel.read, moved);
  return moved;
}

}  // namespace

template <typename T>
uint32_t ZORRingBuffer<T>::Allocate(uint32_t capacity, uint32_t channels, bool fill) {
  m_channels.clear();
  if (capacity != 0) {
    m_channels.resize(channels);
    for (ZORRingChannel<T>& channel : m_channels) {
      channel.samples.reset(new (std::nothrow) T[capacity]());
      if (channel.samples) {
        channel.capacity = capacity;
        channel.begin = channel.samples.get();
        channel.end = channel.begin + capacity;
      }
    }
  }
  return Reset(fill);
}

template <typename T>
uint32_t ZORRingBuffer<T>::GetCapacity() const {
  return m_channels.empty() ? 0 : m_channels.front().capacity;
}

template <typename T>
uint32_t ZORRingBuffer<T>::GetChannels() const {
  return static_cast<uint32_t>(m_channels.size());
}

template <typename T>
uint32_t ZORRingBuffer<T>::Reset(bool fill) {
  for (ZORRingChannel<T>& channel : m_channels) {
    channel.read = channel.begin;
    channel.write = channel.begin;
    channel.wrapped = false;
    if (fill) {
      std::fill(channel.begin, channel.end, T{});
      AdvancePosition(channel, channel.write, channel.capacity);
    }
  }
  return GetChannels();
}

template <typename T>
uint32_t ZORRingBuffer<T>::GetWritableFrames() const {
  return m_channels.empty() ? 0 : m_channels.front().WritableSamples();
}

// audio thread
template <typename T>
uint32_t ZORRingBuffer<T>::WriteSamples(const T* samples, uint32_t count) {
  return m_channels.empty() ? 0 : CopyIn(m_channels.front(), samples, count);
}

// audio thread
template <typename T>
uint32_t ZORRingBuffer<T>::Write(ZORAudioDataIndexed<T>& view) {
  uint32_t moved = view.GetRemainingFrames();
  const uint32_t wanted = moved;
  for (uint32_t c = 0; c < m_channels.size(); ++c) {
    ZORRingChannel<T>& channel = m_channels[c];
    if (c >= view.GetChannels()) {
      AdvancePosition(channel, channel.write, moved);
      continue;
    }
    const T* source = view.GetChannelData(false, c);
    moved = (moved == 0 || source == nullptr) ? 0 : CopyIn(channel, source, wanted);
    view.ReleaseData();
  }
  return moved;
}

template <typename T>
uint32_t ZORRingBuffer<T>::GetReadableFrames() const {
  return m_channels.empty() ? 0 : m_channels.front().ReadableSamples();
}

// audio thread
template <typename T>
uint32_t ZORRingBuffer<T>::ReadSamples(T* samples, uint32_t count) {
  return m_channels.empty() ? 0 : CopyOut(m_channels.front(), samples, count);
}

// audio thread
template <typename T>
uint32_t ZORRingBuffer<T>::Read(ZORAudioDataIndexed<T>& view) {
  uint32_t moved = view.GetRemainingFrames();
  const uint32_t wanted = moved;
  for (uint32_t c = 0; c < m_channels.size(); ++c) {
    ZORRingChannel<T>& channel = m_channels[c];
    if (c >= view.GetChannels()) {
      AdvancePosition(channel, channel.read, moved);
      continue;
    }
    T* target = view.GetChannelData(true, c);
    moved = (moved == 0 || target == nullptr) ? 0 : CopyOut(channel, target, wanted);
    view.ReleaseData();
  }
  return moved;
}

template class ZORRingBuffer<float>;
