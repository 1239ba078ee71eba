#pragma once
// Self-checking value contents for the store's multi-process tests: every
// byte follows from a header of writer, counter and size, so a value that
// mixed two writes, or was cut short, no longer checks.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace velapo::test {

struct PatternStamp {
  uint32_t writer = 0;
  uint32_t counter = 0;
};

inline constexpr uint32_t kPatternMagic = 0x52415056;  // "VPAR"

// Sizes from 16 bytes to 128 KiB, so that some writes take long enough for a kill to land inside them.
inline uint32_t PatternSize(uint32_t writer, uint32_t counter) {
  return 16 + ((writer * 7919u + counter * 104729u) % (128u * 1024u));
}

inline uint8_t PatternByte(uint32_t writer, uint32_t counter, size_t offset) {
  return static_cast<uint8_t>(writer * 31u + counter * 17u + offset * 13u);
}

inline std::vector<uint8_t> MakePattern(uint32_t writer, uint32_t counter) {
  std::vector<uint8_t> data(PatternSize(writer, counter));
  const uint32_t header[4] = {kPatternMagic, writer, counter, static_cast<uint32_t>(data.size())};
  for (size_t i = 0; i < 16; ++i) data[i] = static_cast<uint8_t>(header[i / 4] >> (8 * (i % 4)));
  for (size_t i = 16; i < data.size(); ++i) data[i] = PatternByte(writer, counter, i);
  return data;
}

// The stamp of a whole, consistent pattern; nothing otherwise.
inline std::optional<PatternStamp> CheckPattern(std::span<const uint8_t> data) {
  if (data.size() < 16) return std::nullopt;
  uint32_t header[4] = {};
  for (size_t i = 0; i < 16; ++i) header[i / 4] |= static_cast<uint32_t>(data[i]) << (8 * (i % 4));
  const PatternStamp stamp{header[1], header[2]};
  if (header[0] != kPatternMagic || header[3] != data.size() ||
      data.size() != PatternSize(stamp.writer, stamp.counter)) {
    return std::nullopt;
  }
  for (size_t i = 16; i < data.size(); ++i) {
    if (data[i] != PatternByte(stamp.writer, stamp.counter, i)) return std::nullopt;
  }
  return stamp;
}

}  // namespace velapo::test
