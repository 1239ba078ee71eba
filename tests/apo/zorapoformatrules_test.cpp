#include "apo/zorapoformatrules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "engine/zortestmediatype.h"

namespace {

using Family = ZORAPOFormatRules::Family;
using Direction = ZORAPOFormatRules::Direction;
using Faults = ZORTestMediaType::Faults;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

struct NegotiationCase {
  const char* name;
  Family family;
  Direction direction;
  UNCOMPRESSEDAUDIOFORMAT request;
  std::optional<UNCOMPRESSEDAUDIOFORMAT> opposite;
  HRESULT expected;
  Faults requestFaults = {};
  Faults oppositeFaults = {};
};

UNCOMPRESSEDAUDIOFORMAT F(uint32_t channels, float rate, uint32_t bits = 32, uint32_t container = 4) {
  return ZORTestMediaType::Float(channels, rate, bits, container);
}

UNCOMPRESSEDAUDIOFORMAT Pcm(uint32_t channels, float rate) {
  UNCOMPRESSEDAUDIOFORMAT format = F(channels, rate);
  format.guidFormatType = kSubtypePcm;
  return format;
}

const HRESULT kRefused = APOERR_FORMAT_NOT_SUPPORTED;

using C = NegotiationCase;
constexpr Family kRender = Family::Render, kCapture = Family::Capture;
constexpr Direction kIn = Direction::Input, kOut = Direction::Output;
constexpr std::nullopt_t kAny = std::nullopt;

class NegotiationTest : public testing::TestWithParam<NegotiationCase> {};

TEST_P(NegotiationTest, AnswersAndHandsBackTheRightFormat) {
  const NegotiationCase& c = GetParam();
  ZORTestMediaType* request = ZORTestMediaType::Create(c.request, c.requestFaults);
  ZORTestMediaType* opposite = c.opposite ? ZORTestMediaType::Create(*c.opposite, c.oppositeFaults) : nullptr;
  auto* sentinel = reinterpret_cast<IAudioMediaType*>(&request);  // never written on refusal
  IAudioMediaType* supported = sentinel;

  const HRESULT hr = ZORAPOFormatRules::Negotiate(c.family, c.direction, opposite, request, &supported);

  EXPECT_EQ(hr, c.expected);
  if (hr == S_OK) {
    EXPECT_EQ(supported, request);
    EXPECT_EQ(request->References(), 2u);
    supported->Release();
  } else if (hr == S_FALSE) {
    // The request at the opposite's rate, mask and all else kept.
    UNCOMPRESSEDAUDIOFORMAT proposal{};
    ASSERT_EQ(supported->GetUncompressedAudioFormat(&proposal), S_OK);
    UNCOMPRESSEDAUDIOFORMAT wanted = c.request;
    wanted.fFramesPerSecond = c.opposite->fFramesPerSecond;
    EXPECT_EQ(std::memcmp(&proposal, &wanted, sizeof(wanted)), 0);
    supported->Release();
  } else {
    EXPECT_EQ(supported, sentinel);
  }
  request->Release();
  if (opposite) opposite->Release();
}

UNCOMPRESSEDAUDIOFORMAT WithMask(UNCOMPRESSEDAUDIOFORMAT format, DWORD mask) {
  format.dwChannelMask = mask;
  return format;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, NegotiationTest,
    testing::Values(
        C{"StereoSameRate", kRender, kIn, F(2, 48000), F(2, 48000), S_OK},
        C{"RateOnlyDiffersProposesOpposite", kRender, kIn, WithMask(F(2, 96000), 3), F(2, 48000), S_FALSE},
        C{"OutputRateOnlyDiffers", kRender, kOut, F(6, 44100), F(2, 48000), S_FALSE},
        C{"TopRatePasses", kRender, kIn, F(2, 192000), kAny, S_OK},
        C{"AboveTopRateFails", kRender, kIn, F(2, 192000.5f), kAny, kRefused},
        C{"RateTestReadsTheRequest", kRender, kIn, F(2, 384000), F(2, 48000), kRefused},
        C{"ProposalRateUnchecked", kRender, kIn, F(2, 48000), F(2, 384000), S_FALSE},
        C{"NaNRateFails", kRender, kIn, F(2, kNaN), kAny, kRefused},
        C{"ValidBits24Fails", kRender, kIn, F(2, 48000, 24, 4), kAny, kRefused},
        C{"ContainerIgnored", kRender, kIn, F(2, 48000, 32, 3), kAny, S_OK},
        C{"IntegerRefused", kRender, kIn, Pcm(2, 48000), kAny, kRefused},
        C{"EightOutAgainstTwoIn", kRender, kOut, F(8, 48000), F(2, 48000), S_OK},
        C{"FiveChannelOppositeFails", kRender, kIn, F(2, 48000), F(5, 48000), kRefused},
        C{"CaptureZeroPasses", kCapture, kOut, F(0, 48000), F(2, 48000), S_OK},
        C{"CaptureRateDiffers", kCapture, kOut, F(1, 16000), F(2, 48000), S_FALSE},
        C{"CompressedRequest", kRender, kIn, F(2, 48000), kAny, kRefused, Faults{.compressed = 1}},
        C{"CompressedOpposite", kRender, kOut, F(2, 48000), F(2, 48000), kRefused, Faults{}, Faults{.compressed = 1}},
        C{"RequestQueryFails", kRender, kIn, F(2, 48000), kAny, E_FAIL, Faults{.compressedQuery = E_FAIL}},
        C{"RequestFormatFails", kCapture, kIn, F(2, 48000), F(2, 48000), E_FAIL, Faults{.uncompressedQuery = E_FAIL}},
        C{"OppositeFormatFails", kRender, kIn, F(2, 48000), F(2, 48000), E_FAIL, Faults{}, Faults{.uncompressedQuery = E_FAIL}}),
    [](const testing::TestParamInfo<NegotiationCase>& row) { return std::string(row.param.name); });

TEST(NegotiationTest, NullsAreRefused) {
  ZORTestMediaType* request = ZORTestMediaType::Create(F(2, 44100));
  IAudioMediaType* supported = nullptr;
  EXPECT_EQ(ZORAPOFormatRules::Negotiate(Family::Render, Direction::Input, nullptr, nullptr, &supported), E_POINTER);
  EXPECT_EQ(ZORAPOFormatRules::Negotiate(Family::Render, Direction::Input, nullptr, request, nullptr), E_POINTER);
  EXPECT_EQ(request->Release(), 0u);
}

// The channel rule as a law: the render family takes exactly the even
// counts 2 to 8, the capture class exactly 0 to 2, over the whole range.
TEST(FormatRulesTest, ChannelLawHoldsOverTheRange) {
  for (uint64_t n = 0; n <= 0xFFFFFFFFull; n = n < 64 ? n + 1 : n * 3 + 1) {
    const auto channels = static_cast<uint32_t>(n);
    const bool render = ZORAPOFormatRules::IsFormatAcceptable(Family::Render, F(channels, 48000));
    const bool capture = ZORAPOFormatRules::IsFormatAcceptable(Family::Capture, F(channels, 48000));
    EXPECT_EQ(render, channels >= 2 && channels <= 8 && channels % 2 == 0) << channels;
    EXPECT_EQ(capture, channels <= 2) << channels;
  }
}

struct DefaultFormatCase {
  UNCOMPRESSEDAUDIOFORMAT in;
  UNCOMPRESSEDAUDIOFORMAT out;
  bool changed;
};

TEST(FormatRulesTest, ValidateDefaultAPOFormatForcesTheLegalRange) {
  const DefaultFormatCase cases[] = {
      {F(2, 48000), F(2, 48000), false},
      {F(0, 48000), F(1, 48000), true},       {F(5000, 48000), F(4096, 48000), true},
      {F(2, 48000, 24, 3), F(2, 48000), true}, {F(2, 5), F(2, 10), true},
      {F(2, kNaN), F(2, 10), true},            {F(2, 500000), F(2, 384000), true},
      {Pcm(2, 48000), F(2, 48000), true},
  };
  for (const DefaultFormatCase& c : cases) {
    UNCOMPRESSEDAUDIOFORMAT format = c.in;
    EXPECT_EQ(ZORAPOFormatRules::ValidateDefaultAPOFormat(format), c.changed);
    EXPECT_EQ(std::memcmp(&format, &c.out, sizeof(format)), 0) << c.in.dwSamplesPerFrame;
  }
}

TEST(FormatRulesTest, CacheCopiesOnlyWhatTheTagPromises) {
  constexpr unsigned char kOld = 0x5A;
  for (const bool plain : {false, true}) {
    ZORTestMediaType* type = ZORTestMediaType::Create(WithMask(F(6, 48000), 0x3F), Faults{.plainWaveFormat = plain});
    WAVEFORMATEXTENSIBLE cache;
    std::memset(&cache, kOld, sizeof(cache));
    ZORAPOFormatRules::CacheWaveFormat(type, cache);
    const WAVEFORMATEX* wave = type->GetAudioFormat();
    const std::size_t copied = plain ? sizeof(WAVEFORMATEX) : sizeof(WAVEFORMATEXTENSIBLE);
    EXPECT_EQ(std::memcmp(&cache, wave, copied), 0);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&cache);
    for (std::size_t i = copied; i < sizeof(cache); ++i) EXPECT_EQ(bytes[i], kOld) << i;
    type->Release();
  }
  ZORTestMediaType* broken = ZORTestMediaType::Create(F(2, 48000), Faults{.nullWaveFormat = true});
  WAVEFORMATEXTENSIBLE cache{};
  ZORAPOFormatRules::CacheWaveFormat(broken, cache);
  ZORAPOFormatRules::CacheWaveFormat(nullptr, cache);
  EXPECT_EQ(cache.Format.wFormatTag, 0);
  broken->Release();
}

}  // namespace
