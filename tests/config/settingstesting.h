#pragma once
// What the settings tests and their helper process share: one operating mode
// with two public controls and a tuned one, stored blobs written as a
// control panel would, and the ping that covers a watcher's re-arm window.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "config/izorapomodeselectornotify.h"
#include "config/zorapooperatingmode.h"
#include "platform/event.h"
#include "platform/registry.h"
#include "values/zorpropertyset.h"

namespace velapo::test {

inline ZORAPOOperatingMode MakeMusicMode() {
  ZORAPOOperatingMode mode;
  mode.id = ZORAPOModeId("APO4-Music", "APO4-Internal Stereo");
  mode.publicControls.Insert(ZORUTSValue("SFX:Width", "1.0"));
  mode.publicControls.Insert(ZORUTSValue("SFX:Bass", "0"));
  mode.tunedControls.Insert(ZORUTSValue("SFX:Tuned", "7"));
  mode.allControls = mode.publicControls;
  mode.allControls.Merge(mode.tunedControls, MergeOverlay);
  return mode;
}

// The blob of text properties a control panel stores.
inline std::vector<uint8_t> Blob(std::initializer_list<std::pair<const char16_t*, const char*>> pairs) {
  ZORPropertySet set;
  for (const auto& [name, text] : pairs) set.SetPropertyAString(name, text);
  std::vector<uint8_t> blob;
  set.GetAllPropertiesBinary(blob);
  return blob;
}

inline bool CreateKey(std::u16string_view path, zor::os::RegKey& key) {
  return zor::os::RegKey::Create(path, zor::os::kKeyAllAccess, key) == zor::os::RegStatus::Ok;
}

struct ModeClient : IZORAPOModeSelectorNotify {
  void OnModeChanged() override {
    ++calls;
    called.Set();
  }
  std::atomic<int> calls{0};
  zor::os::Event called{zor::os::EventReset::Auto};
};

inline bool Store(const zor::os::RegKey& key, std::u16string_view valueName,
                  const std::vector<uint8_t>& blob) {
  return key.WriteValue(valueName, zor::os::RegType::Binary, blob) == zor::os::RegStatus::Ok;
}

// A watcher misses a change that lands between its signal and its next arm;
// a write beside the watched values after each wait covers that window.
template <typename Done>
bool PingUntil(const zor::os::RegKey& key, Done done, int rounds = 150) {
  for (int round = 0; round < rounds; ++round) {
    if (done()) return true;
    key.WriteDword(u"Ping", static_cast<uint32_t>(round));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return done();
}

}  // namespace velapo::test
