#pragma once
#include <cstddef>
#include <cstdint>

#include "audio/izoraudiodata.h"

// A cursor on a block: it makes the block look like what remains of it from
// the current frame on, so that a ring can consume or fill a block in several
// portions. It doesn't own the block, and it doesn't move by itself: whoever
// reads or writes through it advances it by what was moved.
//
// Used on the thread that uses the block (audio thread).
template <typename T>
class ZORAudioDataIndexed {
 public:
  explicit ZORAudioDataIndexed(IZORAudioData<T>* data, uint32_t index = 0)
      : m_data(data), m_index(index) {}
  virtual ~ZORAudioDataIndexed() = default;
  ZORAudioDataIndexed(const ZORAudioDataIndexed&) = default;
  ZORAudioDataIndexed& operator=(const ZORAudioDataIndexed&) = default;

  // Clamps the index to the block's frames.
  virtual void Rewind() {
    if (m_index > GetFrames()) {
      m_index = GetFrames();
    }
  }
  virtual void SetIndex(uint32_t index) { m_index = index; }
  // No bound is checked here; GetRemainingFrames wraps past the end, and
  // Rewind brings the index back.
  virtual void Advance(uint32_t frames) { m_index += frames; }

  // The planar samples of `channel` from the index on. Null when the block
  // has no samples there: no block, no such channel, or the index at or past
  // the end, so that a caller trusting a wrapped remaining count reads
  // nothing rather than past the block.
  virtual T* GetChannelData(bool forWrite, uint32_t channel) {
    if (m_data == nullptr || channel >= m_data->GetChannels() || m_index >= m_data->GetFrames()) {
      return nullptr;
    }
    T* planar = m_data->GetData(forWrite, false);
    if (planar == nullptr) {
      return nullptr;
    }
    return planar + m_index + size_t{m_data->GetFrames()} * channel;
  }
  virtual void ReleaseData() {
    if (m_data != nullptr) {
      m_data->ReleaseData();
    }
  }
  virtual uint32_t GetFrames() const { return m_data != nullptr ? m_data->GetFrames() : 0; }
  virtual uint32_t GetRemainingFrames() const { return GetFrames() - m_index; }
  virtual uint32_t GetIndex() const { return m_index; }
  virtual uint32_t GetChannels() const { return m_data != nullptr ? m_data->GetChannels() : 0; }
  virtual uint32_t GetSampleRate() const {
    return m_data != nullptr ? m_data->GetSampleRate() : IZORAudioData<T>::kRateNotSet;
  }
  virtual uint32_t GetUserTag() const { return m_data != nullptr ? m_data->GetUserTag() : 0; }
  virtual void Clear() {
    if (m_data != nullptr) {
      m_data->Clear();
    }
  }

 private:
  IZORAudioData<T>* m_data;
  uint32_t m_index;
};
