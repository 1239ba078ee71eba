// What veltech's processes do to audio, measured against designs and bounds.
#include <gtest/gtest.h>

#include <complex>
#include <limits>

#include "techtesting.h"

namespace {

using techtest::AmplitudeAt;
using techtest::Channels;
using techtest::LargestStep;
using techtest::Noise;
using techtest::Sine;
using techtest::ToDecibels;
using techtest::Veltech;
using techtest::kPi;

constexpr double kGlideSeconds = 0.020;  // every parameter glides over 20 ms

enum Type { kPeak, kLowShelf, kHighShelf, kLowPass, kHighPass, kNotch };

struct Band {
  Type type;
  double frequency;
  double gainDb;
  double q;
};

// A cookbook section's magnitude at `f`, from its analogue prototype with
// s = j tan(w/2) / tan(w0/2); not from the module's digital formulas.
double CookbookMagnitude(const Band& band, double f, double rate) {
  using Complex = std::complex<double>;
  const Complex s(0.0, std::tan(kPi * f / rate) / std::tan(kPi * band.frequency / rate));
  const double a = std::pow(10.0, band.gainDb / 40.0);
  const double q = band.q;
  Complex h;
  switch (band.type) {
    case kPeak: h = (s * s + s * (a / q) + 1.0) / (s * s + s / (a * q) + 1.0); break;
    case kLowShelf:
      h = a * (s * s + std::sqrt(a) / q * s + a) / (a * s * s + std::sqrt(a) / q * s + 1.0);
      break;
    case kHighShelf:
      h = a * (a * s * s + std::sqrt(a) / q * s + 1.0) / (s * s + std::sqrt(a) / q * s + a);
      break;
    case kLowPass: h = 1.0 / (s * s + s / q + 1.0); break;
    case kHighPass: h = s * s / (s * s + s / q + 1.0); break;
    case kNotch: h = (s * s + 1.0) / (s * s + s / q + 1.0); break;
  }
  return std::abs(h);
}

// Sets band `index` (1-based) of a peq.
void SetBand(Veltech& peq, int index, const Band& band) {
  const std::string prefix = "PEQ-Band" + std::to_string(index) + " ";
  ASSERT_TRUE(peq.Set((prefix + "Enable").c_str(), 1));
  ASSERT_TRUE(peq.Set((prefix + "Type").c_str(), band.type));
  ASSERT_TRUE(peq.Set((prefix + "Frequency").c_str(), static_cast<int32_t>(band.frequency)));
  ASSERT_TRUE(peq.Set((prefix + "Gain").c_str(), static_cast<int32_t>(std::lround(band.gainDb * 100))));
  ASSERT_TRUE(peq.Set((prefix + "Q").c_str(), static_cast<int32_t>(std::lround(band.q * 100))));
}

// The gain in dB at `f` (whole Hz) of a process fed a sine, measured over
// one second after a quarter second of settling.
double MeasuredGainDb(Veltech& process, double f, uint32_t rate) {
  const double amplitude = 0.05;
  Channels audio{Sine(f, amplitude, rate, rate + rate / 4)};
  process.RunAll(audio, 480);
  return ToDecibels(AmplitudeAt(audio[0], rate / 4, rate, f, rate) / amplitude);
}

}  // namespace

