// The manager's binding and settings reaction against the real stores: the
// endpoint found by the GUID the engine names, the configuration's content
// modes, metering mode and global settings, and the Initialize count.
#include <gtest/gtest.h>

#include "chaintesting.h"
#include "manager/zorapoprocessmanager.h"
#include "support/zortestendpoint.h"

namespace {

using namespace velapo::test;

class ManagerSettings : public ChainEndpoint {
 protected:
  // An endpoint the enumerator lists as active, configured by `source`.
  const ZORAPOEndpointInfo& ListedEndpoint(const std::filesystem::path& source) {
    const ZORAPOEndpointInfo& info = MakeEndpoint(source);
    WriteDword(std::u16string(kAudio) + u"Render\\" + info.GetEndpointGuid().Text(), u"DeviceState", 1);
    return info;
  }
};

}  // namespace

// The engine's FX store names the endpoint; a GUID that matches nothing still
// leaves a working, unbound manager, and only an unreadable GUID fails.
TEST_F(ManagerSettings, SetEndpointBindsTheListedEndpointTheStoreNames) {
  const ZORAPOEndpointInfo& listed = ListedEndpoint(ExampleFile("laptop.xml"));
  const std::u16string unknownGuid = FreshEndpointGuid();
  enum class Guid { Listed, Unknown, Number, ReadFails };
  struct Row {
    Guid guid;
    bool result;
    bool bound;
  } const rows[] = {
      {Guid::Listed, true, true},
      {Guid::Unknown, true, false},
      {Guid::Number, false, false},
      {Guid::ReadFails, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.guid));
    auto* store = new ZORTestPropertyStore;
    if (row.guid == Guid::Listed) store->SetText(PKEY_AudioEndpoint_GUID, listed.GetEndpointGuid().Text());
    if (row.guid == Guid::Unknown) store->SetText(PKEY_AudioEndpoint_GUID, unknownGuid);
    if (row.guid == Guid::Number) store->SetNumber(PKEY_AudioEndpoint_GUID, 7);
    if (row.guid == Guid::ReadFails) store->failReads = E_FAIL;
    IPropertyStore* properties = store;
    IMMDevice* device = nullptr;
    {
      ZORAPOProcessManager manager;
      EXPECT_EQ(manager.SetEndpoint(device, properties, 1, 3), row.result);
#ifdef _WIN32
      if (row.guid == Guid::Listed && !manager.IsBound()) GTEST_SKIP() << "Wine lists its own endpoints only";
#endif
      EXPECT_EQ(manager.IsBound(), row.bound);
      if (row.bound) {
        EXPECT_EQ(manager.GetEndpointInfo().GetEndpointGuid(), listed.GetEndpointGuid());
        EXPECT_EQ(store->References(), 2u) << "the manager keeps the store";
      }
      ASSERT_TRUE(manager.Initialize(2, 2, 48000, manager.GetContentIndex(), 1));
      EXPECT_EQ(manager.GetChainPointers().active->IsBuilt(), row.bound);
      std::vector<float> input = Noise(960, 5, 0.25f), output(960);
      uint32_t in = 480, out = 480;
      manager.Process(input.data(), &in, output.data(), &out, false);
      EXPECT_EQ(out, 480u);
      if (!row.bound) {
        EXPECT_EQ(output, input) << "an unbound manager passes audio";
      }
    }
    EXPECT_EQ(store->References(), 1u) << "released with the manager";
    store->Release();
  }
}
