#pragma once
#include <cstdint>

// A block of audio as every stage of the audio path sees it: frames, channels,
// sample rate and a role per channel, with its samples reachable interleaved
// (frame-major) or planar (channel-major). Callers pair every GetData with a
// ReleaseData, so that an implementation may map and unmap its memory.
//
// An object is used by one thread at a time; it has no lock.
template <typename T>
class IZORAudioData {
 public:
  // The role of a channel without one.
  static constexpr uint32_t kNoRole = 12;
  // The role of the mono side channel that arrives from the capture pipe.
  static constexpr uint32_t kSideChannelRole = 7;
  // A sample rate that has not been set.
  static constexpr uint32_t kRateNotSet = 0xFFFFFFFF;

  virtual ~IZORAudioData() = default;

  // Sets the shape and drops the samples; the block reads as silence until
  // written. Always true.
  virtual bool Allocate(uint32_t frames, uint32_t channels, uint32_t sampleRate) = 0;
  // The samples in the layout asked for; null for a block without samples.
  // A write access may invalidate the other layout.
  virtual T* GetData(bool forWrite, bool interleaved) = 0;
  // Ends the access begun by GetData.
  virtual void ReleaseData() = 0;
  virtual uint32_t GetFrames() const = 0;
  virtual uint32_t GetChannels() const = 0;
  virtual void SetSampleRate(uint32_t sampleRate) = 0;
  virtual uint32_t GetSampleRate() const = 0;
  virtual void SetUserTag(uint32_t tag) = 0;
  virtual uint32_t GetUserTag() const = 0;
  // Silences the samples, keeping the shape.
  virtual void Clear() = 0;
  // Becomes a copy of `other`: shape, samples and roles.
  virtual void Assign(IZORAudioData<T>& other) = 0;
  // Appends `count` silent channels.
  virtual void AddChannels(uint32_t count) = 0;
  // Changes the frame count only; serves to shorten a block after a reader
  // delivered fewer frames than it was allocated for.
  virtual void SetFrames(uint32_t frames) = 0;
  // Gives channel i the role i, capped at kNoRole.
  virtual void ResetChannelRoles() = 0;
  // False if the channel has no role entry.
  virtual bool SetChannelRole(uint32_t channel, uint32_t role) = 0;
  // kNoRole if the channel has no role entry.
  virtual uint32_t GetChannelRole(uint32_t channel) const = 0;
  // Allocates and copies frames x channels samples from `samples`, given in
  // the layout named by `interleaved`. Always true.
  virtual bool AssignMemory(const T* samples, uint32_t frames, uint32_t channels, bool interleaved,
                            uint32_t sampleRate) = 0;
  virtual uint32_t GetByteSize() const = 0;
  virtual uint32_t GetSampleCount() const = 0;

 protected:
  // Copies go through the implementations, never through the interface, so
  // that a block can't be sliced.
  IZORAudioData() = default;
  IZORAudioData(const IZORAudioData&) = default;
  IZORAudioData& operator=(const IZORAudioData&) = default;
};