TEST(VeltechPeq, MeasuredMagnitudeMatchesTheDesignedSections) {
  struct Case {
    uint32_t rate;
    std::vector<Band> bands;
    int32_t preampHundredths = 0;
    int disabledBand = 0;  // a band switched off again, 1-based
  };
  const Case cases[] = {
      {48000, {{kPeak, 1000, 6.0, 1.41}}},
      {48000, {{kPeak, 120, -9.5, 4.0}}},
      {44100, {{kLowShelf, 200, 8.0, 0.71}}},
      {96000, {{kHighShelf, 6000, -6.0, 0.71}}},
      {48000, {{kLowPass, 2000, 0.0, 0.71}}},
      {8000, {{kHighPass, 300, 0.0, 2.0}}},
      {192000, {{kNotch, 60, 0.0, 4.0}}},
      // Bands multiply: a peak, a shelf and a high pass together.
      {48000, {{kPeak, 3000, 4.0, 2.0}, {kLowShelf, 100, -5.0, 0.71}, {kHighPass, 30, 0.0, 0.71}}},
      // The preamp adds its gain; a band switched off adds nothing.
      {48000, {{kPeak, 1000, 0.0, 1.0}, {kPeak, 1000, 12.0, 1.0}}, -600, 2},
  };
  for (const Case& c : cases) {
    Veltech peq("peq");
    ASSERT_NE(peq.Get(), nullptr);
    for (size_t b = 0; b < c.bands.size(); ++b) SetBand(peq, static_cast<int>(b + 1), c.bands[b]);
    ASSERT_TRUE(peq.Set("PEQ-Preamp", c.preampHundredths));
    if (c.disabledBand != 0) {
      ASSERT_TRUE(peq.Set(("PEQ-Band" + std::to_string(c.disabledBand) + " Enable").c_str(), 0));
    }
    ASSERT_TRUE(peq.Init(1, c.rate));
    const double f0 = c.bands[0].frequency;
    for (double f : {f0 / 3, f0 * 0.8, f0, f0 * 1.5, f0 * 3}) {
      f = std::round(f);
      if (f >= 0.45 * c.rate) continue;
      double designedDb = c.preampHundredths / 100.0;
      for (size_t b = 0; b < c.bands.size(); ++b) {
        if (static_cast<int>(b + 1) != c.disabledBand) designedDb += ToDecibels(CookbookMagnitude(c.bands[b], f, c.rate));
      }
      const double measuredDb = MeasuredGainDb(peq, f, c.rate);
      if (designedDb < -40.0) {
        EXPECT_LT(measuredDb, -40.0) << "type " << c.bands[0].type << " at " << f << " Hz";
      } else {
        EXPECT_NEAR(measuredDb, designedDb, 0.1) << "type " << c.bands[0].type << " f0 " << f0 << " at " << f << " Hz, rate " << c.rate;
      }
    }
  }
}

// Channels filtered in pairs come out as each would alone: no state is
// shared or swapped between the two.
TEST(VeltechPeq, ChannelsOfAPairFilterAsEachWouldAlone) {
  const Channels input{Noise(4800, 0.5, 1), Noise(4800, 0.5, 2), Noise(4800, 0.5, 3)};
  Veltech stereo("peq");
  SetBand(stereo, 1, {kPeak, 500, 9.0, 2.0});
  ASSERT_TRUE(stereo.Init(3, 48000));
  Channels together = input;
  stereo.RunAll(together, 480);
  for (size_t c = 0; c < input.size(); ++c) {
    Veltech mono("peq");
    SetBand(mono, 1, {kPeak, 500, 9.0, 2.0});
    ASSERT_TRUE(mono.Init(1, 48000));
    Channels alone{input[c]};
    mono.RunAll(alone, 480);
    for (size_t i = 0; i < alone[0].size(); ++i) ASSERT_NEAR(together[c][i], alone[0][i], 1e-6) << c << " " << i;
  }
}

