#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/com.h"

class ZORUTSValueList;

// Which known effect types an object reports switched on, from the tuning
// values of its endpoint's current mode. Each location has a table of setting
// keys with the effect type each stands for; the repeats in a table are
// wanted, one id per row that is on. Tables are built once, thread-safely;
// Select is pure and runs on any thread.
class ZORAPOEffectTables {
 public:
  enum class Table { None, SFX, EFX, MFX };

  // SFX for 1 and 4, EFX for 3, MFX for 2 and 5; none for 0 and unknown codes.
  static Table ForLocation(uint32_t location);

  // The ids of the rows of `table` that are on in `values`, in table order.
  // A row is on for a value of exactly "1"; in SFX and MFX also for text that
  // holds "LevelTrackEQ" or "ProfileEQ". An SFX surround row that is on in a
  // mode whose name holds "APO4-Headphone" reports the headphone type.
  static std::vector<GUID> Select(Table table, const ZORUTSValueList& values, std::string_view modeName);

  // The effect type {6F64ADxx-8211-11E2-8C70-2C27D7F001FA} for `xx`.
  static GUID EffectType(uint8_t xx);
};
