// The laws veltech's processes keep on audio, each checked over seeded random
// settings: gain exact in dB, peq against the cookbook designs, glides without
// steps, the limiter's ceiling, the stereo processes' invariants, any shape.
#include <gtest/gtest.h>

#include <complex>
#include <limits>
#include <random>

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
constexpr uint32_t kSeed = 20261123;

enum Type { kPeak, kLowShelf, kHighShelf, kLowPass, kHighPass, kNotch };
struct Band {
  int type;
  double frequency, gainDb, q;
};

// A cookbook section's magnitude at `f`, from its analogue prototype with
// s = j tan(w/2) / tan(w0/2); not from the module's digital formulas.
double CookbookMagnitude(const Band& band, double f, double rate) {
  using Complex = std::complex<double>;
  const Complex s(0.0, std::tan(kPi * f / rate) / std::tan(kPi * band.frequency / rate));
  const double a = std::pow(10.0, band.gainDb / 40.0);
  const double q = band.q;
  const double r = std::sqrt(a) / q;
  switch (band.type) {
    case kPeak: return std::abs((s * s + s * (a / q) + 1.0) / (s * s + s / (a * q) + 1.0));
    case kLowShelf: return std::abs(a * (s * s + r * s + a) / (a * s * s + r * s + 1.0));
    case kHighShelf: return std::abs(a * (a * s * s + r * s + 1.0) / (s * s + r * s + a));
    case kLowPass: return std::abs(1.0 / (s * s + s / q + 1.0));
    case kHighPass: return std::abs(s * s / (s * s + s / q + 1.0));
    default: return std::abs((s * s + 1.0) / (s * s + s / q + 1.0));
  }
}

void SetBand(Veltech& peq, int index, const Band& band) {
  const std::string prefix = "PEQ-Band" + std::to_string(index) + " ";
  ASSERT_TRUE(peq.Set((prefix + "Enable").c_str(), 1));
  ASSERT_TRUE(peq.Set((prefix + "Type").c_str(), band.type));
  ASSERT_TRUE(peq.Set((prefix + "Frequency").c_str(), static_cast<int32_t>(band.frequency)));
  ASSERT_TRUE(peq.Set((prefix + "Gain").c_str(), static_cast<int32_t>(std::lround(band.gainDb * 100))));
  ASSERT_TRUE(peq.Set((prefix + "Q").c_str(), static_cast<int32_t>(std::lround(band.q * 100))));
}

// The gain in dB at `f` (whole Hz), over one second after a quarter second of settling.
double MeasuredGainDb(Veltech& process, double f, uint32_t rate) {
  Channels audio{Sine(f, 0.05, rate, rate + rate / 4)};
  process.RunAll(audio, 480);
  return ToDecibels(AmplitudeAt(audio[0], rate / 4, rate, f, rate) / 0.05);
}

}  // namespace

