#include "apo/zorapoeffecttables.h"

#include <span>
#include <string>

#include "config/zorutsvaluelist.h"

namespace {

struct Row {
  const char* key;
  uint8_t xx;
};

constexpr Row kSFX[] = {
    {"SFX:Corvo-TK Enable", 0xC4},    {"SFX:Corvo-RV Enable", 0xC3},   {"SFX:Corvo-W5GZ Enable", 0xC6},
    {"SFX:Corvo-NDEQ MODE", 0xC3},    {"SFX:Corvo-MYLEQ MODE", 0xC3},  {"SFX:Corvo-LOWKZ Enable", 0xC5},
    {"SFX:Corvo-BEQ Enable", 0xC3},   {"SFX:Corvo-RUF Enable", 0xCC},  {"SFX:Corvo-CRSL Enable", 0xCE},
    {"SFX:Corvo-TEQ Enable", 0xCD},
};
constexpr Row kEFX[] = {
    {"EFX:Corvo-RUF Enable", 0xCC},
    {"EFX:Corvo-TEQ Enable", 0xCD},
    {"EFX:Corvo-CRSL Enable", 0xCC},
};
constexpr Row kMFX[] = {
    {"MFX:Corvo-W5GZ Device Enable", 0xCD}, {"MFX:Corvo-NDEQ MODE", 0xC3},  {"MFX:Corvo-MYLEQ MODE", 0xC3},
    {"MFX:Corvo-LOWKZ Enable", 0xC5},       {"MFX:Corvo-BEQ Enable", 0xC3}, {"MFX:Corvo-RUF Enable", 0xCC},
    {"MFX:Corvo-CRSL Enable", 0xCE},        {"MFX:Corvo-TEQ Enable", 0xCD},
};
constexpr uint8_t kHeadphoneSurround = 0xC7;

std::span<const Row> Rows(ZORAPOEffectTables::Table table) {
  switch (table) {
    case ZORAPOEffectTables::Table::SFX: return kSFX;
    case ZORAPOEffectTables::Table::EFX: return kEFX;
    case ZORAPOEffectTables::Table::MFX: return kMFX;
    case ZORAPOEffectTables::Table::None: break;
  }
  return {};
}

bool Holds(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

}  // namespace

ZORAPOEffectTables::Table ZORAPOEffectTables::ForLocation(uint32_t location) {
  switch (location) {
    case 1:
    case 4: return Table::SFX;
    case 3: return Table::EFX;
    case 2:
    case 5: return Table::MFX;
    default: return Table::None;
  }
}

GUID ZORAPOEffectTables::EffectType(uint8_t xx) {
  return {0x6F64AD00u | xx, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}};
}

std::vector<GUID> ZORAPOEffectTables::Select(Table table, const ZORUTSValueList& values,
                                             std::string_view modeName) {
  std::vector<GUID> ids;
  const bool headphoneMode = Holds(modeName, "APO4-Headphone");
  for (const Row& row : Rows(table)) {
    const ZORUTSValue* value = values.Find(row.key);
    if (!value) continue;
    const std::string text = value->GetText();
    bool on = text == "1";
    // Equalisers report their preset's name rather than a switch.
    if (table != Table::EFX) on = on || Holds(text, "LevelTrackEQ") || Holds(text, "ProfileEQ");
    if (!on) continue;
    const bool headphoneSurround =
        table == Table::SFX && headphoneMode && Holds(row.key, "Corvo-W5GZ Enable");
    ids.push_back(EffectType(headphoneSurround ? kHeadphoneSurround : row.xx));
  }
  return ids;
}
