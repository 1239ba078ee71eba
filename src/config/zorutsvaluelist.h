#pragma once
// ZORUTSValueList: tuning values keyed by their exact name, with the merge
// algebra that stacks configuration defaults, public settings and tuning on
// one another, and the bridge to property sets.
//
// Iteration order carries no meaning. Lists are built and merged on worker
// threads during setup and chain building, one thread per list; never on the
// audio thread.

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

#include "config/zorutsnamelist.h"
#include "config/zorutsvalue.h"

class ZORPropertySet;

enum ZORUTSMergeMode : int {
  // This list becomes a copy of the source.
  MergeReplace = 0,
  // MergeUpdate, then MergeAddMissing.
  MergeOverlay = 1,
  // Source values replace the values of names present here; others are ignored.
  MergeUpdate = 2,
  // Source values of names absent here are added; present names keep theirs.
  MergeAddMissing = 3,
  // Every name of the source is removed here, whatever its value.
  MergeRemove = 4,
};

class ZORUTSValueList {
 public:
  using Map = std::unordered_map<std::string, ZORUTSValue>;

  ZORUTSValueList() = default;
  ZORUTSValueList(const ZORUTSValueList&) = default;
  ZORUTSValueList& operator=(const ZORUTSValueList&) = default;
  virtual ~ZORUTSValueList() = default;

  // The stored value of that exact name, or null.
  virtual ZORUTSValue* Find(const std::string& name);
  virtual ZORUTSValue* Find(const char* name);
  virtual const ZORUTSValue* Find(const std::string& name) const;
  virtual const ZORUTSValue* Find(const char* name) const;
  // Any other mode acts as MergeReplace. Merging a list into itself changes
  // nothing, except MergeRemove, which empties it.
  virtual void Merge(const ZORUTSValueList& source, int mode);
  virtual void RemoveNames(const ZORUTSNameList& names);

  // Adds `value` under its name, replacing a value of that name.
  void Insert(const ZORUTSValue& value);
  void Clear() { m_values.clear(); }
  size_t Size() const { return m_values.size(); }
  bool IsEmpty() const { return m_values.empty(); }
  Map::const_iterator begin() const { return m_values.begin(); }
  Map::const_iterator end() const { return m_values.end(); }

  // Becomes a copy of `source` and answers true if the two differ: in size,
  // or in the text of a name both hold. A source name missing here with equal
  // sizes is no difference.
  bool ReplaceIfChanged(const ZORUTSValueList& source);

  // Every value reaches the set as text (numbers too), under its widened
  // name, in name order so the set's blob is the same on every platform.
  void WriteToSet(ZORPropertySet& set) const;
  // A list with entries is refreshed: each name found in the set takes the
  // property's content (Long stays a number, narrow text stays, wide text
  // becomes narrow, other kinds leave the entry alone); no name is added. An
  // empty list is filled with every property of such a kind.
  void ReadFromSet(const ZORPropertySet& set);

 private:
  Map m_values;
};
