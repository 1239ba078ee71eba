#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "audio/zorringbuffer.h"
#include "platform/criticalsection.h"
#include "platform/event.h"
#include "platform/pipe.h"
#include "platform/thread.h"

// The wire format of the capture pipe: every packet is exactly 1928 bytes,
// little-endian: uint32 count of valid samples (at most 480), uint32 sample
// rate in Hz, then 480 mono floats of which the first `count` mean anything.
inline constexpr uint32_t kZORPipePacketSamples = 480;
inline constexpr uint32_t kZORPipeHeaderBytes = 8;
inline constexpr uint32_t kZORPipePacketBytes =
    kZORPipeHeaderBytes + kZORPipePacketSamples * static_cast<uint32_t>(sizeof(float));
static_assert(kZORPipePacketBytes == 1928);
// The highest rate a reader adopts: a rate sizes blocks on the audio thread,
// so a packet that claims more is refused, not trusted.
inline constexpr uint32_t kZORPipeMaxSampleRate = 384000;
// The ring between the audio thread and the pipe thread: eight packets.
inline constexpr uint32_t kZORPipeRingSamples = 3840;

inline constexpr uint32_t kZORPipeRoleReader = 0;  // server, reads the pipe
inline constexpr uint32_t kZORPipeRoleWriter = 1;  // client, writes to it

struct ZORPipePacket {
  uint32_t count = 0;
  uint32_t sampleRate = 0;
  float samples[kZORPipePacketSamples] = {};
};
static_assert(sizeof(ZORPipePacket) == kZORPipePacketBytes);

// Moves a mono float stream from one process to another over a named pipe:
// a writer (the capture side) sends what the audio thread puts in its ring,
// 480 samples a packet, to up to five readers; a reader (the render side)
// stores each packet it receives in its ring for the audio thread to take.
// Each side talks to the pipe on a thread of its own, so a stalled pipe
// never stalls the audio: the audio thread only copies into or out of the
// ring under m_ringLock, and nothing holds that lock across pipe I/O.
//
// Init, StartThread and StopThread belong to the owner's thread;
// WriteSamples, ReadSamples, WritePacket, ReadPacket and ClearRing to the
// audio thread (or any one thread); StorePacket to the pipe thread.
class ZORNamedPipeAudio {
 public:
  // How long StopThread waits for the pipe thread.
  static constexpr uint32_t kStopWaitMs = 500;
  // The pipe thread's longest wait, and so its slowest reaction to a stop.
  static constexpr uint32_t kPipeWaitMs = 100;
  // The longest a reader may leave a packet without room before the writer
  // counts the write as failed and closes that connection.
  static constexpr uint32_t kWriteWaitMs = 40;
  // How soon the writer tries again for a reader it still owes packets.
  static constexpr uint32_t kBacklogRetryMs = 2;

  ZORNamedPipeAudio();
  // Stops the thread as StopThread does.
  virtual ~ZORNamedPipeAudio();
  ZORNamedPipeAudio(const ZORNamedPipeAudio&) = delete;
  ZORNamedPipeAudio& operator=(const ZORNamedPipeAudio&) = delete;

  // Names the pipe, sets the stream's rate (0: a reader learns it from the
  // first packet) and the role, and empties the ring. Not while the thread
  // runs.
  void Init(const std::u16string& pipeName, uint32_t sampleRate, uint32_t role);
  // Starts the reader's or the writer's thread; false if one already runs
  // or it can't start.
  bool StartThread();
  // Asks the thread to end and waits kStopWaitMs. A thread that misses the
  // wait has its pipe shut down, which makes its next pipe call fail, and is
  // then waited for to its end (it uses this object). True when the thread
  // ended in time or there was none.
  bool StopThread();
  bool IsThreadRunning() const;
  // A reader whose pipe instance exists and waits for writers. Any thread.
  bool IsListening() const { return m_bListening.load(std::memory_order_acquire); }

  uint32_t GetSampleRate() const { return m_sampleRate.load(std::memory_order_acquire); }

