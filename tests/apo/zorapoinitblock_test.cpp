#include "apo/zorapoinitblock.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "engine/zortestendpoint.h"

namespace {

constexpr GUID kMovie = {0xB26FEB0D, 0xEC94, 0x477C, {0x94, 0x94, 0xD1, 0xAB, 0x8E, 0x75, 0x3F, 0x6E}};
constexpr GUID kRaw = {0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};

struct InitCase {
  const char* name;
  UINT32 cb;
  bool noFx, noCollection;
  UINT deviceIndex;
  GUID mode;
  BOOL discovery;
  HRESULT expected;
  const char16_t* device;  // id of the device taken, null for none
  uint32_t contentIndex;
  const char16_t* endpointGuid;
  HRESULT guidRead = S_OK;  // E_FAIL: the store fails reads; S_FALSE: the GUID is a number
};

TEST(InitBlockTest, BothBlocksAndTheirBadForms) {
  const InitCase cases[] = {
      {"older block", 56, false, false, 1, kMovie, 1, S_OK, u"first", 0, u""},
      {"between the two is older", 87, false, false, 1, kMovie, 1, S_OK, u"first", 0, u""},
      {"newer block", 88, false, false, 1, kMovie, 0, S_OK, u"second", 2, u""},
      {"larger is newer", 200, false, false, 1, kRaw, 1, S_OK, u"second", 5, u"{guid}"},
      {"device past the end", 88, false, false, 7, GUID_NULL, 1, S_OK, nullptr, 5, u"{guid}"},
      {"too short", 55, false, false, 0, kMovie, 0, E_INVALIDARG, nullptr, 0, u""},
      {"no FX properties", 88, true, false, 0, kMovie, 0, E_INVALIDARG, nullptr, 0, u""},
      {"no collection", 56, false, true, 0, kMovie, 0, E_INVALIDARG, nullptr, 0, u""},
      {"endpoint GUID a number", 88, false, false, 0, kRaw, 1, S_OK, u"first", 5, u"", S_FALSE},
      {"endpoint GUID unreadable", 88, false, false, 0, kRaw, 1, S_OK, u"first", 5, u"", E_FAIL},
  };
  for (const InitCase& c : cases) {
    SCOPED_TRACE(c.name);
    auto* fx = new ZORTestPropertyStore;
    if (c.guidRead == S_FALSE) {
      fx->SetNumber(PKEY_AudioEndpoint_GUID, 7);
    } else {
      fx->SetText(PKEY_AudioEndpoint_GUID, u"{guid}");
    }
    fx->failReads = c.guidRead == E_FAIL ? E_FAIL : S_OK;
    auto* collection = new ZORTestDeviceCollection({u"first", u"second"});
    APOInitSystemEffects2 init{};
    init.APOInit.cbSize = c.cb;
    init.pAPOSystemEffectsProperties = c.noFx ? nullptr : fx;
    init.pDeviceCollection = c.noCollection ? nullptr : collection;
    init.nSoftwareIoDeviceInCollection = c.deviceIndex;
    init.nSoftwareIoConnectorIndex = 3;
    init.AudioProcessingMode = c.mode;
    init.InitializeForDiscoveryOnly = c.discovery;
    // The engine's bytes, exactly as many as it says, at an odd address.
    std::vector<BYTE> bytes(c.cb + 1);
    std::memcpy(bytes.data() + 1, &init, c.cb < sizeof(init) ? c.cb : sizeof(init));

    ZORAPOInitBlock block;
    EXPECT_EQ(ZORAPOInitBlock::Read(c.cb, bytes.data() + 1, block), c.expected);
    if (c.device) {
      ASSERT_TRUE(block.device);
      EXPECT_EQ(static_cast<ZORTestDevice*>(block.device.Get())->Id(), c.device);
    } else {
      EXPECT_FALSE(block.device);
    }
    EXPECT_EQ(block.fxProperties.Get(), c.expected == S_OK ? fx : nullptr);
    EXPECT_EQ(block.contentIndex, c.contentIndex);
    EXPECT_EQ(block.endpointGuid, c.endpointGuid);
    EXPECT_EQ(block.connectorIndex, c.expected == S_OK && c.cb >= 88 ? 3 : -1);
    EXPECT_EQ(block.discoveryOnly, c.expected == S_OK && c.cb >= 88 && c.discovery);
    block = ZORAPOInitBlock{};
    EXPECT_EQ(fx->Release(), 0u);  // every reference taken was given back
    EXPECT_EQ(collection->Release(), 0u);
  }
  EXPECT_EQ(ZORAPOInitBlock::Read(88, nullptr, *std::make_unique<ZORAPOInitBlock>()), E_INVALIDARG);
}

}  // namespace
