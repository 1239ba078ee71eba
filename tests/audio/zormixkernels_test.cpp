// The mixing kernels bit for bit against their formulas, and their table.
#include "audio/zormixkernels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace {

// The gain written out independently of the kernels' own constant.
constexpr float kGain = 0.707f;
static_assert(std::bit_cast<uint32_t>(kGain) == 0x3F34FDF4u);

using FrameFormula = void (*)(const float* in, float* out);

struct KernelCase {
  const char* name;
  uint32_t inputChannels;
  uint32_t outputChannels;
  ZORMixKernel kernel;
  FrameFormula reference;  // one frame, straight from the formula
};

const KernelCase kCases[] = {
    {"5.1 to stereo", 6, 2, &ZORMix51ToStereo,
     [](const float* in, float* out) {
       out[0] = (in[4] + in[2]) * kGain + in[0];
       out[1] = (in[5] + in[2]) * kGain + in[1];
     }},
    {"5.1 to four", 6, 4, &ZORMix51ToFour,
     [](const float* in, float* out) {
       out[0] = in[2] * kGain + in[0];
       out[1] = in[2] * kGain + in[1];
       out[2] = in[4];
       out[3] = in[5];
     }},
    {"7.1 to 5.1", 8, 6, &ZORMix71To51,
     [](const float* in, float* out) {
       for (int c = 0; c < 4; ++c) {
         out[c] = in[c];
       }
       out[4] = (in[6] + in[4]) * kGain;
       out[5] = (in[7] + in[5]) * kGain;
     }},
    {"7.1 to four", 8, 4, &ZORMix71ToFour,
     [](const float* in, float* out) {
       out[0] = in[2] * kGain + in[0];
       out[1] = in[2] * kGain + in[1];
       out[2] = (in[6] + in[4]) * kGain;
       out[3] = (in[7] + in[5]) * kGain;
     }},
    {"stereo to mono", 2, 1, &ZORMixStereoToMono,
     [](const float* in, float* out) { out[0] = (in[1] + in[0]) * kGain; }},
    {"mono to stereo", 1, 2, &ZORMixMonoToStereo,
     [](const float* in, float* out) {
       out[0] = in[0];
       out[1] = in[0];
     }},
};

// A sample that the target must still hold where no frame was written.
const float kUntouched = std::bit_cast<float>(0x7FC0BEEFu);

std::vector<uint32_t> Bits(const std::vector<float>& values) {
  std::vector<uint32_t> bits;
  for (const float value : values) {
    bits.push_back(std::bit_cast<uint32_t>(value));
  }
  return bits;
}

// Random samples with the awkward ones mixed in: signed zeros, subnormals, infinities, values near overflow.
std::vector<float> Samples(std::mt19937& random, size_t count) {
  const float awkward[] = {0.0f,
                           -0.0f,
                           std::numeric_limits<float>::denorm_min(),
                           -std::numeric_limits<float>::min() / 3.0f,
                           std::numeric_limits<float>::infinity(),
                           -std::numeric_limits<float>::infinity(),
                           std::numeric_limits<float>::max(),
                           1.0f};
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  std::uniform_int_distribution<int> pick(0, 15);
  std::vector<float> samples(count);
  for (float& sample : samples) {
    const int choice = pick(random);
    sample = choice < 8 ? awkward[choice] : value(random);
  }
  return samples;
}

std::vector<float> RunKernel(const KernelCase& kernelCase, const std::vector<float>& source,
                             uint32_t frames) {
  std::vector<float> target((frames + 1) * kernelCase.outputChannels, kUntouched);
  kernelCase.kernel(source.data(), target.data(), frames);
  return target;
}

}  // namespace

TEST(ZORMixKernels, MatchTheScalarFormulasBitForBit) {
  std::mt19937 random(99);
  for (const KernelCase& kernelCase : kCases) {
    for (uint32_t frames : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 483u}) {
      const std::vector<float> source = Samples(random, size_t{frames} * kernelCase.inputChannels);
      std::vector<float> expected((frames + 1) * kernelCase.outputChannels, kUntouched);
      for (uint32_t f = 0; f < frames; ++f) {
        kernelCase.reference(source.data() + f * kernelCase.inputChannels,
                             expected.data() + f * kernelCase.outputChannels);
      }
      EXPECT_EQ(Bits(RunKernel(kernelCase, source, frames)), Bits(expected))
          << kernelCase.name << ", " << frames << " frames";
    }
  }
}
