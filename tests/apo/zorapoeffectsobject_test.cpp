// GetEffectsList on objects of every location: the tables read from the
// endpoint's configuration and settings in the current mode, and the
// client's event, which outlives the caller's handle and is set after a
// change made by another process.
#include <gtest/gtest.h>

#include "apo/zorapoeffecttables.h"
#include "apotesting.h"
#include "childprocess.h"
#include "config/zorapomodeselector.h"
#include "platform/eventhandle.h"

namespace {

using namespace velapo::test;

constexpr GUID kRawMode = {0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};

class EffectsListObject : public APOEndpoint {
 protected:
  HRESULT List(uint32_t location, const std::u16string& guid, std::vector<GUID>& ids, HANDLE event = nullptr,
               bool discovery = true, const GUID& mode = ZOREngineEmulator::kDefaultMode) {
    ZOREngineEmulator::Stream stream = StreamOn(guid);
    stream.discoveryOnly = discovery;
    stream.processingMode = mode;
    engine = std::make_unique<ZOREngineEmulator>(stream);
    EXPECT_EQ(engine->Create(ClassId(location)), S_OK);
    EXPECT_EQ(engine->Initialize(), S_OK);
    return engine->GetEffectsList(ids, event);
  }
  // Another process writes under the watched settings key.
  void WriteElsewhere(const std::u16string& guid, const char* text) {
    ChildProcess writer;
    ASSERT_TRUE(writer.Start(HelperBesideTest(VELAPO_REGISTRY_HELPER),
                             {"write", m_area.Root(), "Software\\VEL\\APO\\" + zor::os::Utf16ToUtf8(guid), "Probe", text}));
    ASSERT_EQ(writer.Wait(kMustNotTimeOutMs * 3), 0);
  }
  std::unique_ptr<ZOREngineEmulator> engine;
};

std::vector<GUID> Ids(std::initializer_list<uint8_t> xx) {
  std::vector<GUID> ids;
  for (const uint8_t x : xx) ids.push_back(ZORAPOEffectTables::EffectType(x));
  return ids;
}

TEST_F(EffectsListObject, ListsFollowLocationModeAndDiscovery) {
  const std::u16string guid = MakeEndpoint(DataFile("effects.xml"));
  const struct {
    const char* name;
    uint32_t location;
    bool headphone, discovery;
    GUID mode;
    std::vector<GUID> expected;
  } rows[] = {
      {"LFX has no table", 0, false, true, ZOREngineEmulator::kDefaultMode, {}},
      {"SFX: ten is off, text counts", 1, false, true, ZOREngineEmulator::kDefaultMode, Ids({0xC3, 0xC6, 0xC3})},
      {"OSFX reads the SFX table", 4, false, true, ZOREngineEmulator::kDefaultMode, Ids({0xC3, 0xC6, 0xC3})},
      {"MFX", 2, false, true, ZOREngineEmulator::kDefaultMode, Ids({0xC3})},
      {"OMFX reads the MFX table", 5, false, true, ZOREngineEmulator::kDefaultMode, Ids({0xC3})},
      {"EFX wants exactly 1", 3, false, true, ZOREngineEmulator::kDefaultMode, Ids({0xCD})},
      {"a streaming object knows no endpoint", 1, false, false, ZOREngineEmulator::kDefaultMode, {}},
      {"raw mode", 1, false, true, kRawMode, {}},
      {"headphone mode swaps the surround type", 1, true, true, ZOREngineEmulator::kDefaultMode, Ids({0xC7, 0xCE})},
  };
  for (const auto& row : rows) {
    ZORAPOModeSelector selector;
    ASSERT_TRUE(selector.Init(std::u16string(ZORAPOEndpointInfo::kDefaultSettingsRoot) + u"\\" + guid, ZORAPOModeId()));
    if (row.headphone) {
      ASSERT_TRUE(selector.SetMode(ZORAPOModeId("APO4-Music", "APO4-Headphone")));
    } else {
      selector.DeleteValue();
    }
    std::vector<GUID> ids;
    EXPECT_EQ(List(row.location, guid, ids, nullptr, row.discovery, row.mode), S_OK) << row.name;
    ASSERT_EQ(ids.size(), row.expected.size()) << row.name;
    for (size_t i = 0; i < ids.size(); ++i) EXPECT_TRUE(IsEqualGUID(ids[i], row.expected[i])) << row.name << i;
  }
  std::vector<GUID> ids;
  EXPECT_EQ(List(1, FreshEndpointGuid(), ids), S_OK) << "an unknown endpoint lists nothing";
  EXPECT_TRUE(ids.empty());
}

// The object keeps a duplicate of the client's event: the client may close
// its handle, and the event is still set after each change elsewhere, also
// in raw mode, whose list is empty. A handle that can't be duplicated gives
// the system's error and leaves the object usable.
TEST_F(EffectsListObject, TheClientEventOutlivesTheCallersHandle) {
  const std::u16string guid = MakeEndpoint(DataFile("effects.xml"));
  for (const GUID& mode : {ZOREngineEmulator::kDefaultMode, kRawMode}) {
    HANDLE client = zor::os::CreateEventHandle(false, false);
    HANDLE observer = nullptr;
    ASSERT_EQ(zor::os::DuplicateEventHandle(client, &observer), 0u);
    std::vector<GUID> ids;
    ASSERT_EQ(List(1, guid, ids, client, true, mode), S_OK);
    EXPECT_EQ(ids.empty(), IsEqualGUID(mode, kRawMode));
    ASSERT_TRUE(zor::os::CloseEventHandle(client));
    for (const char* text : {"1", "0"}) {
      WriteElsewhere(guid, text);
      EXPECT_TRUE(zor::os::WaitEventHandle(observer, kMustNotTimeOutMs)) << text;
    }
    engine.reset();  // joins the watcher
    EXPECT_TRUE(zor::os::CloseEventHandle(observer));
  }
  // No handle of this process has that value.
  HANDLE bogus = reinterpret_cast<HANDLE>(uintptr_t{0x7FFFFFF0});
  std::vector<GUID> ids;
  EXPECT_EQ(List(1, guid, ids, bogus), static_cast<HRESULT>(0x80070000u | zor::os::kErrorInvalidHandle));
  EXPECT_EQ(engine->GetEffectsList(ids, nullptr), S_OK) << "the list lock was released";
  EXPECT_EQ(ids.size(), 3u);
}

}  // namespace