  // Puts up to `count` samples in the ring (at most kZORPipeRingSamples a
  // call); returns how many it took. Wakes the writer.
  uint32_t WriteSamples(const float* samples, uint32_t count);
  // Takes up to `count` samples from the ring; returns how many. Wakes the
  // reader.
  uint32_t ReadSamples(float* samples, uint32_t count);
  // A whole packet into the ring: adopts its rate when none is known yet,
  // refuses a packet of another rate, an impossible count or rate. Returns
  // whether the packet was taken (its samples as far as they fit).
  bool WritePacket(const ZORPipePacket& packet);
  // Up to 480 samples from the ring into `packet`, stamped with the rate;
  // returns the count.
  uint32_t ReadPacket(ZORPipePacket& packet);
  void ClearRing();

  // Stores one packet as the reader's pipe thread received it: `length`
  // bytes, which may be anything. `immediate` is a read that finished at
  // once, which needs only its header and its samples to be there; a read
  // that finished later must be exactly one packet long. Returns whether
  // it was stored.
  bool StorePacket(const uint8_t* bytes, size_t length, bool immediate);

  // Packets the reader refused (length, count, rate), for tests and
  // diagnostics. Any thread.
  uint64_t GetDroppedPackets() const { return m_droppedPackets.load(std::memory_order_relaxed); }
  // Packets the reader stored. Any thread.
  uint64_t GetStoredPackets() const { return m_storedPackets.load(std::memory_order_relaxed); }
  // Readers the writer reached with its last packet. Any thread.
  uint32_t GetConnectedReaders() const { return m_connectedReaders.load(std::memory_order_relaxed); }
  uint32_t GetRole() const { return m_role; }
  const std::u16string& GetPipeName() const { return m_pipeName; }

 private:
  // A writer's connection to one instance, with the packets it still owes
  // that reader: each reader drains its own backlog, so a slow one never
  // holds up the others.
  struct PIPE_DATA {
    static constexpr uint32_t kBacklog = kZORPipeRingSamples / kZORPipePacketSamples;
    zor::os::PipeClient pipe;             // closed: "no handle"
    ZORNamedPipeAudio* pOwner = nullptr;  // null until connected
    std::array<std::array<uint8_t, kZORPipePacketBytes>, kBacklog> backlog{};
    uint32_t head = 0;
    uint32_t queued = 0;
    bool inFlight = false;  // backlog[head] is being sent
    std::chrono::steady_clock::time_point since;  // when it started
  };

  static unsigned ThreadEntry(void* self);
  void ServerRoutine();
  void ClientRoutine();
  // Sends what one reader is owed as far as it goes without waiting; false
  // when the connection failed (closed, to be opened again next packet): a
  // send that fails, goes short, or finds no room for kWriteWaitMs.
  static bool Flush(PIPE_DATA& data, uint32_t instance, std::chrono::steady_clock::time_point now);
  static void Drop(PIPE_DATA& data, uint32_t instance);
  // Under m_ringLock: checks and writes a decoded packet.
  bool StoreDecoded(uint32_t count, uint32_t sampleRate, const uint8_t* samples);

  zor::os::CriticalSection m_ringLock;
  ZORRingBuffer<float> m_ring;
  std::atomic<uint32_t> m_sampleRate{0};
  uint32_t m_role = kZORPipeRoleReader;
  std::u16string m_pipeName;
  zor::os::PipeServer m_hPipe;  // the reader's instance
  zor::os::Thread m_hThread;
  zor::os::Event m_hKill{zor::os::EventReset::Manual, false};
  zor::os::Event m_hOverlapped{zor::os::EventReset::Manual, false};
  zor::os::Event m_hDataReady{zor::os::EventReset::Auto, false};
  zor::os::Event m_hDataTaken{zor::os::EventReset::Auto, false};

  std::atomic<bool> m_bListening{false};
  std::atomic<uint64_t> m_droppedPackets{0};
  std::atomic<uint64_t> m_storedPackets{0};
  std::atomic<uint32_t> m_connectedReaders{0};
};
