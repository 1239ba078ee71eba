// Costs of running the tech processes at another rate, per host block of
// 480 stereo frames: the whole resample chain (a 44.1 kHz stream converted
// to 48 kHz and back, no stages), and one converter alone in each
// direction. Each run also reports the delay the converters add, measured
// from an impulse, so that the cost and the latency come from one place.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessresamplechain.h"
#include "audio/zorsamplerateconvert.h"

namespace {

constexpr uint32_t kHostFrames = 480;
constexpr uint32_t kChannels = 2;

std::vector<float> Tone(size_t frames, uint32_t rate) {
  std::vector<float> samples(frames * kChannels);
  for (size_t f = 0; f < frames; ++f) {
    const auto value = static_cast<float>(
        0.5 * std::sin(2.0 * std::numbers::pi * 1000.0 * static_cast<double>(f) / rate));
    samples[f * kChannels] = value;
    samples[f * kChannels + 1] = value;
  }
  return samples;
}

// Where the peak of a converted impulse lies, in output frames: the delay of
// the filter, the frame of the impulse itself subtracted.
double ImpulseDelay(const std::vector<float>& output, uint32_t impulseAt, double ratio) {
  size_t peak = 0;
  for (size_t i = 0; i < output.size(); i += kChannels) {
    if (std::fabs(output[i]) > std::fabs(output[peak])) {
      peak = i;
    }
  }
  return static_cast<double>(peak / kChannels) - impulseAt * ratio;
}

void ResampleChain(benchmark::State& state) {
  constexpr uint32_t kRate = 44100;
  constexpr uint32_t kInternal = 48000;
  ZORAudioProcessResampleChain chain;
  chain.SetInternalRate(kInternal);
  if (!chain.Init(kChannels, kRate)) {
    state.SkipWithError("no converter for 44.1 and 48 kHz");
    return;
  }
  const std::vector<float> source = Tone(kHostFrames, kRate);
  ZORAudioDataFloat data;
  for (auto _ : state) {
    data.AssignMemory(source.data(), kHostFrames, kChannels, true, kRate);
    chain.Process(&data);
    benchmark::DoNotOptimize(data.GetData(false, true));
    data.ReleaseData();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kHostFrames);

  // The round trip's delay: an impulse through a fresh chain.
  ZORAudioProcessResampleChain fresh;
  fresh.SetInternalRate(kInternal);
  fresh.Init(kChannels, kRate);
  std::vector<float> output;
  for (uint32_t block = 0; block < 3; ++block) {
    std::vector<float> impulse(kHostFrames * kChannels, 0.0f);
    if (block == 1) {
      impulse[0] = impulse[1] = 1.0f;
    }
    data.AssignMemory(impulse.data(), kHostFrames, kChannels, true, kRate);
    fresh.Process(&data);
    const float* samples = data.GetData(false, true);
    output.insert(output.end(), samples, samples + data.GetSampleCount());
    data.ReleaseData();
  }
  const double delayFrames = ImpulseDelay(output, kHostFrames, 1.0);
  state.counters["delay_frames"] = delayFrames;
  state.counters["delay_ms"] = delayFrames * 1000.0 / kRate;
  state.counters["reported_frames"] = fresh.GetLatency();
}

void Converter(benchmark::State& state) {
  const auto inputRate = static_cast<uint32_t>(state.range(0));
  const auto outputRate = static_cast<uint32_t>(state.range(1));
  ZORSampleRateConvert convert;
  if (convert.SetFormat(inputRate, outputRate, kChannels) == ZORSampleRateConvert::kFormatFailed) {
    state.SkipWithError("format refused");
    return;
  }
  const std::vector<float> source = Tone(kHostFrames, inputRate);
  std::vector<float> target((kHostFrames * outputRate / inputRate + 8) * kChannels);
  for (auto _ : state) {
    uint32_t in = kHostFrames * kChannels;
    uint32_t out = static_cast<uint32_t>(target.size());
    convert.Convert(source.data(), in, target.data(), out);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kHostFrames);

  // One direction's delay, from an impulse through a fresh converter.
  ZORSampleRateConvert fresh;
  fresh.SetFormat(inputRate, outputRate, kChannels);
  std::vector<float> impulse(kHostFrames * 2 * kChannels, 0.0f);
  impulse[kHostFrames * kChannels] = impulse[kHostFrames * kChannels + 1] = 1.0f;
  std::vector<float> output(impulse.size() * 2);
  uint32_t in = static_cast<uint32_t>(impulse.size());
  uint32_t out = static_cast<uint32_t>(output.size());
  fresh.Convert(impulse.data(), in, output.data(), out);
  output.resize(out);
  const double ratio = static_cast<double>(outputRate) / inputRate;
  const double delayFrames = ImpulseDelay(output, kHostFrames, ratio);
  state.counters["delay_ms"] = delayFrames * 1000.0 / outputRate;
  state.counters["filter_input_frames"] = fresh.GetInputLatency();
}

}  // namespace

BENCHMARK(ResampleChain);
BENCHMARK(Converter)->Args({44100, 48000})->Args({48000, 44100});
