#include "platform/resamplerformat.h"

#include "platform/littleendian.h"

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

}  // namespace

ResamplerFormatBlock MakeResamplerFormatBlock(uint32_t rate, uint32_t channels) {
  ResamplerFormatBlock block{};
  const uint32_t blockAlign = channels * kBytesPerSample;
  const bool extensible = channels > 2;
  StoreLe16(block.data(), extensible ? kFormatExtensible : kFormatIeeeFloat);
  StoreLe16(block.data() + 2, channels);
  StoreLe32(block.data() + 4, rate);
  StoreLe32(block.data() + 8, blockAlign * rate);
  StoreLe16(block.data() + 12, blockAlign);
  StoreLe16(block.data() + 14, 32);
  if (extensible) {
    StoreLe16(block.data() + 16, kExtensibleExtraBytes);
    StoreLe16(block.data() + 18, 32);
    StoreLe32(block.data() + 20, channels > 6 ? kMaskSevenPointOne : kMaskFivePointOne);
    for (size_t i = 0; i < sizeof(kSubFormatIeeeFloat); ++i) {
      block[24 + i] = kSubFormatIeeeFloat[i];
    }
  }
  return block;
}

}  // namespace zor::os
