#include "values/zorpropertysetregistry.h"

#include "core/zorlog.h"
#include "core/zorscopedlock.h"
#include "platform/event.h"

using zor::os::RegStatus;
using zor::os::RegType;

namespace {

void PutDword(std::vector<uint8_t>& data, uint32_t number) {
  data = {static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8),
          static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 24)};
}

uint32_t Unsigned(const uint8_t* bytes, size_t size) {
  uint32_t number = 0;
  for (size_t i = 0; i < size; ++i) number |= static_cast<uint32_t>(bytes[i]) << (8 * i);
  return number;
}

// UTF-16LE units of `data`, whose last `terminators` units must be NUL and
// whose size must be even; the text is the first string in it.
bool FirstString(std::span<const uint8_t> data, size_t terminators, std::u16string& text) {
  if (data.size() % 2 != 0 || data.size() < 2 * terminators) return false;
  const size_t units = data.size() / 2;
  for (size_t i = units - terminators; i < units; ++i) {
    if (data[2 * i] != 0 || data[2 * i + 1] != 0) return false;
  }
  text.clear();
  for (size_t i = 0; i < units; ++i) {
    const char16_t unit = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
    if (unit == u'\0') break;
    text.push_back(unit);
  }
  return true;
}

}  // namespace

ZORPropertySetRegistry::ZORPropertySetRegistry() = default;

ZORPropertySetRegistry::~ZORPropertySetRegistry() {
  StopMonitor();
  if (m_bAutoSave && m_pSet != nullptr) m_pSet->RemoveNotify(this);
  m_key.Close();
  m_ownedKey.Close();
}

void ZORPropertySetRegistry::OnPropertyChanged(ZORPropertySet&, const ZORProperty&) {
  if (m_bAutoSave) SaveBinary(nullptr);
}

bool ZORPropertySetRegistry::OnPropertyChanging(ZORPropertySet&, ZORProperty&) { return false; }

void ZORPropertySetRegistry::SetPropertySet(ZORPropertySet* set) {
  if (m_bAutoSave) {
    if (m_pSet != nullptr) m_pSet->RemoveNotify(this);
    if (set != nullptr) set->AddNotify(this);
  }
  m_pSet = set;
}

bool ZORPropertySetRegistry::SetKey(const zor::os::RegKey* key) {
  m_key.Close();
  if (key != nullptr && key->IsOpen()) key->Duplicate(m_key);
  return m_key.IsOpen();
}

const zor::os::RegKey& ZORPropertySetRegistry::GetKey() const { return m_key; }

bool ZORPropertySetRegistry::OpenKey(const zor::os::RegKey& parent) {
  if (parent.OpenSubKey(u"", kOpenKeyAccess, m_ownedKey) != RegStatus::Ok) return false;
  return SetKey(&m_ownedKey);
}

bool ZORPropertySetRegistry::LoadBinary(std::u16string_view valueName, bool merge,
                                        bool overwriteExisting, bool addNew) {
  if (m_pSet == nullptr) return false;
  RegType type = RegType::None;
  uint32_t size = 0;
  if (m_key.QueryValue(valueName, type, size) != RegStatus::Ok || type != RegType::Binary ||
      size == 0) {
    return false;
  }
  std::vector<uint8_t> blob;
  if (m_key.ReadValue(valueName, type, blob) != RegStatus::Ok || type != RegType::Binary ||
      blob.empty()) {
    return false;
  }
  bool result = true;
  if (merge) {
    m_pSet->MergePropertiesBinary(blob, overwriteExisting, addNew);
  } else {
    m_pSet->ClearAllProperties();
    result = m_pSet->SetAllPropertiesBinary(blob);
  }
  if (result) Remember(valueName);
  return result;
}

bool ZORPropertySetRegistry::SaveBinary(const char16_t* valueName) {
  if (m_pSet == nullptr) return false;
  const std::u16string name = valueName != nullptr ? std::u16string(valueName) : Remembered();
  std::vector<uint8_t> blob;
  if (!m_pSet->GetAllPropertiesBinary(blob)) return false;
  if (blob.empty()) {
    ZOR_LOG("GetAllPropertiesBinary returned 0 length.\n");
    return false;
  }
  if (m_key.WriteValue(name, RegType::Binary, blob) != RegStatus::Ok) return false;
  Remember(name);
  return true;
}

bool ZORPropertySetRegistry::LoadValues() {
  if (m_pSet == nullptr) return false;
  m_pSet->ClearAllProperties();
  bool result = true;
  std::u16string name;
  std::vector<uint8_t> data;
  for (uint32_t index = 0;; ++index) {
    const RegStatus listed = m_key.EnumValue(index, name);
    if (listed != RegStatus::Ok) {
      if (listed != RegStatus::NoMoreItems) result = false;
      break;
    }
    RegType type = RegType::None;
    VELAnyValPtr value;
    if (m_key.ReadValue(name, type, data) == RegStatus::Ok) value = ValueFromRegistry(type, data);
    if (value != nullptr) {
      m_pSet->SetProperty(name, *value);
    } else {
      result = false;
    }
  }
  return result;
}

bool ZORPropertySetRegistry::SaveValues() {
  if (m_pSet == nullptr) return false;
  ZORPropertyList list;
  m_pSet->GetAllProperties(list);
  bool result = true;
  std::vector<uint8_t> data;
  for (const ZORProperty& property : list) {
    RegType type = RegType::None;
    const bool written = property.value != nullptr &&
                         ValueToRegistry(*property.value, type, data) &&
                         m_key.WriteValue(property.name, type, data) == RegStatus::Ok;
    result = result && written;
  }
  return result;
}

