#pragma once

#include <cstdint>
#include <string>

#include "platform/apotypes.h"

// What a render object takes from the engine's init block: the FX property
// store, the endpoint device, and with the newer block the connector, the
// signal processing mode and whether the object only lists its effects.
// The engine tells the blocks apart by size alone: 56 to 87 bytes is the
// older block, 88 and up the newer. Read on the configuration thread.
struct ZORAPOInitBlock {
  ZORComPtr<IPropertyStore> fxProperties;
  ZORComPtr<IMMDevice> device;  // null when the collection had none to give
  int32_t connectorIndex = -1;
  GUID processingMode = GUID_NULL;
  uint32_t contentIndex = 0;
  bool discoveryOnly = false;
  // Only a discovery-only object learns its endpoint, so only it can list
  // effects.
  std::u16string endpointGuid;

  // Fills `block` from the engine's bytes. E_INVALIDARG for fewer than 56
  // bytes, no data, or no FX properties or device collection in the block;
  // `block` is then left as it was.
  static HRESULT Read(UINT32 cbDataSize, const BYTE* pbyData, ZORAPOInitBlock& block);

  // The signal processing mode that wants no effects at all.
  static constexpr GUID kRawMode = {0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};

  // The mode's place among default, media, movie, notification and
  // communications; 5 for anything else, raw mode among them.
  static uint32_t ContentIndex(const GUID& mode);
};
