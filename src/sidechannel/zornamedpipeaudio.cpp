#include "sidechannel/zornamedpipeaudio.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>

#include "core/zorlog.h"
#include "core/zorscopedlock.h"
#include "platform/com.h"
#include "platform/littleendian.h"

namespace {

// The reader's states.
enum class ServerState { Exit = 0, Connect = 1, Connecting = 2, Read = 3, Reading = 4, Disconnect = 5 };

// The reader's wait set, in order.
enum : int32_t { kWaitKill = 0, kWaitOverlapped = 1, kWaitDataTaken = 2 };

// COM for the pipe thread, as every thread of the engine process has it.
class ThreadCom {
 public:
  ThreadCom() : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~ThreadCom() {
    if (SUCCEEDED(m_result)) CoUninitialize();
  }
  ThreadCom(const ThreadCom&) = delete;
  ThreadCom& operator=(const ThreadCom&) = delete;

 private:
  HRESULT m_result;
};

}  // namespace

ZORNamedPipeAudio::ZORNamedPipeAudio() { m_ring.Allocate(kZORPipeRingSamples, 1, false); }

ZORNamedPipeAudio::~ZORNamedPipeAudio() { StopThread(); }

void ZORNamedPipeAudio::Init(const std::u16string& pipeName, uint32_t sampleRate, uint32_t role) {
  ZOR_LOG("ZORNamedPipeAudio::Init : entering.\n");
  m_pipeName = pipeName;
  m_sampleRate.store(sampleRate, std::memory_order_release);
  m_role = role;
  m_droppedPackets.store(0, std::memory_order_relaxed);
  m_storedPackets.store(0, std::memory_order_relaxed);
  m_connectedReaders.store(0, std::memory_order_relaxed);
  ClearRing();
}

bool ZORNamedPipeAudio::StartThread() {
  if (m_role == kZORPipeRoleReader) {
    ZOR_LOG("ZORNamedPipeAudio::StartThread Server/Reader this = 0x%p\n", static_cast<void*>(this));
  } else {
    ZOR_LOG("ZORNamedPipeAudio::StartThread Client/Writer this = 0x%p\n", static_cast<void*>(this));
  }
  if (m_hThread.Holds()) {
    return false;
  }
  m_hKill.Reset();
  return m_hThread.Start(&ZORNamedPipeAudio::ThreadEntry, this);
}

bool ZORNamedPipeAudio::StopThread() {
  if (!m_hThread.Holds()) {
    return true;
  }
  m_hKill.Set();
  bool inTime = m_hThread.Join(kStopWaitMs);
  if (!inTime) {
    // Where the platform can kill the thread it is gone now; where it can't,
    // a shut-down pipe fails the thread's next call and it comes round to
    // the kill event. Shut down, never close: the thread may still be inside
    // a call on the pipe.
    const bool killed = m_hThread.Terminate(0xFFFFFFFFu);
    m_hPipe.Shutdown();
    if (killed) m_hPipe.Close();
    ZOR_LOG("ZORNamedPipeAudio::StopThread : Thread manually terminated.\n");
    if (!killed) m_hThread.Join(zor::os::kInfinite);
    m_bListening.store(false, std::memory_order_release);
  }
  m_hKill.Reset();
  return inTime;
}

bool ZORNamedPipeAudio::IsThreadRunning() const { return m_hThread.Running(); }

uint32_t ZORNamedPipeAudio::WriteSamples(const float* samples, uint32_t count) {
  if (samples == nullptr) return 0;
  count = std::min(count, kZORPipeRingSamples);
  ZORScopedLock lock(m_ringLock);
  const uint32_t written = m_ring.WriteSamples(samples, count);
  m_hDataReady.Set();
  return written;
}

uint32_t ZORNamedPipeAudio::ReadSamples(float* samples, uint32_t count) {
  if (samples == nullptr) return 0;
  ZORScopedLock lock(m_ringLock);
  const uint32_t read = m_ring.ReadSamples(samples, count);
  m_hDataTaken.Set();
  return read;
}

bool ZORNamedPipeAudio::WritePacket(const ZORPipePacket& packet) {
  uint8_t samples[sizeof(packet.samples)];
  std::memcpy(samples, packet.samples, sizeof(samples));
  return StoreDecoded(packet.count, packet.sampleRate, samples);
}

uint32_t ZORNamedPipeAudio::ReadPacket(ZORPipePacket& packet) {
  ZORScopedLock lock(m_ringLock);
  packet.count = m_ring.ReadSamples(packet.samples, kZORPipePacketSamples);
  packet.sampleRate = m_sampleRate.load(std::memory_order_acquire);
  m_hDataTaken.Set();
  return packet.count;
}

void ZORNamedPipeAudio::ClearRing() {
  ZORScopedLock lock(m_ringLock);
  m_ring.Reset(false);
}

