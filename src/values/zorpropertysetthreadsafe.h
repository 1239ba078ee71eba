#pragma once
// ZORPropertySetThreadsafe: a ZORPropertySet that threads may share.
//
// One recursive lock guards the list and the observer table. Only the
// operations that touch them directly take it; everything else reaches them
// through those, so a merge or a typed getter is not atomic as a whole: a
// reader may see a merge half done, and a typed getter converts the value
// after the lock is released (the value itself is shared and immutable, so it
// stays readable). Observers run with the lock held, on the changing thread:
// they may call back into this set, but must not wait for a thread that
// needs it. The dirty flag is atomic and never waits for the lock.
//
// Lock order: a shared-memory mutex is taken before this lock, never after.

#include "platform/criticalsection.h"
#include "values/zorpropertyset.h"

class ZORPropertySetThreadsafe : public ZORPropertySet {
 public:
  ZORPropertySetThreadsafe() = default;

  void GetAllProperties(ZORPropertyList& list) const override;
  bool GetAllPropertiesBinary(std::vector<uint8_t>& blob) const override;
  bool SetAllPropertiesBinary(std::span<const uint8_t> blob) override;
  void ClearAllProperties() override;
  void SetAllProperties(const ZORPropertyList& list, bool notify) override;
  // Takes the other set's list first and only then this set's lock, so two
  // sets merged into each other from two threads cannot deadlock.
  void MergePropertySet(const ZORPropertySet& other, bool overwriteExisting,
                        bool addNew) override;
  void SetProperty(std::u16string_view name, const VELAnyVal& value) override;
  bool GetProperty(std::u16string_view name, VELAnyValPtr& value) const override;
  void AddNotify(IZORPropertySetNotify* observer) override;
  void RemoveNotify(IZORPropertySetNotify* observer) override;

 private:
  mutable zor::os::CriticalSection m_lock;
};
