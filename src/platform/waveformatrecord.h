#pragma once
// The wave format records that cross into velapo from outside: an endpoint's
// stored mix format (a REG_BINARY value) and the format a caller hands to a
// capture client. Read byte by byte, with every size checked, so that a
// short or lying record is refused rather than over-read.

#include <cstdint>
#include <span>

namespace zor::os {

struct WaveFormatRecord {
  uint32_t channels = 0;
  uint32_t sampleRate = 0;
  uint32_t bits = 0;
  bool isFloat = false;
};

// A WAVEFORMATEX (16 bytes for plain PCM or float, 18 with cbSize) or a
// WAVEFORMATEXTENSIBLE (40 bytes, cbSize at least 22) of PCM or float
// samples: 1 to 8 channels, 8000 to 384000 Hz, 16 or 32 bits (float only
// 32), block align and byte rate consistent with them, the extensible's
// valid bits equal to its container. False for anything else, and for a
// record that claims more bytes (16 + 2 + cbSize) than it has.
bool ParseWaveFormatRecord(std::span<const uint8_t> bytes, WaveFormatRecord& format);

// The bytes of the extensible record of a format, 40 of them.
void WriteWaveFormatRecord(const WaveFormatRecord& format, uint8_t (&bytes)[40]);

}  // namespace zor::os
