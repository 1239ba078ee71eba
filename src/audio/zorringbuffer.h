#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/zoraudiodataindexed.h"

// One ring of one channel. Positions move round [begin, end); `wrapped` tells
// a full ring from an empty one when read and write meet, so a ring holds its
// whole capacity and gives up no slot. Every step of a position past the end
// toggles the flag, reads and writes alike.
template <typename T>
struct ZORRingChannel {
  bool wrapped = false;
  T* read = nullptr;   // next sample to read
  T* write = nullptr;  // next place to write
  uint32_t capacity = 0;  // 0 when the samples could not be allocated
  T* begin = nullptr;
  T* end = nullptr;
  std::unique_ptr<T[]> samples;  // the memory of [begin, end)

  uint32_t ReadableSamples() const {
    if (read == nullptr || write == nullptr) {
      return 0;
    }
    return static_cast<uint32_t>(wrapped ? (end - read) + (write - begin) : write - read);
  }
  uint32_t WritableSamples() const {
    if (read == nullptr || write == nullptr) {
      return 0;
    }
    return static_cast<uint32_t>(wrapped ? read - write : (end - write) + (read - begin));
  }
};

// Per-channel rings of one capacity, each with its own read and write
// position. It decouples the host's block size from a stage's (block
// adaption), and in mono form it queues audio between two threads, under the
// user's lock: the ring itself has none. The channels move in lockstep as
// long as only Write and Read are used; every count it reports is that of
// the first channel.
//
// Allocate and Reset belong to the thread that sets the ring up; every other
// operation never allocates and may run on the audio thread.
template <typename T>
class ZORRingBuffer {
 public:
  ZORRingBuffer() = default;
  virtual ~ZORRingBuffer() = default;
  ZORRingBuffer(const ZORRingBuffer&) = delete;
  ZORRingBuffer& operator=(const ZORRingBuffer&) = delete;

  // Replaces all channels with `channels` zeroed rings of `capacity` samples;
  // capacity 0 leaves the ring without channels. A channel whose samples
  // can't be allocated stays with capacity 0 and moves nothing. Then as
  // Reset(fill).
  virtual uint32_t Allocate(uint32_t capacity, uint32_t channels, bool fill);
  virtual uint32_t GetCapacity() const;
  virtual uint32_t GetChannels() const;
  // Empties every channel; with `fill` every channel comes out full of
  // silence instead. Returns the channel count.
  virtual uint32_t Reset(bool fill);
  virtual uint32_t GetWritableFrames() const;
  // Writes up to `count` samples to the first channel only; returns how many.
  virtual uint32_t WriteSamples(const T* samples, uint32_t count);
  // Writes what remains of `view` from its index, as far as there is room,
  // and returns the frames written (those of the last channel). Ring
  // channels that the view lacks are advanced all the same, keeping the
  // channels in step. A ring without channels takes nothing and returns the
  // view's remaining frames, so that a caller advancing by the result comes
  // to the end of its block. The view's index isn't moved.
  virtual uint32_t Write(ZORAudioDataIndexed<T>& view);
  virtual uint32_t GetReadableFrames() const;
  // Reads up to `count` samples from the first channel only; returns how
  // many.
  virtual uint32_t ReadSamples(T* samples, uint32_t count);
  // The mirror of Write: fills what remains of `view` as far as samples are
  // there.
  virtual uint32_t Read(ZORAudioDataIndexed<T>& view);

  // One channel's record, null past the channels; for diagnostics and tests.
  const ZORRingChannel<T>* GetRingChannel(uint32_t channel) const {
    return channel < m_channels.size() ? &m_channels[channel] : nullptr;
  }

 private:
  std::vector<ZORRingChannel<T>> m_channels;
};

extern template class ZORRingBuffer<float>;
