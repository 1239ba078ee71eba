// The render and capture objects driven through the engine emulator: the
// copy path and fade-in sample by sample, interfaces per class, a bound
// object that processes, instance numbers and the cap.
#include "apo/czor_lfx_apo_universal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "allocationcounter.h"
#include "apo/czor_lfx_capture_apo_universal.h"
#include "apo/zorapocreateinstance.h"
#include "apo/zorapoinstancelimit.h"
#include "apotesting.h"
#include "platform/criticalsection.h"
#include "support/zorlogcapture.h"

namespace {

using namespace velapo::test;
using Base = CZOR_LFX_APO_Universal_Base;
constexpr uint32_t kSame = ZOREngineEmulator::kSameFrames;

Base& Render(ZOREngineEmulator& engine) { return *static_cast<Base*>(engine.Object()); }

// An SFX object on no endpoint, locked: it copies.
std::unique_ptr<ZOREngineEmulator> Unbound(uint32_t in, uint32_t out) {
  ZOREngineEmulator::Stream stream;
  stream.inputChannels = in;
  stream.outputChannels = out;
  auto engine = std::make_unique<ZOREngineEmulator>(stream);
  EXPECT_EQ(engine->Create(ClassId(kZORLocationSFX)), S_OK);
  EXPECT_EQ(engine->Initialize(), S_OK);
  EXPECT_EQ(engine->Lock(), S_OK);
  return engine;
}

TEST(UniversalCopyTest, CopyPathAndFlagsSampleBySample) {
  constexpr uint32_t kFrames = 480;
  using Expected = std::function<float(uint32_t f, uint32_t c, const std::vector<float>& x)>;
  // frames x 4 bytes zeroed, then the shared channels copied; 9 is what the output held
  const auto copied = [](uint32_t in, uint32_t out) -> Expected {
    return [in, out](uint32_t f, uint32_t c, const std::vector<float>& x) {
      return c < std::min(in, out) ? x[size_t{f} * in + c] : size_t{f} * out + c < kFrames ? 0.0f : 9.0f;
    };
  };
  const Expected untouched = [](uint32_t, uint32_t, const std::vector<float>&) { return 9.0f; };
  const struct {
    const char* name;
    uint32_t in, out, flags, outputFrames;
    Expected expected;
    uint32_t expectedFlags;
    const char* logged;
  } cases[] = {
      {"stereo copies", 2, 2, BUFFER_VALID, kSame, copied(2, 2), BUFFER_VALID, nullptr},
      {"6 in 2 out takes the first two", 6, 2, BUFFER_VALID, kSame, copied(6, 2), BUFFER_VALID, nullptr},
      {"2 in 4 out keeps 2 and 3 past the zeroed bytes", 2, 4, BUFFER_VALID, kSame, copied(2, 4), BUFFER_VALID, nullptr},
      {"silent input", 2, 2, BUFFER_SILENT, kSame, [](uint32_t, uint32_t, const auto&) { return 0.0f; },
       BUFFER_SILENT, nullptr},
      {"0 output frames take the input's", 2, 2, BUFFER_VALID, 0, copied(2, 2), BUFFER_VALID, nullptr},
      {"unequal counts zero 240 x 4 bytes only", 2, 2, BUFFER_VALID, 240,
       [](uint32_t f, uint32_t c, const auto&) { return f * 2 + c < 240 ? 0.0f : 9.0f; }, BUFFER_VALID,
       "Input and output frame counts mismatch"},
      {"invalid buffer", 2, 2, BUFFER_INVALID, kSame, untouched, BUFFER_INVALID, "Got invalid buffer!!"},
      {"flags 3", 2, 2, 3, kSame, untouched, BUFFER_INVALID, nullptr},
  };
  for (const auto& c : cases) {
    auto engine = Unbound(c.in, c.out);
    const std::vector<float> input = Ramp(kFrames, c.in);
    std::fill(engine->Output().begin(), engine->Output().end(), 9.0f);
    const uint64_t passes = Base::CopyPasses();
    ZORLogCapture log;
    EXPECT_EQ(engine->Process(input, c.flags, c.outputFrames), c.expectedFlags) << c.name;
    EXPECT_EQ(c.logged ? log.Count(c.logged) : 1u, 1u) << c.name;
    EXPECT_EQ(Base::CopyPasses() - passes, c.flags == 1 || c.flags == 2 ? 1u : 0u) << c.name;
    for (uint32_t i = 0; i < kFrames * c.out; ++i) {
      ASSERT_EQ(engine->Output()[i], c.expected(i / c.out, i % c.out, input)) << c.name << " sample " << i;
    }
  }
}

TEST(UniversalClassesTest, EachClassAnswersItsInterfacesAndNothingElse) {
  const IID mfx = ZORAPORenderClass(kZORLocationMFX)->regProperties->iidAPOInterfaceList[0];
  for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
    const bool capture = info.location == kZORLocationCapture;
    const std::pair<IID, bool> rows[] = {
        {IID_IUnknown, true}, {IID_IAudioProcessingObject, true}, {IID_IAudioProcessingObjectRT, true},
        {IID_IAudioProcessingObjectConfiguration, true}, {IID_IAudioSystemEffects, true},
        {IID_IAudioSystemEffects2, !capture}, {info.regProperties->iidAPOInterfaceList[0], true},
        {mfx, info.location == kZORLocationMFX}, {IID_IPropertyStore, false},
    };
    IUnknown* object = nullptr;
    ASSERT_EQ(ZORAPOCreateInstance(info.regProperties->clsid, nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)),
              S_OK);
    for (const auto& [iid, expected] : rows) {
      void* answer = nullptr;
      EXPECT_EQ(object->QueryInterface(iid, &answer), expected ? S_OK : E_NOINTERFACE) << info.logName;
      if (answer) static_cast<IUnknown*>(answer)->Release();
    }
    EXPECT_EQ(object->Release(), 0u);
  }
  void* object = nullptr;
  EXPECT_EQ(ZORAPOCreateInstance(IID_IUnknown, nullptr, IID_IUnknown, &object), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(ZORAPOCreateInstance(ClassId(1), reinterpret_cast<IUnknown*>(&object), IID_IUnknown, &object),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(ZORAPOCreateInstance(ClassId(1), nullptr, IID_IPropertyStore, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(Base::LiveObjects() + CZOR_LFX_Capture_APO_Universal::LiveObjects(), 0u);
}

class UniversalOnEndpoint : public APOEndpoint {};

// The laptop SFX chain changes the sound, an unknown endpoint passes it, and
// neither allocates once running. Lock numbers count locks and repeat after an unlock.
TEST_F(UniversalOnEndpoint, BoundObjectsProcessUnknownOnesPassAndThoseOverTheCapCopy) {
  const std::u16string guid = MakeEndpoint(ExampleFile("laptop.xml")).Guid();
  std::vector<float> noise(960);
  uint32_t seed = 7;
  for (float& s : noise) s = static_cast<float>((seed = seed * 1664525u + 1013904223u) >> 9) / 16777216.0f - 0.25f;
  for (const auto& [endpoint, changesSound] : {std::pair{guid, true}, std::pair{FreshEndpointGuid(), false}}) {
    ZOREngineEmulator engine(StreamOn(endpoint));
    ASSERT_EQ(engine.RunLifeCycle(ClassId(kZORLocationSFX), noise, 3), S_OK);
    ASSERT_EQ(engine.Lock(), S_OK);
    const uint64_t passes = Base::CopyPasses(), locks = zor::os::CriticalSection::EntriesOnThisThread();
    const AllocationCounter allocations;
    for (int block = 0; block < 20; ++block) engine.Process(noise, BUFFER_VALID);
    EXPECT_EQ(allocations.Count(), 0u);
    EXPECT_EQ(zor::os::CriticalSection::EntriesOnThisThread(), locks);
    EXPECT_EQ(Base::CopyPasses(), passes);
    EXPECT_EQ(engine.Output() != noise, changesSound && EndpointListed(endpoint));
    // A fade takes the chain lock once, at its end; only the first one allocates.
    for (uint64_t fade = 1; fade <= 2; ++fade) {
      const AllocationCounter fadeAllocations;
      Render(engine).Manager().RequestUpdate();
      for (int block = 0; block < 500 && zor::os::CriticalSection::EntriesOnThisThread() - locks < fade; ++block) {
        engine.Process(noise, BUFFER_VALID);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      for (int block = 0; block < 20; ++block) engine.Process(noise, BUFFER_VALID);
      EXPECT_EQ(zor::os::CriticalSection::EntriesOnThisThread() - locks, fade);
      EXPECT_TRUE(fade == 1 || fadeAllocations.Count() == 0) << fadeAllocations.Count();
    }
  }

  ASSERT_EQ(Base::LockedObjects(), 0u);
  std::vector<std::unique_ptr<ZOREngineEmulator>> engines;
  for (uint32_t i = 0; i <= ZORAPOInstanceLimit::kMaxInstances; ++i) {
    engines.push_back(std::make_unique<ZOREngineEmulator>(StreamOn(guid)));
    ASSERT_EQ(engines.back()->RunLifeCycle(ClassId(kZORLocationSFX), noise, 1), S_OK);
    ASSERT_EQ(engines.back()->Lock(), S_OK);
    EXPECT_EQ(Render(*engines.back()).InstanceNumber(), static_cast<int32_t>(i + 1));
    const uint64_t passes = Base::CopyPasses();
    engines.back()->Process(noise, BUFFER_VALID);
    EXPECT_EQ(Base::CopyPasses() - passes, i < ZORAPOInstanceLimit::kMaxInstances ? 0u : 1u) << i;
  }
  EXPECT_EQ(engines[3]->Unlock(), S_OK);
  EXPECT_EQ(Render(*engines[3]).InstanceNumber(), -1);
  EXPECT_EQ(engines[3]->Lock(), S_OK);
  EXPECT_EQ(Render(*engines[3]).InstanceNumber(), static_cast<int32_t>(engines.size()));
}

}  // namespace
