// The render and capture objects driven through the engine emulator: the
// copy path and fade-in sample by sample, interfaces per class, instance
// numbers and the cap, a bound object that processes, and the capture mutex.
#include "apo/czor_lfx_apo_universal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>

#include "allocationcounter.h"
#include "apo/czor_lfx_capture_apo_universal.h"
#include "apo/zorapocreateinstance.h"
#include "apo/zorapoinstancelimit.h"
#include "apotesting.h"
#include "platform/namedmutex.h"
#include "support/zorlogcapture.h"

namespace {

using namespace velapo::test;
using Base = CZOR_LFX_APO_Universal_Base;

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
  EXPECT_FALSE(Render(*engine).IsReady());
  return engine;
}

struct CopyCase {
  const char* name;
  uint32_t in, out, flags, outputFrames;
  // The expected output sample at (frame, channel), given what it held (9).
  std::function<float(uint32_t frame, uint32_t channel, const std::vector<float>& input)> expected;
  uint32_t expectedFlags;
  const char* logged;
};

TEST(UniversalCopyTest, CopyPathAndFlagsSampleBySample) {
  constexpr uint32_t kFrames = 480;
  const auto copied = [](uint32_t in, uint32_t out) {
    return [in, out](uint32_t f, uint32_t c, const std::vector<float>& x) {
      // frames x 4 bytes zeroed, then the shared channels copied
      if (c < std::min(in, out)) return x[size_t{f} * in + c];
      return size_t{f} * out + c < kFrames ? 0.0f : 9.0f;
    };
  };
  const auto untouched = [](uint32_t, uint32_t, const std::vector<float>&) { return 9.0f; };
  const CopyCase cases[] = {
      {"stereo copies", 2, 2, BUFFER_VALID, ZOREngineEmulator::kSameFrames, copied(2, 2), BUFFER_VALID, nullptr},
      {"6 in 2 out takes the first two", 6, 2, BUFFER_VALID, ZOREngineEmulator::kSameFrames, copied(6, 2),
       BUFFER_VALID, nullptr},
      {"2 in 4 out leaves channels 2 and 3 past the zeroed bytes", 2, 4, BUFFER_VALID,
       ZOREngineEmulator::kSameFrames, copied(2, 4), BUFFER_VALID, nullptr},
      {"silent input gives silence and silent flags", 2, 2, BUFFER_SILENT, ZOREngineEmulator::kSameFrames,
       [](uint32_t, uint32_t, const std::vector<float>&) { return 0.0f; }, BUFFER_SILENT, nullptr},
      {"output of 0 frames takes the input's", 2, 2, BUFFER_VALID, 0, copied(2, 2), BUFFER_VALID, nullptr},
      {"unequal counts zero 240 x 4 bytes and copy nothing", 2, 2, BUFFER_VALID, 240,
       [](uint32_t f, uint32_t c, const std::vector<float>&) { return f * 2 + c < 240 ? 0.0f : 9.0f; },
       BUFFER_VALID, "Input and output frame counts mismatch"},
      {"invalid buffer leaves the output", 2, 2, BUFFER_INVALID, ZOREngineEmulator::kSameFrames, untouched,
       BUFFER_INVALID, "Got invalid buffer!!"},
      {"flags 3 leave the output", 2, 2, 3, ZOREngineEmulator::kSameFrames, untouched, BUFFER_INVALID, nullptr},
  };
  for (const CopyCase& c : cases) {
    auto engine = Unbound(c.in, c.out);
    const std::vector<float> input = Ramp(kFrames, c.in);
    std::fill(engine->Output().begin(), engine->Output().end(), 9.0f);
    const uint64_t passes = Base::CopyPasses();
    ZORLogCapture log;
    EXPECT_EQ(engine->Process(input, c.flags, c.outputFrames), c.expectedFlags) << c.name;
    if (c.logged) {
      EXPECT_EQ(log.Count(c.logged), 1u) << c.name;
    }
    EXPECT_EQ(Base::CopyPasses() - passes, c.flags == 1 || c.flags == 2 ? 1u : 0u) << c.name;
    for (uint32_t f = 0; f < kFrames; ++f) {
      for (uint32_t ch = 0; ch < c.out; ++ch) {
        ASSERT_EQ(engine->Output()[size_t{f} * c.out + ch], c.expected(f, ch, input)) << c.name << " " << f << "/" << ch;
      }
    }
  }
}