TEST(VeltechGain, LevelIsExactInDecibelsAndChangesGlideInAStraightLine) {
  std::mt19937 random(kSeed);
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  const uint32_t rate = 48000;
  const auto glideFrames = static_cast<size_t>(kGlideSeconds * rate);
  const double rounding = std::numeric_limits<float>::epsilon();
  for (int round = 0; round < 20; ++round) {
    const int32_t from = std::uniform_int_distribution<int32_t>(-12000, 2400)(random);
    const int32_t to = std::uniform_int_distribution<int32_t>(-12000, 2400)(random);
    SCOPED_TRACE(testing::Message() << from << " -> " << to);
    Veltech gain("gain");
    ASSERT_TRUE(gain.Set("Gain-Level", from));
    ASSERT_TRUE(gain.Init(2, rate));
    // In force from the first frame, without a glide from 0 dB.
    Channels audio{std::vector<float>(4800, 0.5f), std::vector<float>(4800, -0.25f)};
    gain.Run(audio, 0, 480);
    const double start = std::pow(10.0, from / 2000.0), end = std::pow(10.0, to / 2000.0);
    EXPECT_FLOAT_EQ(audio[1][479], static_cast<float>(-0.25 * start));
    ASSERT_TRUE(gain.Set("Gain-Level", to));
    for (size_t offset = 480; offset < 4800; offset += 480) gain.Run(audio, offset, 480);
    // A straight line of 20 ms, then the level exactly.
    const double step = 0.5 * std::fabs(start - end) / glideFrames + rounding * std::max(start, end);
    EXPECT_LE(LargestStep(audio[0], 480), step);
    EXPECT_FLOAT_EQ(audio[0][480 + glideFrames], static_cast<float>(0.5 * end));
    EXPECT_FLOAT_EQ(audio[1][4799], static_cast<float>(-0.25 * end));
    if (round > 0) continue;
    // Mute glides to silence and stays there.
    ASSERT_TRUE(gain.SetText("Gain-Mute", "Enabled"));
    Channels more{std::vector<float>(2400, 0.5f), std::vector<float>(2400, 0.5f)};
    gain.RunAll(more, 480);
    EXPECT_LE(LargestStep(more[0], 0), 0.5 * end / glideFrames + rounding * end);
    EXPECT_EQ(more[0][glideFrames], 0.0f);
    EXPECT_EQ(more[1][2399], 0.0f);
  }
}

TEST(VeltechPeq, RandomDesignsMeasureAsTheirCookbookSections) {
  std::mt19937 random(kSeed);
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  const uint32_t rates[] = {8000, 44100, 48000, 96000, 192000};
  for (int type = kPeak; type <= kNotch + 1; ++type) {
    const uint32_t rate = rates[random() % 5];
    // Last round: three random bands at once, a preamp and a band switched off.
    const int bandCount = type > kNotch ? 3 : 1;
    std::vector<Band> bands;
    for (int b = 0; b < bandCount; ++b) {
      bands.push_back({type > kNotch ? static_cast<int>(random() % 6) : type,
                       std::round(std::uniform_real_distribution<>(30.0, std::min(0.25 * rate, 16000.0))(random)),
                       std::round(std::uniform_real_distribution<>(-12.0, 12.0)(random) * 100) / 100,
                       std::round(std::uniform_real_distribution<>(0.5, 4.0)(random) * 100) / 100});
    }
    const int32_t preamp = type > kNotch ? -600 : 0;
    Veltech peq("peq");
    for (int b = 0; b < bandCount; ++b) SetBand(peq, b + 1, bands[b]);
    ASSERT_TRUE(peq.Set("PEQ-Preamp", preamp));
    if (type > kNotch) {
      SetBand(peq, 4, {kPeak, 1000, 12.0, 1.0});
      ASSERT_TRUE(peq.Set("PEQ-Band4 Enable", 0));
    }
    ASSERT_TRUE(peq.Init(1, rate));
    const double f0 = bands[0].frequency;
    for (double f : {f0 / 3, f0 * 0.8, f0, f0 * 1.5, f0 * 3}) {
      f = std::round(f);
      if (f >= 0.45 * rate || f < 10) continue;
      double designedDb = preamp / 100.0;
      for (const Band& band : bands) designedDb += ToDecibels(CookbookMagnitude(band, f, rate));
      const double measuredDb = MeasuredGainDb(peq, f, rate);
      SCOPED_TRACE(testing::Message() << "type " << bands[0].type << " f0 " << f0 << " at " << f << " Hz, rate " << rate);
      if (designedDb < -40.0) {
        EXPECT_LT(measuredDb, -40.0);
      } else {
        EXPECT_NEAR(measuredDb, designedDb, 0.1);
      }
    }
  }
}

