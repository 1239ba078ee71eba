#pragma once
// ZORAPOModeId: what identifies an operating mode, the pair of an operating
// mode text and a speaker type text, so that one logical mode ("APO4-Music")
// can exist once per kind of speaker. The texts are free form; only the two
// unset texts mean anything to the code. A plain value: any thread may use
// its own copy.

#include <string>

#include "config/zorutsvalue.h"

class ZORUTSValueList;

class ZORAPOModeId {
 public:
  static constexpr const char* kOperatingModeName = "APO4-Operating Mode";
  static constexpr const char* kSpeakerTypeName = "APO4-Speaker Type";
  static constexpr const char* kUndefinedOperatingMode = "APO4-Undefined";
  static constexpr const char* kDisabledSpeakerType = "APO4-Disabled";

  // Both texts unset.
  ZORAPOModeId();
  ZORAPOModeId(std::string operatingModeText, std::string speakerTypeText);

  // Equal when both values have the same name and text.
  bool operator==(const ZORAPOModeId& other) const;
  bool operator!=(const ZORAPOModeId& other) const { return !(*this == other); }

  // Neither text is its unset text.
  bool IsDefined() const;
  // Empties `list` and puts the two values in it.
  void ToValueList(ZORUTSValueList& list) const;
  // Takes both texts from `list` (any kind of value is taken by its text),
  // the unset text for a name the list lacks; answers IsDefined.
  bool FromValueList(const ZORUTSValueList& list);
  // "ApoOpMode:<operating mode>/<speaker type>": the name under which the
  // mode's settings live in the registry and in shared memory.
  std::u16string ToRegistryName() const;

  ZORUTSValue operatingMode;
  ZORUTSValue speakerType;
};
