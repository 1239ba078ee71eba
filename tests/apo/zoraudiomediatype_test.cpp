#include "apo/zoraudiomediatype.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "apo/zoraporegproperties.h"
#include "engine/zortestmediatype.h"

namespace {

IAudioMediaType* Make(const UNCOMPRESSEDAUDIOFORMAT& format) {
  IAudioMediaType* type = nullptr;
  EXPECT_EQ(ZORAudioMediaType::Create(&format, &type), S_OK);
  return type;
}

TEST(AudioMediaTypeTest, WaveFormatFollowsTheUncompressedOne) {
  struct Case {
    UNCOMPRESSEDAUDIOFORMAT format;
    DWORD rate;
    WORD blockAlign;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Case cases[] = {
      {ZORTestMediaType::Float(8, 44100.4f), 44100, 32},
      {ZORTestMediaType::Float(2, -5), 0, 8},
      {ZORTestMediaType::Float(2, nan), 0, 8},
      {ZORTestMediaType::Float(2, 1e20f), 0xFFFFFFFF, 8},
      {ZORTestMediaType::Float(0x10000, 48000), 48000, 0xFFFF},
  };
  for (const Case& c : cases) {
    IAudioMediaType* type = Make(c.format);
    const auto* wave = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(type->GetAudioFormat());
    EXPECT_EQ(wave->Format.wFormatTag, 0xFFFE);
    EXPECT_EQ(wave->Format.nSamplesPerSec, c.rate);
    EXPECT_EQ(wave->Format.nBlockAlign, c.blockAlign);
    EXPECT_TRUE(IsEqualGUID(wave->SubFormat, kSubtypeIeeeFloat));
    UNCOMPRESSEDAUDIOFORMAT back{};
    EXPECT_EQ(type->GetUncompressedAudioFormat(&back), S_OK);
    EXPECT_EQ(std::memcmp(&back, &c.format, sizeof(back)), 0);
    type->Release();
  }
}

}  // namespace
