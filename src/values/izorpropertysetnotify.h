#pragma once
// Observer of a ZORPropertySet. Called on the thread that changes the set,
// inside the change (and inside the lock of a ZORPropertySetThreadsafe), so
// an observer may read or write the same set but must not wait for another
// thread that needs it.

#include "values/zorproperty.h"

class ZORPropertySet;

class IZORPropertySetNotify {
 public:
  virtual ~IZORPropertySetNotify() = default;
  // After a property was added or changed.
  virtual void OnPropertyChanged(ZORPropertySet& set, const ZORProperty& property) = 0;
  // Before an existing property changes. The observer may point
  // property.value at another value, which then takes the place of the new
  // value in the "did it change" test and in OnPropertyChanged; the stored
  // value is still the one the caller gave. The answer is collected but
  // decides nothing today.
  virtual bool OnPropertyChanging(ZORPropertySet& set, ZORProperty& property) = 0;
};