// Channels filtered together come out as each would alone: no state shared or swapped.
TEST(VeltechPeq, ChannelsFilterAsEachWouldAlone) {
  const Channels input{Noise(4800, 0.5, 1), Noise(4800, 0.5, 2), Noise(4800, 0.5, 3)};
  Veltech together("peq");
  SetBand(together, 1, {kPeak, 500, 9.0, 2.0});
  ASSERT_TRUE(together.Init(3, 48000));
  Channels output = input;
  together.RunAll(output, 480);
  for (size_t c = 0; c < input.size(); ++c) {
    Veltech mono("peq");
    SetBand(mono, 1, {kPeak, 500, 9.0, 2.0});
    ASSERT_TRUE(mono.Init(1, 48000));
    Channels alone{input[c]};
    mono.RunAll(alone, 480);
    for (size_t i = 0; i < alone[0].size(); ++i) ASSERT_NEAR(output[c][i], alone[0][i], 1e-6) << c << " " << i;
  }
}

TEST(VeltechPeq, EveryKindOfChangeGlidesWithoutSteps) {
  const uint32_t rate = 48000;
  const double f = 100.0;
  const std::vector<std::pair<std::string, int32_t>> changes[] = {
      {{"PEQ-Band1 Frequency", 1000}}, {{"PEQ-Band1 Q", 1000}},        {{"PEQ-Band1 Enable", 0}},
      {{"PEQ-Band1 Type", kHighPass}}, {{"PEQ-Band1 Gain", 0}},        {{"PEQ-Preamp", 1200}}};
  for (const auto& change : changes) {
    SCOPED_TRACE(change[0].first);
    Veltech peq("peq");
    SetBand(peq, 1, {kPeak, f, 12.0, 1.0});
    ASSERT_TRUE(peq.Init(1, rate));
    // A cosine, so that the change meets the wave at its crest, where a jump shows most.
    Channels audio{Sine(f, 0.2, rate, rate / 2, kPi / 2)};
    const size_t changeAt = rate / 5;
    for (size_t offset = 0; offset < audio[0].size(); offset += 480) {
      if (offset == changeAt) {
        ASSERT_TRUE(peq.Set(change[0].first.c_str(), change[0].second));
      }
      peq.Run(audio, offset, 480);
    }
    // A sine of amplitude A moves at most A * omega per sample; a 20 ms glide
    // adds at most A over the glide's frames. A step would jump far more.
    double largest = 0.0;
    for (size_t i = changeAt; i < audio[0].size(); ++i) largest = std::max(largest, std::fabs(double{audio[0][i]}));
    const double bound = 1.1 * largest * (2.0 * kPi * f / rate + 1.0 / (kGlideSeconds * rate));
    EXPECT_LE(LargestStep(audio[0], changeAt), bound);
  }
}

TEST(VeltechLimiter, NeverExceedsItsCeilingOnRandomInputAndSettings) {
  std::mt19937 random(kSeed);
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  const uint32_t rates[] = {8000, 22050, 44100, 48000, 96000, 192000};
  for (int round = 0; round < 12; ++round) {
    const uint32_t rate = rates[round % 6];
    const uint32_t channels = 1 + random() % 6;
    const int32_t threshold = std::uniform_int_distribution<int32_t>(-2400, 0)(random);
    const uint32_t block = round % 3 == 0 ? 7 : 1 + random() % 1000;
    SCOPED_TRACE(testing::Message() << rate << " Hz, " << channels << " ch, threshold " << threshold << ", block " << block);
    Veltech limiter("limiter");
    ASSERT_TRUE(limiter.Set("Limiter-Threshold", threshold));
    ASSERT_TRUE(limiter.Set("Limiter-Input Gain", std::uniform_int_distribution<int32_t>(0, 2400)(random)));
    ASSERT_TRUE(limiter.Set("Limiter-Release", 1 + static_cast<int32_t>(random() % 200)));
    ASSERT_TRUE(limiter.Init(channels, rate));
    EXPECT_EQ(limiter.Table().GetBlockSize(limiter.Get()), 256u);
    EXPECT_EQ(limiter.Table().GetLatency(limiter.Get()), static_cast<uint32_t>(std::lround(0.005 * rate)));
    // Noise up to +12 dB, a lone spike per channel, full-scale squares, near silence.
    const size_t frames = rate / 2;
    Channels audio(channels);
    for (uint32_t c = 0; c < channels; ++c) {
      audio[c] = Noise(frames, c == 0 ? 4.0 : 0.3, static_cast<uint32_t>(random()));
      audio[c][frames / 3 + c * 17] = c % 2 == 0 ? 16.0f : -16.0f;
      for (size_t i = frames / 2; i < frames / 2 + rate / 20; ++i) audio[c][i] = (i / 40) % 2 == 0 ? 1.0f : -1.0f;
      for (size_t i = 3 * frames / 4; i < frames; ++i) audio[c][i] *= 1e-3f;
    }
    limiter.RunAll(audio, block);
    const double ceiling = std::pow(10.0, threshold / 2000.0) * (1.0 + 1e-6);
    for (uint32_t c = 0; c < channels; ++c) {
      for (size_t i = 0; i < frames; ++i) ASSERT_LE(std::fabs(audio[c][i]), ceiling) << "channel " << c << " frame " << i;
    }
  }
}

