#include "values/zorpropertyset.h"

#include <climits>
#include <optional>

#include "values/zorpropertyblob.h"

namespace {

std::u16string_view UpToNul(std::u16string_view name) {
  const size_t nul = name.find(u'\0');
  return nul == std::u16string_view::npos ? name : name.substr(0, nul);
}

char16_t FoldAsciiUpper(char16_t unit) {
  return (unit >= u'A' && unit <= u'Z') ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
}

// The number at the start of `text` as atoi reads it: leading white space, an
// optional sign, then digits as far as they go; no digits read 0. Values
// beyond 32 bits saturate, so both platforms agree where atoi would not.
template <typename CharT>
int32_t ParseLeadingInteger(std::basic_string_view<CharT> text) {
  size_t i = 0;
  auto isSpace = [](CharT c) {
    return c == CharT(' ') || (c >= CharT('\t') && c <= CharT('\r'));
  };
  while (i < text.size() && isSpace(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == CharT('-') || text[i] == CharT('+'))) {
    negative = text[i] == CharT('-');
    ++i;
  }
  int64_t magnitude = 0;
  for (; i < text.size() && text[i] >= CharT('0') && text[i] <= CharT('9'); ++i) {
    magnitude = magnitude * 10 + (text[i] - CharT('0'));
    if (magnitude > int64_t{INT32_MAX} + 1) magnitude = int64_t{INT32_MAX} + 1;
  }
  const int64_t value = negative ? -magnitude : magnitude;
  return static_cast<int32_t>(value > INT32_MAX ? INT32_MAX : value);
}

template <typename Kind>
const Kind* As(const VELAnyVal& value) {
  return dynamic_cast<const Kind*>(&value);
}

}  // namespace

bool ZORPropertySet::NamesEqual(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (FoldAsciiUpper(a[i]) != FoldAsciiUpper(b[i])) return false;
  }
  return true;
}

ZORProperty* ZORPropertySet::Find(std::u16string_view name) {
  for (ZORProperty& entry : m_properties) {
    if (NamesEqual(entry.name, name)) return &entry;
  }
  return nullptr;
}

const ZORProperty* ZORPropertySet::Find(std::u16string_view name) const {
  return const_cast<ZORPropertySet*>(this)->Find(name);
}

void ZORPropertySet::GetAllProperties(ZORPropertyList& list) const {
  if (&list != &m_properties) list = m_properties;
}

bool ZORPropertySet::GetAllPropertiesBinary(std::vector<uint8_t>& blob) const {
  return ZORPropertyBlob::Write(m_properties, blob);
}

bool ZORPropertySet::SetAllPropertiesBinary(std::span<const uint8_t> blob) {
  m_properties.clear();
  const bool complete = ZORPropertyBlob::Read(blob, m_properties);
  SetDirty(true);
  return complete;
}

void ZORPropertySet::MergePropertiesBinary(std::span<const uint8_t> blob, bool overwriteExisting,
                                           bool addNew) {
  ZORPropertyList incoming;
  ZORPropertyBlob::Read(blob, incoming);
  if (!incoming.empty()) MergeProperties(incoming, overwriteExisting, addNew);
}

void ZORPropertySet::ClearAllProperties() { m_properties.clear(); }

void ZORPropertySet::SetAllProperties(const ZORPropertyList& list, bool notify) {
  if (notify) {
    // The list may be a copy of this set's own; take it aside before
    // emptying.
    const ZORPropertyList incoming = list;
    m_properties.clear();
    for (const ZORProperty& entry : incoming) {
      if (entry.value) SetProperty(entry.name, *entry.value);
    }
  } else if (&list != &m_properties) {
    m_properties = list;
  }
  SetDirty(true);
}

void ZORPropertySet::CopyProperties(const ZORPropertySet& other) {
  if (&other == this) return;
  ZORPropertyList list;
  other.GetAllProperties(list);
  SetAllProperties(list, true);
}

void ZORPropertySet::MergeProperties(const ZORPropertyList& list, bool overwriteExisting,
                                     bool addNew) {
  for (const ZORProperty& entry : list) {
    if (!entry.value) continue;
    VELAnyValPtr existing;
    const bool exists = GetProperty(entry.name, existing);
    if (exists ? overwriteExisting : addNew) SetProperty(entry.name, *entry.value);
  }
}

void ZORPropertySet::MergePropertySet(const ZORPropertySet& other, bool overwriteExisting,
                                      bool addNew) {
  ZORPropertyList list;
  other.GetAllProperties(list);
  MergeProperties(list, overwriteExisting, addNew);
}

