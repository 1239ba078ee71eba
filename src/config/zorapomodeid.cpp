#include "config/zorapomodeid.h"

#include "config/zorutsvaluelist.h"

namespace {

// The value keeps its own name and takes the list's text, whatever the kind
// of the list's value: a number becomes its text.
void TakeText(ZORUTSValue& value, const ZORUTSValueList& list, const char* name,
              const char* unsetText) {
  const ZORUTSValue* found = list.Find(name);
  value.SetText(found != nullptr ? found->GetText() : std::string(unsetText));
}

}  // namespace

ZORAPOModeId::ZORAPOModeId() : ZORAPOModeId(kUndefinedOperatingMode, kDisabledSpeakerType) {}

ZORAPOModeId::ZORAPOModeId(std::string operatingModeText, std::string speakerTypeText)
    : operatingMode(kOperatingModeName, std::move(operatingModeText)),
      speakerType(kSpeakerTypeName, std::move(speakerTypeText)) {}

bool ZORAPOModeId::operator==(const ZORAPOModeId& other) const {
  return operatingMode == other.operatingMode && speakerType == other.speakerType;
}

bool ZORAPOModeId::IsDefined() const {
  return !operatingMode.TextEquals(kUndefinedOperatingMode) &&
         !speakerType.TextEquals(kDisabledSpeakerType);
}

void ZORAPOModeId::ToValueList(ZORUTSValueList& list) const {
  list.Clear();
  list.Insert(operatingMode);
  list.Insert(speakerType);
}

bool ZORAPOModeId::FromValueList(const ZORUTSValueList& list) {
  TakeText(operatingMode, list, kOperatingModeName, kUndefinedOperatingMode);
  TakeText(speakerType, list, kSpeakerTypeName, kDisabledSpeakerType);
  return IsDefined();
}

std::u16string ZORAPOModeId::ToRegistryName() const {
  return u"ApoOpMode:" + operatingMode.GetTextW() + u"/" + speakerType.GetTextW();
}
