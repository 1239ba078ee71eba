#include "outputswitchfinder.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kQuietDb = -60.0;  // windows quieter than this say nothing of the gain
constexpr uint32_t kBaselineWindows = 30;
constexpr uint32_t kHoldWindows = 5;

double WindowDb(const AudioClip& clip, int64_t first, uint64_t frames) {
  if (first < 0 || uint64_t(first) + frames > clip.Frames()) return kQuietDb - 1;
  double sum = 0;
  for (uint64_t i = uint64_t(first) * clip.channels; i < (uint64_t(first) + frames) * clip.channels; ++i) {
    sum += double(clip.samples[i]) * clip.samples[i];
  }
  return sum > 0 ? 10.0 * std::log10(sum / double(frames * clip.channels)) : -200.0;
}

}  // namespace

std::vector<uint64_t> OutputSwitchFinder::Find(const AudioClip& input, const AudioClip& output, int64_t latencyFrames,
                                               const std::vector<uint64_t>& actionFrames, double thresholdDb) {
  const uint64_t window = std::max<uint64_t>(1, input.rate / 100);
  const uint64_t windows = std::min(input.Frames(), output.Frames()) / window;
  // The gain of each window; NaN where the input is too quiet to tell.
  std::vector<double> gain(windows, std::numeric_limits<double>::quiet_NaN());
  for (uint64_t w = 0; w < windows; ++w) {
    const double in = WindowDb(input, int64_t(w * window) - std::max<int64_t>(latencyFrames, 0), window);
    if (in > kQuietDb) gain[w] = WindowDb(output, int64_t(w * window), window) - in;
  }
  std::vector<uint64_t> switches;
  for (size_t a = 0; a < actionFrames.size(); ++a) {
    const uint64_t from = actionFrames[a] / window;
    const uint64_t to = std::min<uint64_t>(windows, a + 1 < actionFrames.size() ? actionFrames[a + 1] / window : windows);
    std::vector<double> before;
    for (uint64_t w = from > kBaselineWindows ? from - kBaselineWindows : 0; w < from && w < windows; ++w) {
      if (!std::isnan(gain[w])) before.push_back(gain[w]);
    }
    if (before.empty()) continue;
    std::nth_element(before.begin(), before.begin() + before.size() / 2, before.end());
    const double baseline = before[before.size() / 2];
    for (uint64_t w = from; w + kHoldWindows <= to; ++w) {
      bool held = true;
      for (uint64_t h = w; h < w + kHoldWindows && held; ++h) {
        held = !std::isnan(gain[h]) && std::fabs(gain[h] - baseline) > thresholdDb &&
               (gain[h] > baseline) == (gain[w] > baseline);
      }
      if (held) {
        switches.push_back(w * window);
        break;
      }
    }
  }
  return switches;
}
