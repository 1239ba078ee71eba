#pragma once
#include <bit>
#include <cstdint>

// Fixed channel mixing on interleaved float samples, for the chain's bypass
// path and the pipe writer. Places in a frame: 0 left, 1 right, 2 centre,
// 3 LFE, 4 and 5 the surround pair; in eight channels 6 and 7 are the back
// pair, folded onto the surround pair. The LFE never enters a downmix.
//
// The results are pinned bit for bit: single precision, each operation in
// the order written, never fused into a multiply-add. The loops run four
// frames at a time with a tail for the rest, which changes nothing in the
// result. All kernels are audio thread functions; none allocates.

// The mixing gain, about -3 dB.
inline constexpr float kZORMixGain = 0.707f;
static_assert(std::bit_cast<uint32_t>(kZORMixGain) == 0x3F34FDF4u);

// Mixes `frames` frames from `source` into `target`, whose layouts the kernel
// fixes. The two don't overlap. Frame count 0 or a null pointer leaves the
// target untouched.
using ZORMixKernel = void (*)(const float* source, float* target, uint32_t frames);

// 6 to 2: L + (Ls + C) k, R + (Rs + C) k.
void ZORMix51ToStereo(const float* source, float* target, uint32_t frames);
// 6 to 4: L + C k, R + C k, Ls, Rs.
void ZORMix51ToFour(const float* source, float* target, uint32_t frames);
// 8 to 6: L, R, C, LFE as they are; (Lb + Ls) k, (Rb + Rs) k.
void ZORMix71To51(const float* source, float* target, uint32_t frames);
// 8 to 4: L + C k, R + C k, (Lb + Ls) k, (Rb + Rs) k.
void ZORMix71ToFour(const float* source, float* target, uint32_t frames);
// 2 to 1: (R + L) k.
void ZORMixStereoToMono(const float* source, float* target, uint32_t frames);
// 1 to 2: the one channel on both.
void ZORMixMonoToStereo(const float* source, float* target, uint32_t frames);

// The kernel from `inputChannels` to `outputChannels`, or null for a pair
// without one.
ZORMixKernel ZORFindMixKernel(uint32_t inputChannels, uint32_t outputChannels);

// In-place kernels, on a block whose frame stride is fixed by the kernel
// (not by the block's channel count): 6 for 5.1 to stereo, which leaves the
// result in places 0 and 1 and silences 2 to 5; 2 for the other two, which
// work on pairs of a wider block alike.
using ZORMixInPlaceKernel = void (*)(float* block, uint32_t frames);

void ZORMixInPlace51ToStereo(float* block, uint32_t frames);
void ZORMixInPlaceStereoToMono(float* block, uint32_t frames);
void ZORMixInPlaceMonoToBoth(float* block, uint32_t frames);
