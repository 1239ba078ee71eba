#include "sidechannel/zornamedpipemarshall.h"

#include <algorithm>
#include <cstring>

#include "audio/zormixkernels.h"

void ZORPipeFifo::Allocate(uint32_t capacity) {
  m_samples = std::make_unique<float[]>(capacity);
  m_capacity = capacity;
  Clear();
}

void ZORPipeFifo::Clear() {
  m_head = 0;
  m_size = 0;
}

uint32_t ZORPipeFifo::PushBack(const float* samples, uint32_t count) {
  if (m_capacity == 0) return count;
  uint32_t dropped = 0;
  if (count > m_capacity) {
    // Only the newest capacity's worth can stay.
    dropped = count - m_capacity;
    samples += dropped;
    count = m_capacity;
  }
  const uint32_t overflow = m_size + count > m_capacity ? m_size + count - m_capacity : 0;
  m_head = (m_head + overflow) % m_capacity;
  m_size -= overflow;
  dropped += overflow;
  uint32_t tail = (m_head + m_size) % m_capacity;
  for (uint32_t i = 0; i < count; ++i) {
    m_samples[tail] = samples[i];
    tail = tail + 1 == m_capacity ? 0 : tail + 1;
  }
  m_size += count;
  return dropped;
}

void ZORPipeFifo::PushFrontZeros(uint32_t count) {
  count = std::min(count, m_capacity - m_size);
  for (uint32_t i = 0; i < count; ++i) {
    m_head = m_head == 0 ? m_capacity - 1 : m_head - 1;
    m_samples[m_head] = 0.0f;
  }
  m_size += count;
}

uint32_t ZORPipeFifo::PopFront(float* target, uint32_t count) {
  count = std::min(count, m_size);
  for (uint32_t i = 0; i < count; ++i) {
    target[i] = m_samples[m_head];
    m_head = m_head + 1 == m_capacity ? 0 : m_head + 1;
  }
  m_size -= count;
  return count;
}

ZORNamedPipeMarshall::ZORNamedPipeMarshall() = default;

ZORNamedPipeMarshall::~ZORNamedPipeMarshall() { StopPipe(); }

void ZORNamedPipeMarshall::OpenPipe(uint32_t sampleRate, bool reader) {
  m_pipe.Init(m_pipeName, sampleRate, reader ? kZORPipeRoleReader : kZORPipeRoleWriter);
  m_bReader = reader;
  m_underruns = 0;
  m_fifoDrops = 0;
  m_handlerInputRate = 0;
  m_handlerOutputRate = 0;
  if (reader) {
    if (m_fifo.Capacity() == 0) m_fifo.Allocate(kFifoCapacity);
    m_fifo.Clear();
    m_fifo.PushFrontZeros(kFifoLeadZeros);
  }
}

void ZORNamedPipeMarshall::StartPipe() {
  if (!m_bRunning) {
    m_bRunning = m_pipe.StartThread();
  }
}

void ZORNamedPipeMarshall::StopPipe() {
  m_pipe.StopThread();
  m_bRunning = false;
}

// audio thread
void ZORNamedPipeMarshall::WritePipe(IZORAudioData<float>& data) {
  if (!m_bRunning) return;
  const uint32_t frames = data.GetFrames();
  if (data.GetChannels() > 1) {
    // In pairs, as if the block were two channels wide: a stereo block
    // folds whole, a wider one only its first frames' worth of pairs.
    ZORMixInPlaceStereoToMono(data.GetData(true, true), frames);
    data.ReleaseData();
  }
  const uint32_t pipeRate = m_pipe.GetSampleRate();
  if (data.GetSampleRate() == pipeRate) {
    m_pipe.WriteSamples(data.GetData(false, false), frames);
    data.ReleaseData();
    return;
  }

  // Convert channel 0 alone: the other channels hold nothing the pipe takes.
  if (!m_mono.Allocate(frames, 1, data.GetSampleRate())) return;
  const float* planar = data.GetData(false, false);
  float* mono = m_mono.GetData(true, false);
  if (planar != nullptr && mono != nullptr) std::copy_n(planar, frames, mono);
  data.ReleaseData();
  m_mono.ReleaseData();

  if (m_handlerInputRate != data.GetSampleRate() || m_handlerOutputRate != pipeRate) {
    if (!m_handler.Init(data.GetSampleRate(), pipeRate, 1)) return;
    m_handlerInputRate = data.GetSampleRate();
    m_handlerOutputRate = pipeRate;
  }
  m_converted.SetSampleRate(pipeRate);
  if (m_handler.Convert(m_mono, m_converted)) {
    m_pipe.WriteSamples(m_converted.GetData(false, false), m_converted.GetFrames());
    m_converted.ReleaseData();
  }
}

// audio thread
uint32_t ZORNamedPipeMarshall::ReadPipe(IZORAudioData<float>& data) {
  if (!m_bRunning) return 0;
  const uint32_t pipeRate = m_pipe.GetSampleRate();
  if (pipeRate == 0) return 0;  // no packet yet
  const uint32_t blockRate = data.GetSampleRate();
  const uint32_t frames = data.GetFrames();

  if (blockRate == pipeRate) {
    const uint32_t read = m_pipe.ReadSamples(data.GetData(true, false), frames);
    data.ReleaseData();
    data.SetChannelRole(0, kZORPipeChannelRole);
    return read;
  }
  if (blockRate == 0) return 0;

  // The pipe's share of the block, in 64 bits: the rate came from another
  // process, though it is capped where it was adopted.
  // A share beyond the ring's size could never be filled: ask for the ring.
  const uint64_t share =
      std::min<uint64_t>(uint64_t{frames} * pipeRate / blockRate + ZORResampleHandler::kSpareFrames,
                         kZORPipeRingSamples);
  if (!m_fromRing.Allocate(static_cast<uint32_t>(share), 1, pipeRate)) return 0;
  const uint32_t delivered = m_pipe.ReadSamples(m_fromRing.GetData(true, false), m_fromRing.GetFrames());
  m_fromRing.ReleaseData();
  m_fromRing.SetFrames(delivered);

  if (m_handlerInputRate != pipeRate || m_handlerOutputRate != blockRate) {
    if (!m_handler.Init(pipeRate, blockRate, 1)) return 0;
    m_handlerInputRate = pipeRate;
    m_handlerOutputRate = blockRate;
  }
  m_converted.SetSampleRate(blockRate);
  if (delivered > 0 && m_handler.Convert(m_fromRing, m_converted)) {
    m_fifoDrops += m_fifo.PushBack(m_converted.GetData(false, false), m_converted.GetFrames());
    m_converted.ReleaseData();
  }

  const uint32_t atHand = m_fifo.Size();
  if (frames > atHand) {
    ++m_underruns;
    m_fifo.PushFrontZeros(frames - atHand);  // the shortage is heard first
  }
  float* target = data.GetData(true, false);
  if (target != nullptr) {
    const uint32_t moved = m_fifo.PopFront(target, frames);
    std::fill(target + moved, target + frames, 0.0f);  // only past the FIFO's cap
  }
  data.ReleaseData();
  return atHand;
}
