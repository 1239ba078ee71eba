#pragma once
// ZORPropertySet: a small table from names to typed values, in insertion
// order, with observers, a dirty flag and one binary form (ZORPropertyBlob).
//
// Names compare case-insensitively, folding only A-Z; the stored spelling is
// the one of the first SetProperty. Lookup is a linear scan: the order is what
// the binary form keeps, and sets hold tens of entries.
//
// The set owns a clone of every value given to SetProperty and shares it with
// any list copied out of it. It is not synchronised: one thread at a time, or
// use ZORPropertySetThreadsafe. Observers run on the calling thread, inside
// the change. The operations call each other through virtual dispatch, so a
// subclass that overrides one (as the thread-safe set does) sees every use.
// Nothing here belongs on the audio thread.

#include <atomic>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "values/izorpropertysetnotify.h"
#include "values/zorproperty.h"

class ZORPropertySet {
 public:
  ZORPropertySet() = default;
  ZORPropertySet(const ZORPropertySet&) = delete;
  ZORPropertySet& operator=(const ZORPropertySet&) = delete;
  virtual ~ZORPropertySet() = default;

  // A copy of the list; the values are shared, not cloned.
  virtual void GetAllProperties(ZORPropertyList& list) const;
  // The blob of the whole list (see ZORPropertyBlob::Write for the result).
  virtual bool GetAllPropertiesBinary(std::vector<uint8_t>& blob) const;
  // Empties the list and appends the records of `blob` directly: no
  // observer, no duplicate check. A malformed record ends the read with
  // false and keeps what came before it. Sets the dirty flag either way.
  virtual bool SetAllPropertiesBinary(std::span<const uint8_t> blob);
  // Reads `blob` aside and merges it through MergeProperties, so changes
  // reach the observers; a malformed record ends the read quietly.
  virtual void MergePropertiesBinary(std::span<const uint8_t> blob, bool overwriteExisting,
                                     bool addNew);
  // Drops every entry; no notification, the dirty flag stays as it is.
  virtual void ClearAllProperties();
  // With `notify`, empties the list and stores each entry by SetProperty;
  // without it, takes the list as it is and tells no one. Sets the dirty flag.
  virtual void SetAllProperties(const ZORPropertyList& list, bool notify);
  // SetAllProperties(other's list, notify); nothing when other is this set.
  virtual void CopyProperties(const ZORPropertySet& other);
  // For each entry: an existing name is stored if `overwriteExisting`, a new
  // one if `addNew`, by SetProperty.
  virtual void MergeProperties(const ZORPropertyList& list, bool overwriteExisting, bool addNew);
  virtual void MergePropertySet(const ZORPropertySet& other, bool overwriteExisting, bool addNew);

  // Stores a clone of `value`. A new name is appended and announced by
  // NotifyChanged. For an existing name, NotifyChanging runs first; if the
  // stored value then equals the (possibly substituted) new one, nothing
  // changes. The name is taken up to its first NUL.
  virtual void SetProperty(std::u16string_view name, const VELAnyVal& value);
  virtual void SetPropertyAString(std::u16string_view name, std::string text);
  virtual void SetPropertyWString(std::u16string_view name, std::u16string text);
  virtual void SetPropertyLong(std::u16string_view name, int32_t number);

  // The stored value itself (shared, never a copy); null and false when the
  // name is absent.
  virtual bool GetProperty(std::u16string_view name, VELAnyValPtr& value) const;
  // False, with `text` untouched, when the name is absent; otherwise `text`
  // is cleared and the value's GetAString / GetWString decides.
  virtual bool GetPropertyAString(std::u16string_view name, std::string& text) const;
  virtual bool GetPropertyWString(std::u16string_view name, std::u16string& text) const;
  // Long, Int, Short and Bool as numbers, narrow and wide text as atoi
  // would read it (no number reads 0 and is still true). False, with
  // `number` untouched, for an absent name and for other kinds.
  virtual bool GetPropertyLong(std::u16string_view name, int32_t& number) const;

  // Any thread: the flag is atomic.
  virtual void SetDirty(bool dirty);
  virtual bool IsDirty() const;

  // The set keeps the pointer until RemoveNotify; adding twice keeps one.
  // Observers are called in the order of their addresses.
  virtual void AddNotify(IZORPropertySetNotify* observer);
  virtual void RemoveNotify(IZORPropertySetNotify* observer);
  // Sets the dirty flag, then calls OnPropertyChanged on every observer.
  virtual void NotifyChanged(const ZORProperty& property);
  // Calls OnPropertyChanging on every observer; true if any answered true.
  virtual bool NotifyChanging(ZORProperty& property);

  // Name equality of the set: same length, equal after folding A-Z only.
  static bool NamesEqual(std::u16string_view a, std::u16string_view b);

 private:
  ZORProperty* Find(std::u16string_view name);
  const ZORProperty* Find(std::u16string_view name) const;

  std::atomic<bool> m_bDirty{false};
  std::set<IZORPropertySetNotify*> m_observers;
  ZORPropertyList m_properties;
};
