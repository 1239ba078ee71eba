#pragma once
// What the pipe tests and their helper process share: the test pipe's name
// and a numbered stream whose packet k carries the samples k * 480 + i, so
// a lost, repeated or torn packet shows in the samples alone.

#include <chrono>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "sidechannel/zornamedpipeaudio.h"

using Clock = std::chrono::steady_clock;

inline constexpr char16_t kTestPipeName[] = u"\\\\.\\pipe\\velapo-test-capture";
inline constexpr uint32_t kTestRate = 16000;

inline ZORPipePacket TestPacket(uint32_t k) {
  ZORPipePacket packet;
  packet.count = kZORPipePacketSamples;
  packet.sampleRate = kTestRate;
  for (uint32_t i = 0; i < kZORPipePacketSamples; ++i) {
    packet.samples[i] = static_cast<float>(k * kZORPipePacketSamples + i);
  }
  return packet;
}

inline std::vector<uint8_t> TestPacketBytes(uint32_t k) {
  const ZORPipePacket packet = TestPacket(k);
  std::vector<uint8_t> bytes(kZORPipePacketBytes);
  std::memcpy(bytes.data(), &packet, kZORPipePacketBytes);  // little-endian hosts only
  return bytes;
}

// Takes a reader's samples and checks they run on without a gap from
// wherever a packet starts.
class TestStreamChecker {
 public:
  // False at the first sample out of sequence.
  bool Take(ZORNamedPipeAudio& pipe) {
    float samples[kZORPipePacketSamples];
    const uint32_t read = pipe.ReadSamples(samples, kZORPipePacketSamples);
    if (read == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (uint32_t i = 0; i < read; ++i) {
      const auto value = static_cast<uint64_t>(samples[i]);
      if ((m_taken == 0 && value % kZORPipePacketSamples != 0) || (m_taken != 0 && value != m_next)) return false;
      m_next = value + 1;
      ++m_taken;
    }
    return true;
  }
  // Takes `packets` whole packets in sequence within 20 s.
  bool TakeAll(ZORNamedPipeAudio& pipe, uint32_t packets) {
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (m_taken < uint64_t{packets} * kZORPipePacketSamples) {
      if (!Take(pipe) || Clock::now() > deadline) return false;
    }
    return true;
  }
  // The next sample expected.
  uint64_t Next() const { return m_next; }

 private:
  uint64_t m_taken = 0;
  uint64_t m_next = 0;
};
