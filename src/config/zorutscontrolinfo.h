#pragma once
// ZORUTSControlInfo: what a tech process says about one of its controls.
//
// Filled from the control record that the tech module hands out, 48 bytes on
// 64-bit builds, in the module's memory:
//
//   offset  size  field
//   0       8     pointer to the control's name, a terminated narrow string
//   8       4     first  (int32, the module's own meaning)
//   12      4     second (int32, the module's own meaning)
//   16      8     not read
//   24      4     count of enumerated value names (uint32)
//   28      4     not read
//   32      8     pointer to that many pointers to terminated names, or null
//   40      4     type (int32); 2 means values scale by 100
//   44      4     raw word, copied into `scale` by SetFromRawDescriptor
//
// The record is read field by field at these offsets, so no struct of the
// module's compiler has to match ours. Worker threads only.

#include <cstdint>
#include <string>
#include <string_view>

#include "config/zorutsnamelist.h"

class ZORUTSControlInfo {
 public:
  static constexpr size_t kRecordSize = 48;

  ZORUTSControlInfo() = default;
  ZORUTSControlInfo(const ZORUTSControlInfo&) = default;
  ZORUTSControlInfo& operator=(const ZORUTSControlInfo&) = default;
  virtual ~ZORUTSControlInfo() = default;

  // Name, first, second, type and the enumerated names from `record`, and
  // `scale` as the record's last word. A null record changes nothing.
  virtual void SetFromRawDescriptor(const void* record);
  // As above, but `scale` becomes the float 100.0 for type 2, else 1.0.
  virtual void SetFromDescriptor(const void* record);
  virtual void SetName(std::string_view controlName);

  // `scale` as a float, for the records whose last word is one.
  float GetScale() const;

  std::string name;
  int32_t first = 0;
  int32_t second = 0;
  int32_t type = 0;
  // The bits of a float (SetFromDescriptor) or the module's raw word.
  uint32_t scale = 0;
  ZORUTSNameList enumNames;

 private:
  void ReadCommonFields(const void* record);
};
