#include "platform/waveformatrecord.h"

#include <cstring>

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

uint16_t Word(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}
uint32_t Dword(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
         static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}
void PutWord(uint8_t* out, uint32_t value) {
  out[0] = static_cast<uint8_t>(value);
  out[1] = static_cast<uint8_t>(value >> 8);
}
void PutDword(uint8_t* out, uint32_t value) {
  PutWord(out, value);
  PutWord(out + 2, value >> 16);
}

}  // namespace

bool ParseWaveFormatRecord(std::span<const uint8_t> bytes, WaveFormatRecord& format) {
  if (bytes.size() < kPlainSize) return false;
  uint16_t tag = Word(bytes, 0);
  const uint32_t channels = Word(bytes, 2);
  const uint32_t rate = Dword(bytes, 4);
  const uint32_t byteRate = Dword(bytes, 8);
  const uint32_t blockAlign = Word(bytes, 12);
  const uint32_t bits = Word(bytes, 14);
  if (bytes.size() >= kWithExtraSize) {
    const size_t extra = Word(bytes, 16);
    if (kWithExtraSize + extra > bytes.size()) return false;
  }
  if (tag == kTagExtensible) {
    if (bytes.size() < kExtensibleSize || Word(bytes, 16) < kExtensibleExtra) return false;
    if (Word(bytes, 18) != bits) return false;  // valid bits: whole containers only
    if (std::memcmp(bytes.data() + 28, kSubFormatTail, sizeof kSubFormatTail) != 0) return false;
    const uint32_t subTag = Dword(bytes, 24);
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
  PutWord(bytes, kTagExtensible);
  PutWord(bytes + 2, format.channels);
  PutDword(bytes + 4, format.sampleRate);
  PutDword(bytes + 8, blockAlign * format.sampleRate);
  PutWord(bytes + 12, blockAlign);
  PutWord(bytes + 14, format.bits);
  PutWord(bytes + 16, kExtensibleExtra);
  PutWord(bytes + 18, format.bits);
  // Front left, then front right, and so on: the first `channels` speakers.
  PutDword(bytes + 20, format.channels >= 32 ? 0xFFFFFFFFu : (1u << format.channels) - 1u);
  PutDword(bytes + 24, format.isFloat ? kTagFloat : kTagPcm);
  std::memcpy(bytes + 28, kSubFormatTail, sizeof kSubFormatTail);
}

}  // namespace zor::os