// Stale samples in channels the copy doesn't write make a silent block
// audible: the flags say so, and the next block rises by the fade-in.
TEST(UniversalCopyTest, ATailInSilenceArmsTheFadeInOnce) {
  auto engine = Unbound(2, 4);
  EXPECT_EQ(Render(*engine).RampPosition(), Base::kRampUnarmed);
  std::fill(engine->Output().begin(), engine->Output().end(), 9.0f);
  EXPECT_EQ(engine->Process(std::vector<float>(960, 0.5f), BUFFER_SILENT), BUFFER_VALID);
  EXPECT_EQ(Render(*engine).RampPosition(), 0u);
  const std::vector<float> ones(960, 1.0f);
  for (int block = 0; block < 2; ++block) {
    EXPECT_EQ(engine->Process(ones, BUFFER_VALID), BUFFER_VALID);
    for (uint32_t f = 0; f < 480; ++f) {
      const float gain = block == 0 && f < 20 ? static_cast<float>(std::pow(f / 20.0, 2.0)) : 1.0f;
      ASSERT_EQ(engine->Output()[f * 4], gain) << block << " " << f;
    }
    EXPECT_EQ(Render(*engine).RampPosition(), 20u);
  }
  // Plain silence (the stale samples are gone now) stays silent.
  std::fill(engine->Output().begin(), engine->Output().end(), 0.0f);
  std::vector<float> negativeZero(960, -0.0f);
  EXPECT_EQ(engine->Process(negativeZero, BUFFER_SILENT), BUFFER_SILENT);
  EXPECT_EQ(Render(*engine).RampPosition(), 20u);
}

TEST(UniversalClassesTest, EachClassAnswersItsInterfaces) {
  const IID own = ZORAPORenderClass(kZORLocationMFX)->regProperties->iidAPOInterfaceList[0];
  for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
    const bool capture = info.location == kZORLocationCapture;
    const struct {
      IID iid;
      bool expected;
    } rows[] = {
        {IID_IUnknown, true},
        {IID_IAudioProcessingObject, true},
        {IID_IAudioProcessingObjectRT, true},
        {IID_IAudioProcessingObjectConfiguration, true},
        {IID_IAudioSystemEffects, true},
        {IID_IAudioSystemEffects2, !capture},
        {info.regProperties->iidAPOInterfaceList[0], true},
        {own, info.location == kZORLocationMFX},
        {IID_IPropertyStore, false},
    };
    IUnknown* object = nullptr;
    ASSERT_EQ(ZORAPOCreateInstance(info.regProperties->clsid, nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)),
              S_OK);
    for (const auto& row : rows) {
      void* answer = nullptr;
      const HRESULT hr = object->QueryInterface(row.iid, &answer);
      EXPECT_EQ(hr, row.expected ? S_OK : E_NOINTERFACE) << info.logName;
      if (answer) static_cast<IUnknown*>(answer)->Release();
    }
    if (!capture) {
      auto* render = static_cast<Base*>(static_cast<IAudioProcessingObject*>(object));
      EXPECT_EQ(render->GetLocation(), info.location);
    }
    EXPECT_EQ(object->Release(), 0u);
  }
  EXPECT_EQ(Base::LiveObjects(), 0u);
  EXPECT_EQ(CZOR_LFX_Capture_APO_Universal::LiveObjects(), 0u);
}

