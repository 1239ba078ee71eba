#pragma once
// The control table of one kind of process: names, ranges, defaults, units
// and value names, and the records the host reads through GetControls.
// Each kind has one table, made on first use and kept for the module's
// life, so the records stay valid as long as any process lives. Any thread
// may read a table once it is made.

#include <cstdint>
#include <string>
#include <vector>

#include "veltech/veltech_abi.h"

namespace veltech {

struct ControlDefinition {
  std::string name;  // "Kind-Name", addressed as "InstanceId:Kind-Name"
  int32_t minimum = 0;
  int32_t maximum = 0;
  int32_t defaultValue = 0;
  int32_t unit = VELTECH_UNIT_PLAIN;
  // Names of the values 0, 1, ... of an enumerated control; static strings.
  std::vector<const char*> valueNames;
};

// The value names of an on/off control, in the words the engine reads as
// 0 and 1.
std::vector<const char*> OnOffNames();

class ControlTable {
 public:
  static constexpr int32_t kNotFound = -1;

  explicit ControlTable(std::vector<ControlDefinition> definitions);
  // The records point into the table: it never moves.
  ControlTable(const ControlTable&) = delete;
  ControlTable& operator=(const ControlTable&) = delete;

  size_t Size() const { return m_definitions.size(); }
  const ControlDefinition& Definition(size_t index) const { return m_definitions[index]; }
  const ZORTechControl* Records() const { return m_records.empty() ? nullptr : m_records.data(); }

  // The index of the control of exactly this name, or kNotFound.
  int32_t Find(const char* name) const;
  // `value` limited to the control's range.
  int32_t Clamp(size_t index, int32_t value) const;
  // Text for a control: the name of one of its values (any case), or a
  // whole number with an optional sign and nothing else. False for
  // anything else.
  bool ParseText(size_t index, const char* text, int32_t& value) const;
  // The name of an enumerated control's value, or null.
  const char* ValueName(size_t index, int32_t value) const;

 private:
  std::vector<ControlDefinition> m_definitions;
  std::vector<ZORTechControl> m_records;
};

}  // namespace veltech
