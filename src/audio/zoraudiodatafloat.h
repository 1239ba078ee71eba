#pragma once
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "audio/izoraudiodata.h"

// Leaves samples a store grows by uninitialised unless a value is given: a
// conversion between layouts writes every sample it adds, and zeroing them
// first cost a whole pass over the block on every call.
template <typename T>
struct ZORUninitialisedAllocator : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = ZORUninitialisedAllocator<U>;
  };
  using std::allocator<T>::allocator;
  template <typename U>
  void construct(U* place) noexcept {
    ::new (static_cast<void*>(place)) U;
  }
  template <typename U, typename... Args>
  void construct(U* place, Args&&... args) {
    ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
  }
};
using ZORSampleStore = std::vector<float, ZORUninitialisedAllocator<float>>;

// The block of float audio that the audio path passes around. It keeps an
// interleaved and a planar store and converts between them on first demand:
// the manager and the crossfade work interleaved, tech processes and rings
// planar, and neither has to know what the other did. A read access keeps
// both stores, so alternating reads convert once; a write access drops the
// other store, so that the next reader in that layout converts the new
// samples. Both stores empty is silence that has not been materialised.
//
// Objects are long-lived and reused: Allocate keeps the stores' capacity, so
// that a block of a size already seen costs no allocation.
//
// One thread at a time uses an object, the audio thread included (audio
// thread): only AddChannels and a first access at a larger size allocate.
class ZORAudioDataFloat : public IZORAudioData<float> {
 public:
  ZORAudioDataFloat() = default;
  // A copy holds the source's shape and samples but no roles: every channel
  // of it answers kNoRole until roles are set or reset.
  ZORAudioDataFloat(const ZORAudioDataFloat& other);
  ~ZORAudioDataFloat() override = default;

  // Copies frames, channels, rate, tag and both stores as they stand, and
  // keeps this object's roles: roles describe where a block is used, not
  // what it holds.
  ZORAudioDataFloat& operator=(const ZORAudioDataFloat& other);
  // The same for a ZORAudioDataFloat behind the interface; any other
  // implementation is copied by Assign, roles included.
  ZORAudioDataFloat& operator=(IZORAudioData<float>& other);

  bool Allocate(uint32_t frames, uint32_t channels, uint32_t sampleRate) override;
  // Gives both stores and the roles room for a block of this shape, so that
  // the audio thread's first block of it allocates nothing. Keeps the shape
  // and the samples.
  void Reserve(uint32_t frames, uint32_t channels);
  float* GetData(bool forWrite, bool interleaved) override;
  void ReleaseData() override {}
  uint32_t GetFrames() const override { return m_frames; }
  uint32_t GetChannels() const override { return m_channels; }
  void SetSampleRate(uint32_t sampleRate) override { m_sampleRate = sampleRate; }
  uint32_t GetSampleRate() const override { return m_sampleRate; }
  void SetUserTag(uint32_t tag) override { m_userTag = tag; }
  uint32_t GetUserTag() const override { return m_userTag; }
  void Clear() override;
  // Copies through the layout the source does NOT hold when it holds
  // interleaved samples, and through interleaved when it holds only planar
  // ones; the audio is the same either way, and the source ends up with both
  // stores filled, ready for readers of either layout.
  void Assign(IZORAudioData<float>& other) override;
  // Appends `count` silent channels. Only one role entry is appended whatever
  // the count; channels past the role entries read kNoRole but refuse
  // SetChannelRole.
  void AddChannels(uint32_t count) override;
  void SetFrames(uint32_t frames) override { m_frames = frames; }
  void ResetChannelRoles() override;
  bool SetChannelRole(uint32_t channel, uint32_t role) override;
  uint32_t GetChannelRole(uint32_t channel) const override;
  bool AssignMemory(const float* samples, uint32_t frames, uint32_t channels, bool interleaved,
                    uint32_t sampleRate) override;
  uint32_t GetByteSize() const override {
    return GetSampleCount() * static_cast<uint32_t>(sizeof(float));
  }
  uint32_t GetSampleCount() const override { return m_channels * m_frames; }

  // Which stores currently hold samples; for diagnostics and tests.
  bool HoldsInterleaved() const { return !m_interleaved.empty(); }
  bool HoldsPlanar() const { return !m_planar.empty(); }

 private:
  void CopyFrom(const ZORAudioDataFloat& other);

  uint32_t m_frames = 0;
  uint32_t m_channels = 0;
  uint32_t m_sampleRate = kRateNotSet;
  uint32_t m_userTag = 0;
  std::vector<uint32_t> m_roles;
  ZORSampleStore m_interleaved;  // sample (f, c) at f * m_channels + c
  ZORSampleStore m_planar;       // sample (f, c) at c * m_frames + f
};
