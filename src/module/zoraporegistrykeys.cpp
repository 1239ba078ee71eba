#include "module/zoraporegistrykeys.h"

#include <algorithm>
#include <mutex>

#include "module/zorregistrar.h"
#include "platform/event.h"
#include "platform/littleendian.h"

using zor::os::RegKey;
using zor::os::RegStatus;
using zor::os::RegType;

namespace {

// Registration runs in a setup process with few listeners; a plain lock
// keeps the list safe against one being added while another class is
// written.
struct Listeners {
  std::mutex lock;
  std::vector<zor::os::Event*> events;
};

Listeners& TheListeners() {
  static Listeners listeners;
  return listeners;
}

void SignalListeners() {
  Listeners& listeners = TheListeners();
  std::lock_guard<std::mutex> guard(listeners.lock);
  for (zor::os::Event* event : listeners.events) event->Set();
}

constexpr HRESULT kInvalidData = static_cast<HRESULT>(0x8007000Du);  // ERROR_INVALID_DATA
constexpr HRESULT kMoreData = static_cast<HRESULT>(0x800700EAu);     // ERROR_MORE_DATA

std::u16string TextOf(const WCHAR* field, size_t capacity) {
  std::u16string text;
  for (size_t i = 0; i < capacity && field[i] != 0; ++i) text.push_back(static_cast<char16_t>(field[i]));
  return text;
}

RegStatus WriteText(const RegKey& key, std::u16string_view name, std::u16string_view text) {
  std::vector<uint8_t> bytes;
  bytes.reserve((text.size() + 1) * 2);
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<uint8_t>(unit));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  bytes.push_back(0);
  bytes.push_back(0);
  return key.WriteValue(name, RegType::Sz, bytes);
}

std::u16string InterfaceValueName(uint32_t index) {
  std::u16string digits;
  do {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + index % 10));
    index /= 10;
  } while (index != 0);
  return u"APOInterface" + digits;
}

// One value through the reader's bounds: missing is the store's code, more
// than the buffer holds is ERROR_MORE_DATA.
HRESULT ReadBounded(const RegKey& key, std::u16string_view name, RegType& type, std::vector<uint8_t>& data) {
  const RegStatus status = key.ReadValue(name, type, data);
  if (status != RegStatus::Ok) return ZORHresultFromRegStatus(status);
  if (data.size() > ZORAPORegistryKeys::kReadBufferBytes) return kMoreData;
  return S_OK;
}

HRESULT ReadText(const RegKey& key, std::u16string_view name, std::u16string& text) {
  RegType type = RegType::None;
  std::vector<uint8_t> data;
  const HRESULT hr = ReadBounded(key, name, type, data);
  return FAILED(hr) ? hr : ZORAPORegistryKeys::DecodeText(type, data, text);
}

HRESULT ReadDword(const RegKey& key, std::u16string_view name, uint32_t& number) {
  RegType type = RegType::None;
  std::vector<uint8_t> data;
  const HRESULT hr = ReadBounded(key, name, type, data);
  return FAILED(hr) ? hr : ZORAPORegistryKeys::DecodeDword(type, data, number);
}

HRESULT ReadClass(const RegKey& key, ZORAPORegisteredClass& registered) {
  HRESULT hr = S_OK;
  uint32_t interfaceCount = 0;
  const struct {
    const char16_t* name;
    uint32_t* field;
  } numbers[] = {
      {u"MajorVersion", &registered.majorVersion},
      {u"MinorVersion", &registered.minorVersion},
      {u"Flags", &registered.flags},
      {u"MinInputConnections", &registered.minInputConnections},
      {u"MaxInputConnections", &registered.maxInputConnections},
      {u"MinOutputConnections", &registered.minOutputConnections},
      {u"MaxOutputConnections", &registered.maxOutputConnections},
      {u"MaxInstances", &registered.maxInstances},
      {u"NumAPOInterfaces", &interfaceCount},
  };
  if (FAILED(hr = ReadText(key, u"FriendlyName", registered.friendlyName))) return hr;
  if (FAILED(hr = ReadText(key, u"Copyright", registered.copyright))) return hr;
  for (const auto& number : numbers) {
    if (FAILED(hr = ReadDword(key, number.name, *number.field))) return hr;
  }
  if (interfaceCount > ZORAPORegistryKeys::kMaxInterfaces) return kInvalidData;
  registered.interfaces.assign(interfaceCount, IID{});
  for (uint32_t index = 0; index < interfaceCount; ++index) {
    RegType type = RegType::None;
    std::vector<uint8_t> data;
    if (FAILED(hr = ReadBounded(key, InterfaceValueName(index), type, data))) return hr;
    if (FAILED(hr = ZORAPORegistryKeys::DecodeInterface(type, data, registered.interfaces[index]))) return hr;
  }
  return S_OK;
}

}  // namespace

