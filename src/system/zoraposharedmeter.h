#pragma once
// ZORAPOSharedMeter: level readings from the audio path, published to other
// processes through a 32-byte shared block under a named mutex. The audio
// thread keeps a running maximum per channel; a monitor in any process reads
// the block and clears it, which starts the next measuring period.
//
// Block layout, 32 bytes, no header and no count:
//
//   offset  size  field
//   0       4     channel 0 level, IEEE-754 single, native (little) endian
//   4 * i   4     channel i level, i = 1..7
//
// A channel the writer does not supply is held at 0.
//
// Names: the block is "Global\ZOR_" + the endpoint's display name +
// "_Meter_" + the index in decimal (0 input, 1 output); the mutex is the
// block name + "_Mutex" (not the "_MuteX" of the settings blocks).
//
// Threads: the writer is the audio thread of the owning process. Writing
// only tries the mutex (0 ms) and drops the reading when it is taken, so it
// never waits; it allocates nothing and makes no system call besides the
// try-lock and the release (none at all on Linux when uncontended). A
// reader waits up to 1 ms. OpenCreate and Close belong to the owner, never
// to the audio thread.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/namedmutex.h"
#include "values/zorsharedmemory.h"

class ZORAPOEndpointInfo;

class ZORAPOSharedMeter : public ZORSharedMemory {
 public:
  static constexpr uint32_t kChannelCount = 8;
  static constexpr uint32_t kBlockSize = kChannelCount * sizeof(float);
  static constexpr uint32_t kReadWaitMs = 1;
  static constexpr std::u16string_view kMutexSuffix = u"_Mutex";

  ZORAPOSharedMeter() = default;
  // Closes the mutex and the block.
  ~ZORAPOSharedMeter() override;

  // Creates or joins the block of this endpoint and index, maps it and opens
  // its mutex unless the one of this name is open already. True when both a
  // view and a mutex are held.
  virtual bool OpenCreate(const ZORAPOEndpointInfo& info, uint32_t index);
  virtual bool IsOpen() const;
  // Writing (`read` false): per channel, the block keeps the larger of its
  // level and the reading; channels past the readings become 0. Reading:
  // `levels` becomes the eight levels and the block is cleared. False, with
  // nothing done, when the mutex is taken; on a closed meter a writer gets
  // false, a reader false with its entries set to 0 and its size kept.
  virtual bool ReadWrite(std::vector<float>& levels, bool read);

  // The write of ReadWrite for any span of readings. Audio thread.
  bool Write(std::span<const float> levels);

  static void BuildName(const ZORAPOEndpointInfo& info, uint32_t index, std::u16string& name);
  static std::u16string BlockName(std::u16string_view displayName, uint32_t index);
  // OpenCreate on a block name built already; what a monitor uses.
  bool OpenCreateNamed(std::u16string_view blockName);

 private:
  bool Read(std::vector<float>& levels);
  // Waits as ReadWrite does; an abandoned mutex counts as taken by someone
  // else for this once, and is given back.
  bool TakeMutex(uint32_t timeoutMs);

  std::u16string m_mutexName;
  zor::os::NamedMutex m_mutex;
};
