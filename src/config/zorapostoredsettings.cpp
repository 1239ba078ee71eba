#include "config/zorapostoredsettings.h"

#include <cstdint>
#include <vector>

#include "core/zorlog.h"
#include "values/zorpropertyblob.h"
#include "values/zorpropertyset.h"

bool ZORAPOStoredSettings::Read(const zor::os::RegKey& key, std::u16string_view valueName,
                                ZORPropertyList& list) {
  list.clear();
  zor::os::RegType type = zor::os::RegType::None;
  std::vector<uint8_t> blob;
  if (key.ReadValue(valueName, type, blob) != zor::os::RegStatus::Ok ||
      type != zor::os::RegType::Binary || blob.empty()) {
    return false;
  }
  if (ZORPropertyBlob::Read(blob, list)) return true;
  list.clear();
  return false;
}

bool ZORAPOStoredSettings::Load(const zor::os::RegKey& key, std::u16string_view valueName,
                                ZORPropertySet& set, bool merge, bool overwriteExisting,
                                bool addNew) {
  ZORPropertyList incoming;
  if (!Read(key, valueName, incoming)) return false;
  if (merge) {
    set.MergeProperties(incoming, overwriteExisting, addNew);
  } else {
    set.SetAllProperties(incoming, false);
  }
  return true;
}

bool ZORAPOStoredSettings::Save(const zor::os::RegKey& key, std::u16string_view valueName,
                                const ZORPropertySet& set) {
  std::vector<uint8_t> blob;
  if (!set.GetAllPropertiesBinary(blob)) return false;
  if (blob.empty()) {
    ZOR_LOG("GetAllPropertiesBinary returned 0 length.\n");
    return false;
  }
  return key.WriteValue(valueName, zor::os::RegType::Binary, blob) == zor::os::RegStatus::Ok;
}
