#pragma once
#include <cstdint>

// The meters' scan: raises `peaks[c]` to the largest |sample| of channel c
// over `frames` interleaved frames of `channels` channels. A NaN sample, or
// a NaN already in `peaks`, leaves that channel's peak NaN, so that a fault
// in the stream shows on a meter instead of being hidden by the next
// sample. An audio thread function: no allocation, no lock.
void ZORScanPeaks(const float* samples, uint32_t frames, uint32_t channels, float* peaks);