TEST(VeltechPeq, ChangesGlideWithoutSteps) {
  const uint32_t rate = 48000;
  const double f = 100.0;
  const double omega = 2.0 * kPi * f / rate;
  struct Change {
    const char* what;
    std::vector<std::pair<std::string, int32_t>> before;
    std::vector<std::pair<std::string, int32_t>> after;
  };
  const Change changes[] = {
      {"gain", {{"PEQ-Band1 Gain", 0}}, {{"PEQ-Band1 Gain", 1200}}},
      {"frequency", {{"PEQ-Band1 Gain", 1200}}, {{"PEQ-Band1 Frequency", 1000}}},
      {"q", {{"PEQ-Band1 Gain", 1200}}, {{"PEQ-Band1 Q", 1000}}},
      {"disable", {{"PEQ-Band1 Gain", 1200}}, {{"PEQ-Band1 Enable", 0}}},
      {"enable", {{"PEQ-Band1 Gain", 1200}, {"PEQ-Band1 Enable", 0}}, {{"PEQ-Band1 Enable", 1}}},
      {"type", {{"PEQ-Band1 Gain", 1200}}, {{"PEQ-Band1 Type", kHighPass}}},
      {"preamp", {}, {{"PEQ-Preamp", 1200}}},
  };
  for (const Change& change : changes) {
    SCOPED_TRACE(change.what);
    Veltech peq("peq");
    SetBand(peq, 1, {kPeak, f, 0.0, 1.0});
    for (const auto& [name, value] : change.before) ASSERT_TRUE(peq.Set(name.c_str(), value));
    ASSERT_TRUE(peq.Init(1, rate));
    // A cosine, so that the change meets the wave at its crest, where a jump
    // in gain shows most.
    const double amplitude = 0.2;
    Channels audio{Sine(f, amplitude, rate, rate / 2, kPi / 2)};
    const size_t changeAt = rate / 5;
    peq.RunAll(audio, 480);  // warm up, then run again from the start of a new stretch
    audio[0] = Sine(f, amplitude, rate, rate / 2, kPi / 2);
    for (size_t offset = 0; offset < audio[0].size(); offset += 480) {
      if (offset == changeAt) {
        for (const auto& [name, value] : change.after) ASSERT_TRUE(peq.Set(name.c_str(), value));
      }
      peq.Run(audio, offset, 480);
    }
    // A sine of the largest amplitude seen moves at most A * omega per
    // sample; a glide over 20 ms adds at most the change of amplitude
    // spread over the glide. A step in gain or coefficients would jump by
    // a sizeable share of the amplitude at once.
    double largest = 0.0;
    for (size_t i = changeAt; i < audio[0].size(); ++i) largest = std::max(largest, std::fabs(double{audio[0][i]}));
    const double glideFrames = kGlideSeconds * rate;
    const double bound = 1.1 * (largest * omega + largest / glideFrames);
    EXPECT_LE(LargestStep(audio[0], changeAt), bound) << "largest amplitude " << largest;
  }
}

TEST(VeltechGain, LevelAndMuteGlideInAStraightLine) {
  const uint32_t rate = 48000;
  Veltech gain("gain");
  ASSERT_TRUE(gain.Set("Gain-Level", -602));
  ASSERT_TRUE(gain.Init(2, rate));
  // The level in force from the first frame, without a glide from 0 dB.
  Channels audio{std::vector<float>(4800, 0.5f), std::vector<float>(4800, -0.25f)};
  gain.Run(audio, 0, 480);
  const float start = static_cast<float>(std::pow(10.0, -602 / 2000.0));
  EXPECT_FLOAT_EQ(audio[0][0], 0.5f * start);
  EXPECT_FLOAT_EQ(audio[1][479], -0.25f * start);

  // -6.02 dB to -40 dB: a straight line of 20 ms, then the level exactly.
  ASSERT_TRUE(gain.Set("Gain-Level", -4000));
  for (size_t offset = 480; offset < 4800; offset += 480) gain.Run(audio, offset, 480);
  const double end = std::pow(10.0, -4000 / 2000.0);
  const auto glideFrames = static_cast<size_t>(kGlideSeconds * rate);
  // The line's step, plus the rounding of two float samples.
  const double rounding = 2.0 * 0.5 * std::numeric_limits<float>::epsilon();
  const double stepBound = 0.5 * (start - end) / glideFrames + rounding;
  EXPECT_LE(LargestStep(audio[0], 480), stepBound);
  for (size_t i = 480; i < 480 + glideFrames; ++i) {
    ASSERT_LT(audio[0][i], audio[0][i - 1]) << i;  // falls all the way
  }
  EXPECT_FLOAT_EQ(audio[0][480 + glideFrames], static_cast<float>(0.5 * end));
  EXPECT_FLOAT_EQ(audio[1][4799], static_cast<float>(-0.25 * end));

  // Mute glides to silence and stays there.
  ASSERT_TRUE(gain.SetText("Gain-Mute", "Enabled"));
  Channels more{std::vector<float>(2400, 0.5f), std::vector<float>(2400, 0.5f)};
  gain.RunAll(more, 480);
  EXPECT_LE(LargestStep(more[0], 0), 0.5 * end / glideFrames + rounding * end);
  EXPECT_EQ(more[0][glideFrames], 0.0f);
  EXPECT_EQ(more[1][2399], 0.0f);
}

