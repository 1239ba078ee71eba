#pragma once

#include <windows.h>
#include <mediaobj.h>

#include <cstdint>

namespace zor::os {

// The media type that the Windows audio resampler is given on each side:
// major type audio, subtype PCM, fixed-size samples of channels x 4 bytes,
// no temporal compression, format type WAVEFORMATEX with the 40-byte block
// of MakeResamplerFormatBlock. The subtype says PCM while the block says
// float; the block is what the resampler goes by, and the pair is the one
// it has always been given. `type` must be free (zeroed or freed); on
// success release it with FreeResamplerMediaType.
HRESULT InitResamplerMediaType(DMO_MEDIA_TYPE& type, uint32_t rate, uint32_t channels);
void FreeResamplerMediaType(DMO_MEDIA_TYPE& type);

}  // namespace zor::os