void ZORPropertySet::SetProperty(std::u16string_view name, const VELAnyVal& value) {
  name = UpToNul(name);
  const VELAnyValPtr stored = value.Clone();
  ZORProperty* existing = Find(name);
  if (existing == nullptr) {
    m_properties.push_back(ZORProperty{std::u16string(name), stored});
    // A copy: an observer that adds to the set moves the list's storage.
    const ZORProperty added = m_properties.back();
    NotifyChanged(added);
    return;
  }

  ZORProperty pending{existing->name, stored};
  NotifyChanging(pending);
  // The observers may have changed the list; look again.
  existing = Find(name);
  if (existing != nullptr && existing->value && existing->value->IsEqual(pending.value.get())) {
    return;
  }
  if (existing != nullptr) {
    existing->value = stored;
  } else {
    m_properties.push_back(ZORProperty{pending.name, stored});
  }
  NotifyChanged(pending);
}

void ZORPropertySet::SetPropertyAString(std::u16string_view name, std::string text) {
  SetProperty(name, VELAnyValAString(std::move(text)));
}

void ZORPropertySet::SetPropertyWString(std::u16string_view name, std::u16string text) {
  SetProperty(name, VELAnyValWString(std::move(text)));
}

void ZORPropertySet::SetPropertyLong(std::u16string_view name, int32_t number) {
  SetProperty(name, VELAnyValLong(number));
}

bool ZORPropertySet::GetProperty(std::u16string_view name, VELAnyValPtr& value) const {
  value.reset();
  const ZORProperty* entry = Find(UpToNul(name));
  if (entry == nullptr) return false;
  value = entry->value;
  return true;
}

bool ZORPropertySet::GetPropertyAString(std::u16string_view name, std::string& text) const {
  VELAnyValPtr value;
  if (!GetProperty(name, value)) return false;
  text.clear();
  return value && value->GetAString(text);
}

bool ZORPropertySet::GetPropertyWString(std::u16string_view name, std::u16string& text) const {
  VELAnyValPtr value;
  if (!GetProperty(name, value)) return false;
  text.clear();
  return value && value->GetWString(text);
}

bool ZORPropertySet::GetPropertyLong(std::u16string_view name, int32_t& number) const {
  VELAnyValPtr value;
  if (!GetProperty(name, value) || !value) return false;
  std::optional<int32_t> result;
  switch (value->GetType()) {
    case VEL_ANYVAL_LONG:
      if (const auto* v = As<VELAnyValLong>(*value)) result = v->GetValue();
      break;
    case VEL_ANYVAL_INT:
      if (const auto* v = As<VELAnyValInt>(*value)) result = v->GetValue();
      break;
    case VEL_ANYVAL_SHORT:
      if (const auto* v = As<VELAnyValShort>(*value)) result = v->GetValue();
      break;
    case VEL_ANYVAL_BOOL:
      if (const auto* v = As<VELAnyValBool>(*value)) result = v->GetValue();
      break;
    case VEL_ANYVAL_ASTRING:
      if (const auto* v = As<VELAnyValAString>(*value)) {
        result = ParseLeadingInteger(std::string_view(v->GetValue()));
      }
      break;
    case VEL_ANYVAL_WSTRING:
      if (const auto* v = As<VELAnyValWString>(*value)) {
        result = ParseLeadingInteger(std::u16string_view(v->GetValue()));
      }
      break;
    default:
      break;
  }
  if (!result) return false;
  number = *result;
  return true;
}

void ZORPropertySet::SetDirty(bool dirty) { m_bDirty.store(dirty); }

bool ZORPropertySet::IsDirty() const { return m_bDirty.load(); }

void ZORPropertySet::AddNotify(IZORPropertySetNotify* observer) {
  if (observer != nullptr) m_observers.insert(observer);
}

void ZORPropertySet::RemoveNotify(IZORPropertySetNotify* observer) { m_observers.erase(observer); }

// Observers may add or remove observers from their callback: each step finds
// the next one anew instead of holding an iterator across the call.
void ZORPropertySet::NotifyChanged(const ZORProperty& property) {
  SetDirty(true);
  for (auto it = m_observers.begin(); it != m_observers.end();) {
    IZORPropertySetNotify* observer = *it;
    observer->OnPropertyChanged(*this, property);
    it = m_observers.upper_bound(observer);
  }
}

bool ZORPropertySet::NotifyChanging(ZORProperty& property) {
  int answeredTrue = 0;
  for (auto it = m_observers.begin(); it != m_observers.end();) {
    IZORPropertySetNotify* observer = *it;
    if (observer->OnPropertyChanging(*this, property)) ++answeredTrue;
    it = m_observers.upper_bound(observer);
  }
  return answeredTrue != 0;
}
