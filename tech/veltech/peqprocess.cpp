#include "peqprocess.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace veltech {
namespace {

constexpr int32_t kDefaultFrequencies[PeqProcess::kBands] = {31,   63,   125,  250,  500,
                                                             1000, 2000, 4000, 8000, 16000};
// Sections are kept below this share of the rate, where the cookbook
// designs still behave.
constexpr double kHighestFrequencyShare = 0.49;
constexpr double kLowestFrequency = 10.0;

std::vector<ControlDefinition> MakeDefinitions() {
  std::vector<ControlDefinition> definitions;
  definitions.push_back({"PEQ-Preamp", -2400, 1200, 0, VELTECH_UNIT_HUNDREDTHS, {}});
  for (size_t b = 0; b < PeqProcess::kBands; ++b) {
    const std::string band = "PEQ-Band" + std::to_string(b + 1) + " ";
    definitions.push_back({band + "Enable", 0, 1, 0, VELTECH_UNIT_PLAIN, OnOffNames()});
    definitions.push_back({band + "Type", 0, kFilterTypeCount - 1, 0, VELTECH_UNIT_PLAIN,
                     {"Peak", "Low Shelf", "High Shelf", "Low Pass", "High Pass", "Notch"}});
    definitions.push_back({band + "Frequency", 10, 24000, kDefaultFrequencies[b], VELTECH_UNIT_PLAIN, {}});
    definitions.push_back({band + "Gain", -2400, 2400, 0, VELTECH_UNIT_HUNDREDTHS, {}});
    definitions.push_back({band + "Q", 10, 2000, 71, VELTECH_UNIT_HUNDREDTHS, {}});
  }
  return definitions;
}

double DecibelsToGain(double decibels) { return std::pow(10.0, decibels / 20.0); }

}  // namespace

const ControlTable& PeqProcess::Table() {
  static const ControlTable table(MakeDefinitions());
  return table;
}

bool PeqProcess::Prepare(uint32_t channels, uint32_t sampleRate) {
  m_states.assign(kBands * channels, BiquadState{});
  m_glideSteps = (GlideFramesAt(sampleRate) + kUpdateFrames - 1) / kUpdateFrames;
  // The frequency limit depends on the rate: work every target out afresh.
  for (BandControls& seen : m_seen) seen = BandControls{};
  m_seenPreamp = 1;
  return true;
}

const PeqProcess::BandTargets& PeqProcess::ReadBand(size_t band) {
  BandControls& seen = m_seen[band];
  bool changed = false;
  for (size_t field = 0; field < kFieldCount; ++field) {
    const int32_t value = Control(BandControl(band, static_cast<BandField>(field)));
    changed = changed || value != seen.values[field];
    seen.values[field] = value;
  }
  if (changed) {
    const double highest = kHighestFrequencyShare * SampleRate();
    const double frequency = std::clamp<double>(seen.values[kFrequency], kLowestFrequency, highest);
    seen.targets = {seen.values[kEnable] != 0, static_cast<FilterType>(seen.values[kType]),
                    std::log2(frequency), seen.values[kGain] / 100.0, std::log2(seen.values[kQ] / 100.0)};
  }
  return seen.targets;
}

double PeqProcess::ReadPreamp() {
  const int32_t preamp = Control(kPreamp);
  if (preamp != m_seenPreamp) {
    m_seenPreamp = preamp;
    m_preampGain = DecibelsToGain(preamp / 100.0);
  }
  return m_preampGain;
}

void PeqProcess::UpdateCoefficients(Band& band) const {
  band.coefficients = DesignBiquad(band.type, std::exp2(band.logFrequency.Value()), SampleRate(),
                                   band.gainDb.Value(), std::exp2(band.logQ.Value()));
}

void PeqProcess::ResetStates(size_t band) {
  std::fill_n(m_states.begin() + static_cast<std::ptrdiff_t>(band * Channels()), Channels(), BiquadState{});
}

