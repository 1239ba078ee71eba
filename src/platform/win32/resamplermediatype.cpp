#include "platform/win32/resamplermediatype.h"

// MinGW's declarations of these C functions lack the C linkage.
extern "C" {
#include <dmort.h>
}

#include <cstring>

#include "platform/resamplerformat.h"

namespace zor::os {
namespace {

constexpr GUID kMediaTypeAudio = {
    0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr GUID kSubtypePcm = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr GUID kFormatWaveFormatEx = {
    0x05589F81, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};

}  // namespace

HRESULT InitResamplerMediaType(DMO_MEDIA_TYPE& type, uint32_t rate, uint32_t channels) {
  const HRESULT result = ::MoInitMediaType(&type, kResamplerFormatBlockBytes);
  if (FAILED(result)) {
    return result;
  }
  type.majortype = kMediaTypeAudio;
  type.subtype = kSubtypePcm;
  type.bFixedSizeSamples = TRUE;
  type.bTemporalCompression = FALSE;
  type.lSampleSize = channels * 4;
  type.formattype = kFormatWaveFormatEx;
  type.pUnk = nullptr;
  const ResamplerFormatBlock block = MakeResamplerFormatBlock(rate, channels);
  std::memcpy(type.pbFormat, block.data(), block.size());
  return S_OK;
}

void FreeResamplerMediaType(DMO_MEDIA_TYPE& type) { ::MoFreeMediaType(&type); }

}  // namespace zor::os