bool ZORNamedPipeAudio::StorePacket(const uint8_t* bytes, size_t length, bool immediate) {
  if (bytes == nullptr || length < kZORPipeHeaderBytes || length > kZORPipePacketBytes ||
      (!immediate && length != kZORPipePacketBytes)) {
    m_droppedPackets.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
  const uint32_t count = zor::os::LoadLe32(bytes);
  // A short immediate read keeps its place only when every sample it
  // claims arrived; the packet's tail is never taken from stale bytes.
  if (count <= kZORPipePacketSamples &&
      length < kZORPipeHeaderBytes + static_cast<size_t>(count) * sizeof(float)) {
    m_droppedPackets.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
  return StoreDecoded(count, zor::os::LoadLe32(bytes + 4), bytes + kZORPipeHeaderBytes);
}

bool ZORNamedPipeAudio::StoreDecoded(uint32_t count, uint32_t sampleRate, const uint8_t* samples) {
  const uint32_t known = m_sampleRate.load(std::memory_order_acquire);
  if (count > kZORPipePacketSamples || sampleRate > kZORPipeMaxSampleRate ||
      (known != 0 && known != sampleRate)) {
    m_droppedPackets.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
  if (known == 0) {
    // The first packet decides, even one without samples.
    m_sampleRate.store(sampleRate, std::memory_order_release);
  }
  float decoded[kZORPipePacketSamples];
  std::memcpy(decoded, samples, static_cast<size_t>(count) * sizeof(float));
  {
    ZORScopedLock lock(m_ringLock);
    m_ring.WriteSamples(decoded, count);  // what doesn't fit is lost
  }
  m_storedPackets.fetch_add(1, std::memory_order_relaxed);
  return true;
}

void ZORNamedPipeAudio::Drop(PIPE_DATA& data, uint32_t instance) {
  ZOR_LOG("ClientRoutine : Pipe %d write failed, closing.\n", static_cast<int>(instance));
  data.pipe.Close();
  data.pOwner = nullptr;
  data.head = 0;
  data.queued = 0;
  data.inFlight = false;
}

bool ZORNamedPipeAudio::Flush(PIPE_DATA& data, uint32_t instance, std::chrono::steady_clock::time_point now) {
  while (data.queued != 0) {
    uint32_t sent = 0;
    zor::os::PipeIo result = zor::os::PipeIo::Failed;
    if (data.inFlight) {
      result = data.pipe.Poll(&sent);
    } else {
      result = data.pipe.Send(data.backlog[data.head].data(), kZORPipePacketBytes, &sent);
      data.since = now;
    }
    data.inFlight = result == zor::os::PipeIo::Pending;
    if (data.inFlight) {
      if (now - data.since <= std::chrono::milliseconds(kWriteWaitMs)) return true;
      ZOR_LOG("WriteFile : write failed (no room for %u ms)\n", kWriteWaitMs);
      Drop(data, instance);
      return false;
    }
    if (result == zor::os::PipeIo::Failed) {
      ZOR_LOG("WriteFile : write failed (%d)\n", static_cast<int>(data.pipe.LastError()));
    } else if (sent != kZORPipePacketBytes) {
      ZOR_LOG("WriteFile : write short.\n");
    }
    if (result == zor::os::PipeIo::Failed || sent != kZORPipePacketBytes) {
      Drop(data, instance);
      return false;
    }
    data.head = (data.head + 1) % PIPE_DATA::kBacklog;
    --data.queued;
  }
  return true;
}

unsigned ZORNamedPipeAudio::ThreadEntry(void* self) {
  auto* pipe = static_cast<ZORNamedPipeAudio*>(self);
  if (pipe->m_role == kZORPipeRoleReader) {
    pipe->ServerRoutine();
  } else {
    pipe->ClientRoutine();
  }
  return 0;
}

void ZORNamedPipeAudio::ServerRoutine() {
  ZOR_LOG("ZORNamedPipeAudio::ServerRoutine entering 0x%p\n", static_cast<void*>(this));
  const ThreadCom com;
  if (!m_hPipe.Create(m_pipeName, kZORPipePacketBytes, m_hOverlapped)) {
    ZOR_LOG("ZORNamedPipeAudio::ServerRoutine : CreateNamedPipe failed (%u).\n", m_hPipe.LastError());
    return;
  }
  m_bListening.store(true, std::memory_order_release);

  zor::os::Event* const waitSet[] = {&m_hKill, &m_hOverlapped, &m_hDataTaken};
  // A longer message reads as its own length, and is dropped whole.
  alignas(4) std::array<uint8_t, kZORPipePacketBytes> packet{};
  uint32_t bytes = 0;
  ServerState state = ServerState::Connect;
  while (state != ServerState::Exit) {
    switch (state) {
      case ServerState::Connect:
        m_hOverlapped.Set();
        switch (m_hPipe.Connect()) {
          case zor::os::PipeIo::Done: state = ServerState::Read; break;
          case zor::os::PipeIo::Pending: state = ServerState::Connecting; break;
          case zor::os::PipeIo::Failed:
            // Start afresh after the wait, which the reset lets run its
            // 100 ms: a pipe that keeps refusing must not spin this thread.
            m_hOverlapped.Reset();
            state = ServerState::Disconnect;
            break;
        }
        break;
      case ServerState::Read:
        m_hOverlapped.Set();
        switch (m_hPipe.Read(packet.data(), kZORPipePacketBytes, &bytes)) {
          case zor::os::PipeIo::Done:
            StorePacket(packet.data(), bytes, true);
            break;
          case zor::os::PipeIo::Pending: state = ServerState::Reading; break;
          case zor::os::PipeIo::Failed:
            ZOR_LOG("ZORNamedPipeAudio::ServerRoutine : ReadFile failed (%d), disconnecting.\n",
                    static_cast<int>(m_hPipe.LastError()));
            state = ServerState::Disconnect;
            break;
        }
        break;
      case ServerState::Disconnect:
        m_hPipe.Disconnect();
        state = ServerState::Connect;
        break;
      case ServerState::Connecting:
      case ServerState::Reading:
      case ServerState::Exit:
        break;
    }

    const int32_t signalled = m_hPipe.Wait(waitSet, std::size(waitSet), kPipeWaitMs);
    if (signalled == kWaitKill) {
      ZOR_LOG("ZORNamedPipeAudio::ServerRoutine : Kill event.\n");
      state = ServerState::Exit;
      m_hPipe.Disconnect();
    } else if (signalled == kWaitOverlapped && state == ServerState::Connecting) {
      const zor::os::PipeIo result = m_hPipe.Complete(&bytes);
      if (result == zor::os::PipeIo::Failed) {
        ZOR_LOG("ZORNamedPipeAudio::ServerRoutine : ConnectNamedPipe overlapped failed (%d), "
                "disconnecting.\n",
                static_cast<int>(m_hPipe.LastError()));
        state = ServerState::Disconnect;
      } else if (result == zor::os::PipeIo::Done) {
        m_hOverlapped.Set();
        state = ServerState::Read;
      }
    } else if (signalled == kWaitOverlapped && state == ServerState::Reading) {
      const zor::os::PipeIo result = m_hPipe.Complete(&bytes);
      if (result == zor::os::PipeIo::Failed) {
        ZOR_LOG("ZORNamedPipeAudio::ServerRoutine : ReadFile overlapped failed (%d), "
                "disconnecting.\n",
                static_cast<int>(m_hPipe.LastError()));
        state = ServerState::Disconnect;
      } else if (result == zor::os::PipeIo::Done) {
        StorePacket(packet.data(), bytes, false);
        state = ServerState::Read;
      }
    }
  }

  m_bListening.store(false, std::memory_order_release);
  m_hPipe.Close();
  ZOR_LOG("ZORNamedPipeAudio::ServerRoutine exiting 0x%p\n", static_cast<void*>(this));
}

void ZORNamedPipeAudio::ClientRoutine() {
  // Five backlogs are too large for a thread's stack.
  const auto pipes = std::make_unique<std::array<PIPE_DATA, zor::os::kPipeInstances>>();
  zor::os::Event* const waitSet[] = {&m_hKill, &m_hDataReady};
  ZORPipePacket packet;

  uint32_t timeoutMs = kPipeWaitMs;
  while (zor::os::WaitAny(waitSet, std::size(waitSet), timeoutMs) != 0) {
    ReadPacket(packet);
    for (uint32_t i = 0; packet.count != 0 && i < pipes->size(); ++i) {
      PIPE_DATA& data = (*pipes)[i];
      if (!data.pipe.IsOpen()) {
        if (!data.pipe.Open(m_pipeName, i)) continue;  // no reader there: silently
        data.pOwner = this;
        ZOR_LOG("ZORNamedPipeAudio::ClientRoutine : Connected!\n");
      }
      if (data.queued == PIPE_DATA::kBacklog) {
        Drop(data, i);  // a whole ring behind: it has stalled
        continue;
      }
      uint8_t* wire = data.backlog[(data.head + data.queued) % PIPE_DATA::kBacklog].data();
      zor::os::StoreLe32(wire, packet.count);
      zor::os::StoreLe32(wire + 4, packet.sampleRate);
      std::memcpy(wire + kZORPipeHeaderBytes, packet.samples, sizeof(packet.samples));
      ++data.queued;
    }

    const auto now = std::chrono::steady_clock::now();
    uint32_t reached = 0;
    bool owed = false;
    for (uint32_t i = 0; i < pipes->size(); ++i) {
      PIPE_DATA& data = (*pipes)[i];
      if (!data.pipe.IsOpen() || !Flush(data, i, now)) continue;
      ++reached;
      owed = owed || data.queued != 0;
    }
    m_connectedReaders.store(reached, std::memory_order_relaxed);
    // Keep draining while samples remain; come back soon for a reader
    // still owed packets; otherwise wait for samples.
    timeoutMs = packet.count != 0 ? 0 : owed ? kBacklogRetryMs : kPipeWaitMs;
  }
  ZOR_LOG("ZORNamedPipeAudio::ClientRoutine : Kill event.\n");
}
