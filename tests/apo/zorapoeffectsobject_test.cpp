// GetEffectsList on objects of every location: the tables read from the
// endpoint's configuration and settings in the current mode, and the
// client's event, which outlives the caller's handle and is set after a
// change made by another process.
#include <gtest/gtest.h>

#include "apo/zorapoeffecttables.h"
#include "apo/zorapoinitblock.h"
#include "apotesting.h"
#include "childprocess.h"
#include "config/zorapomodeselector.h"
#include "platform/eventhandle.h"

namespace {

using namespace velapo::test;

constexpr GUID kDefault = ZOREngineEmulator::kDefaultMode;
constexpr GUID kRawMode = ZORAPOInitBlock::kRawMode;

class EffectsListObject : public APOEndpoint {
 protected:
  // A discovery-only object unless told otherwise.
  HRESULT List(uint32_t location, const std::u16string& guid, std::vector<GUID>& ids, HANDLE event = nullptr,
               const GUID& mode = kDefault, bool discovery = true) {
    ZOREngineEmulator::Stream stream = StreamOn(guid);
    stream.discoveryOnly = discovery;
    stream.processingMode = mode;
    engine = std::make_unique<ZOREngineEmulator>(stream);
    EXPECT_EQ(engine->Create(ClassId(location)), S_OK);
    EXPECT_EQ(engine->Initialize(), S_OK);
    return engine->GetEffectsList(ids, event);
  }
  std::unique_ptr<ZOREngineEmulator> engine;
};

std::vector<GUID> Ids(std::initializer_list<uint8_t> xx) {
  std::vector<GUID> ids;
  for (const uint8_t x : xx) ids.push_back(ZORAPOEffectTables::EffectType(x));
  return ids;
}

TEST_F(EffectsListObject, ListsFollowLocationModeAndDiscovery) {
  const ZOREngineEndpoint& endpoint = MakeEndpoint(DataFile("effects.xml"));
  if (!EndpointListed(endpoint.Guid())) GTEST_SKIP() << "the device list doesn't hold the store's endpoints";
  const struct {
    const char* name;
    uint32_t location;
    bool headphone;
    GUID mode;
    bool discovery;
    std::vector<GUID> expected;
  } rows[] = {
      {"LFX has no table", 0, false, kDefault, true, {}},
      {"SFX: ten is off, text counts", 1, false, kDefault, true, Ids({0xC3, 0xC6, 0xC3})},
      {"MFX", 2, false, kDefault, true, Ids({0xC3})},
      {"EFX wants exactly 1", 3, false, kDefault, true, Ids({0xCD})},
      {"a streaming object knows no endpoint", 1, false, kDefault, false, {}},
      {"raw mode", 1, false, kRawMode, true, {}},
      {"headphone mode swaps the surround type", 1, true, kDefault, true, Ids({0xC7, 0xCE})},
  };
  for (const auto& row : rows) {
    ZORAPOModeSelector selector;
    ASSERT_TRUE(selector.Init(endpoint.SettingsKeyPath(), ZORAPOModeId()));
    EXPECT_TRUE(!row.headphone || selector.SetMode(ZORAPOModeId("APO4-Music", "APO4-Headphone")));
    std::vector<GUID> ids;
    EXPECT_EQ(List(row.location, endpoint.Guid(), ids, nullptr, row.mode, row.discovery), S_OK) << row.name;
    EXPECT_TRUE(std::equal(ids.begin(), ids.end(), row.expected.begin(), row.expected.end(), IsEqualGUID)) << row.name;
    selector.DeleteValue();
  }
  std::vector<GUID> ids;
  EXPECT_EQ(List(1, FreshEndpointGuid(), ids), S_OK) << "an unknown endpoint lists nothing";
  EXPECT_TRUE(ids.empty());
}

// The object keeps its own duplicate of the client's event (raw mode too); a
// handle that can't be duplicated gives the system's error.
TEST_F(EffectsListObject, TheClientEventOutlivesTheCallersHandle) {
  const std::u16string guid = MakeEndpoint(DataFile("effects.xml")).Guid();
  const bool listed = EndpointListed(guid);
  for (const GUID& mode : {kDefault, kRawMode}) {
    HANDLE client = zor::os::CreateEventHandle(false, false);
    HANDLE observer = nullptr;
    ASSERT_EQ(zor::os::DuplicateEventHandle(client, &observer), 0u);
    std::vector<GUID> ids;
    ASSERT_EQ(List(1, guid, ids, client, mode), S_OK);
    EXPECT_EQ(ids.empty(), IsEqualGUID(mode, kRawMode) || !listed);
    ASSERT_TRUE(zor::os::CloseEventHandle(client));
    for (const char* text : {"1", "0"}) {
      ChildProcess writer;
      ASSERT_TRUE(writer.Start(HelperBesideTest(VELAPO_REGISTRY_HELPER),
                               {"write", m_area.Root(), "Software\\VEL\\APO\\" + zor::os::Utf16ToUtf8(guid), "P", text}));
      ASSERT_EQ(writer.Wait(kMustNotTimeOutMs * 3), 0);
      EXPECT_TRUE(zor::os::WaitEventHandle(observer, kMustNotTimeOutMs)) << text;
    }
    engine.reset();  // joins the watcher
    EXPECT_TRUE(zor::os::CloseEventHandle(observer));
  }
  std::vector<GUID> ids;
  HANDLE bogus = reinterpret_cast<HANDLE>(uintptr_t{0x7FFFFFF0});  // no handle of this process
  EXPECT_EQ(List(1, guid, ids, bogus), static_cast<HRESULT>(0x80070000u | zor::os::kErrorInvalidHandle));
  EXPECT_EQ(engine->GetEffectsList(ids, nullptr), S_OK) << "the list lock was released";
  EXPECT_EQ(ids.size(), listed ? 3u : 0u);
}

}  // namespace
