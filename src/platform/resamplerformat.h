#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zor::os {

// The format block that describes a stream to the Windows audio resampler:
// a WAVEFORMATEXTENSIBLE of 40 bytes, little-endian, laid out as
//
//   offset size  field
//        0    2  wFormatTag       3 (IEEE float) for 1-2 channels,
//                                 0xFFFE (extensible) for more
//        2    2  nChannels
//        4    4  nSamplesPerSec
//        8    4  nAvgBytesPerSec  nBlockAlign x rate
//       12    2  nBlockAlign      channels x 4
//       14    2  wBitsPerSample   32
//       16    2  cbSize           0, or 22 when extensible
//       18    2  wValidBitsPerSample  32 when extensible, else 0
//       20    4  dwChannelMask    extensible only: 63 (5.1) for 3-6
//                                 channels, 255 (7.1) for more
//       24   16  SubFormat        extensible only: the IEEE float
//                                 sub-format {00000003-0000-0010-8000-00AA00389B71}
//
// Bytes that a plain float format doesn't use stay 0. Built without Windows
// headers so that every build can pin it byte for byte. Any thread.
inline constexpr size_t kResamplerFormatBlockBytes = 40;
using ResamplerFormatBlock = std::array<uint8_t, kResamplerFormatBlockBytes>;

ResamplerFormatBlock MakeResamplerFormatBlock(uint32_t rate, uint32_t channels);

}  // namespace zor::os
