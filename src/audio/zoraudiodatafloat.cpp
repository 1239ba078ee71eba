#include "audio/zoraudiodatafloat.h"

#include <algorithm>
#include <cstddef>

namespace {

// Both transpositions walk the planar side in order, channel by channel, so
// that one of the two streams is always sequential.
void Deinterleave(const float* interleaved, float* planar, size_t frames, size_t channels) {
  // Stereo, the common case, in one pass the compiler can vectorise.
  if (channels == 2) {
    float* left = planar;
    float* right = planar + frames;
    for (size_t f = 0; f < frames; ++f) {
      left[f] = interleaved[2 * f];
      right[f] = interleaved[2 * f + 1];
    }
    return;
  }
  for (size_t c = 0; c < channels; ++c) {
    float* channel = planar + c * frames;
    for (size_t f = 0; f < frames; ++f) {
      channel[f] = interleaved[f * channels + c];
    }
  }
}

void Interleave(const float* planar, float* interleaved, size_t frames, size_t channels) {
  if (channels == 2) {
    const float* left = planar;
    const float* right = planar + frames;
    for (size_t f = 0; f < frames; ++f) {
      interleaved[2 * f] = left[f];
      interleaved[2 * f + 1] = right[f];
    }
    return;
  }
  for (size_t c = 0; c < channels; ++c) {
    const float* channel = planar + c * frames;
    for (size_t f = 0; f < frames; ++f) {
      interleaved[f * channels + c] = channel[f];
    }
  }
}

// A store only falls short of the shape after SetFrames raised the frame
// count; pad it with silence so that no reader runs past its end.
void FitStore(ZORSampleStore& store, size_t samples) {
  if (!store.empty() && store.size() < samples) {
    store.resize(samples, 0.0f);
  }
}

}  // namespace

ZORAudioDataFloat::ZORAudioDataFloat(const ZORAudioDataFloat& other) : IZORAudioData<float>() {
  CopyFrom(other);
}

ZORAudioDataFloat& ZORAudioDataFloat::operator=(const ZORAudioDataFloat& other) {
  if (this != &other) {
    CopyFrom(other);
  }
  return *this;
}

ZORAudioDataFloat& ZORAudioDataFloat::operator=(IZORAudioData<float>& other) {
  if (auto* same = dynamic_cast<ZORAudioDataFloat*>(&other)) {
    return *this = *same;
  }
  Assign(other);
  return *this;
}

void ZORAudioDataFloat::CopyFrom(const ZORAudioDataFloat& other) {
  m_frames = other.m_frames;
  m_channels = other.m_channels;
  m_sampleRate = other.m_sampleRate;
  m_userTag = other.m_userTag;
  // Resizing reuses this object's capacity when it suffices; the copies then
  // write every sample.
  m_interleaved.resize(other.m_interleaved.size());
  std::copy(other.m_interleaved.begin(), other.m_interleaved.end(), m_interleaved.begin());
  m_planar.resize(other.m_planar.size());
  std::copy(other.m_planar.begin(), other.m_planar.end(), m_planar.begin());
}

void ZORAudioDataFloat::Reserve(uint32_t frames, uint32_t channels) {
  const size_t samples = size_t{frames} * channels;
  m_interleaved.reserve(samples);
  m_planar.reserve(samples);
  m_roles.reserve(channels);
}

// audio thread
bool ZORAudioDataFloat::Allocate(uint32_t frames, uint32_t channels, uint32_t sampleRate) {
  m_interleaved.clear();
  m_planar.clear();
  m_frames = frames;
  m_channels = channels;
  m_sampleRate = sampleRate;
  m_roles.resize(channels, kNoRole);
  ResetChannelRoles();
  return true;
}

