#pragma once
// ZORAPOPublicSettings: the controls an end user changes through a control
// panel in another process, one registry value per operating mode (its
// ToRegistryName, "ApoOpMode:<mode>/<speaker type>") under the endpoint's
// settings key. The mode's configuration decides which controls are public;
// the stored value holds their current values, and a stored name the mode no
// longer declares public is dropped on load. ZORAPOGlobalSettings reuses the
// machinery for the settings of all modes.
//
// The endpoint enters through its settings key path (ZORAPOEndpointInfo's
// GetSettingsKeyPath): the configuration layer sits below the endpoint
// services, so it takes the path rather than the endpoint.
//
// Threads: `m_dataLock` guards the data and the key, `m_notifyLock` the
// client, and they are separate so that a change arriving on the registry
// watcher's thread never waits for a reader. The watcher merges into
// `m_settings` (thread-safe for that reason) and, inside that set's lock,
// calls OnPropertyChanged, which takes only `m_notifyLock`. The owner never
// holds `m_notifyLock` while it stops the watcher. Lock order: data, then
// the set's, then notify. Nothing here is for the audio thread.

#include <string>
#include <string_view>

#include "config/izorapopublicsettingsnotify.h"
#include "config/zorapooperatingmode.h"
#include "config/zorutsvaluelist.h"
#include "platform/criticalsection.h"
#include "platform/registry.h"
#include "values/izorpropertysetnotify.h"
#include "values/zorpropertysetregistry.h"
#include "values/zorpropertysetthreadsafe.h"

class ZORAPOPublicSettings : public IZORPropertySetNotify {
 public:
  // Query, set, notify, 64-bit view (0x113).
  static constexpr uint32_t kKeyAccess = zor::os::kKeyQueryValue | zor::os::kKeySetValue |
                                         zor::os::kKeyNotify | zor::os::kKeyWow64_64Key;

  ZORAPOPublicSettings() = default;
  // Clears the client, stops the watch and closes the key, in this order.
  ~ZORAPOPublicSettings() override;
  ZORAPOPublicSettings(const ZORAPOPublicSettings&) = delete;
  ZORAPOPublicSettings& operator=(const ZORAPOPublicSettings&) = delete;

  // Tells the client of a change of a long or text value.
  void OnPropertyChanged(ZORPropertySet& set, const ZORProperty& property) override;
  bool OnPropertyChanging(ZORPropertySet& set, ZORProperty& property) override;

  // Binds to `mode`'s value under `settingsKeyPath`: the settings become the
  // mode's public controls at their defaults, overridden by stored values of
  // the same names. Drops the client. False (logged) when the key cannot be
  // opened; a missing value is no failure.
  virtual bool Init(std::u16string_view settingsKeyPath, const ZORAPOOperatingMode& mode);
  // Stores one public control; a name the mode does not declare public is
  // refused (logged) and changes nothing.
  virtual bool WriteControl(const ZORUTSValue& value);
  // Stores the list as it is, new names included (a later Init drops them).
  virtual bool WriteAll(const ZORUTSValueList& list);
  // Writes the mode's controls into the second set and saves the settings.
  virtual bool WriteAllControls();
  // Reloads the stored value over the settings and reads them into `list`
  // (emptied first with `clearFirst`). Without a key: false, the list left
  // alone. A missing or damaged stored value: false, with the list holding
  // the settings as they were.
  virtual bool ReadAll(ZORUTSValueList& list, bool clearFirst);
  // The same load, then `list` becomes a copy of the mode's controls.
  virtual bool ReadAllControls(ZORUTSValueList& list, bool clearFirst);
  // A client starts the watch of the value, null stops it.
  virtual bool SetNotify(IZORAPOPublicSettingsNotify* client);
  // Deletes the stored value; false when there is none or no key.
  virtual bool DeleteValue();

 protected:
  // Opens the key and binds the store; logs the outcome.
  bool OpenKey(std::u16string_view settingsKeyPath);
  // Applies `changes` to the settings and stores them, under m_dataLock.
  bool Save(const ZORUTSValueList& changes);

  zor::os::CriticalSection m_notifyLock;
  IZORAPOPublicSettingsNotify* m_pClient = nullptr;  // guarded by m_notifyLock
  zor::os::CriticalSection m_dataLock;
  // Both sets outlive the store that is bound to the first.
  ZORPropertySetThreadsafe m_settings;
  ZORPropertySet m_defaults;
  ZORPropertySetRegistry m_store;
  std::u16string m_valueName;
  ZORUTSValueList m_allControls;
  zor::os::RegKey m_key;
};