// A band that starts, or comes back after being out, takes its values at
// once: there is nothing audible to glide from.
void PeqProcess::StartBand(size_t b, const BandTargets& targets) {
  Band& band = m_bands[b];
  band.type = targets.type;
  band.logFrequency.Snap(targets.logFrequency);
  band.gainDb.Snap(targets.gainDb);
  band.logQ.Snap(targets.logQ);
  band.mix.Snap(targets.enabled ? 1.0 : 0.0);
  ResetStates(b);
  UpdateCoefficients(band);
}

// audio thread
void PeqProcess::SteerBand(size_t b, const BandTargets& targets) {
  Band& band = m_bands[b];
  const bool out = band.mix.Value() == 0.0 && !band.mix.IsGliding();
  if (out) {
    if (targets.enabled) {
      StartBand(b, targets);
      band.mix.Snap(0.0);
      band.mix.SetTarget(1.0, GlideFrames());
    } else {
      band.type = targets.type;
    }
    return;
  }
  band.logFrequency.SetTarget(targets.logFrequency, m_glideSteps);
  band.gainDb.SetTarget(targets.gainDb, m_glideSteps);
  band.logQ.SetTarget(targets.logQ, m_glideSteps);
  // Another type is another section: fade this one out first; the band
  // comes back with the new one once it is out.
  const bool keep = targets.enabled && targets.type == band.type;
  band.mix.SetTarget(keep ? 1.0 : 0.0, GlideFrames());
}

// audio thread
void PeqProcess::Run(float* const* channels, uint32_t count, uint32_t frames) {
  const bool start = TakeStartFlag();
  for (uint32_t offset = 0; offset < frames; offset += kUpdateFrames) {
    const uint32_t n = std::min(kUpdateFrames, frames - offset);
    const double preamp = ReadPreamp();
    if (start && offset == 0) {
      m_preamp.Snap(preamp);
      for (size_t b = 0; b < kBands; ++b) StartBand(b, ReadBand(b));
    } else {
      m_preamp.SetTarget(preamp, GlideFrames());
      for (size_t b = 0; b < kBands; ++b) SteerBand(b, ReadBand(b));
    }
    RunStretch(channels, count, offset, n);
  }
}

// audio thread
void PeqProcess::RunStretch(float* const* channels, uint32_t count, uint32_t offset, uint32_t frames) {
  float ramp[kUpdateFrames];
  if (m_preamp.IsGliding() || m_preamp.Value() != 1.0) {
    m_preamp.Fill(ramp, frames);
    for (uint32_t c = 0; c < count; ++c) {
      float* samples = channels[c] + offset;
      for (uint32_t i = 0; i < frames; ++i) samples[i] *= ramp[i];
    }
  }
  for (size_t b = 0; b < kBands; ++b) {
    Band& band = m_bands[b];
    if (band.mix.Value() == 0.0 && !band.mix.IsGliding()) continue;
    if (band.logFrequency.IsGliding() || band.gainDb.IsGliding() || band.logQ.IsGliding()) {
      band.logFrequency.Next();
      band.gainDb.Next();
      band.logQ.Next();
      UpdateCoefficients(band);
    }
    BiquadState* states = &m_states[b * Channels()];
    if (band.mix.IsGliding()) {
      band.mix.Fill(ramp, frames);
      for (uint32_t c = 0; c < count; ++c) {
        RunBiquadMixed(band.coefficients, states[c], channels[c] + offset, ramp, frames);
      }
    } else {
      // Channels in pairs: two independent recursions keep the processor
      // busy where one would wait on its own last result.
      uint32_t c = 0;
      for (; c + 1 < count; c += 2) {
        RunBiquadPair(band.coefficients, states[c], states[c + 1], channels[c] + offset,
                      channels[c + 1] + offset, frames);
      }
      if (c < count) RunBiquad(band.coefficients, states[c], channels[c] + offset, frames);
    }
    for (uint32_t c = 0; c < count; ++c) FlushTinyState(states[c]);
  }
}

// audio thread
void PeqProcess::TakeState(const TechProcess& other) {
  const auto& source = static_cast<const PeqProcess&>(other);
  std::copy(std::begin(source.m_bands), std::end(source.m_bands), std::begin(m_bands));
  m_preamp = source.m_preamp;
  std::copy(source.m_states.begin(), source.m_states.end(), m_states.begin());
}

}  // namespace veltech
