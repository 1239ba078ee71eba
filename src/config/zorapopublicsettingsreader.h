#pragma once
// ZORAPOPublicSettingsReader: the lean read-and-watch form of a mode's public
// settings, for a chain and for the process manager's worker. It reads the
// stored value of one mode on demand and, opened with an event, signals that
// event whenever the endpoint's settings key changes; it never merges on the
// watcher's thread.
//
// The endpoint enters as its GUID (what tells two endpoints apart) and its
// settings key path (ZORAPOEndpointInfo's GetEndpointGuid and
// GetSettingsKeyPath): the configuration layer sits below the endpoint
// services.
//
// Threads: Open, Close and ReadAll belong to the owner. The watcher thread
// only reads `m_pEvent`, which is atomic because Open may replace it while a
// change comes in; the event must outlive the reader or be replaced first.

#include <atomic>
#include <string>
#include <string_view>

#include "config/zorapomodeid.h"
#include "config/zorapooperatingmode.h"
#include "config/zorutsvaluelist.h"
#include "platform/com.h"
#include "platform/event.h"
#include "platform/registry.h"
#include "values/izorpropertysetregistrysimplenotify.h"
#include "values/zorpropertyset.h"
#include "values/zorpropertysetregistry.h"

class ZORAPOPublicSettingsReader : public IZORPropertySetRegistrySimpleNotify {
 public:
  // Query, notify, 64-bit view (0x111): a reader never writes.
  static constexpr uint32_t kKeyAccess =
      zor::os::kKeyQueryValue | zor::os::kKeyNotify | zor::os::kKeyWow64_64Key;

  ZORAPOPublicSettingsReader() = default;
  ~ZORAPOPublicSettingsReader() override;
  ZORAPOPublicSettingsReader(const ZORAPOPublicSettingsReader&) = delete;
  ZORAPOPublicSettingsReader& operator=(const ZORAPOPublicSettingsReader&) = delete;

  // On the watcher's thread: signals the event, if any.
  void OnRegistryChanged(ZORPropertySetRegistry& registry) override;

  // Binds to `mode`'s value under `settingsKeyPath`, watching the key when
  // `event` is given. Opening again for the same endpoint and mode only
  // replaces the event (the key and controls stay). False when the key
  // cannot be opened.
  virtual bool Open(const GUID& endpointId, std::u16string_view settingsKeyPath,
                    const ZORAPOOperatingMode& mode, zor::os::Event* event);
  virtual void Close();
  // The mode's public controls, overridden by the stored values of the same
  // names. False with an empty list when closed or when no readable value is
  // stored for the mode.
  virtual bool ReadAll(ZORUTSValueList& list);

 private:
  std::atomic<zor::os::Event*> m_pEvent{nullptr};
  // The set outlives the store that is bound to it.
  ZORPropertySet m_settings;
  ZORPropertySetRegistry m_store;
  std::u16string m_keyPath;
  std::u16string m_valueName;
  zor::os::RegKey m_key;
  GUID m_endpointId = GUID_NULL;
  ZORAPOModeId m_mode;
  ZORUTSValueList m_publicControls;
  bool m_bOpen = false;
};
