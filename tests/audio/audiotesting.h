#pragma once
// Blocks, signals and a recording stage shared by the audio and manager tests.

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "audio/izoraudioprocess.h"
#include "audio/zoraudiodatafloat.h"

namespace velapo::test {

inline std::vector<float> Noise(size_t count, uint32_t seed, float range = 1.0f) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> sample(-range, range);
  std::vector<float> out(count);
  for (float& s : out) s = sample(random);
  return out;
}

// Numbered frames, each channel its own sign, so that any shift, loss or mix-up of channels shows exactly.
inline std::vector<float> Ramp(uint32_t frames, uint32_t channels, uint32_t first = 0) {
  std::vector<float> samples(size_t{frames} * channels);
  for (uint32_t f = 0; f < frames; ++f) {
    for (uint32_t c = 0; c < channels; ++c) {
      samples[size_t{f} * channels + c] = static_cast<float>(first + f + 1) * (c == 0 ? 1.0f : -1.0f);
    }
  }
  return samples;
}

// Interleaved frames [first, first + frames) of a sine, channel c shifted by c
// radians so that a swap of channels shows.
inline std::vector<float> Sine(size_t frames, uint32_t channels, double frequency, double rate,
                               size_t first = 0, double amplitude = 0.5) {
  std::vector<float> samples(frames * channels);
  for (size_t f = 0; f < frames; ++f) {
    const double phase = 2.0 * 3.14159265358979323846 * frequency * static_cast<double>(first + f) / rate;
    for (uint32_t c = 0; c < channels; ++c) samples[f * channels + c] = static_cast<float>(amplitude * std::sin(phase + c));
  }
  return samples;
}

// A block holding a copy of interleaved `samples`.
inline ZORAudioDataFloat Wrap(const std::vector<float>& samples, uint32_t channels,
                              uint32_t rate = 48000) {
  ZORAudioDataFloat block;
  block.AssignMemory(samples.data(), static_cast<uint32_t>(samples.size() / channels), channels,
                     true, rate);
  return block;
}

inline std::vector<float> Interleaved(IZORAudioData<float>& block) {
  const float* samples = block.GetData(false, true);
  std::vector<float> out;
  if (samples != nullptr) out.assign(samples, samples + block.GetSampleCount());
  block.ReleaseData();
  return out;
}

// A stage that records what it is handed and can scale the samples, fail
// its Init, report a latency or change the block's frame count.
class RecordingStage : public IZORAudioProcess<float> {
 public:
  explicit RecordingStage(uint32_t latency = 0) : m_latency(latency) {}
  bool Init(uint32_t channelCount, uint32_t sampleRate) override {
    initChannels = channelCount;
    initRate = sampleRate;
    return initResult;
  }
  void SetBypass(bool) override {}
  bool GetBypass() const override { return false; }
  uint32_t GetLatency() const override { return m_latency; }
  void Process(IZORAudioData<float>* data) override {
    seen = data;
    channels = data->GetChannels();
    frames.push_back(data->GetFrames());
    rate = data->GetSampleRate();
    if (float* samples = data->GetData(true, true)) {
      double sum = 0.0;
      for (uint32_t i = 0; i < data->GetSampleCount(); ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
        samples[i] *= gain;
      }
      energy = sum;
    }
    data->ReleaseData();
    if (frameChange != 0 && (changeOnce == 0 || ++calls == changeOnce)) {
      data->SetFrames(static_cast<uint32_t>(static_cast<int64_t>(data->GetFrames()) + frameChange));
    }
  }

  float gain = 1.0f;
  bool initResult = true;
  uint32_t initChannels = 0, initRate = 0, channels = 0, rate = 0;
  IZORAudioData<float>* seen = nullptr;
  std::vector<uint32_t> frames;
  double energy = 0.0;
  int32_t frameChange = 0;
  uint32_t changeOnce = 0;  // 0: change every block; n: only the n-th
  uint32_t calls = 0;

 private:
  uint32_t m_latency;
};

}  // namespace velapo::test
