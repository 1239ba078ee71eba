#pragma once
// Capture on Linux: IAudioClient, IAudioCaptureClient and
// IAudioMeterInformation over an ALSA capture device, which the store
// enumerator's capture endpoints hand out from Activate. On desktops with
// PipeWire or PulseAudio, ALSA's "default" device reaches the sound server.
//
// The endpoint's Properties key names the device and its mix format
// (docs/capture.md):
//   {7A8B74C8-FA66-4460-8542-D6119C59E9D4},16  REG_SZ      ALSA device ("default")
//   {7A8B74C8-FA66-4460-8542-D6119C59E9D4},17  REG_BINARY  mix format record
//                                              (48000 Hz float stereo)

#include <string>

#include "platform/com.h"
#include "platform/waveformatrecord.h"

namespace zor::os {

inline constexpr PROPERTYKEY kPKEY_VelApo_AlsaDevice = {
    {0x7A8B74C8, 0xFA66, 0x4460, {0x85, 0x42, 0xD6, 0x11, 0x9C, 0x59, 0xE9, 0xD4}}, 16};
inline constexpr PROPERTYKEY kPKEY_VelApo_MixFormat = {
    {0x7A8B74C8, 0xFA66, 0x4460, {0x85, 0x42, 0xD6, 0x11, 0x9C, 0x59, 0xE9, 0xD4}}, 17};

struct AlsaCaptureEndpoint {
  std::string device = "default";
  WaveFormatRecord mixFormat{2, 48000, 32, true};
};

// The endpoint's device and mix format from its property store; a missing
// or unreadable value keeps the default.
AlsaCaptureEndpoint AlsaCaptureEndpointOf(IPropertyStore* properties);

// Makes an IAudioClient or IAudioMeterInformation on the endpoint's device;
// E_NOINTERFACE for anything else.
HRESULT CreateAlsaCaptureObject(const AlsaCaptureEndpoint& endpoint, REFIID riid, void** ppv);

// The client's periods, in 100 ns units. The minimum stays above 2 ms, since
// a monitor waits half of it in whole milliseconds.
inline constexpr REFERENCE_TIME kAlsaDefaultPeriod = 100000;  // 10 ms
inline constexpr REFERENCE_TIME kAlsaMinimumPeriod = 30000;   // 3 ms
// The smallest buffer a client gets, whatever it asks for: room for a
// reader that a busy machine delays by many periods.
inline constexpr REFERENCE_TIME kAlsaMinimumBuffer = 1000000;  // 100 ms

}  // namespace zor::os
