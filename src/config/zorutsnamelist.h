#pragma once
// ZORUTSNameList: an ordered list of control names. One thread at a time.

#include <string>
#include <string_view>
#include <vector>

class ZORUTSNameList : public std::vector<std::string> {
 public:
  using std::vector<std::string>::vector;
  virtual ~ZORUTSNameList() = default;

  virtual bool Contains(std::string_view name) const;
  // Erases the first entry equal to `name`; the rest keep their order.
  virtual void Remove(std::string_view name);
};