TEST(UniversalClassesTest, CreationRefusesWhatNoClassServes) {
  const CLSID sfx = ClassId(kZORLocationSFX);
  void* object = reinterpret_cast<void*>(1);
  IUnknown* outer = reinterpret_cast<IUnknown*>(&object);
  EXPECT_EQ(ZORAPOCreateInstance(sfx, nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(ZORAPOCreateInstance(sfx, outer, IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(ZORAPOCreateInstance(IID_IUnknown, nullptr, IID_IUnknown, &object), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(ZORAPOCreateInstance(sfx, nullptr, IID_IPropertyStore, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(Base::LiveObjects(), 0u);
  ZORLogCapture log;
  { Base invalid(6); }
  EXPECT_EQ(log.Count("Invalid APO location!"), 1u);
}

// Numbers come from the count of locked objects: they repeat after an
// unlock, and a failed lock takes none.
TEST(UniversalClassesTest, InstanceNumbersFollowTheLockedCount) {
  const uint32_t base = Base::LockedObjects();
  std::vector<std::unique_ptr<ZOREngineEmulator>> engines;
  for (int i = 0; i < 3; ++i) engines.push_back(Unbound(2, 2));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Render(*engines[i]).InstanceNumber(), static_cast<int32_t>(base + 1 + i));
  EXPECT_EQ(engines[1]->Unlock(), S_OK);
  EXPECT_EQ(Render(*engines[1]).InstanceNumber(), -1);
  EXPECT_EQ(engines[1]->Lock(), S_OK);
  EXPECT_EQ(Render(*engines[1]).InstanceNumber(), static_cast<int32_t>(base + 3));
  EXPECT_EQ(engines[1]->Lock(), APOERR_APO_LOCKED);
  EXPECT_EQ(Render(*engines[1]).InstanceNumber(), static_cast<int32_t>(base + 3));
  engines.clear();
  EXPECT_EQ(Base::LockedObjects(), base);
}

class UniversalOnEndpoint : public APOEndpoint {};

// The laptop example's SFX chain changes the sound; on an endpoint the
// device list doesn't know, the manager runs unconfigured and the sound
// passes unchanged. Neither allocates on the audio thread once running, and
// the cap sends the twentieth locked object down the copy path.
TEST_F(UniversalOnEndpoint, BoundObjectsProcessUnknownOnesPassAndThoseOverTheCapCopy) {
  const std::u16string guid = MakeEndpoint(ExampleFile("laptop.xml"));
  std::vector<float> noise(960);
  uint32_t seed = 7;
  for (float& s : noise) s = static_cast<float>((seed = seed * 1664525u + 1013904223u) >> 9) / 16777216.0f - 0.25f;

  const struct {
    std::u16string endpoint;
    bool changesSound;
  } rows[] = {{guid, true}, {FreshEndpointGuid(), false}};
  for (const auto& row : rows) {
    ZOREngineEmulator engine(StreamOn(row.endpoint));
    ASSERT_EQ(engine.Create(ClassId(kZORLocationSFX)), S_OK);
    ASSERT_EQ(engine.Initialize(), S_OK);
    HNSTIME latency = -1;
    EXPECT_EQ(engine.GetLatency(latency), S_OK);
    EXPECT_EQ(latency, 0) << "no latency before the lock";
    ASSERT_EQ(engine.NegotiateFormats(), S_OK);
    ASSERT_EQ(engine.Lock(), S_OK);
    EXPECT_TRUE(Render(engine).IsReady());
    for (int warm = 0; warm < 3; ++warm) engine.Process(noise, BUFFER_VALID);
    const uint64_t passes = Base::CopyPasses();
    const AllocationCounter allocations;
    for (int block = 0; block < 20; ++block) engine.Process(noise, BUFFER_VALID);
    EXPECT_EQ(allocations.Count(), 0u);
    EXPECT_EQ(Base::CopyPasses(), passes);
    EXPECT_EQ(engine.Output() != noise, row.changesSound);
  }

  ASSERT_EQ(ZORAPOInstanceLimit::Get(), ZORAPOInstanceLimit::kMaxInstances);
  std::vector<std::unique_ptr<ZOREngineEmulator>> engines;
  for (uint32_t i = 0; i < ZORAPOInstanceLimit::kMaxInstances + 1; ++i) {
    engines.push_back(std::make_unique<ZOREngineEmulator>(StreamOn(guid)));
    ASSERT_EQ(engines.back()->Create(ClassId(kZORLocationSFX)), S_OK);
    ASSERT_EQ(engines.back()->Initialize(), S_OK);
    ASSERT_EQ(engines.back()->Lock(), S_OK);
  }
  for (uint32_t i = 0; i < engines.size(); ++i) {
    const uint64_t passes = Base::CopyPasses();
    engines[i]->Process(noise, BUFFER_VALID);
    EXPECT_EQ(Base::CopyPasses() - passes, i < ZORAPOInstanceLimit::kMaxInstances ? 0u : 1u) << i;
  }
}

// The capture object holds the named mutex while locked, makes it anew at
// each lock, and passes silent buffers without touching the output.
TEST_F(UniversalOnEndpoint, CaptureHoldsItsMutexOnlyWhileLocked) {
  ZOREngineEmulator::Stream stream = StreamOn(MakeEndpoint(ExampleFile("minimal.xml"), false), 1, 1);
  stream.newerBlock = false;
  ZOREngineEmulator engine(stream);
  ASSERT_EQ(engine.Create(ClassId(kZORLocationCapture)), S_OK);
  ASSERT_EQ(engine.Initialize(), S_OK);
  ASSERT_EQ(engine.NegotiateFormats(), S_OK);
  const auto mutexExists = [] {
    zor::os::NamedMutex probe;
    return probe.OpenExisting(CZOR_LFX_Capture_APO_Universal::kMutexName) == zor::os::NamedMutex::OpenStatus::Ok;
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(mutexExists()) << round;
    ASSERT_EQ(engine.Lock(), S_OK);
    EXPECT_TRUE(mutexExists()) << round;
    std::fill(engine.Output().begin(), engine.Output().end(), 9.0f);
    EXPECT_EQ(engine.Process(std::vector<float>(480, 0.5f), BUFFER_SILENT), BUFFER_SILENT);
    EXPECT_EQ(engine.OutputFrames(), 480u);
    EXPECT_TRUE(std::all_of(engine.Output().begin(), engine.Output().end(), [](float s) { return s == 9.0f; }));
    EXPECT_EQ(engine.Process(std::vector<float>(480, 0.5f), BUFFER_VALID), BUFFER_VALID);
    EXPECT_EQ(engine.Unlock(), S_OK);
  }
  EXPECT_FALSE(mutexExists());

  ZOREngineEmulator newer(StreamOn(u""));
  ASSERT_EQ(newer.Create(ClassId(kZORLocationCapture)), S_OK);
  EXPECT_EQ(newer.Initialize(), E_INVALIDARG) << "capture takes the 56-byte block only";
}

}  // namespace
