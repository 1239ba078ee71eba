#include "values/zorpropertysetthreadsafe.h"

#include "core/zorscopedlock.h"

void ZORPropertySetThreadsafe::GetAllProperties(ZORPropertyList& list) const {
  ZORScopedLock lock(m_lock);
  ZORPropertySet::GetAllProperties(list);
}

bool ZORPropertySetThreadsafe::GetAllPropertiesBinary(std::vector<uint8_t>& blob) const {
  ZORScopedLock lock(m_lock);
  return ZORPropertySet::GetAllPropertiesBinary(blob);
}

bool ZORPropertySetThreadsafe::SetAllPropertiesBinary(std::span<const uint8_t> blob) {
  ZORScopedLock lock(m_lock);
  return ZORPropertySet::SetAllPropertiesBinary(blob);
}

void ZORPropertySetThreadsafe::ClearAllProperties() {
  ZORScopedLock lock(m_lock);
  ZORPropertySet::ClearAllProperties();
}

void ZORPropertySetThreadsafe::SetAllProperties(const ZORPropertyList& list, bool notify) {
  ZORScopedLock lock(m_lock);
  ZORPropertySet::SetAllProperties(list, notify);
}

void ZORPropertySetThreadsafe::MergePropertySet(const ZORPropertySet& other,
                                                bool overwriteExisting, bool addNew) {
  ZORPropertyList list;
  other.GetAllProperties(list);
  ZORScopedLock lock(m_lock);
  MergeProperties(list, overwriteExisting, addNew);
}

void ZORPropertySetThreadsafe::SetProperty(std::u16string_view name, const VELAnyVal& value) {
  ZORScopedLock lock(m_lock);
  ZORPropertySet::SetProperty(name, value);
}

bool ZORPropertySetThreadsafe::GetProperty(std::u16string_view name, VELAnyValPtr& value) const {
  ZORScopedLock lock(m_lock);
  return ZORPropertySet::GetProperty(name, value);
}

void ZORPropertySetThreadsafe::AddNotify(IZORPropertySetNotify* observer) {
  ZORScopedLock lock(m_lock);
  ZORPropertySet::AddNotify(observer);
}

void ZORPropertySetThreadsafe::RemoveNotify(IZORPropertySetNotify* observer) {
  ZORScopedLock lock(m_lock);
  ZORPropertySet::RemoveNotify(observer);
}
