#include "platform/waveformatrecord.h"

#include <cstring>

#include "platform/littleendian.h"

namespace zor::os {
namespace {

constexpr uint16_t kTagPcm = 0x0001;
constexpr uint16_t kTagFloat = 0x0003;
constexpr uint16_t kTagExtensible = 0xFFFE;
constexpr size_t kPlainSize = 16;
constexpr size_t kWithExtraSize = 18;
constexpr size_t kExtensibleSize = 40;
constexpr uint16_t kExtensibleExtra = 22;
// The sub-format GUIDs' common tail: {0000000x-0000-0010-8000-00AA00389B71}.
constexpr uint8_t kSubFormatTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71};

}  // namespace

bool ParseWaveFormatRecord(std::span<const uint8_t> bytes, WaveFormatRecord& format) {
  if (bytes.size() < kPlainSize) return false;
  uint16_t tag = LoadLe16(bytes.data());
  const uint32_t channels = LoadLe16(bytes.data() + 2);
  const uint32_t rate = LoadLe32(bytes.data() + 4);
  const uint32_t byteRate = LoadLe32(bytes.data() + 8);
  const uint32_t blockAlign = LoadLe16(bytes.data() + 12);
  const uint32_t bits = LoadLe16(bytes.data() + 14);
  if (bytes.size() >= kWithExtraSize) {
    const size_t extra = LoadLe16(bytes.data() + 16);
    if (kWithExtraSize + extra > bytes.size()) return false;
  }
  if (tag == kTagExtensible) {
    if (bytes.size() < kExtensibleSize || LoadLe16(bytes.data() + 16) < kExtensibleExtra) return false;
    if (LoadLe16(bytes.data() + 18) != bits) return false;  // valid bits: whole containers only
    if (std::memcmp(bytes.data() + 28, kSubFormatTail, sizeof kSubFormatTail) != 0) return false;
    const uint32_t subTag = LoadLe32(bytes.data() + 24);
    if (subTag != kTagPcm && subTag != kTagFloat) return false;
    tag = static_cast<uint16_t>(subTag);
  }
  if (tag != kTagPcm && tag != kTagFloat) return false;
  const bool isFloat = tag == kTagFloat;
  if (channels < 1 || channels > 8 || rate < 8000 || rate > 384000) return false;
  if (isFloat ? bits != 32 : bits != 16 && bits != 32) return false;
  if (blockAlign != channels * bits / 8 || byteRate != blockAlign * rate) return false;
  format = {channels, rate, bits, isFloat};
  return true;
}

void WriteWaveFormatRecord(const WaveFormatRecord& format, uint8_t (&bytes)[40]) {
  const uint32_t blockAlign = format.channels * format.bits / 8;
  StoreLe16(bytes, kTagExtensible);
  StoreLe16(bytes + 2, format.channels);
  StoreLe32(bytes + 4, format.sampleRate);
  StoreLe32(bytes + 8, blockAlign * format.sampleRate);
  StoreLe16(bytes + 12, blockAlign);
  StoreLe16(bytes + 14, format.bits);
  StoreLe16(bytes + 16, kExtensibleExtra);
  StoreLe16(bytes + 18, format.bits);
  // Front left, then front right, and so on: the first `channels` speakers.
  StoreLe32(bytes + 20, format.channels >= 32 ? 0xFFFFFFFFu : (1u << format.channels) - 1u);
  StoreLe32(bytes + 24, format.isFloat ? kTagFloat : kTagPcm);
  std::memcpy(bytes + 28, kSubFormatTail, sizeof kSubFormatTail);
}

}  // namespace zor::os