TEST(VeltechLimiter, BelowTheCeilingIsAPureDelayAndRecoversAfterPeaks) {
  const uint32_t rate = 48000;
  Veltech limiter("limiter");
  ASSERT_TRUE(limiter.Set("Limiter-Release", 50));
  ASSERT_TRUE(limiter.Init(2, rate));
  const uint32_t latency = 240;
  const std::vector<float> quiet = Noise(rate, 0.5, 9);
  Channels audio{quiet, quiet};
  for (size_t i = 20000; i < 20100; ++i) audio[1][i] = 8.0f;  // a loud burst on one channel
  limiter.RunAll(audio, 256);
  for (size_t i = 0; i < latency; ++i) ASSERT_EQ(audio[0][i], 0.0f);
  for (size_t i = latency; i < 20000; ++i) ASSERT_EQ(audio[0][i], quiet[i - latency]) << i;
  EXPECT_LE(std::fabs(audio[0][20050 + latency]), std::fabs(quiet[20050]) * std::pow(10.0, -0.05) / 8.0 * 1.001 + 1e-9);
  for (size_t i = 20100 + latency + rate / 2; i < rate; ++i) {
    ASSERT_NEAR(audio[0][i], quiet[i - latency], 1e-3 * std::fabs(quiet[i - latency]) + 1e-9) << i;
  }
  // Blocks that leave out a channel don't let its delay line slip past the ceiling.
  Channels first{Noise(30, 0.01, 3)}, none, after{Noise(400, 0.01, 4), Noise(400, 0.01, 5)};
  Channels loud{Noise(400, 8.0, 1), Noise(400, 8.0, 2)};
  limiter.RunAll(loud, 256);
  limiter.Run(first, 0, 30);
  limiter.Run(none, 0, 5);
  limiter.RunAll(after, 256);
  for (const std::vector<float>& channel : after) {
    for (float sample : channel) ASSERT_LE(std::fabs(sample), std::pow(10.0, -0.05) * (1.0 + 1e-6));
  }
}

TEST(VeltechStereo, WidenerScalesTheSideSignalOnly) {
  const std::vector<float> left = Noise(2048, 0.5, 1), right = Noise(2048, 0.5, 2), centre = Noise(2048, 0.5, 3);
  for (int32_t width : {0, 37, 100, 200}) {
    SCOPED_TRACE(width);
    Veltech widener("widener");
    ASSERT_TRUE(widener.Set("Widener-Width", width));
    ASSERT_TRUE(widener.Init(3, 44100));
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
      ASSERT_EQ(audio[2][i], centre[i]);                  // beyond the pair: untouched
    }
  }
}

