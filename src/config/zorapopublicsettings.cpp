#include "config/zorapopublicsettings.h"

#include "config/zorapostoredsettings.h"
#include "core/zorlog.h"
#include "core/zorscopedlock.h"
#include "platform/text.h"

ZORAPOPublicSettings::~ZORAPOPublicSettings() {
  {
    ZORScopedLock lock(m_notifyLock);
    m_pClient = nullptr;
  }
  m_store.MonitorBinary(false, {});
  m_store.SetKey(nullptr);
  m_key.Close();
}

void ZORAPOPublicSettings::OnPropertyChanged(ZORPropertySet&, const ZORProperty& property) {
  ZORScopedLock lock(m_notifyLock);
  if (m_pClient == nullptr) return;
  ZORUTSValue value;
  if (ZORUTSValue::FromProperty(property, value)) m_pClient->OnPublicSettingChanged(*this, value);
}

bool ZORAPOPublicSettings::OnPropertyChanging(ZORPropertySet&, ZORProperty&) { return false; }

bool ZORAPOPublicSettings::Init(std::u16string_view settingsKeyPath,
                                const ZORAPOOperatingMode& mode) {
  SetNotify(nullptr);
  ZORScopedLock lock(m_dataLock);
  // Emptied without telling anyone: the defaults are not a change.
  m_settings.RemoveNotify(this);
  m_settings.ClearAllProperties();
  m_settings.AddNotify(this);
  m_allControls = mode.GetAllControls();
  // Exactly the names the configuration declares public, at their defaults.
  mode.GetPublicControls().WriteToSet(m_settings);
  m_valueName = mode.GetModeId().ToRegistryName();
  if (!OpenKey(settingsKeyPath)) return false;
  // A stored value beats a default; a stored name that is no longer public
  // is dropped.
  ZORAPOStoredSettings::Load(m_key, m_valueName, m_settings, true, true, false);
  return true;
}

bool ZORAPOPublicSettings::OpenKey(std::u16string_view settingsKeyPath) {
  const std::string path = zor::os::Utf16ToUtf8(settingsKeyPath);
  m_store.SetKey(nullptr);
  if (zor::os::RegKey::Open(settingsKeyPath, kKeyAccess, m_key) != zor::os::RegStatus::Ok) {
    ZOR_LOG("Error: %s NOT found in registry\n", path.c_str());
    return false;
  }
  ZOR_LOG("OK: %s found in registry\n", path.c_str());
  m_store.SetKey(&m_key);
  m_store.SetPropertySet(&m_settings);
  return true;
}

bool ZORAPOPublicSettings::WriteControl(const ZORUTSValue& value) {
  ZORScopedLock lock(m_dataLock);
  const std::u16string name = value.GetNameW();
  VELAnyValPtr existing;
  if (!m_settings.GetProperty(name, existing)) {
    ZOR_LOG("WriteControl: Unable to get property %s\n", value.name.c_str());
    return false;
  }
  ZORUTSValueList change;
  change.Insert(ZORUTSValue(value.name, value.GetText()));
  if (!m_key.IsOpen()) {
    change.WriteToSet(m_settings);
    ZOR_LOG("WriteControl: Registry key is not opened.\n");
    return false;
  }
  return Save(change);
}

bool ZORAPOPublicSettings::WriteAll(const ZORUTSValueList& list) {
  ZORScopedLock lock(m_dataLock);
  if (!m_key.IsOpen()) {
    list.WriteToSet(m_settings);
    return false;
  }
  return Save(list);
}

bool ZORAPOPublicSettings::WriteAllControls() {
  ZORScopedLock lock(m_dataLock);
  m_allControls.WriteToSet(m_defaults);
  // What is saved is the settings as they stand.
  return m_key.IsOpen() && Save(ZORUTSValueList());
}

bool ZORAPOPublicSettings::Save(const ZORUTSValueList& changes) {
  // The stored value is the newest of what this object saved (every save
  // happens here, under the data lock) and carries other writers' changes;
  // the settings may hold a copy the watcher read earlier.
  ZORPropertySet snapshot;
  snapshot.CopyProperties(m_settings);
  ZORPropertyList stored;
  if (ZORAPOStoredSettings::Read(m_key, m_valueName, stored)) {
    snapshot.MergeProperties(stored, true, false);
  }
  changes.WriteToSet(snapshot);
  changes.WriteToSet(m_settings);
  return ZORAPOStoredSettings::Save(m_key, m_valueName, snapshot);
}

bool ZORAPOPublicSettings::ReadAll(ZORUTSValueList& list, bool clearFirst) {
  ZORScopedLock lock(m_dataLock);
  if (clearFirst) list.Clear();
  if (!m_key.IsOpen()) return false;
  ZORPropertyList stored;
  const bool loaded = ZORAPOStoredSettings::Read(m_key, m_valueName, stored);
  if (loaded) m_settings.MergeProperties(stored, true, false);
  // The answer comes from a snapshot that takes the stored values once more:
  // the watcher may merge a copy it read before this load into the settings
  // meanwhile, and that must not undo what this load found.
  ZORPropertySet snapshot;
  snapshot.CopyProperties(m_settings);
  snapshot.MergeProperties(stored, true, false);
  list.ReadFromSet(snapshot);
  return loaded;
}

bool ZORAPOPublicSettings::ReadAllControls(ZORUTSValueList& list, bool clearFirst) {
  ZORScopedLock lock(m_dataLock);
  if (clearFirst) list.Clear();
  bool loaded = false;
  if (m_key.IsOpen()) {
    loaded = ZORAPOStoredSettings::Load(m_key, m_valueName, m_settings, true, true, false);
    m_allControls.ReadFromSet(m_defaults);
  }
  list = m_allControls;
  return loaded;
}

bool ZORAPOPublicSettings::SetNotify(IZORAPOPublicSettingsNotify* client) {
  {
    ZORScopedLock lock(m_notifyLock);
    m_pClient = client;
  }
  return m_store.MonitorBinary(client != nullptr, m_valueName);
}

bool ZORAPOPublicSettings::DeleteValue() {
  ZORScopedLock lock(m_dataLock);
  return m_key.IsOpen() && m_key.DeleteValue(m_valueName) == zor::os::RegStatus::Ok;
}
