#pragma once
#include <cstdint>
#include <vector>

#include "audio/izoraudiodata.h"
#include "audio/zorsamplerateconvert.h"

// One direction of conversion between two audio blocks: the block's rate
// to the rate set on the output block, with filter state carried from one
// block to the next. The resample chain holds one per direction; the capture
// pipe uses one too.
//
// Init belongs to the thread that builds the chain; Convert to the audio
// thread. One thread at a time.
class ZORResampleHandler {
 public:
  // Room for what a converter may give beyond the exact share of a block.
  static constexpr uint32_t kSpareFrames = 5;

  ZORResampleHandler() = default;
  virtual ~ZORResampleHandler() = default;
  ZORResampleHandler(const ZORResampleHandler&) = delete;
  ZORResampleHandler& operator=(const ZORResampleHandler&) = delete;

  // Sets the format up and runs 10 ms of silence through the filter, so that
  // the first real block meets a filter in its steady state, and the output
  // store is sized for 10 ms blocks. False if the converter refuses the
  // format.
  bool Init(uint32_t inputRate, uint32_t outputRate, uint32_t channels);
  // Sets the converter up anew for the format Init was given, as Init left
  // it, keeping the output store's capacity. Thread that builds the chain.
  bool Restart();

  // Converts `input` at its rate into `output` at output's rate (which the
  // caller has set), taking up the input's channels; output gets as many
  // frames as the converter gave. A new input format sets the converter up
  // anew. False, with output untouched, when no converter takes the format.
  // Allocates only for a block larger than any before. audio thread
  bool Convert(IZORAudioData<float>& input, IZORAudioData<float>& output);

  const ZORSampleRateConvert& GetConverter() const { return m_convert; }

 private:
  ZORSampleRateConvert m_convert;
  std::vector<float> m_output;  // what the converter gave, interleaved
  uint32_t m_inputRate = 0;     // Init's format, for Restart
  uint32_t m_outputRate = 0;
  uint32_t m_channels = 0;
};
