// Packets as any process that reaches the capture pipe may send them, in a
// sequence: each record is a flags byte (bit 0: the read finished at once),
// a 16-bit little-endian length, then that many bytes (fewer at the end of
// the input), through ZORNamedPipeAudio::StorePacket.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "sidechannel/zornamedpipeaudio.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

uint32_t Load32(const uint8_t* bytes) {
  uint32_t value = 0;
  std::memcpy(&value, bytes, 4);  // little-endian hosts, as the wire
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A fresh reader knows no rate yet.
  const auto pipe = std::make_unique<ZORNamedPipeAudio>();
  uint32_t adopted = 0;
  uint64_t calls = 0;
  float ring[kZORPipeRingSamples + 1];

  size_t at = 0;
  while (at + 3 <= size) {
    const bool immediate = (data[at] & 1) != 0;
    size_t length = static_cast<size_t>(data[at + 1]) | (static_cast<size_t>(data[at + 2]) << 8);
    at += 3;
    if (length > size - at) length = size - at;
    const uint8_t* packet = data + at;
    at += length;

    const bool stored = pipe->StorePacket(packet, length, immediate);
    ++calls;
    const bool lengthOk = immediate ? length >= kZORPipeHeaderBytes && length <= kZORPipePacketBytes
                                    : length == kZORPipePacketBytes;
    uint32_t count = 0;
    uint32_t rate = 0;
    if (length >= kZORPipeHeaderBytes) {
      count = Load32(packet);
      rate = Load32(packet + 4);
    }
    const bool expected = lengthOk && count <= kZORPipePacketSamples &&
                          length >= kZORPipeHeaderBytes + size_t{count} * 4 &&
                          rate <= kZORPipeMaxSampleRate && (adopted == 0 || rate == adopted);
    Require(stored == expected);
    if (stored && adopted == 0) adopted = rate;
    Require(pipe->GetSampleRate() == adopted);
    Require(pipe->GetSampleRate() <= kZORPipeMaxSampleRate);

    // The ring holds exactly the stored packet's samples, bit for bit.
    const uint32_t read = pipe->ReadSamples(ring, kZORPipeRingSamples + 1);
    Require(read == (stored ? count : 0));
    Require(read == 0 || std::memcmp(ring, packet + kZORPipeHeaderBytes, size_t{read} * 4) == 0);
  }
  Require(pipe->GetStoredPackets() + pipe->GetDroppedPackets() == calls);
  return 0;
}
