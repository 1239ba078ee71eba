#include "audio/zoraudioprocesssplitmerge.h"

#include <algorithm>
#include <cstddef>

// audio thread
void ZORAudioProcessSplitMerge::Process(IZORAudioData<float>* data) {
  if (data == nullptr) {
    return;
  }
  m_source = *data;
  // The cleared block is where the sum builds up.
  data->Clear();

  for (IZORAudioProcess<float>* stage : Processes()) {
    m_branch = m_source;
    stage->Process(&m_branch);

    const float* branch = m_branch.GetData(false, false);
    float* sum = data->GetData(true, false);
    if (branch != nullptr && sum != nullptr) {
      const uint32_t channels = std::min(m_branch.GetChannels(), data->GetChannels());
      const uint32_t frames = std::min(m_branch.GetFrames(), data->GetFrames());
      // Planar: each block strides by its own frame count.
      const size_t branchStride = m_branch.GetFrames();
      const size_t sumStride = data->GetFrames();
      for (uint32_t c = 0; c < channels; ++c) {
        const float* from = branch + c * branchStride;
        float* to = sum + c * sumStride;
        for (uint32_t f = 0; f < frames; ++f) {
          to[f] += from[f];
        }
      }
    }
    m_branch.ReleaseData();
    data->ReleaseData();
  }

  float* sum = data->GetData(true, false);
  if (sum != nullptr) {
    const size_t samples = static_cast<size_t>(data->GetFrames()) * data->GetChannels();
    for (size_t i = 0; i < samples; ++i) {
      sum[i] *= m_gain;
    }
  }
  data->ReleaseData();
}