void ZORPropertySetRegistry::SetAutoSave(bool autoSave, std::u16string_view valueName) {
  if (autoSave == m_bAutoSave) return;
  if (m_bAutoSave && m_pSet != nullptr) m_pSet->RemoveNotify(this);
  m_bAutoSave = autoSave;
  m_autoSaveName.clear();
  if (autoSave && m_pSet != nullptr) {
    m_autoSaveName = valueName;
    m_pSet->AddNotify(this);
  }
}

bool ZORPropertySetRegistry::MonitorBinary(bool monitor, std::u16string_view valueName) {
  StopMonitor();
  if (!monitor) return true;
  m_monitoredName = valueName;
  return m_thread.Start(this);
}

bool ZORPropertySetRegistry::MonitorChanges(IZORPropertySetRegistrySimpleNotify* notify) {
  StopMonitor();
  m_pNotify = notify;
  if (notify == nullptr) return true;
  return m_thread.Start(this);
}

void ZORPropertySetRegistry::StopMonitor() {
  m_thread.Stop();
  m_monitoredName.clear();
  m_pNotify = nullptr;
}

bool ZORPropertySetRegistry::Run(ZORThreadBasic&, zor::os::Event& stopEvent) {
  zor::os::Event changed(zor::os::EventReset::Auto);
  // The watcher arms on its own handle, so the owner's key stays free for
  // loads and saves while a notification is pending.
  zor::os::RegKey watched;
  m_key.Duplicate(watched);
  // A reload overwrites what the set knows and never adds: a name that only
  // another process's set holds stays out of this one.
  const auto reload = [this] { LoadBinary(m_monitoredName, true, true, false); };
  if (m_pNotify == nullptr) reload();
  zor::os::Event* events[] = {&stopEvent, &changed};
  for (;;) {
    if (watched.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed) != RegStatus::Ok) break;
    const int32_t woken = zor::os::WaitAny(events, 2, zor::os::kInfinite);
    if (woken == 0) break;
    if (woken != 1) continue;
    if (m_pNotify != nullptr) {
      m_pNotify->OnRegistryChanged(*this);
    } else {
      reload();
    }
  }
  // The armed notification refers to the event: end it first.
  watched.Close();
  return true;
}

void ZORPropertySetRegistry::Remember(std::u16string_view name) {
  ZORScopedLock lock(m_nameLock);
  m_rememberedName = name;
}

std::u16string ZORPropertySetRegistry::Remembered() const {
  ZORScopedLock lock(m_nameLock);
  return m_rememberedName;
}

VELAnyValPtr ZORPropertySetRegistry::ValueFromRegistry(RegType type, std::span<const uint8_t> data) {
  std::u16string text;
  switch (type) {
    case RegType::Dword:
      if (data.size() != 4) return nullptr;
      return std::make_shared<VELAnyValLong>(static_cast<int32_t>(Unsigned(data.data(), 4)));
    case RegType::Binary:
      return std::make_shared<VELAnyValBinaryC>(reinterpret_cast<const char*>(data.data()),
                                                static_cast<uint32_t>(data.size()));
    case RegType::Sz:
    case RegType::ExpandSz:
      if (!FirstString(data, 1, text)) return nullptr;
      return std::make_shared<VELAnyValWString>(std::move(text));
    case RegType::MultiSz:
      if (!FirstString(data, 2, text)) return nullptr;
      return std::make_shared<VELAnyValWString>(std::move(text));
    default:
      return nullptr;
  }
}

bool ZORPropertySetRegistry::ValueToRegistry(const VELAnyVal& value, RegType& type,
                                             std::vector<uint8_t>& data) {
  uint8_t bytes[4] = {};
  std::u16string text;
  switch (value.GetType()) {
    case VEL_ANYVAL_LONG:
    case VEL_ANYVAL_INT:
    case VEL_ANYVAL_SHORT:
    case VEL_ANYVAL_BOOL: {
      const uint32_t size = value.GetSize();
      if (size == 0 || size > sizeof(bytes) || value.GetData(bytes, sizeof(bytes)) != size) {
        return false;
      }
      uint32_t number = Unsigned(bytes, size);
      // A short keeps its sign in 32 bits; a bool its byte as it is.
      if (value.GetType() == VEL_ANYVAL_SHORT && (number & 0x8000u) != 0) number |= 0xFFFF0000u;
      type = RegType::Dword;
      PutDword(data, number);
      return true;
    }
    case VEL_ANYVAL_BINARYC:
    case VEL_ANYVAL_BINARYUC:
      // Whatever comes out empty is stored as the number 0.
      if (value.GetSize() == 0) {
        type = RegType::Dword;
        PutDword(data, 0);
        return true;
      }
      data.resize(value.GetSize());
      if (value.GetData(data.data(), value.GetSize()) != data.size()) return false;
      type = RegType::Binary;
      return true;
    case VEL_ANYVAL_FLOAT:
    case VEL_ANYVAL_DOUBLE:
    case VEL_ANYVAL_ASTRING:
    case VEL_ANYVAL_WSTRING:
      if (!value.GetWString(text)) return false;
      if (text.empty() && value.GetType() == VEL_ANYVAL_WSTRING) {
        type = RegType::Dword;
        PutDword(data, 0);
        return true;
      }
      type = RegType::Sz;
      data.clear();
      data.reserve((text.size() + 1) * 2);
      for (const char16_t unit : text) {
        data.push_back(static_cast<uint8_t>(unit));
        data.push_back(static_cast<uint8_t>(unit >> 8));
      }
      data.push_back(0);
      data.push_back(0);
      return true;
    default:
      return false;
  }
}
