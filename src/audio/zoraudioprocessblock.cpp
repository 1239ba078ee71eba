#include "audio/zoraudioprocessblock.h"

#include "audio/zoraudiodataindexed.h"

namespace {

// A ring larger than this can't be sized in 32 bits.
constexpr uint32_t kLargestBlock = 0x7FFFFFFF;

void StartHalfFull(ZORRingBuffer<float>& ring, ZORAudioDataIndexed<float>& silence,
                   uint32_t blockFrames, uint32_t channels) {
  ring.Allocate(2 * blockFrames, channels, false);
  silence.SetIndex(0);
  ring.Write(silence);
}

// Whether every channel of the ring got its memory.
bool HoldsEveryChannel(const ZORRingBuffer<float>& ring, uint32_t channels, uint32_t capacity) {
  if (capacity == 0 || ring.GetChannels() != channels) return false;
  for (uint32_t c = 0; c < channels; ++c) {
    if (ring.GetRingChannel(c)->capacity != capacity) return false;
  }
  return true;
}

}  // namespace

void ZORAudioProcessBlock::SetBlockSize(uint32_t blockFrames, uint32_t channels) {
  m_blockFrames = blockFrames;
  // A block too large to ring leaves the rings without channels; the stage
  // then never runs, and audio passes untouched instead of stalling.
  const uint32_t ringBlock = blockFrames <= kLargestBlock ? blockFrames : 0;
  ZORAudioDataFloat silent;
  silent.Allocate(ringBlock, channels, 0);
  silent.Clear();
  ZORAudioDataIndexed<float> silence(&silent);
  StartHalfFull(m_inputRing, silence, ringBlock, channels);
  StartHalfFull(m_outputRing, silence, ringBlock, channels);
  m_bRingsReady = HoldsEveryChannel(m_inputRing, channels, 2 * ringBlock) &&
                  HoldsEveryChannel(m_outputRing, channels, 2 * ringBlock);

  // Give the stage's block its full capacity now, in both layouts since the
  // stage may ask for either, so that the audio thread doesn't grow it.
  m_blockData.Allocate(ringBlock, m_inputRing.GetChannels(), 0);
  m_blockData.GetData(true, false);
  m_blockData.GetData(false, true);
  m_blockData.Allocate(0, 0, 0);
}

void ZORAudioProcessBlock::Rewind() {
  if (!m_bRingsReady) {
    return;
  }
  m_blockData.Allocate(m_blockFrames, m_inputRing.GetChannels(), 0);
  ZORAudioDataIndexed<float> silence(&m_blockData);
  for (ZORRingBuffer<float>* ring : {&m_inputRing, &m_outputRing}) {
    ring->Reset(false);
    silence.SetIndex(0);
    ring->Write(silence);
  }
  m_blockData.Allocate(0, 0, 0);
}

// audio thread
void ZORAudioProcessBlock::Process(IZORAudioData<float>* data) {
  if (m_blockFrames == 0) {
    ProcessBlock(data);
    return;
  }
  if (data == nullptr || !m_bRingsReady) {
    return;
  }
  // Read from a copy: `data` receives the output while input remains to be
  // read from it.
  m_source = *data;
  // Both scratch blocks must behave as if made fresh for this call: a
  // stage may have left a tag on its block last time.
  m_blockData.Allocate(m_blockFrames, m_inputRing.GetChannels(), data->GetSampleRate());
  m_blockData.Clear();
  m_blockData.SetUserTag(0);

  ZORAudioDataIndexed<float> inView(&m_source);
  ZORAudioDataIndexed<float> blockView(&m_blockData);
  ZORAudioDataIndexed<float> outView(data);
  // The rings' invariant keeps this loop moving: with capacity twice the
  // block and a start at half, a full input ring always holds a block and an
  // output ring short of a block always has room for one. Each round moves
  // at most one block through the stage.
  for (;;) {
    const bool inputDone = inView.GetIndex() >= m_source.GetFrames();
    const bool outputDone = outView.GetIndex() >= data->GetFrames();
    if (inputDone && outputDone) {
      break;
    }
    if (!inputDone) {
      inView.Advance(m_inputRing.Write(inView));
    }
    if (m_inputRing.GetReadableFrames() >= m_blockFrames &&
        m_outputRing.GetWritableFrames() >= m_blockFrames) {
      blockView.SetIndex(0);
      m_inputRing.Read(blockView);
      ProcessBlock(&m_blockData);
      blockView.SetIndex(0);
      m_outputRing.Write(blockView);
    }
    if (!outputDone) {
      outView.Advance(m_outputRing.Read(outView));
    }
  }
}
