#include "config/zorapopublicsettingsreader.h"

#include "config/zorapostoredsettings.h"

ZORAPOPublicSettingsReader::~ZORAPOPublicSettingsReader() { Close(); }

void ZORAPOPublicSettingsReader::OnRegistryChanged(ZORPropertySetRegistry&) {
  if (zor::os::Event* event = m_pEvent.load()) event->Set();
}

bool ZORAPOPublicSettingsReader::Open(const GUID& endpointId, std::u16string_view settingsKeyPath,
                                      const ZORAPOOperatingMode& mode, zor::os::Event* event) {
  m_pEvent.store(event);
  // Reopened on every change of mode: the same binding costs nothing.
  if (m_bOpen && IsEqualGUID(endpointId, m_endpointId) && mode.GetModeId() == m_mode) return true;

  m_store.MonitorChanges(nullptr);
  m_store.SetKey(nullptr);
  m_key.Close();
  m_publicControls.Clear();
  if (zor::os::RegKey::Open(settingsKeyPath, kKeyAccess, m_key) != zor::os::RegStatus::Ok) {
    m_bOpen = false;
    return false;
  }
  const bool bound = m_store.SetKey(&m_key);
  m_store.SetPropertySet(&m_settings);
  m_keyPath = settingsKeyPath;
  m_valueName = mode.GetModeId().ToRegistryName();
  m_publicControls = mode.GetPublicControls();
  m_mode = mode.GetModeId();
  m_endpointId = endpointId;
  m_store.MonitorChanges(event != nullptr ? this : nullptr);
  m_bOpen = bound;
  return bound;
}

void ZORAPOPublicSettingsReader::Close() {
  m_store.MonitorChanges(nullptr);
  m_store.SetKey(nullptr);
  m_key.Close();
  m_publicControls.Clear();
  m_bOpen = false;
}

bool ZORAPOPublicSettingsReader::ReadAll(ZORUTSValueList& list) {
  list.Clear();
  if (!m_bOpen) return false;
  // The set mirrors the stored value exactly; a mode nobody stored gives
  // false, and the caller has no public list to apply.
  if (!ZORAPOStoredSettings::Load(m_key, m_valueName, m_settings, false, false, false)) return false;
  list = m_publicControls;
  ZORUTSValueList stored;
  stored.ReadFromSet(m_settings);
  // Stored values override; stored names that are not public are dropped.
  list.Merge(stored, MergeUpdate);
  return true;
}
