#pragma once
// ZORProperty: one entry of a property set, a wide name and a shared value.
// ZORPropertyList: the entries in order; copying a list shares the values.

#include <string>
#include <vector>

#include "values/velanyval.h"

struct ZORProperty {
  std::u16string name;
  // Shared with the set that holds it: a list copied out of a set stays
  // readable after the set replaces or drops the entry.
  VELAnyValPtr value;
};

using ZORPropertyList = std::vector<ZORProperty>;