TEST(VeltechLimiter, NeverExceedsItsThresholdAfterTheLookAhead) {
  struct Setting {
    int32_t thresholdHundredths;
    int32_t inputGainHundredths;
    uint32_t block;
  };
  const Setting settings[] = {{-100, 0, 256}, {-1200, 0, 256}, {-300, 1200, 256}, {-600, 0, 7}, {0, 2400, 1000}};
  for (uint32_t rate : {8000u, 22050u, 44100u, 48000u, 96000u, 192000u}) {
    for (uint32_t channels : {1u, 2u, 6u}) {
      for (const Setting& setting : settings) {
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << channels << " channels, threshold "
                                        << setting.thresholdHundredths << ", block " << setting.block);
        Veltech limiter("limiter");
        ASSERT_TRUE(limiter.Set("Limiter-Threshold", setting.thresholdHundredths));
        ASSERT_TRUE(limiter.Set("Limiter-Input Gain", setting.inputGainHundredths));
        ASSERT_TRUE(limiter.Set("Limiter-Release", 20));
        ASSERT_TRUE(limiter.Init(channels, rate));
        EXPECT_EQ(limiter.Table().GetBlockSize(limiter.Get()), 256u);
        EXPECT_EQ(limiter.Table().GetLatency(limiter.Get()), static_cast<uint32_t>(std::lround(0.005 * rate)));
        // Half a second of noise up to +12 dB, a lone spike per channel,
        // full-scale square waves and near silence, different per channel.
        const size_t frames = rate / 2;
        Channels audio(channels);
        for (uint32_t c = 0; c < channels; ++c) {
          audio[c] = Noise(frames, c == 0 ? 4.0 : 0.3, c + 1);
          audio[c][frames / 3 + c * 17] = c % 2 == 0 ? 16.0f : -16.0f;
          for (size_t i = frames / 2; i < frames / 2 + rate / 20; ++i) audio[c][i] = (i / 40) % 2 == 0 ? 1.0f : -1.0f;
          for (size_t i = 3 * frames / 4; i < frames; ++i) audio[c][i] *= 1e-3f;
        }
        limiter.RunAll(audio, setting.block);
        const double ceiling = std::pow(10.0, setting.thresholdHundredths / 2000.0) * (1.0 + 1e-6);
        for (uint32_t c = 0; c < channels; ++c) {
          for (size_t i = 0; i < frames; ++i) {
            ASSERT_LE(std::fabs(audio[c][i]), ceiling) << "channel " << c << " frame " << i;
          }
        }
      }
    }
  }
}

TEST(VeltechLimiter, BelowTheThresholdIsAPureDelayAndRecoversAfterPeaks) {
  const uint32_t rate = 48000;
  Veltech limiter("limiter");
  ASSERT_TRUE(limiter.Set("Limiter-Release", 50));
  ASSERT_TRUE(limiter.Init(2, rate));
  const uint32_t latency = limiter.Table().GetLatency(limiter.Get());
  ASSERT_EQ(latency, 240u);
  const size_t frames = rate;
  const std::vector<float> quiet = Noise(frames, 0.5, 9);
  Channels audio{quiet, quiet};
  // One loud burst in the middle, pulled down; before it and well after it
  // (ten release times) the audio passes bit for bit, only late.
  for (size_t i = 20000; i < 20100; ++i) audio[1][i] = 8.0f;
  limiter.RunAll(audio, 256);
  for (size_t i = 0; i < latency; ++i) ASSERT_EQ(audio[0][i], 0.0f);
  for (size_t i = latency; i < 20000; ++i) ASSERT_EQ(audio[0][i], quiet[i - latency]) << i;
  const double threshold = std::pow(10.0, -100 / 2000.0);
  EXPECT_LE(std::fabs(audio[0][20050 + latency]), std::fabs(quiet[20050]) * threshold / 8.0 * 1.001 + 1e-9);
  for (size_t i = 20100 + latency + rate / 2; i < frames; ++i) {
    ASSERT_NEAR(audio[0][i], quiet[i - latency], 1e-3 * std::fabs(quiet[i - latency]) + 1e-9) << i;
  }
}

