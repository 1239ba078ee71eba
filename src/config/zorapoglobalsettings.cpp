#include "config/zorapoglobalsettings.h"

#include "config/zorapoconfigurationfile.h"
#include "config/zorapostoredsettings.h"
#include "core/zorscopedlock.h"

bool ZORAPOGlobalSettings::Init(std::u16string_view, const ZORAPOOperatingMode&) { return false; }

bool ZORAPOGlobalSettings::InitGlobal(std::u16string_view settingsKeyPath,
                                      const ZORAPOConfigurationFile* configuration) {
  SetNotify(nullptr);
  ZORScopedLock lock(m_dataLock);
  // Emptied as Init does, so names stored for the previous endpoint do not
  // follow a rebinding to the next.
  m_settings.RemoveNotify(this);
  m_settings.ClearAllProperties();
  m_settings.AddNotify(this);
  m_allControls.Insert(ZORUTSValue(kProcessEnableName, 1));
  const ZORUTSValue* autoContent =
      configuration != nullptr ? configuration->GetProperties().Find(kAutoContentModeName) : nullptr;
  m_allControls.Insert(
      ZORUTSValue(kAutoContentModeName, autoContent != nullptr && autoContent->GetLong() != 0 ? 1 : 0));
  m_allControls.WriteToSet(m_settings);
  m_valueName = kValueName;
  if (!OpenKey(settingsKeyPath)) return false;
  ZORAPOStoredSettings::Load(m_key, m_valueName, m_settings, true, true, true);
  return true;
}