APO_REG_PROPERTIES ZORAPORegisteredClass::ToRecord() const {
  APO_REG_PROPERTIES record{};
  record.clsid = clsid;
  record.Flags = static_cast<APO_FLAG>(flags);
  const auto copy = [](const std::u16string& text, WCHAR (&field)[256]) {
    const size_t length = std::min<size_t>(text.size(), 255);
    for (size_t i = 0; i < length; ++i) field[i] = static_cast<WCHAR>(text[i]);
    field[length] = 0;
  };
  copy(friendlyName, record.szFriendlyName);
  copy(copyright, record.szCopyrightInfo);
  record.u32MajorVersion = majorVersion;
  record.u32MinorVersion = minorVersion;
  record.u32MinInputConnections = minInputConnections;
  record.u32MaxInputConnections = maxInputConnections;
  record.u32MinOutputConnections = minOutputConnections;
  record.u32MaxOutputConnections = maxOutputConnections;
  record.u32MaxInstances = maxInstances;
  record.u32NumAPOInterfaces = static_cast<UINT32>(interfaces.size());
  if (!interfaces.empty()) record.iidAPOInterfaceList[0] = interfaces[0];
  return record;
}

ZORAPORegistryKeys::ZORAPORegistryKeys(std::u16string classesRootPath)
    : m_path(std::move(classesRootPath)) {
  if (!m_path.empty()) m_path += u'\\';
  m_path += kKeyPath;
}

