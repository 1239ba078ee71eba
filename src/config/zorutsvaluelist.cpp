#include "config/zorutsvaluelist.h"

#include <algorithm>
#include <vector>

#include "platform/text.h"
#include "values/zorpropertyset.h"

ZORUTSValue* ZORUTSValueList::Find(const std::string& name) {
  const auto found = m_values.find(name);
  return found == m_values.end() ? nullptr : &found->second;
}

ZORUTSValue* ZORUTSValueList::Find(const char* name) {
  return name == nullptr ? nullptr : Find(std::string(name));
}

const ZORUTSValue* ZORUTSValueList::Find(const std::string& name) const {
  const auto found = m_values.find(name);
  return found == m_values.end() ? nullptr : &found->second;
}

const ZORUTSValue* ZORUTSValueList::Find(const char* name) const {
  return name == nullptr ? nullptr : Find(std::string(name));
}

void ZORUTSValueList::Merge(const ZORUTSValueList& source, int mode) {
  if (&source == this) {
    if (mode == MergeRemove) m_values.clear();
    return;
  }
  switch (mode) {
    case MergeOverlay:
      Merge(source, MergeUpdate);
      Merge(source, MergeAddMissing);
      break;
    case MergeUpdate:
      for (const auto& [name, value] : source.m_values) {
        if (ZORUTSValue* here = Find(name)) *here = value;
      }
      break;
    case MergeAddMissing:
      for (const auto& entry : source.m_values) m_values.insert(entry);
      break;
    case MergeRemove:
      for (const auto& entry : source.m_values) m_values.erase(entry.first);
      break;
    case MergeReplace:
    default:
      m_values = source.m_values;
      break;
  }
}

void ZORUTSValueList::RemoveNames(const ZORUTSNameList& names) {
  for (const std::string& name : names) m_values.erase(name);
}

void ZORUTSValueList::Insert(const ZORUTSValue& value) { m_values[value.name] = value; }

bool ZORUTSValueList::ReplaceIfChanged(const ZORUTSValueList& source) {
  bool differ = source.m_values.size() != m_values.size();
  for (auto it = source.m_values.begin(); !differ && it != source.m_values.end(); ++it) {
    const ZORUTSValue* here = Find(it->first);
    differ = here != nullptr && *here != it->second;
  }
  if (differ && &source != this) m_values = source.m_values;
  return differ;
}

void ZORUTSValueList::WriteToSet(ZORPropertySet& set) const {
  std::vector<const ZORUTSValue*> ordered;
  ordered.reserve(m_values.size());
  for (const auto& entry : m_values) ordered.push_back(&entry.second);
  std::sort(ordered.begin(), ordered.end(),
            [](const ZORUTSValue* a, const ZORUTSValue* b) { return a->name < b->name; });
  for (const ZORUTSValue* value : ordered) {
    set.SetPropertyAString(value->GetNameW(), value->GetText());
  }
}

void ZORUTSValueList::ReadFromSet(const ZORPropertySet& set) {
  if (m_values.empty()) {
    ZORPropertyList properties;
    set.GetAllProperties(properties);
    for (const ZORProperty& property : properties) {
      ZORUTSValue value;
      if (ZORUTSValue::FromProperty(property, value)) Insert(value);
    }
    return;
  }
  for (auto& [name, entry] : m_values) {
    ZORProperty property{entry.GetNameW(), nullptr};
    if (!set.GetProperty(property.name, property.value)) continue;
    ZORUTSValue converted;
    if (ZORUTSValue::FromProperty(property, converted)) entry.value = converted.value;
  }
}
