#include "platform/resamplerformat.h"

namespace zor::os {
namespace {

constexpr uint16_t kFormatIeeeFloat = 3;
constexpr uint16_t kFormatExtensible = 0xFFFE;
constexpr uint16_t kExtensibleExtraBytes = 22;
constexpr uint32_t kMaskFivePointOne = 63;
constexpr uint32_t kMaskSevenPointOne = 255;
constexpr uint32_t kBytesPerSample = 4;
// {00000003-0000-0010-8000-00AA00389B71} in its stored byte order.
constexpr uint8_t kSubFormatIeeeFloat[16] = {0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                             0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

void Put16(ResamplerFormatBlock& block, size_t at, uint32_t value) {
  block[at] = static_cast<uint8_t>(value);
  block[at + 1] = static_cast<uint8_t>(value >> 8);
}

void Put32(ResamplerFormatBlock& block, size_t at, uint32_t value) {
  Put16(block, at, value & 0xFFFF);
  Put16(block, at + 2, value >> 16);
}

}  // namespace

ResamplerFormatBlock MakeResamplerFormatBlock(uint32_t rate, uint32_t channels) {
  ResamplerFormatBlock block{};
  const uint32_t blockAlign = channels * kBytesPerSample;
  const bool extensible = channels > 2;
  Put16(block, 0, extensible ? kFormatExtensible : kFormatIeeeFloat);
  Put16(block, 2, channels);
  Put32(block, 4, rate);
  Put32(block, 8, blockAlign * rate);
  Put16(block, 12, blockAlign);
  Put16(block, 14, 32);
  if (extensible) {
    Put16(block, 16, kExtensibleExtraBytes);
    Put16(block, 18, 32);
    Put32(block, 20, channels > 6 ? kMaskSevenPointOne : kMaskFivePointOne);
    for (size_t i = 0; i < sizeof(kSubFormatIeeeFloat); ++i) {
      block[24 + i] = kSubFormatIeeeFloat[i];
    }
  }
  return block;
}

}  // namespace zor::os
