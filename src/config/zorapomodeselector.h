#pragma once
// ZORAPOModeSelector: the user's choice of operating mode, kept in the
// endpoint's settings key as the value "VelApoCurrOpMode" (a property blob
// holding "APO4-Operating Mode" and "APO4-Speaker Type" as text), so that it
// survives restarts, reaches every APO of the endpoint and can be set by a
// control panel in another process. It reads and writes that pair and tells
// its client when someone changed it; what mode then runs is the process
// manager's decision.
//
// The endpoint enters through its settings key path (ZORAPOEndpointInfo's
// GetSettingsKeyPath): the configuration layer sits below the endpoint
// services, so it takes the path rather than the endpoint.
//
// Threads: Init, SetMode, GetMode, SetNotify, DeleteValue and destruction
// belong to the owner. The registry watcher delivers changes on its own
// thread through `m_values` (thread-safe by itself), and `m_lock` guards
// only the client pointer. The watcher calls in holding the set's lock and
// then asks for `m_lock`, so the owner never holds `m_lock` while it
// registers with the set or stops the watcher.

#include <string>
#include <string_view>

#include "config/izorapomodeselectornotify.h"
#include "config/zorapomodeid.h"
#include "platform/criticalsection.h"
#include "platform/registry.h"
#include "values/izorpropertysetnotify.h"
#include "values/zorpropertysetregistry.h"
#include "values/zorpropertysetthreadsafe.h"

class ZORAPOModeSelector : public IZORPropertySetNotify {
 public:
  static constexpr std::u16string_view kValueName = u"VelApoCurrOpMode";
  // Query, set, notify, 64-bit view (0x113).
  static constexpr uint32_t kKeyAccess = zor::os::kKeyQueryValue | zor::os::kKeySetValue |
                                         zor::os::kKeyNotify | zor::os::kKeyWow64_64Key;

  ZORAPOModeSelector() = default;
  // Clears the client, leaves the set, stops the watch and closes the key, in
  // this order, so no notification reaches a dying client.
  ~ZORAPOModeSelector() override;
  ZORAPOModeSelector(const ZORAPOModeSelector&) = delete;
  ZORAPOModeSelector& operator=(const ZORAPOModeSelector&) = delete;

  // On the watcher's thread: tells the client of a change it can read.
  void OnPropertyChanged(ZORPropertySet& set, const ZORProperty& property) override;
  bool OnPropertyChanging(ZORPropertySet& set, ZORProperty& property) override;

  // Takes `defaultId` as the in-memory values, opens the key at
  // `settingsKeyPath` and merges the stored value over the defaults. False
  // only when the key cannot be opened; a missing value leaves the defaults.
  // May be repeated for another endpoint; a running watch moves with it.
  virtual bool Init(std::u16string_view settingsKeyPath, const ZORAPOModeId& defaultId);
  // Stores `id`; false without a key or when the save fails.
  virtual bool SetMode(const ZORAPOModeId& id);
  // Reloads the stored value (replacing the in-memory values) and gives its
  // id; true only for a defined id that came from the store, so with no
  // stored value the caller falls back to its configuration's default.
  virtual bool GetMode(ZORAPOModeId& id);
  // A client starts the watch of the stored value, null stops it.
  virtual bool SetNotify(IZORAPOModeSelectorNotify* client);
  // Deletes the stored value; false when there is none or no key.
  virtual bool DeleteValue();

  // GetMode, with the operating mode text replaced by `operatingModeText`
  // when that is not null and the store named one; the stored speaker type
  // stays.
  bool GetModeForContent(ZORAPOModeId& id, const char* operatingModeText);

 private:
  bool ReadMode(ZORAPOModeId& id, const char* operatingModeText);

  zor::os::CriticalSection m_lock;
  IZORAPOModeSelectorNotify* m_pClient = nullptr;  // guarded by m_lock
  // The set outlives the store that is bound to it.
  ZORPropertySetThreadsafe m_values;
  ZORPropertySetRegistry m_store;
  zor::os::RegKey m_key;
  std::u16string m_valueName;
};
