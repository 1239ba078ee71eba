#include "apo/zorapoinitblock.h"

#include <cstring>

#include "core/zorlog.h"

namespace {

constexpr GUID kModes[] = {
    {0xC18E2F7E, 0x933D, 0x4965, {0xB7, 0xD1, 0x1E, 0xEF, 0x22, 0x8D, 0x2A, 0xF3}},  // default
    {0x4780004E, 0x7133, 0x41D8, {0x8C, 0x74, 0x66, 0x0D, 0xAD, 0xD2, 0xC0, 0xEE}},  // media
    {0xB26FEB0D, 0xEC94, 0x477C, {0x94, 0x94, 0xD1, 0xAB, 0x8E, 0x75, 0x3F, 0x6E}},  // movie
    {0x9CF2A70B, 0xF377, 0x403B, {0xBD, 0x6B, 0x36, 0x08, 0x63, 0xE0, 0x35, 0x5C}},  // notification
    {0x98951333, 0xB9CD, 0x48B1, {0xA0, 0xA3, 0xFF, 0x40, 0x68, 0x2D, 0x73, 0xF7}},  // communications
};

// Item `index` of the collection, or null: an index past its end is the
// engine's mistake, and the object then goes on without a device.
ZORComPtr<IMMDevice> DeviceAt(IMMDeviceCollection* collection, UINT index) {
  ZORComPtr<IMMDevice> device;
  if (FAILED(collection->Item(index, device.Put()))) device.Reset();
  return device;
}

std::u16string EndpointGuid(IPropertyStore* properties) {
  ZORPropVariant value;
  if (FAILED(properties->GetValue(PKEY_AudioEndpoint_GUID, value.Put()))) return {};
  if (value.Get().vt != VT_LPWSTR || !value.Get().pwszVal) return {};
  return zor::com::FromComText(value.Get().pwszVal);
}

}  // namespace

uint32_t ZORAPOInitBlock::ContentIndex(const GUID& mode) {
  for (uint32_t i = 0; i < 5; ++i) {
    if (IsEqualGUID(mode, kModes[i])) return i;
  }
  return 5;
}

HRESULT ZORAPOInitBlock::Read(UINT32 cbDataSize, const BYTE* pbyData, ZORAPOInitBlock& block) {
  if (cbDataSize < sizeof(APOInitSystemEffects) || !pbyData) return E_INVALIDARG;
  // Copied out rather than cast: the engine's bytes need not be aligned.
  APOInitSystemEffects older;
  std::memcpy(&older, pbyData, sizeof(older));
  if (!older.pAPOSystemEffectsProperties || !older.pDeviceCollection) return E_INVALIDARG;

  block.fxProperties = ZORComPtr<IPropertyStore>(older.pAPOSystemEffectsProperties);
  block.device = DeviceAt(older.pDeviceCollection, 0);
  if (cbDataSize < sizeof(APOInitSystemEffects2)) return S_OK;

  APOInitSystemEffects2 newer;
  std::memcpy(&newer, pbyData, sizeof(newer));
  block.device = DeviceAt(newer.pDeviceCollection, newer.nSoftwareIoDeviceInCollection);
  block.connectorIndex = static_cast<int32_t>(newer.nSoftwareIoConnectorIndex);
  block.processingMode = newer.AudioProcessingMode;
  block.discoveryOnly = newer.InitializeForDiscoveryOnly != 0;
  block.contentIndex = ContentIndex(newer.AudioProcessingMode);
  if (block.discoveryOnly) {
    block.endpointGuid = EndpointGuid(block.fxProperties.Get());
    ZOR_LOGW(u"Endpoint GUID: %ls\n", block.endpointGuid.c_str());
  }
  return S_OK;
}
