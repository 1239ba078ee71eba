// The other processes of the shared-memory tests.
//   expect <block> <name> <text>     exit 0 if the block's <name> reads <text>
//   write <block> <name> <text>      store <name> = <text> and end
//   writehold <block> <name> <text>  store it and stay until killed
//   holdmutex <block>                own the block's mutex until killed
//   hammer <block> <writer> <rounds> write own blobs and check every read
//   meter <block> <level>...         write levels to a meter block and end
// Exit code: 0 success, 1 unexpected content, 2 bad arguments, 3 failure.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "platform/namedmutex.h"
#include "platform/text.h"
#include "system/zoraposharedmeter.h"
#include "values/zorpropertysetsharedmem.h"

namespace {

[[noreturn]] void StayUntilKilled() {
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

// A blob whose parts check each other: a reader that mixed two writes finds
// a pad or a check that does not match.
void FillRound(ZORPropertySet& set, int writer, int round) {
  const size_t padLength = static_cast<size_t>(writer * 997 + round * 31) % 3000 + 1;
  set.ClearAllProperties();
  set.SetPropertyLong(u"Writer", writer);
  set.SetPropertyLong(u"Round", round);
  set.SetPropertyAString(u"Pad", std::string(padLength, static_cast<char>('a' + writer)));
  set.SetPropertyAString(u"Check", std::to_string(writer) + ":" + std::to_string(round) + ":" +
                                       std::to_string(padLength));
}

bool IsWhole(const ZORPropertySet& set) {
  int32_t writer = 0;
  int32_t round = 0;
  std::string pad;
  std::string check;
  if (!set.GetPropertyLong(u"Writer", writer)) {
    ZORPropertyList list;
    set.GetAllProperties(list);
    return list.empty();  // nobody wrote yet
  }
  return set.GetPropertyLong(u"Round", round) && set.GetPropertyAString(u"Pad", pad) &&
         set.GetPropertyAString(u"Check", check) &&
         check == std::to_string(writer) + ":" + std::to_string(round) + ":" +
                      std::to_string(pad.size()) &&
         pad.find_first_not_of(static_cast<char>('a' + writer)) == std::string::npos;
}

int Hammer(ZORPropertySetSharedMem& block, int writer, int rounds) {
  ZORPropertySet mine;
  ZORPropertySet seen;
  for (int round = 0; round < rounds; ++round) {
    FillRound(mine, writer, round);
    block.SetPropertySet(&mine);
    if (block.Write() != 0) return 3;
    block.SetPropertySet(&seen);
    if (block.Read(false, true, true) != 0) return 3;
    if (!IsWhole(seen)) return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() < 2) return 2;
  const std::u16string name = zor::os::Utf8ToUtf16(args[1]);
  if (args[0] == "meter") {
    ZORAPOSharedMeter meter;
    std::vector<float> levels;
    for (size_t i = 2; i < args.size(); ++i) levels.push_back(std::stof(args[i]));
    return meter.OpenCreateNamed(name) && meter.ReadWrite(levels, false) ? 0 : 3;
  }
  ZORPropertySet set;
  ZORPropertySetSharedMem block;
  block.SetPropertySet(&set);
  if (!block.Open(name, 0)) return 3;

  const std::string& command = args[0];
  if (command == "expect" && args.size() == 4) {
    std::string text;
    if (block.Read(false, true, true) != 0) return 3;
    return set.GetPropertyAString(zor::os::Utf8ToUtf16(args[2]), text) && text == args[3] ? 0 : 1;
  }
  if ((command == "write" || command == "writehold") && args.size() == 4) {
    set.SetPropertyAString(zor::os::Utf8ToUtf16(args[2]), args[3]);
    if (block.Write() != 0) return 3;
    if (command == "writehold") StayUntilKilled();
    return 0;
  }
  if (command == "holdmutex" && args.size() == 2) {
    zor::os::NamedMutex mutex;
    if (mutex.Create(name + std::u16string(ZORPropertySetSharedMem::kMutexSuffix)) !=
            zor::os::NamedMutex::OpenStatus::Ok ||
        mutex.Wait(10000) != zor::os::NamedMutex::WaitResult::Acquired) {
      return 3;
    }
    StayUntilKilled();
  }
  if (command == "hammer" && args.size() == 4) {
    return Hammer(block, std::stoi(args[2]), std::stoi(args[3]));
  }
  std::fprintf(stderr, "sharedmemoryhelper: bad arguments\n");
  return 2;
}