TEST(VeltechLimiter, ChannelsLeftOutOfABlockDontSlipPastTheThreshold) {
  // Loud audio on both channels, then blocks that list only the first
  // channel or none, then both again: whatever the second channel's delay
  // line held must not come out above the threshold.
  const uint32_t rate = 8000;
  Veltech limiter("limiter");
  ASSERT_TRUE(limiter.Set("Limiter-Threshold", -600));
  ASSERT_TRUE(limiter.Init(2, rate));
  Channels loud{Noise(400, 8.0, 1), Noise(400, 8.0, 2)};
  limiter.RunAll(loud, 256);
  Channels first{Noise(30, 0.01, 3)};
  limiter.Run(first, 0, 30);
  Channels none;
  limiter.Run(none, 0, 5);
  Channels quiet{Noise(400, 0.01, 4), Noise(400, 0.01, 5)};
  limiter.RunAll(quiet, 256);
  const double ceiling = std::pow(10.0, -600 / 2000.0) * (1.0 + 1e-6);
  for (const std::vector<float>& channel : quiet) {
    for (float sample : channel) ASSERT_LE(std::fabs(sample), ceiling);
  }
}

TEST(VeltechStereo, WidenerScalesTheSideSignalOnly) {
  const uint32_t rate = 44100;
  const std::vector<float> left = Noise(2048, 0.5, 1);
  const std::vector<float> right = Noise(2048, 0.5, 2);
  const std::vector<float> centre = Noise(2048, 0.5, 3);
  for (int32_t width : {0, 100, 200}) {
    SCOPED_TRACE(width);
    Veltech widener("widener");
    ASSERT_TRUE(widener.Set("Widener-Width", width));
    ASSERT_TRUE(widener.Init(3, rate));
    Channels audio{left, right, centre};
    widener.RunAll(audio, 441);
    for (size_t i = 0; i < left.size(); ++i) {
      const double mid = 0.5 * (left[i] + right[i]);
      const double side = 0.5 * (left[i] - right[i]) * width / 100.0;
      ASSERT_NEAR(audio[0][i], mid + side, 1e-6) << i;
      ASSERT_NEAR(audio[1][i], mid - side, 1e-6) << i;
      if (width == 100) {
        ASSERT_EQ(audio[0][i], left[i]);  // untouched, not recomputed
      }
      ASSERT_EQ(audio[2][i], centre[i]);                   // beyond the pair: untouched
    }
  }
}

TEST(VeltechStereo, CrossfeedKeepsTheCentreAndSpreadsTheBassOfTheSides) {
  const uint32_t rate = 48000;
  // A centred signal comes out as it went in.
  {
    Veltech crossfeed("crossfeed");
    ASSERT_TRUE(crossfeed.Init(2, rate));
    const std::vector<float> music = Noise(rate / 4, 0.8, 4);
    Channels audio{music, music};
    crossfeed.RunAll(audio, 480);
    for (size_t i = 0; i < music.size(); ++i) {
      ASSERT_NEAR(audio[0][i], music[i], 1e-6) << i;
      ASSERT_EQ(audio[0][i], audio[1][i]) << i;
    }
  }
  // A hard-left tone: in the bass the far ear is the feed (4.5 dB) below the
  // near one; in the treble it hears almost nothing and the near ear all.
  for (const double f : {40.0, 10000.0, -40.0}) {  // negative: the tone on the right
    Veltech crossfeed("crossfeed");
    ASSERT_TRUE(crossfeed.Init(2, rate));
    const size_t nearSide = f < 0 ? 1 : 0;  // "near" is a macro on Windows
    Channels audio(2, std::vector<float>(rate + rate / 4, 0.0f));
    audio[nearSide] = Sine(std::fabs(f), 0.5, rate, rate + rate / 4);
    crossfeed.RunAll(audio, 480);
    const double nearDb = ToDecibels(AmplitudeAt(audio[nearSide], rate / 4, rate, std::fabs(f), rate) / 0.5);
    const double farDb = ToDecibels(AmplitudeAt(audio[1 - nearSide], rate / 4, rate, std::fabs(f), rate) / 0.5);
    if (std::fabs(f) < 100.0) {
      EXPECT_NEAR(nearDb - farDb, 4.5, 0.2);
    } else {
      EXPECT_NEAR(nearDb, 0.0, 0.3);
      EXPECT_LT(farDb, -25.0);
    }
  }
  // Switched off, it glides out and then leaves the audio untouched.
  Veltech off("crossfeed");
  ASSERT_TRUE(off.Init(2, rate));
  Channels warm{Noise(4800, 0.5, 5), Noise(4800, 0.5, 6)};
  off.RunAll(warm, 480);
  ASSERT_TRUE(off.SetText("Crossfeed-Enable", "Disabled"));
  const std::vector<float> left = Noise(4800, 0.5, 7);
  const std::vector<float> right = Noise(4800, 0.5, 8);
  Channels audio{left, right};
  off.RunAll(audio, 480);
  const auto glideFrames = static_cast<size_t>(kGlideSeconds * rate);
  for (size_t i = glideFrames; i < left.size(); ++i) {
    ASSERT_EQ(audio[0][i], left[i]) << i;
    ASSERT_EQ(audio[1][i], right[i]) << i;
  }
}

