#pragma once

#include <cstdint>
#include <string>

#include "platform/com.h"

// Facts about a capture device that a feature needs before it listens.

// The device's form factor (4 microphone, 5 headset, 6 handset, ...);
// false when the device has none that reads as a number.
bool ZORAudioDeviceFormFactor(IMMDevice* device, uint32_t& formFactor);

// The device's friendly name; empty when it has none.
std::u16string ZORAudioDeviceFriendlyName(IMMDevice* device);

// The friendly name of the default capture device for communications, and
// whether it is a microphone, headset or handset. False when there is none.
bool ZORAudioDefaultCommunicationsCapture(std::u16string& name, bool& isVoiceDevice);
