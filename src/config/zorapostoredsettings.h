#pragma once
// ZORAPOStoredSettings: reads one settings value of an endpoint's key (the
// stored mode, the global settings, a mode's public settings) into a set.
//
// Any process that can write the key can write these values, so a blob is
// taken only when it parses to its end: a damaged or hostile value is a
// failed load and leaves the set as it was, where a plain merge would take
// the records before the damage and call it success. The blob is read and
// checked before the set is touched. Owner's thread; not the audio thread.

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
};
