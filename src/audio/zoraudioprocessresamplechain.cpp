#include "audio/zoraudioprocessresamplechain.h"

#include <algorithm>

namespace {

// Frames a FIFO needs for host blocks of `blockFrames`: the block the
// converter gives (a few frames over the block at most) on top of what may
// be left from the block before, and the cushion.
size_t FifoFramesFor(uint32_t blockFrames, uint32_t cushionFrames) {
  return size_t{blockFrames} * 2 + cushionFrames + 4 * ZORResampleHandler::kSpareFrames;
}

}  // namespace

bool ZORAudioProcessResampleChain::Init(uint32_t channels, uint32_t sampleRate) {
  bool allGood = true;
  uint32_t stageRate = sampleRate;
  if (m_internalRate != 0) {
    stageRate = m_internalRate;
    if (m_internalRate != sampleRate) {
      allGood = m_down.Init(sampleRate, m_internalRate, channels) && allGood;
      allGood = m_up.Init(m_internalRate, sampleRate, channels) && allGood;
    }
    // Give the block at the internal rate room for a 10 ms host block now
    // rather than on the audio thread.
    m_internal.Allocate(m_internalRate / 100 + ZORResampleHandler::kSpareFrames, channels,
                        m_internalRate);
    m_internal.GetData(true, true);
    m_internal.ReleaseData();
  }

  // The cushion goes in front of whatever the FIFO holds: the audio already
  // in it is late by five more frames, never cut.
  if (channels != m_fifoChannels) {
    ResetFifo();
    m_fifoChannels = channels;
  }
  m_cushionFrames += kCushionFrames;
  FifoPushFrontSilence(size_t{kCushionFrames} * channels);
  FifoEnsureCapacity(FifoFramesFor(sampleRate / 100, m_cushionFrames) * channels);

  allGood = ZORAudioProcessChain<float>::Init(channels, stageRate) && allGood;
  return allGood;
}

uint32_t ZORAudioProcessResampleChain::GetLatency() const {
  return ZORAudioProcessChain<float>::GetLatency() + (m_internalRate != 0 ? kCushionFrames : 0);
}

// audio thread
void ZORAudioProcessResampleChain::Process(IZORAudioData<float>* data) {
  if (GetBypass()) {
    return;
  }
  if (m_internalRate == 0) {
    ZORAudioProcessChain<float>::Process(data);
    return;
  }

  const uint32_t frames = data->GetFrames();
  const uint32_t channels = data->GetChannels();
  const uint32_t rate = data->GetSampleRate();
  m_internal.SetSampleRate(m_internalRate);
  if (!m_down.Convert(*data, m_internal)) {
    return;
  }
  ZORAudioProcessChain<float>::Process(&m_internal);
  if (!m_up.Convert(m_internal, *data)) {
    return;
  }

  // A block of another width than the FIFO's can't follow what it holds.
  if (channels != m_fifoChannels) {
    ResetFifo();
    m_fifoChannels = channels;
    m_cushionFrames = kCushionFrames;
    FifoPushFrontSilence(size_t{kCushionFrames} * channels);
  }
  if (const float* converted = data->GetData(false, true)) {
    FifoPush(converted, data->GetSampleCount());
  }
  data->ReleaseData();

  data->Allocate(frames, channels, rate);
  const size_t wanted = size_t{frames} * channels;
  if (float* out = data->GetData(true, true)) {
    const size_t had = FifoPop(out, wanted);
    if (had < wanted) {
      m_paddedFrames += (wanted - had) / channels;
    }
  }
  data->ReleaseData();

  // A converter that keeps giving more than its share would fill the FIFO
  // without end, and delay the audio with it; hold it to the cushion and a
  // block, dropping the oldest frames.
  const size_t limit = (size_t{frames} + m_cushionFrames) * channels;
  if (m_fifoCount > limit) {
    const size_t surplus = m_fifoCount - limit;
    FifoDrop(surplus);
    m_droppedFrames += surplus / channels;
  }
}

void ZORAudioProcessResampleChain::ResetFifo() {
  m_fifoHead = 0;
  m_fifoCount = 0;
  m_cushionFrames = 0;
  m_paddedFrames = 0;
  m_droppedFrames = 0;
}

void ZORAudioProcessResampleChain::Rewind() {
  const uint32_t cushion = m_cushionFrames;
  ResetFifo();
  m_cushionFrames = cushion;
  FifoPushFrontSilence(size_t{cushion} * m_fifoChannels);
  if (m_internalRate != 0) {
    m_down.Restart();
    m_up.Restart();
  }
}

uint32_t ZORAudioProcessResampleChain::GetFifoFrames() const {
  return m_fifoChannels != 0 ? static_cast<uint32_t>(m_fifoCount / m_fifoChannels) : 0;
}

void ZORAudioProcessResampleChain::FifoEnsureCapacity(size_t samples) {
  if (m_fifo.size() >= samples) {
    return;
  }
  std::vector<float> grown(std::max(samples, m_fifo.size() * 2));
  const size_t firstPart = std::min(m_fifoCount, m_fifo.size() - m_fifoHead);
  std::copy_n(m_fifo.begin() + static_cast<std::ptrdiff_t>(m_fifoHead), firstPart, grown.begin());
  std::copy_n(m_fifo.begin(), m_fifoCount - firstPart,
              grown.begin() + static_cast<std::ptrdiff_t>(firstPart));
  m_fifo.swap(grown);
  m_fifoHead = 0;
}

void ZORAudioProcessResampleChain::FifoPushFrontSilence(size_t samples) {
  if (samples == 0) {
    return;
  }
  FifoEnsureCapacity(m_fifoCount + samples);
  const size_t size = m_fifo.size();
  m_fifoHead = (m_fifoHead + size - samples) % size;
  const size_t firstPart = std::min(samples, size - m_fifoHead);
  std::fill_n(m_fifo.begin() + static_cast<std::ptrdiff_t>(m_fifoHead), firstPart, 0.0f);
  std::fill_n(m_fifo.begin(), samples - firstPart, 0.0f);
  m_fifoCount += samples;
}

// audio thread
void ZORAudioProcessResampleChain::FifoPush(const float* samples, size_t count) {
  if (count == 0) {
    return;
  }
  FifoEnsureCapacity(m_fifoCount + count);
  const size_t size = m_fifo.size();
  const size_t tail = (m_fifoHead + m_fifoCount) % size;
  const size_t firstPart = std::min(count, size - tail);
  std::copy_n(samples, firstPart, m_fifo.begin() + static_cast<std::ptrdiff_t>(tail));
  std::copy_n(samples + firstPart, count - firstPart, m_fifo.begin());
  m_fifoCount += count;
}

// audio thread
size_t ZORAudioProcessResampleChain::FifoPop(float* samples, size_t count) {
  const size_t taken = std::min(count, m_fifoCount);
  if (taken != 0) {
    const size_t firstPart = std::min(taken, m_fifo.size() - m_fifoHead);
    std::copy_n(m_fifo.begin() + static_cast<std::ptrdiff_t>(m_fifoHead), firstPart, samples);
    std::copy_n(m_fifo.begin(), taken - firstPart, samples + firstPart);
    FifoDrop(taken);
  }
  std::fill(samples + taken, samples + count, 0.0f);
  return taken;
}

// audio thread
void ZORAudioProcessResampleChain::FifoDrop(size_t count) {
  count = std::min(count, m_fifoCount);
  if (count != 0) {
    m_fifoHead = (m_fifoHead + count) % m_fifo.size();
    m_fifoCount -= count;
  }
}