TEST(VeltechStereo, CrossfeedKeepsTheCentreAndSpreadsTheBassOfTheSides) {
  const uint32_t rate = 48000;
  Veltech centred("crossfeed");
  ASSERT_TRUE(centred.Init(2, rate));
  const std::vector<float> music = Noise(rate / 4, 0.8, 4);
  Channels audio{music, music};
  centred.RunAll(audio, 480);
  for (size_t i = 0; i < music.size(); ++i) {
    ASSERT_NEAR(audio[0][i], music[i], 1e-6) << i;
    ASSERT_EQ(audio[0][i], audio[1][i]) << i;
  }
  // A tone on one side: in the bass the far ear hears it 4.5 dB down, in the treble hardly.
  for (const double f : {40.0, 10000.0, -40.0}) {  // negative: the tone on the right
    Veltech crossfeed("crossfeed");
    ASSERT_TRUE(crossfeed.Init(2, rate));
    const size_t nearSide = f < 0 ? 1 : 0;  // "near" is a macro on Windows
    Channels tone(2, std::vector<float>(rate + rate / 4, 0.0f));
    tone[nearSide] = Sine(std::fabs(f), 0.5, rate, rate + rate / 4);
    crossfeed.RunAll(tone, 480);
    const double nearDb = ToDecibels(AmplitudeAt(tone[nearSide], rate / 4, rate, std::fabs(f), rate) / 0.5);
    const double farDb = ToDecibels(AmplitudeAt(tone[1 - nearSide], rate / 4, rate, std::fabs(f), rate) / 0.5);
    if (std::fabs(f) < 100.0) {
      EXPECT_NEAR(nearDb - farDb, 4.5, 0.2);
    } else {
      EXPECT_NEAR(nearDb, 0.0, 0.3);
      EXPECT_LT(farDb, -25.0);
    }
  }
  // Switched off, it glides out and then leaves the audio untouched.
  ASSERT_TRUE(centred.SetText("Crossfeed-Enable", "Disabled"));
  const Channels input{Noise(4800, 0.5, 7), Noise(4800, 0.5, 8)};
  Channels off = input;
  centred.RunAll(off, 480);
  for (size_t i = static_cast<size_t>(kGlideSeconds * rate); i < 4800; ++i) {
    ASSERT_EQ(off[0][i], input[0][i]) << i;
    ASSERT_EQ(off[1][i], input[1][i]) << i;
  }
}

TEST(VeltechShapes, EveryProcessTakesAnyShapeAndLeavesWhatIsntItsOwn) {
  for (const char* techId : {"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}) {
    SCOPED_TRACE(techId);
    Veltech unready(techId);
    for (uint32_t rate : {0u, 7999u, 400000u}) EXPECT_FALSE(unready.Init(2, rate));
    Channels audio{Noise(64, 0.5, 1)};
    const Channels before = audio;
    unready.Run(audio, 0, 64);
    EXPECT_EQ(audio, before);  // before a successful Init, audio passes
    for (const auto& [rate, channels] : {std::pair{8000u, 1u}, {11025u, 3u}, {44100u, 2u}, {192000u, 8u}}) {
      Veltech process(techId);
      process.Set("PEQ-Band10 Enable", 1);
      process.Set("PEQ-Band10 Frequency", 24000);  // above half of the lower rates
      process.Set("Widener-Width", 180);
      ASSERT_TRUE(process.Init(channels, rate)) << rate << " " << channels;
      // One node more than the process was made for passes; fewer are processed.
      Channels wide(channels + 1);
      for (uint32_t c = 0; c <= channels; ++c) wide[c] = Noise(rate / 10, 0.9, c + 1);
      const std::vector<float> extra = wide[channels];
      process.RunAll(wide, 480);
      process.Run(wide, 0, 0);
      EXPECT_EQ(wide[channels], extra);
      Channels fewer(1, Noise(480, 0.5, 3));
      process.Run(fewer, 0, 480);
      for (const auto& channel : {wide[0], fewer[0]}) {
        for (float sample : channel) ASSERT_TRUE(std::isfinite(sample)) << rate << " " << channels;
      }
    }
    // Separate input and output lists: the output gets what processing in place gives.
    Veltech inPlace(techId), apart(techId);
    for (Veltech* process : {&inPlace, &apart}) {
      process->Set("Gain-Level", -600);
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
