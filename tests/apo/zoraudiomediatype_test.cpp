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

TEST(AudioMediaTypeTest, CompressionEqualityAndPointers) {
  UNCOMPRESSEDAUDIOFORMAT other = ZORTestMediaType::Float(2, 48000);
  other.guidFormatType = IID_IUnknown;  // any subtype not PCM or float
  IAudioMediaType* a = Make(ZORTestMediaType::Float(2, 48000));
  IAudioMediaType* b = Make(ZORTestMediaType::Float(2, 44100));
  IAudioMediaType* c = Make(other);
  IAudioMediaType* n = Make(ZORTestMediaType::Float(2, std::numeric_limits<float>::quiet_NaN()));
  BOOL compressed = 7;
  EXPECT_EQ(a->IsCompressedFormat(&compressed), S_OK);
  EXPECT_EQ(compressed, 0);
  EXPECT_EQ(c->IsCompressedFormat(&compressed), S_OK);
  EXPECT_EQ(compressed, 1);

  DWORD flags = 0;
  EXPECT_EQ(a->IsEqual(a, &flags), S_OK);
  EXPECT_EQ(a->IsEqual(b, &flags), S_FALSE);
  EXPECT_EQ(flags, AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES);
  EXPECT_EQ(a->IsEqual(c, &flags), S_FALSE);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(n->IsEqual(n, &flags), S_FALSE);  // a NaN rate equals nothing

  EXPECT_EQ(a->IsCompressedFormat(nullptr), E_POINTER);
  EXPECT_EQ(a->IsEqual(nullptr, &flags), E_POINTER);
  EXPECT_EQ(a->GetUncompressedAudioFormat(nullptr), E_POINTER);
  for (IAudioMediaType* type : {a, b, c, n}) type->Release();
  EXPECT_EQ(ZORAudioMediaType::Create(nullptr, &a), E_POINTER);
  EXPECT_EQ(a, nullptr);
}

}  // namespace
