// ZORAPOProcessManager, part three of three: the level meters. Process
// measures its input and output here and writes the peaks to shared blocks
// that a monitor in another process reads and clears. The audio path is in
// zorapoprocessmanager.cpp, the settings in zorapoprocessmanagersettings.cpp.
#include <algorithm>

#include "audio/zorpeakscan.h"
#include "manager/zorapoprocessmanager.h"

// audio thread
void ZORAPOProcessManager::ComputePeaks(IZORAudioData<float>& data, std::vector<float>& peaks) {
  const uint32_t channels = data.GetChannels();
  if (peaks.size() != channels) {
    peaks.assign(channels, 0.0f);  // the manager sizes its vectors ahead
  }
  // The peaks do not depend on the layout; the interleaved one is the
  // host's, so reading it never converts a block.
  const float* samples = data.GetData(false, true);
  if (samples != nullptr) {
    // The capture pipe's side channel is not the stream's sound: its entry
    // stays as it was.
    constexpr uint32_t kKept = 16;
    float kept[kKept];
    for (uint32_t c = 0; c < channels && c < kKept; ++c) kept[c] = peaks[c];
    ZORScanPeaks(samples, data.GetFrames(), channels, peaks.data());
    for (uint32_t c = 0; c < channels; ++c) {
      if (data.GetChannelRole(c) == IZORAudioData<float>::kSideChannelRole) {
        peaks[c] = c < kKept ? kept[c] : 0.0f;
      }
    }
  }
  data.ReleaseData();
}

void ZORAPOProcessManager::SetMeteringMode(uint32_t mode) {
  m_outputMeter.Close();
  m_inputMeter.Close();
  m_meteringMode = mode;
  if (mode == kMeterInput || mode == (kMeterInput | kMeterOutput)) {
    m_inputMeter.OpenCreate(m_endpoint, 0);
  }
  if (mode == kMeterOutput || mode == (kMeterInput | kMeterOutput)) {
    m_outputMeter.OpenCreate(m_endpoint, 1);
  }
}

// audio thread
void ZORAPOProcessManager::Meter(ZORAPOSharedMeter& meter, IZORAudioData<float>& data,
                                 std::vector<float>& peaks) {
  // Every period starts from silence; the block keeps the larger reading.
  std::fill(peaks.begin(), peaks.end(), 0.0f);
  ComputePeaks(data, peaks);
  meter.Write(peaks);
}
