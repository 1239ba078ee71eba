#include "config/zorapomodeselector.h"

#include "config/zorapostoredsettings.h"
#include "config/zorutsvaluelist.h"
#include "core/zorscopedlock.h"

ZORAPOModeSelector::~ZORAPOModeSelector() {
  {
    ZORScopedLock lock(m_lock);
    m_pClient = nullptr;
  }
  m_values.RemoveNotify(this);
  m_store.MonitorBinary(false, {});
  m_store.SetKey(nullptr);
  m_key.Close();
}

void ZORAPOModeSelector::OnPropertyChanged(ZORPropertySet&, const ZORProperty& property) {
  ZORScopedLock lock(m_lock);
  if (m_pClient == nullptr) return;
  ZORUTSValue value;
  if (ZORUTSValue::FromProperty(property, value)) m_pClient->OnModeChanged();
}

bool ZORAPOModeSelector::OnPropertyChanging(ZORPropertySet&, ZORProperty&) { return false; }

bool ZORAPOModeSelector::Init(std::u16string_view settingsKeyPath, const ZORAPOModeId& defaultId) {
  ZORUTSValueList defaults;
  defaultId.ToValueList(defaults);
  defaults.WriteToSet(m_values);
  m_valueName = kValueName;

  // A watch runs on a duplicate of the old key: stop it before the key
  // changes, and start it again on the new one.
  bool watching = false;
  {
    ZORScopedLock lock(m_lock);
    watching = m_pClient != nullptr;
  }
  if (watching) m_store.MonitorBinary(false, {});
  m_store.SetKey(nullptr);
  if (zor::os::RegKey::Open(settingsKeyPath, kKeyAccess, m_key) != zor::os::RegStatus::Ok) {
    return false;
  }
  m_store.SetKey(&m_key);
  m_store.SetPropertySet(&m_values);
  // Stored properties beat the defaults, and others are added.
  ZORAPOStoredSettings::Load(m_key, m_valueName, m_values, true, true, true);
  if (watching) m_store.MonitorBinary(true, m_valueName);
  return true;
}

bool ZORAPOModeSelector::SetMode(const ZORAPOModeId& id) {
  ZORUTSValueList list;
  id.ToValueList(list);
  ZORPropertySet snapshot;
  snapshot.CopyProperties(m_values);
  list.WriteToSet(snapshot);
  list.WriteToSet(m_values);
  return m_key.IsOpen() && ZORAPOStoredSettings::Save(m_key, m_valueName, snapshot);
}

bool ZORAPOModeSelector::GetMode(ZORAPOModeId& id) { return ReadMode(id, nullptr); }

bool ZORAPOModeSelector::GetModeForContent(ZORAPOModeId& id, const char* operatingModeText) {
  return ReadMode(id, operatingModeText);
}

bool ZORAPOModeSelector::ReadMode(ZORAPOModeId& id, const char* operatingModeText) {
  // The stored value replaces the in-memory one, so what a control panel
  // deleted is gone here too.
  ZORPropertyList stored;
  const bool loaded = m_key.IsOpen() && ZORAPOStoredSettings::Read(m_key, m_valueName, stored);
  if (loaded) m_values.SetAllProperties(stored, false);
  // The id comes from what this load read, not from the values, which the
  // watcher may meanwhile overwrite with a copy it read earlier.
  ZORPropertySet snapshot;
  if (loaded) {
    snapshot.SetAllProperties(stored, false);
  } else {
    snapshot.CopyProperties(m_values);
  }
  ZORUTSValueList list;
  list.ReadFromSet(snapshot);
  if (operatingModeText != nullptr) {
    if (ZORUTSValue* mode = list.Find(ZORAPOModeId::kOperatingModeName)) {
      mode->SetText(operatingModeText);
    }
  }
  return id.FromValueList(list) && loaded;
}

bool ZORAPOModeSelector::SetNotify(IZORAPOModeSelectorNotify* client) {
  {
    ZORScopedLock lock(m_lock);
    m_pClient = client;
  }
  if (client != nullptr) {
    m_values.AddNotify(this);
  } else {
    m_values.RemoveNotify(this);
  }
  return m_store.MonitorBinary(client != nullptr, m_valueName);
}

bool ZORAPOModeSelector::DeleteValue() {
  return m_key.IsOpen() && m_key.DeleteValue(m_valueName) == zor::os::RegStatus::Ok;
}
