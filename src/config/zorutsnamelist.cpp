#include "config/zorutsnamelist.h"

#include <algorithm>

bool ZORUTSNameList::Contains(std::string_view name) const {
  return std::find(begin(), end(), name) != end();
}

void ZORUTSNameList::Remove(std::string_view name) {
  const auto found = std::find(begin(), end(), name);
  if (found != end()) erase(found);
}