// audio thread
float* ZORAudioDataFloat::GetData(bool forWrite, bool interleaved) {
  const size_t samples = size_t{m_frames} * m_channels;
  if (samples == 0) {
    return nullptr;
  }
  ZORSampleStore& wanted = interleaved ? m_interleaved : m_planar;
  ZORSampleStore& other = interleaved ? m_planar : m_interleaved;
  FitStore(wanted, samples);
  if (wanted.empty()) {
    if (other.empty()) {
      wanted.resize(samples, 0.0f);
    } else {
      FitStore(other, samples);
      // The transposition writes the samples; only a longer tail is zeroed.
      wanted.resize(samples);
      wanted.resize(interleaved ? other.size() : samples, 0.0f);
      if (interleaved) {
        Interleave(other.data(), wanted.data(), m_frames, m_channels);
      } else {
        Deinterleave(other.data(), wanted.data(), m_frames, m_channels);
      }
    }
  }
  if (forWrite) {
    other.clear();
  }
  return wanted.data();
}

// audio thread
void ZORAudioDataFloat::Clear() {
  std::fill(m_interleaved.begin(), m_interleaved.end(), 0.0f);
  std::fill(m_planar.begin(), m_planar.end(), 0.0f);
}

// audio thread
void ZORAudioDataFloat::Assign(IZORAudioData<float>& other) {
  if (&other == this) {
    return;
  }
  Allocate(other.GetFrames(), other.GetChannels(), other.GetSampleRate());
  // Another implementation gives no view of its stores; interleaved is the
  // layout the host hands over, so it is the likeliest to be there already.
  const auto* same = dynamic_cast<const ZORAudioDataFloat*>(&other);
  const bool interleaved = same == nullptr || !same->HoldsInterleaved();
  const float* source = other.GetData(false, interleaved);
  float* target = GetData(true, interleaved);
  if (source != nullptr && target != nullptr) {
    std::copy_n(source, size_t{m_frames} * m_channels, target);
  }
  other.ReleaseData();
  ReleaseData();
  for (uint32_t c = 0; c < m_channels; ++c) {
    SetChannelRole(c, other.GetChannelRole(c));
  }
}

void ZORAudioDataFloat::AddChannels(uint32_t count) {
  if (count == 0) {
    return;
  }
  if (m_planar.empty() && m_interleaved.empty()) {
    Allocate(m_frames, m_channels + count, m_sampleRate);
    return;
  }
  const size_t samples = size_t{m_frames} * m_channels;
  if (m_planar.empty()) {
    FitStore(m_interleaved, samples);
    m_planar.resize(samples + size_t{count} * m_frames, 0.0f);
    Deinterleave(m_interleaved.data(), m_planar.data(), m_frames, m_channels);
  } else {
    FitStore(m_planar, samples);
    m_planar.resize(m_planar.size() + size_t{count} * m_frames, 0.0f);
  }
  m_interleaved.clear();
  m_channels += count;
  m_roles.push_back(kNoRole);
}

// audio thread
void ZORAudioDataFloat::ResetChannelRoles() {
  for (size_t i = 0; i < m_roles.size(); ++i) {
    m_roles[i] = static_cast<uint32_t>(std::min<size_t>(i, kNoRole));
  }
}

// audio thread
bool ZORAudioDataFloat::SetChannelRole(uint32_t channel, uint32_t role) {
  if (channel >= m_roles.size()) {
    return false;
  }
  m_roles[channel] = role;
  return true;
}

// audio thread
uint32_t ZORAudioDataFloat::GetChannelRole(uint32_t channel) const {
  return channel < m_roles.size() ? m_roles[channel] : kNoRole;
}

// audio thread
bool ZORAudioDataFloat::AssignMemory(const float* samples, uint32_t frames, uint32_t channels,
                                     bool interleaved, uint32_t sampleRate) {
  Allocate(frames, channels, sampleRate);
  const size_t count = size_t{frames} * channels;
  // Without a source the block stays silent rather than reading from null.
  if (samples != nullptr && count != 0) {
    ZORSampleStore& store = interleaved ? m_interleaved : m_planar;
    store.resize(count);  // uninitialised: the copy writes every sample
    std::copy_n(samples, count, store.data());
  }
  return true;
}