HRESULT ZORAPORegistryKeys::WriteAll(std::span<const APO_REG_PROPERTIES* const> records) const {
  for (const APO_REG_PROPERTIES* record : records) {
    const HRESULT hr = record != nullptr ? Write(*record) : E_POINTER;
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT ZORAPORegistryKeys::Write(const APO_REG_PROPERTIES& record) const {
  RegKey parent;
  RegStatus status = RegKey::Create(m_path, zor::os::kKeyAllAccess, parent);
  if (status != RegStatus::Ok) return ZORHresultFromRegStatus(status);
  const std::u16string name = zor::com::GuidText(record.clsid);
  status = parent.DeleteSubKeyTree(name);
  if (status != RegStatus::Ok && status != RegStatus::NotFound) return ZORHresultFromRegStatus(status);
  RegKey key;
  if ((status = parent.CreateSubKey(name, zor::os::kKeyAllAccess, key)) != RegStatus::Ok) {
    return ZORHresultFromRegStatus(status);
  }
  const struct {
    const char16_t* name;
    uint32_t number;
  } numbers[] = {
      {u"MajorVersion", record.u32MajorVersion},
      {u"MinorVersion", record.u32MinorVersion},
      {u"Flags", static_cast<uint32_t>(record.Flags)},
      {u"MinInputConnections", record.u32MinInputConnections},
      {u"MaxInputConnections", record.u32MaxInputConnections},
      {u"MinOutputConnections", record.u32MinOutputConnections},
      {u"MaxOutputConnections", record.u32MaxOutputConnections},
      {u"MaxInstances", record.u32MaxInstances},
      {u"NumAPOInterfaces", record.u32NumAPOInterfaces},
  };
  if ((status = WriteText(key, u"FriendlyName", TextOf(record.szFriendlyName, 256))) != RegStatus::Ok ||
      (status = WriteText(key, u"Copyright", TextOf(record.szCopyrightInfo, 256))) != RegStatus::Ok) {
    return ZORHresultFromRegStatus(status);
  }
  for (const auto& number : numbers) {
    if ((status = key.WriteDword(number.name, number.number)) != RegStatus::Ok) {
      return ZORHresultFromRegStatus(status);
    }
  }
  // The record's storage holds the first interface; a record that says it
  // has more carries them after it, as the engine lays such records out.
  for (uint32_t index = 0; index < record.u32NumAPOInterfaces; ++index) {
    status = WriteText(key, InterfaceValueName(index), zor::com::GuidText(record.iidAPOInterfaceList[index]));
    if (status != RegStatus::Ok) return ZORHresultFromRegStatus(status);
  }
  SignalListeners();
  return S_OK;
}

HRESULT ZORAPORegistryKeys::Read(const CLSID& clsid, ZORAPORegisteredClass& registered) const {
  RegKey key;
  const RegStatus status = RegKey::Open(m_path + u'\\' + zor::com::GuidText(clsid), zor::os::kKeyRead, key);
  if (status != RegStatus::Ok) return ZORHresultFromRegStatus(status);
  registered = ZORAPORegisteredClass{};
  registered.clsid = clsid;
  return ReadClass(key, registered);
}

HRESULT ZORAPORegistryKeys::ReadAll(std::vector<ZORAPORegisteredClass>& registered) const {
  registered.clear();
  RegKey parent;
  RegStatus status = RegKey::Open(m_path, zor::os::kKeyRead, parent);
  if (status != RegStatus::Ok) return ZORHresultFromRegStatus(status);
  std::u16string name;
  for (uint32_t index = 0; (status = parent.EnumSubKey(index, name)) == RegStatus::Ok; ++index) {
    CLSID clsid{};
    if (name.size() * 2 > kReadBufferBytes || !zor::com::ParseGuidText(name, clsid)) continue;
    RegKey key;
    if ((status = parent.OpenSubKey(name, zor::os::kKeyRead, key)) != RegStatus::Ok) {
      return ZORHresultFromRegStatus(status);
    }
    ZORAPORegisteredClass item;
    item.clsid = clsid;
    const HRESULT hr = ReadClass(key, item);
    if (FAILED(hr)) return hr;
    registered.push_back(std::move(item));
  }
  return status == RegStatus::NoMoreItems ? S_OK : ZORHresultFromRegStatus(status);
}

HRESULT ZORAPORegistryKeys::DecodeText(RegType type, std::span<const uint8_t> data, std::u16string& text) {
  text.clear();
  if ((type != RegType::Sz && type != RegType::ExpandSz) || data.size() % 2 != 0) return kInvalidData;
  if (data.size() > kReadBufferBytes) return kMoreData;
  for (size_t i = 0; i + 1 < data.size(); i += 2) {
    const char16_t unit = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    if (unit == 0) break;
    text.push_back(unit);
  }
  // The buffer keeps room for a terminator, so 511 units is the most.
  if (text.size() > kReadBufferBytes / 2 - 1) return kMoreData;
  return S_OK;
}

HRESULT ZORAPORegistryKeys::DecodeDword(RegType type, std::span<const uint8_t> data, uint32_t& number) {
  if (type != RegType::Dword || data.size() != 4) return kInvalidData;
  number = zor::os::LoadLe32(data.data());
  return S_OK;
}

HRESULT ZORAPORegistryKeys::DecodeInterface(RegType type, std::span<const uint8_t> data, IID& iid) {
  std::u16string text;
  const HRESULT hr = DecodeText(type, data, text);
  if (FAILED(hr)) return hr;
  return zor::com::ParseGuidText(text, iid) ? S_OK : kInvalidData;
}

void ZORAPORegistryKeys::AddListener(zor::os::Event* event) {
  Listeners& listeners = TheListeners();
  std::lock_guard<std::mutex> guard(listeners.lock);
  if (event != nullptr) listeners.events.push_back(event);
}

void ZORAPORegistryKeys::RemoveListener(zor::os::Event* event) {
  Listeners& listeners = TheListeners();
  std::lock_guard<std::mutex> guard(listeners.lock);
  std::erase(listeners.events, event);
}
