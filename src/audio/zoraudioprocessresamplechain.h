#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocesschain.h"
#include "audio/zorresamplehandler.h"

// A chain of stages that run at an internal rate: the block is converted
// down to it, through the stages, and back, and comes out with exactly the
// frames it came in with. A converter gives about, not exactly, the share of
// frames a block is due, so the way back ends in a frame-matching FIFO that
// starts with a cushion of five silent frames; the FIFO's level wanders by a
// frame or two around the cushion and the host always gets its count.
//
// Without an internal rate (0) it is a plain chain of stages.
//
// SetInternalRate and Init belong to the thread that builds the chain, while
// it isn't running; Process to the audio thread.
class ZORAudioProcessResampleChain : public ZORAudioProcessChain<float> {
 public:
  static constexpr uint32_t kCushionFrames = 5;

  ZORAudioProcessResampleChain() = default;
  ~ZORAudioProcessResampleChain() override = default;

  // Sets both converters up between `sampleRate` and the internal rate (none
  // when they are equal or there is no internal rate), lays another cushion
  // at the front of the FIFO, and initialises every stage at the rate the
  // stages run at. All steps run; true only if all succeeded.
  bool Init(uint32_t channels, uint32_t sampleRate) override;
  // The stages' latency, which counts at the internal rate, plus the
  // cushion when resampling.
  uint32_t GetLatency() const override;
  // audio thread
  void Process(IZORAudioData<float>* data) override;

  void SetInternalRate(uint32_t rate) { m_internalRate = rate; }
  uint32_t GetInternalRate() const { return m_internalRate; }

  // Empties the FIFO and its counters, so that a chain that is built anew
  // starts from one cushion rather than stacking one per build.
  void ResetFifo();
  // After a pass on silence: the FIFO back to the silent cushions it held,
  // the converters set up anew as Init left them; capacities stay. The
  // stages are the owner's to put back. Thread that builds the chain.
  void Rewind();

  // Frames the FIFO holds between blocks.
  uint32_t GetFifoFrames() const;
  // Silent frames given out because the FIFO ran short of a block.
  uint64_t GetPaddedFrames() const { return m_paddedFrames; }
  // Frames dropped because a converter gave far more than it was due.
  uint64_t GetDroppedFrames() const { return m_droppedFrames; }

 private:
  // The FIFO is a ring of interleaved samples rather than a double-ended
  // queue, which would allocate and free its chunks as the audio wanders
  // through it; the ring grows only for a block larger than any before.
  void FifoEnsureCapacity(size_t samples);
  void FifoPushFrontSilence(size_t samples);
  void FifoPush(const float* samples, size_t count);
  // Takes `count` samples, padding with silence where it runs short;
  // returns how many it had.
  size_t FifoPop(float* samples, size_t count);
  void FifoDrop(size_t count);

  uint32_t m_internalRate = 0;
  ZORResampleHandler m_down;
  ZORResampleHandler m_up;
  std::vector<float> m_fifo;
  size_t m_fifoHead = 0;      // index of the oldest sample
  size_t m_fifoCount = 0;     // samples held
  uint32_t m_fifoChannels = 0;  // width of the frames held
  uint32_t m_cushionFrames = 0;  // cushion laid since the last reset
  uint64_t m_paddedFrames = 0;
  uint64_t m_droppedFrames = 0;
  ZORAudioDataFloat m_internal;  // the block at the internal rate, kept for its capacity
};
