// Process A of the cross-process settings test: propertysetregistryhelper <root> <key> <value>
// loads the set with auto-save and a monitor, sets "Gain" 5 and "Extra", checks that the echo
// of its saves ends, and pings until the other process writes "Ack".
// Exit code: 0 success, 2 bad arguments, 3 store failure, 4 echo did not
// end, 5 no echo seen, 6 no acknowledgement.
#include <atomic>
#include <cstdio>
#include <string>

#include "platform/event.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "values/zorpropertysetregistry.h"
#include "values/zorpropertysetthreadsafe.h"

namespace {

constexpr uint32_t kEchoWaitMs = 10000;
constexpr uint32_t kRoundWaitMs = 200;
constexpr uint32_t kMaxRounds = 150;  // 30 s at most

// Counts changes, and the looks at "Gain" that every reload of the watcher
// takes (a look is the OnPropertyChanging of a name the set knows).
struct Counter : IZORPropertySetNotify {
  void OnPropertyChanged(ZORPropertySet&, const ZORProperty&) override { ++changed; }
  bool OnPropertyChanging(ZORPropertySet&, ZORProperty& property) override {
    if (ZORPropertySet::NamesEqual(property.name, u"Gain")) ++gainLooks;
    looked.Set();
    return false;
  }
  std::atomic<int> changed{0};
  std::atomic<int> gainLooks{0};
  zor::os::Event looked{zor::os::EventReset::Auto};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: propertysetregistryhelper <root> <key> <value name>\n");
    return 2;
  }
  velapo::test::UseRegistryRoot(argv[1]);
  const std::u16string valueName = zor::os::Utf8ToUtf16(argv[3]);
  zor::os::RegKey key;
  if (zor::os::RegKey::Open(zor::os::Utf8ToUtf16(argv[2]), zor::os::kKeyAllAccess, key) !=
      zor::os::RegStatus::Ok) {
    return 3;
  }

  ZORPropertySetThreadsafe set;
  Counter counter;
  ZORPropertySetRegistry registry;
  registry.SetKey(&key);
  registry.SetPropertySet(&set);
  if (!registry.LoadBinary(valueName, false, false, false)) return 3;
  registry.SetAutoSave(true, valueName);
  set.AddNotify(&counter);
  if (!registry.MonitorBinary(true, valueName)) return 3;
  // The watcher's first load looks at "Gain" once.
  while (counter.gainLooks < 1) {
    if (!counter.looked.Wait(kEchoWaitMs)) return 5;
  }
  // One change, one save, and one look of its own at "Gain". The save
  // signals this process's watcher too, whose reload looks again and finds
  // "Gain" as it is: that look is the echo, and it must change nothing.
  // "Extra" is a name the other process does not know.
  const int looksBefore = counter.gainLooks;
  set.SetPropertyLong(u"Gain", 5);
  set.SetPropertyLong(u"Extra", 1);
  const int changes = 2;
  bool echoed = false;
  bool acknowledged = false;
  for (uint32_t round = 1; round <= kMaxRounds; ++round) {
    echoed = counter.gainLooks >= looksBefore + 2;
    uint32_t ack = 0;
    acknowledged = key.ReadDword(u"Ack", ack) == zor::os::RegStatus::Ok;
    if (echoed && acknowledged) break;
    // A signal missed between a reload and the next arm, here or in the
    // other process, is followed by another: a fresh write beside the set's
    // value, which leaves the set's value as it is.
    if (key.WriteDword(u"Ping", round) != zor::os::RegStatus::Ok) return 3;
    counter.looked.Wait(kRoundWaitMs);
  }
  // Joined: whatever the watcher did is done.
  registry.MonitorBinary(false, {});
  set.RemoveNotify(&counter);
  // An echo that changed anything would show as one more change.
  if (counter.changed != changes) {
    std::fprintf(stderr, "echo did not end: %d changes for %d made\n", counter.changed.load(), changes);
    return 4;
  }
  if (!echoed) return 5;
  return acknowledged ? 0 : 6;
}
