#include "controltable.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace veltech {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualsIgnoringCase(const char* a, const char* b) {
  for (; *a != '\0' && *b != '\0'; ++a, ++b) {
    if (Lower(*a) != Lower(*b)) return false;
  }
  return *a == *b;
}

// "[+-]digits" and nothing else; saturates far outside any control's range.
bool ParseWholeNumber(const char* text, int32_t& value) {
  const char* p = text;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (*p == '\0') return false;
  int64_t magnitude = 0;
  for (; *p != '\0'; ++p) {
    if (*p < '0' || *p > '9') return false;
    magnitude = std::min<int64_t>(magnitude * 10 + (*p - '0'), int64_t{1} << 32);
  }
  const int64_t signedValue = negative ? -magnitude : magnitude;
  value = static_cast<int32_t>(std::clamp<int64_t>(signedValue, std::numeric_limits<int32_t>::min(),
                                                   std::numeric_limits<int32_t>::max()));
  return true;
}

}  // namespace

std::vector<const char*> OnOffNames() { return {"Disabled", "Enabled"}; }

ControlTable::ControlTable(std::vector<ControlDefinition> definitions) : m_definitions(std::move(definitions)) {
  m_records.reserve(m_definitions.size());
  for (const ControlDefinition& definition : m_definitions) {
    ZORTechControl record{};
    record.name = definition.name.c_str();
    record.first = definition.minimum;
    record.second = definition.maximum;
    record.defaultValue = definition.defaultValue;
    record.enumCount = static_cast<uint32_t>(definition.valueNames.size());
    record.enumNames = definition.valueNames.empty() ? nullptr : definition.valueNames.data();
    record.unit = definition.unit;
    m_records.push_back(record);
  }
}

int32_t ControlTable::Find(const char* name) const {
  if (name == nullptr) return kNotFound;
  for (size_t i = 0; i < m_definitions.size(); ++i) {
    if (m_definitions[i].name == name) return static_cast<int32_t>(i);
  }
  return kNotFound;
}

int32_t ControlTable::Clamp(size_t index, int32_t value) const {
  return std::clamp(value, m_definitions[index].minimum, m_definitions[index].maximum);
}

bool ControlTable::ParseText(size_t index, const char* text, int32_t& value) const {
  if (text == nullptr) return false;
  const std::vector<const char*>& names = m_definitions[index].valueNames;
  for (size_t i = 0; i < names.size(); ++i) {
    if (EqualsIgnoringCase(text, names[i])) {
      value = static_cast<int32_t>(i);
      return true;
    }
  }
  return ParseWholeNumber(text, value);
}

const char* ControlTable::ValueName(size_t index, int32_t value) const {
  const std::vector<const char*>& names = m_definitions[index].valueNames;
  if (value < 0 || static_cast<size_t>(value) >= names.size()) return nullptr;
  return names[static_cast<size_t>(value)];
}

}  // namespace veltech
