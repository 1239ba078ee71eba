// The Windows glue of the resampler: the media buffer the system's
// resampler reads and writes, and the media type it is given.
#include "platform/win32/cmediabuffer.h"

#include <gtest/gtest.h>

#include <mmreg.h>
#include <ks.h>
#include <ksmedia.h>

#include <cstring>

#include "platform/resampler.h"
#include "platform/resamplerformat.h"
#include "platform/win32/resamplermediatype.h"

namespace {

constexpr GUID kMediaTypeAudio = {
    0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

}  // namespace

// Arguments, the length within the maximum (re-armed too, never while
// another holds it), and the interfaces it answers.
TEST(CMediaBuffer, KeepsItsLengthWithinTheMaximumAndAnswersOnlyItsInterfaces) {
  EXPECT_EQ(CMediaBuffer::Create(16, nullptr), E_POINTER);
  IMediaBuffer* buffer = nullptr;
  ASSERT_EQ(CMediaBuffer::Create(0, &buffer), S_OK);
  BYTE* bytes = nullptr;
  EXPECT_EQ(buffer->GetBufferAndLength(&bytes, nullptr), S_OK);
  EXPECT_NE(bytes, nullptr) << "an empty buffer still has bytes to point at";
  EXPECT_EQ(buffer->SetLength(1), E_INVALIDARG);
  EXPECT_EQ(buffer->Release(), 0u);

  ASSERT_EQ(CMediaBuffer::Create(8, &buffer), S_OK);
  DWORD length = 99;
  EXPECT_EQ(buffer->GetMaxLength(nullptr), E_POINTER);
  EXPECT_EQ(buffer->GetBufferAndLength(nullptr, nullptr), E_POINTER);
  ASSERT_EQ(buffer->GetBufferAndLength(nullptr, &length), S_OK);
  EXPECT_EQ(length, 0u) << "a new buffer is empty";
  EXPECT_EQ(buffer->SetLength(9), E_INVALIDARG);
  EXPECT_EQ(buffer->SetLength(8), S_OK);
  ASSERT_EQ(buffer->GetBufferAndLength(&bytes, &length), S_OK);
  EXPECT_EQ(length, 8u);
  std::memset(bytes, 0xAB, 8);

  auto* concrete = static_cast<CMediaBuffer*>(buffer);
  EXPECT_TRUE(concrete->Rearm(4));
  EXPECT_EQ(buffer->SetLength(5), E_INVALIDARG);
  EXPECT_FALSE(concrete->Rearm(9)) << "larger than owned";
  buffer->AddRef();  // as a media object may hold its input
  EXPECT_FALSE(concrete->Rearm(4));
  buffer->Release();

  void* object = nullptr;
  EXPECT_EQ(buffer->QueryInterface(__uuidof(IMediaObject), &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(buffer->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(buffer->Release(), 0u);
}

// The format block itself is pinned byte for byte elsewhere; here it is read through the platform's own structures.
TEST(ResamplerMediaType, DescribesFloatAudioInTheThreeChannelLayouts) {
  for (uint32_t channels : {1u, 2u, 3u, 7u}) {
    DMO_MEDIA_TYPE type{};
    ASSERT_EQ(zor::os::InitResamplerMediaType(type, 44100, channels), S_OK);
    EXPECT_TRUE(IsEqualGUID(type.majortype, kMediaTypeAudio));
    EXPECT_EQ(type.lSampleSize, channels * 4);
    ASSERT_EQ(type.cbFormat, 40u);
    const zor::os::ResamplerFormatBlock block = zor::os::MakeResamplerFormatBlock(44100, channels);
    EXPECT_EQ(std::memcmp(type.pbFormat, block.data(), block.size()), 0);
    zor::os::FreeResamplerMediaType(type);
  }
}

TEST(Resampler, ConvertsOnWindowsWithOrWithoutTheSystemsObject) {
  // Wine's resampler refuses every format or is missing; either way the stream is converted.
  const HRESULT com = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  {
    zor::os::Resampler resampler;
    ASSERT_TRUE(resampler.SetFormat(44100, 48000, 2));
    EXPECT_NE(resampler.GetEngine(), zor::os::Resampler::Engine::kNone);
    std::vector<float> input(441 * 2, 0.25f);
    std::vector<float> output(490 * 2);
    uint32_t total = 0;
    for (int block = 0; block < 10; ++block) {
      uint32_t in = static_cast<uint32_t>(input.size());
      uint32_t out = static_cast<uint32_t>(output.size());
      ASSERT_TRUE(resampler.Convert(input.data(), in, output.data(), out));
      total += out / 2;
    }
    EXPECT_NEAR(total, 4800, 100);
    EXPECT_FALSE(resampler.SetFormat(44100, 48000, 0));
    EXPECT_EQ(resampler.GetEngine(), zor::os::Resampler::Engine::kNone);
  }
  if (SUCCEEDED(com)) {
    ::CoUninitialize();
  }
}
