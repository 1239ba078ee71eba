#include "audio/zorpeakscan.h"

#include <cmath>
#include <cstring>
#include <limits>
#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace {

// Four floats in one register, with the operators the compiler maps onto
// vector instructions on every target we build for.
using Floats4 = float __attribute__((vector_size(16)));
using Bits4 = uint32_t __attribute__((vector_size(16)));

inline Floats4 Magnitudes(const float* samples) {
  Floats4 loaded;
  std::memcpy(&loaded, samples, sizeof loaded);  // any alignment
  return reinterpret_cast<Floats4>(reinterpret_cast<Bits4>(loaded) & 0x7FFFFFFFu);
}

// The louder of a running peak and a sample's magnitude; with a NaN on
// either side the result is the magnitude, as one vector max has it. NaNs
// are caught apart from this, by the sums below.
inline float Louder(float peak, float magnitude) { return peak > magnitude ? peak : magnitude; }
inline Floats4 Louder(Floats4 peak, Floats4 magnitude) {
#if defined(__SSE__)
  return _mm_max_ps(peak, magnitude);  // gcc writes the generic form as four instructions
#else
  return peak > magnitude ? peak : magnitude;
#endif
}

// The running maximum of |sample| per channel over interleaved frames. A NaN
// sample shows on the meter and stays there until a monitor reads and clears
// it: a fault in the stream should be seen, not hidden by the next sample.
// The scan keeps lanes of whole frames filling two or three vectors, so each
// lane holds one channel. Beside each lane's peak runs a sum of the earlier
// peak and the magnitudes, which is NaN exactly when one of them was.
template <uint32_t kChannels>
void PeaksOf(const float* samples, uint32_t frames, float* peaks) {
  constexpr uint32_t kLanes = kChannels * ((8 + kChannels - 1) / kChannels);
  constexpr uint32_t kVectors = kLanes / 4;
  static_assert(kLanes % 4 == 0);
  float lanes[kLanes];
  for (uint32_t j = 0; j < kLanes; ++j) lanes[j] = peaks[j % kChannels];
  Floats4 louder[kVectors];
  Floats4 sums[kVectors];
  std::memcpy(louder, lanes, sizeof louder);
  std::memcpy(sums, lanes, sizeof sums);
  const size_t count = static_cast<size_t>(frames) * kChannels;
  const size_t whole = count - count % kLanes;
  for (size_t i = 0; i < whole; i += kLanes) {
    for (uint32_t v = 0; v < kVectors; ++v) {
      const Floats4 magnitudes = Magnitudes(samples + i + 4 * v);
      louder[v] = Louder(louder[v], magnitudes);
      sums[v] += magnitudes;
    }
  }
  float sum[kLanes];
  std::memcpy(lanes, louder, sizeof lanes);
  std::memcpy(sum, sums, sizeof sum);
  for (size_t i = whole; i < count; ++i) {
    const float magnitude = std::fabs(samples[i]);
    lanes[i - whole] = Louder(lanes[i - whole], magnitude);
    sum[i - whole] += magnitude;
  }
  for (uint32_t c = 0; c < kChannels; ++c) {
    float peak = lanes[c];
    bool nan = std::isnan(sum[c]);
    for (uint32_t j = c + kChannels; j < kLanes; j += kChannels) {
      peak = Louder(peak, lanes[j]);
      nan = nan || std::isnan(sum[j]);
    }
    peaks[c] = nan ? std::numeric_limits<float>::quiet_NaN() : peak;
  }
}

}  // namespace

void ZORScanPeaks(const float* samples, uint32_t frames, uint32_t channels, float* peaks) {
  switch (channels) {
    case 1: return PeaksOf<1>(samples, frames, peaks);
    case 2: return PeaksOf<2>(samples, frames, peaks);
    case 6: return PeaksOf<6>(samples, frames, peaks);
    case 8: return PeaksOf<8>(samples, frames, peaks);
    default: break;
  }
  for (uint32_t frame = 0; frame < frames; ++frame) {
    for (uint32_t c = 0; c < channels; ++c) {
      const float magnitude = std::fabs(samples[static_cast<size_t>(frame) * channels + c]);
      peaks[c] = std::isnan(peaks[c]) ? peaks[c] : Louder(peaks[c], magnitude);
    }
  }
}

