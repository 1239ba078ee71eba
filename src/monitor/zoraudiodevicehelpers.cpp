#include "monitor/zoraudiodevicehelpers.h"

namespace {

constexpr uint32_t kFormFactorMicrophone = 4;
constexpr uint32_t kFormFactorHeadset = 5;
constexpr uint32_t kFormFactorHandset = 6;

bool ReadProperty(IMMDevice* device, const PROPERTYKEY& key, ZORPropVariant& value) {
  if (!device) return false;
  ZORComPtr<IPropertyStore> store;
  if (FAILED(device->OpenPropertyStore(STGM_READ, store.Put())) || !store) return false;
  return SUCCEEDED(store->GetValue(key, value.Put()));
}

}  // namespace

bool ZORAudioDeviceFormFactor(IMMDevice* device, uint32_t& formFactor) {
  ZORPropVariant value;
  if (!ReadProperty(device, kPKEY_AudioEndpoint_FormFactor, value) || value.Get().vt != VT_UI4) return false;
  formFactor = value.Get().ulVal;
  return true;
}

std::u16string ZORAudioDeviceFriendlyName(IMMDevice* device) {
  ZORPropVariant value;
  if (!ReadProperty(device, PKEY_Device_FriendlyName, value) || value.Get().vt != VT_LPWSTR ||
      !value.Get().pwszVal) {
    return {};
  }
  return zor::com::FromComText(value.Get().pwszVal);
}

bool ZORAudioDefaultCommunicationsCapture(std::u16string& name, bool& isVoiceDevice) {
  ZORComPtr<IMMDeviceEnumerator> enumerator;
  ZORComPtr<IMMDevice> device;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              enumerator.PutVoid())) ||
      FAILED(enumerator->GetDefaultAudioEndpoint(eCapture, eCommunications, device.Put())) || !device) {
    return false;
  }
  name = ZORAudioDeviceFriendlyName(device.Get());
  uint32_t formFactor = 0;
  isVoiceDevice = ZORAudioDeviceFormFactor(device.Get(), formFactor) &&
                  (formFactor == kFormFactorMicrophone || formFactor == kFormFactorHeadset ||
                   formFactor == kFormFactorHandset);
  return true;
}