TEST(VeltechShapes, EveryProcessTakesAnyShapeAndLeavesWhatIsntItsOwn) {
  for (const char* techId : {"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}) {
    SCOPED_TRACE(techId);
    {
      Veltech process(techId);
      // Rates outside 8 kHz to 384 kHz are refused.
      EXPECT_FALSE(process.Init(2, 0));
      EXPECT_FALSE(process.Init(2, 7999));
      EXPECT_FALSE(process.Init(2, 400000));
      // Before a successful Init, audio passes untouched.
      Channels audio{Noise(64, 0.5, 1)};
      const Channels before = audio;
      process.Run(audio, 0, 64);
      EXPECT_EQ(audio, before);
    }
    for (uint32_t rate : {8000u, 11025u, 44100u, 192000u}) {
      for (uint32_t channels : {1u, 2u, 3u, 8u}) {
        Veltech process(techId);
        process.Set("Gain-Level", 600);
        process.Set("PEQ-Band5 Enable", 1);
        process.Set("PEQ-Band5 Gain", 900);
        process.Set("PEQ-Band10 Enable", 1);
        process.Set("PEQ-Band10 Frequency", 24000);  // above half of the lower rates
        process.Set("Widener-Width", 180);
        ASSERT_TRUE(process.Init(channels, rate)) << rate << " " << channels;
        // One more node than the process was made for: the extra passes.
        Channels audio(channels + 1);
        for (uint32_t c = 0; c <= channels; ++c) audio[c] = Noise(rate / 10, 0.9, c + 1);
        const std::vector<float> extra = audio[channels];
        process.RunAll(audio, 480);
        process.Run(audio, 0, 0);
        for (uint32_t c = 0; c < channels; ++c) {
          for (float sample : audio[c]) ASSERT_TRUE(std::isfinite(sample)) << rate << " " << channels;
        }
        EXPECT_EQ(audio[channels], extra);
        // Fewer nodes than channels: those given are processed, nothing more.
        Channels fewer(1, Noise(480, 0.5, 3));
        process.Run(fewer, 0, 480);
        for (float sample : fewer[0]) ASSERT_TRUE(std::isfinite(sample));
      }
    }
    // Separate input and output lists: the output gets what processing in
    // place gives, and the input stays as it was.
    Veltech inPlace(techId), apart(techId);
    for (Veltech* process : {&inPlace, &apart}) {
      process->Set("Gain-Level", -600);
      process->Set("Widener-Width", 50);
      ASSERT_TRUE(process->Init(2, 48000));
    }
    const Channels input{Noise(480, 0.5, 1), Noise(480, 0.5, 2)};
    Channels expected = input, source = input, target(2, std::vector<float>(480, 0.0f));
    inPlace.Run(expected, 0, 480);
    ZORChannelNode in[2] = {{source[0].data(), 0, 0, &in[1]}, {source[1].data(), 1, 0, nullptr}};
    ZORChannelNode out[2] = {{target[0].data(), 0, 0, &out[1]}, {target[1].data(), 1, 0, nullptr}};
    apart.Table().Process(apart.Get(), in, out, 480, nullptr);
    EXPECT_EQ(source, input);
    EXPECT_EQ(target, expected);
  }
}
