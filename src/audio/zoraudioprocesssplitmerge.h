#pragma once
#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocesschain.h"

// The parallel counterpart of ZORAudioProcessChain: every stage gets its own
// copy of the block, and the results are summed into the block and scaled by
// one gain. A stage that changes the shape of its copy adds what overlaps:
// the smaller of the two channel counts and of the two frame counts.
//
// The bypass flag is kept for whoever asks, but Process always runs. The
// copies are members whose stores keep their capacity, so that blocks of a
// size already seen cost no allocation. Audio thread, one at a time.
class ZORAudioProcessSplitMerge : public ZORAudioProcessChain<float> {
 public:
  ZORAudioProcessSplitMerge() = default;
  ~ZORAudioProcessSplitMerge() override = default;

  void Process(IZORAudioData<float>* data) override;

  void SetGain(float gain) { m_gain = gain; }
  float GetGain() const { return m_gain; }

 private:
  float m_gain = 1.0f;
  ZORAudioDataFloat m_source;  // the block as it came in
  ZORAudioDataFloat m_branch;  // the copy one stage works on
};
