#pragma once
#include <cstdint>

#include "audio/izoraudioprocess.h"
#include "audio/zoraudiodatafloat.h"
#include "audio/zorringbuffer.h"

// Adapts a stage that works on blocks of a fixed size to a host that delivers
// blocks of any size. Two rings of twice the block size, each starting half
// full of silence, sit before and after the stage's ProcessBlock; that is
// the smallest size that lets every host block size through, and it delays
// the audio by exactly twice the block size whatever the host's block size.
// With block size 0 the host's block goes straight to ProcessBlock.
class ZORAudioProcessBlock : public IZORAudioProcess<float> {
 public:
  ZORAudioProcessBlock() = default;
  ~ZORAudioProcessBlock() override = default;
  ZORAudioProcessBlock(const ZORAudioProcessBlock&) = delete;
  ZORAudioProcessBlock& operator=(const ZORAudioProcessBlock&) = delete;

  // Twice the block size while block adaption is on, else 0.
  uint32_t GetLatency() const override { return m_bRingsReady ? m_inputRing.GetCapacity() : 0; }
  // Passes the host's block through the rings and ProcessBlock, one fixed
  // block at a time; the block comes back with as many frames as it had.
  // The stage sees the default roles 0, 1, 2, ... of a freshly allocated
  // block, not the host's. Once a host block of this size or larger has been
  // seen, nothing is allocated. Rings that could not get their memory would
  // never move the audio on; then the block passes untouched, unprocessed
  // and undelayed. Audio thread.
  void Process(IZORAudioData<float>* data) override;

  // Sets the block size and the channels, and starts both rings half full of
  // silence; any audio held is dropped. Block 0 switches adaption off. Called
  // from the deriving stage's Init, on the thread that builds the chain.
  void SetBlockSize(uint32_t blockFrames, uint32_t channels);
  uint32_t GetBlockSize() const { return m_blockFrames; }
  // Starts both rings half full of silence again, as SetBlockSize left them,
  // keeping their memory and the scratch blocks' capacity. Thread that
  // builds the chain.
  void Rewind();

 protected:
  // The stage's real work, on exactly one block of the block size (or on the
  // host's block when adaption is off). Audio thread.
  virtual void ProcessBlock(IZORAudioData<float>* data) = 0;

 private:
  ZORRingBuffer<float> m_inputRing;
  ZORRingBuffer<float> m_outputRing;
  uint32_t m_blockFrames = 0;
  // Both rings hold every channel at twice the block; false with block 0.
  bool m_bRingsReady = false;
  // Scratch blocks of Process, kept so that their capacity persists between
  // calls: the host's block as it came in, and the block handed to the stage.
  ZORAudioDataFloat m_source;
  ZORAudioDataFloat m_blockData;
};
