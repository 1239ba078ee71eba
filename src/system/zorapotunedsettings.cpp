#include "system/zorapotunedsettings.h"

#include "system/zorapoendpointinfo.h"

ZORAPOTunedSettings::ZORAPOTunedSettings() { block.SetPropertySet(&settings); }

ZORAPOTunedSettings::~ZORAPOTunedSettings() { block.SetPropertySet(nullptr); }

std::u16string ZORAPOTunedSettings::BlockName(std::u16string_view endpointGuidText,
                                              const ZORAPOModeId& modeId) {
  return u"Global\\" + std::u16string(endpointGuidText) + modeId.ToRegistryName();
}

bool ZORAPOTunedSettings::Open(const ZORAPOEndpointInfo& endpoint, const ZORAPOOperatingMode& mode,
                               bool existingOnly) {
  return OpenNamed(BlockName(endpoint.GetEndpointGuid().Text(), mode.GetModeId()), mode,
                   existingOnly);
}

bool ZORAPOTunedSettings::OpenNamed(std::u16string_view blockName, const ZORAPOOperatingMode& mode,
                                    bool existingOnly) {
  if (existingOnly && !ZORSharedMemory::Exists(blockName)) return false;
  ZORUTSValueList controls = mode.GetPublicControls();
  controls.Merge(mode.GetTunedControls(), MergeOverlay);
  settings.ClearAllProperties();
  controls.WriteToSet(settings);
  settings.SetPropertyLong(kTuningModeName, 0);
  block.SetPropertySet(&settings);
  return block.Open(blockName, 0);
}

bool ZORAPOTunedSettings::Close() { return block.Close(); }

bool ZORAPOTunedSettings::IsOpen() const { return block.IsOpen(); }

bool ZORAPOTunedSettings::WriteControl(const ZORUTSValue& value) {
  const std::u16string name = value.GetNameW();
  VELAnyValPtr stored;
  if (!settings.GetProperty(name, stored)) return false;
  settings.SetPropertyAString(name, value.GetText());  // text, as WriteToSet stores it
  return block.Write() == 0;
}

bool ZORAPOTunedSettings::WriteAll(const ZORUTSValueList& list) {
  list.WriteToSet(settings);
  return block.Write() == 0;
}

bool ZORAPOTunedSettings::ReadAll(ZORUTSValueList& list, bool clearFirst) {
  if (clearFirst) list.Clear();
  const bool read = block.Read(true, true, true) == 0;
  list.ReadFromSet(settings);
  return read;
}

uint32_t ZORAPOTunedSettings::ClearAll() {
  settings.ClearAllProperties();
  return block.Write();
}

int32_t ZORAPOTunedSettings::GetTuningMode(bool reload) {
  if (reload) block.Read(true, true, true);
  int32_t mode = 0;
  return settings.GetPropertyLong(kTuningModeName, mode) ? mode : 0;
}

void ZORAPOTunedSettings::StackOnto(int32_t tuningMode, const ZORUTSValueList& tuned,
                                    const ZORUTSValueList& publicSettings,
                                    ZORUTSValueList& controls) {
  switch (tuningMode) {
    case 0:
      controls.Merge(publicSettings, MergeUpdate);
      break;
    case 1:  // a user's setting beats tuning
      controls.Merge(tuned, MergeUpdate);
      controls.Merge(publicSettings, MergeUpdate);
      break;
    case 2:  // tuning beats a user's setting
      controls.Merge(publicSettings, MergeUpdate);
      controls.Merge(tuned, MergeUpdate);
      break;
    default:
      break;
  }
}
