#pragma once
// ZORPropertySetRegistry: a property set kept in one registry key, and the
// way settings cross from one process to another.
//
// Two layouts. The binary layout keeps the whole set in one REG_BINARY value
// holding the property blob (LoadBinary, SaveBinary). The value layout keeps
// one registry value per property (LoadValues, SaveValues), typed by this
// table, which does not round-trip kinds:
//
//   written                                   registry      read back as
//   Long, Int                                 REG_DWORD     Long
//   Short (sign-extended), Bool (its byte)    REG_DWORD     Long
//   BinaryC, BinaryUC                         REG_BINARY    BinaryC
//   Float, Double, AString, WString           REG_SZ        WString (GetWString text)
//   an empty array or empty WString           REG_DWORD 0   Long 0
//   REG_EXPAND_SZ (not expanded), REG_MULTI_SZ (first string)   WString
//
// With auto-save the set is saved (binary layout) on every change. A monitor
// runs a watcher thread that follows changes of the key by any process:
// MonitorBinary merges the value back into the set, overwriting names it
// knows and never adding new ones, so every real change reaches the set's
// observers by SetProperty and an unchanged value ends the echo of a save;
// MonitorChanges only tells an IZORPropertySetRegistrySimpleNotify.
//
// Calling order: construct, SetKey or OpenKey, SetPropertySet, loads and
// saves, then optionally SetAutoSave and one monitor. All public operations
// belong to the owner's thread, except that the watcher thread loads (and,
// with auto-save, saves) on its own; a set shared with other threads must
// be a ZORPropertySetThreadsafe. The attached set must outlive this object
// or be detached first. Nothing here belongs on the audio thread.

#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/zorthreadbasic.h"
#include "platform/criticalsection.h"
#include "platform/registry.h"
#include "values/izorpropertysetnotify.h"
#include "values/izorpropertysetregistrysimplenotify.h"
#include "values/zorpropertyset.h"

class ZORPropertySetRegistry : public IZORPropertySetNotify, public IZORThreadBasicWorker {
 public:
  // The access OpenKey asks for: query, notify and the 64-bit view.
  static constexpr uint32_t kOpenKeyAccess =
      zor::os::kKeyQueryValue | zor::os::kKeyNotify | zor::os::kKeyWow64_64Key;

  ZORPropertySetRegistry();
  // Stops the watcher, leaves the set's observers and closes the keys.
  ~ZORPropertySetRegistry() override;
  ZORPropertySetRegistry(const ZORPropertySetRegistry&) = delete;
  ZORPropertySetRegistry& operator=(const ZORPropertySetRegistry&) = delete;

  // From the attached set, on whichever thread changed it: with auto-save
  // on, SaveBinary under the remembered name.
  void OnPropertyChanged(ZORPropertySet& set, const ZORProperty& property) override;
  // Changes nothing; false.
  bool OnPropertyChanging(ZORPropertySet& set, ZORProperty& property) override;

  // Attaches a set (null detaches); with auto-save on, moves the observer
  // link from the old set to the new one.
  virtual void SetPropertySet(ZORPropertySet* set);
  // Closes the working key and, for a non-null open key, takes a private
  // duplicate of it, so the caller may close its own. True when a working
  // key is now open.
  virtual bool SetKey(const zor::os::RegKey* key);
  virtual const zor::os::RegKey& GetKey() const;
  // Opens `parent` again with kOpenKeyAccess, keeps it, and works on it.
  bool OpenKey(const zor::os::RegKey& parent);

  // Reads the REG_BINARY value `valueName` (empty: the key's default value).
  // A value that is missing, empty or of another type gives false and leaves
  // the set alone. With `merge`, the blob goes through MergePropertiesBinary
  // with the two flags and the result is true; without it, the set is
  // emptied and takes the blob by SetAllPropertiesBinary, whose result is
  // the result. A true result remembers the name.
  virtual bool LoadBinary(std::u16string_view valueName, bool merge, bool overwriteExisting,
                          bool addNew);
  // Writes the set's blob as REG_BINARY under `valueName`, or under the
  // remembered name when it is null (before any load or save, the key's
  // default value). A set with an empty value in it, or an empty set (which
  // is logged), stores nothing and gives false. Success remembers the name.
  virtual bool SaveBinary(const char16_t* valueName);
  // Empties the set and stores every value of the key that reads by the
  // table above, by SetProperty. Any value that does not read, or an
  // enumeration that ends in an error, makes the result false; the rest are
  // still loaded.
  virtual bool LoadValues();
  // Writes every property as its own value by the table above; false if any
  // write failed (an empty AString cannot be written), the others still are.
  virtual bool SaveValues();
  // Turns auto-save on or off. Turning it on with a set attached keeps
  // `valueName` and observes the set; a call that changes nothing ignores the
  // name. The save itself always goes to the remembered name.
  virtual void SetAutoSave(bool autoSave, std::u16string_view valueName);
  bool IsAutoSave() const { return m_bAutoSave; }
  const std::u16string& AutoSaveName() const { return m_autoSaveName; }
  // Stops any watcher (waiting up to ZORThreadBasic's default), then with
  // `monitor` set starts one that merges `valueName` into the set after each
  // change of the key. False only when the thread cannot start.
  virtual bool MonitorBinary(bool monitor, std::u16string_view valueName);
  // The same, but the watcher only calls `notify` (null: no watcher).
  virtual bool MonitorChanges(IZORPropertySetRegistrySimpleNotify* notify);

  // The value layout's conversions. ValueFromRegistry gives null for data it
  // cannot read; ValueToRegistry false for a value that has no registry form.
  static VELAnyValPtr ValueFromRegistry(zor::os::RegType type, std::span<const uint8_t> data);
  static bool ValueToRegistry(const VELAnyVal& value, zor::os::RegType& type,
                              std::vector<uint8_t>& data);

  // The watcher thread's body.
  bool Run(ZORThreadBasic& thread, zor::os::Event& stopEvent) override;

 private:
  void StopMonitor();
  void Remember(std::u16string_view name);
  std::u16string Remembered() const;

  ZORPropertySet* m_pSet = nullptr;
  // Written by the watcher's loads as well as the owner's; the lock keeps
  // the string whole.
  mutable zor::os::CriticalSection m_nameLock;
  std::u16string m_rememberedName;
  zor::os::RegKey m_key;
  zor::os::RegKey m_ownedKey;
  std::atomic<bool> m_bAutoSave{false};
  std::u16string m_autoSaveName;
  std::u16string m_monitoredName;
  ZORThreadBasic m_thread;
  IZORPropertySetRegistrySimpleNotify* m_pNotify = nullptr;
};
