#pragma once
// Little-endian loads and stores for the byte formats velapo reads and
// writes: registry values, the store's records, blobs, shared blocks and
// wave format records. Byte by byte, so alignment and the host's byte order
// never matter. The caller checks the bounds.
#include <cstdint>

namespace zor::os {

inline uint16_t LoadLe16(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }

inline uint32_t LoadLe32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

inline void StoreLe16(uint8_t* bytes, uint32_t value) {
  bytes[0] = static_cast<uint8_t>(value);
  bytes[1] = static_cast<uint8_t>(value >> 8);
}

inline void StoreLe32(uint8_t* bytes, uint32_t value) {
  StoreLe16(bytes, value);
  StoreLe16(bytes + 2, value >> 16);
}

}  // namespace zor::os
