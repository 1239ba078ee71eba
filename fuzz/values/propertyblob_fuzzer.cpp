// Fuzzes the property blob reader, the parser of registry values and shared
// memory that any local program may have written. Beyond "no crash, no
// over-read", it checks that whatever the reader accepted survives a write
// and a second read unchanged, so a hostile blob can never turn a good
// setting into a lost one.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "values/zorpropertyblob.h"
#include "values/zorpropertyset.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::vector<uint8_t> PayloadOf(const VELAnyVal& value) {
  std::vector<uint8_t> bytes(value.GetSize());
  if (!bytes.empty()) Require(value.GetData(bytes.data(), value.GetSize()) == bytes.size());
  return bytes;
}

// Counts observer calls, so the merge path runs its notifications too.
struct CountingObserver : IZORPropertySetNotify {
  void OnPropertyChanged(ZORPropertySet&, const ZORProperty&) override { ++changed; }
  bool OnPropertyChanging(ZORPropertySet&, ZORProperty&) override { return false; }
  int changed = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> blob(data, size);

  ZORPropertySet set;
  set.SetAllPropertiesBinary(blob);
  ZORPropertyList read;
  set.GetAllProperties(read);
  for (const ZORProperty& entry : read) {
    Require(!entry.name.empty() && entry.value != nullptr);
    std::string narrow;
    std::u16string wide;
    entry.value->GetAString(narrow);
    entry.value->GetWString(wide);
    int32_t number = 0;
    set.GetPropertyLong(entry.name, number);
  }

  // Round trip: every entry with a payload is written and read back as it was.
  std::vector<uint8_t> written;
  const bool complete = set.GetAllPropertiesBinary(written);
  ZORPropertyList kept;
  for (const ZORProperty& entry : read) {
    if (entry.value->GetSize() != 0) kept.push_back(entry);
  }
  Require(complete == (kept.size() == read.size()));
  ZORPropertyList reread;
  if (!written.empty()) Require(ZORPropertyBlob::Read(written, reread));
  Require(reread.size() == kept.size());
  for (size_t i = 0; i < kept.size(); ++i) {
    Require(reread[i].name == kept[i].name);
    Require(reread[i].value->GetType() == kept[i].value->GetType());
    Require(PayloadOf(*reread[i].value) == PayloadOf(*kept[i].value));
  }

  // The merge path, with observers, on a set that already holds entries.
  ZORPropertySet target;
  target.SetPropertyLong(u"Ab", 7);
  target.SetPropertyAString(u"APO4-Operating Mode", "APO4-Undefined");
  CountingObserver observer;
  target.AddNotify(&observer);
  target.MergePropertiesBinary(blob, true, true);
  target.RemoveNotify(&observer);
  return 0;
}
