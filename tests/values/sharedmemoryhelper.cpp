// The other processes of the shared-memory tests.
//   write <block> <name> <text>      store <name> = <text> and end
//   writehold <block> <name> <text>  store it and stay until killed
//   holdmutex <block>                own the block's mutex until killed
//   hammer <block> <writer> <rounds> write own blobs and check every read
//   meter <block> <level>...         write levels to a meter block and end
// Exit code: 0 success, 1 a torn blob seen, 2 bad arguments, 3 failure.
#include <chrono>
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

// "<writer>:<round>" and a pad whose length and letter follow from them: a
// blob mixed from two writes fails the check.
std::string Pad(const std::string& check) {
  const size_t length = std::hash<std::string>{}(check) % 3000 + 1;
  return std::string(length, static_cast<char>('a' + check[0] - '0'));
}

int Hammer(ZORPropertySetSharedMem& block, const std::string& writer, int rounds) {
  ZORPropertySet mine;
  ZORPropertySet seen;
  for (int round = 0; round < rounds; ++round) {
    const std::string check = writer + ":" + std::to_string(round);
    mine.SetPropertyAString(u"Check", check);
    mine.SetPropertyAString(u"Pad", Pad(check));
    block.SetPropertySet(&mine);
    if (block.Write() != 0) return 3;
    block.SetPropertySet(&seen);
    std::string seenCheck;
    std::string seenPad;
    if (block.Read(false, true, true) != 0 || !seen.GetPropertyAString(u"Check", seenCheck) ||
        !seen.GetPropertyAString(u"Pad", seenPad)) {
      return 3;
    }
    if (seenPad != Pad(seenCheck)) return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() < 2) return 2;
  const std::string& command = args[0];
  const std::u16string name = zor::os::Utf8ToUtf16(args[1]);
  if (command == "meter") {
    ZORAPOSharedMeter meter;
    std::vector<float> levels;
    for (size_t i = 2; i < args.size(); ++i) levels.push_back(std::stof(args[i]));
    return meter.OpenCreateNamed(name) && meter.ReadWrite(levels, false) ? 0 : 3;
  }
  ZORPropertySet set;
  ZORPropertySetSharedMem block;
  block.SetPropertySet(&set);
  if (!block.Open(name, 0)) return 3;
  if ((command == "write" || command == "writehold") && args.size() == 4) {
    set.SetPropertyAString(zor::os::Utf8ToUtf16(args[2]), args[3]);
    if (block.Write() != 0) return 3;
    if (command == "writehold") StayUntilKilled();
    return 0;
  }
  if (command == "holdmutex") {
    zor::os::NamedMutex mutex;
    if (mutex.Create(name + u"_MuteX") != zor::os::NamedMutex::OpenStatus::Ok ||
        mutex.Wait(10000) != zor::os::NamedMutex::WaitResult::Acquired) {
      return 3;
    }
    StayUntilKilled();
  }
  if (command == "hammer" && args.size() == 4) return Hammer(block, args[2], std::stoi(args[3]));
  return 2;
}
