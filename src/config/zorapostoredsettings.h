#pragma once
// ZORAPOStoredSettings: reads one settings value of an endpoint's key (the
// stored mode, the global settings, a mode's public settings) into a set.
//
// Any process that can write the key can write these values, so a blob is
// taken only when it parses to its end: a damaged or hostile value is a
// failed load and leaves the set as it was, where a plain merge would take
// the records before the damage and call it success. The blob is read and
// checked before the set is touched.
//
// The objects that save these values also watch them, and their watcher
// merges on its own thread what it read, maybe before a local save. So a
// save is built from a snapshot of the set, never from the watched set
// itself, which such a stale merge may have set back a moment before.
// Owner's thread; not the audio thread.

#include <string_view>

#include "platform/registry.h"
#include "values/zorproperty.h"

class ZORPropertySet;

class ZORAPOStoredSettings {
 public:
  // The properties of the REG_BINARY value `valueName` of `key`, in `list`
  // (emptied first). False, with the list empty, for a missing, empty, foreign or damaged value.
  static bool Read(const zor::os::RegKey& key, std::u16string_view valueName,
                   ZORPropertyList& list);
  // Read, then into `set`: with `merge`, the properties are merged with the
  // two flags; without it, they replace the set's. False, with the set
  // untouched, for a missing, empty, foreign or damaged value.
  static bool Load(const zor::os::RegKey& key, std::u16string_view valueName, ZORPropertySet& set,
                   bool merge, bool overwriteExisting, bool addNew);
  // Writes `set` as the REG_BINARY value `valueName`. A set with an empty
  // value in it, or an empty set (logged), stores nothing and gives false.
  static bool Save(const zor::os::RegKey& key, std::u16string_view valueName,
                   const ZORPropertySet& set);
};
