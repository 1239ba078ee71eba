// Random call orders against every class match a model of the engine's contract: audio
// passes, the capture mutex lives exactly while a capture object is locked, nothing crashes.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "apo/czor_lfx_capture_apo_universal.h"
#include "apotesting.h"
#include "platform/namedmutex.h"

namespace {

using namespace velapo::test;

enum Call { kInit56, kInit88, kInit40, kInitNullData, kInitNoBytes, kLock, kLockBadWidth, kUnlock, kProcess, kLatency, kLatencyNull,
            kChannelCount, kFormat, kBadFormat, kEffects, kCallCount };

// The contract: Initialize sets its flag before it looks at the block, so a
// refused block still makes the next call a second one.
struct Model {
  bool capture, initialized = false, locked = false;
  HRESULT Init(HRESULT verdict) { return initialized ? APOERR_ALREADY_INITIALIZED : (initialized = true, verdict); }
  HRESULT Lock(HRESULT verdict) { return locked ? APOERR_APO_LOCKED : (locked = verdict == S_OK, verdict); }
  HRESULT Expected(Call call) {
    switch (call) {
      case kInit56: return Init(S_OK);
      case kInit88: return Init(capture ? E_INVALIDARG : S_OK);
      case kInit40: return Init(E_INVALIDARG);
      case kInitNullData: return E_INVALIDARG;
      case kInitNoBytes: return E_POINTER;
      case kLock: return Lock(S_OK);
      case kLockBadWidth: return Lock(APOERR_FORMAT_NOT_SUPPORTED);
      case kUnlock: return locked ? (locked = false, S_OK) : APOERR_ALREADY_UNLOCKED;
      case kLatencyNull: return E_POINTER;
      case kChannelCount: return initialized ? S_OK : APOERR_NOT_INITIALIZED;
      case kBadFormat: return APOERR_FORMAT_NOT_SUPPORTED;
      case kEffects: return capture ? E_NOINTERFACE : S_OK;
      default: return S_OK;
    }
  }
};

// `width` is the stream's channel count, `badWidth` one the class refuses.
HRESULT RunCall(Call call, ZOREngineEmulator& engine, uint32_t width, uint32_t badWidth, std::mt19937& random) {
  IAudioProcessingObject& apo = *engine.Object();
  const auto withWidth = [&](uint32_t channels, HRESULT (ZOREngineEmulator::*step)()) {
    engine.SetFormat(channels, channels, 48000.0f);
    const HRESULT hr = (engine.*step)();
    engine.SetFormat(width, width, 48000.0f);
    return hr;
  };
  switch (call) {
    case kInit56: return engine.Initialize();
    case kInit88:
    case kInit40: {  // the emulator's own store and collection, which outlive the object
      APOInitSystemEffects2 block{};
      block.pAPOSystemEffectsProperties = &engine.FxProperties();
      block.pDeviceCollection = &engine.Devices();
      std::vector<BYTE> bytes(sizeof(block));
      std::memcpy(bytes.data(), &block, sizeof(block));
      return apo.Initialize(call == kInit88 ? 88 : 40, bytes.data());
    }
    case kInitNullData: return apo.Initialize(56, nullptr);
    case kInitNoBytes: return apo.Initialize(0, reinterpret_cast<BYTE*>(&engine));
    case kLock: return engine.Lock();
    case kLockBadWidth: return withWidth(badWidth, &ZOREngineEmulator::Lock);
    case kUnlock: return engine.Unlock();
    case kProcess: {  // nothing is configured, so a valid buffer leaves as it came
      const std::vector<float> input = Ramp(480, width, 1e-4f);
      const uint32_t flags = std::uniform_int_distribution<uint32_t>(0, 3)(random);
      std::fill(engine.Output().begin(), engine.Output().end(), 9.0f);
      const uint32_t out = engine.Process(input, flags);
      if (flags == BUFFER_VALID) return out == BUFFER_VALID && engine.Output() == input ? S_OK : E_UNEXPECTED;
      // A capture object leaves a silent block's output alone.
      const bool untouched = std::count(engine.Output().begin(), engine.Output().end(), 9.0f) == 480 * width;
      return flags != BUFFER_SILENT || width != 1 || (out == BUFFER_SILENT && untouched) ? S_OK : E_UNEXPECTED;
    }
    case kLatency: {
      HNSTIME latency = -1;
      const HRESULT hr = engine.GetLatency(latency);
      return latency == 0 ? hr : E_UNEXPECTED;
    }
    case kLatencyNull: return apo.GetLatency(nullptr);
    case kChannelCount: {
      UINT32 channels = 0;
      return apo.GetInputChannelCount(&channels);
    }
    case kFormat: return engine.NegotiateFormats();
    case kBadFormat: return withWidth(badWidth, &ZOREngineEmulator::NegotiateFormats);
    case kEffects: {
      std::vector<GUID> ids;
      const HRESULT hr = engine.GetEffectsList(ids, nullptr);
      return ids.empty() ? hr : E_UNEXPECTED;
    }
    default: return E_UNEXPECTED;
  }
}

TEST(LifeCycleTest, RandomCallOrdersGetTheContractsCodes) {
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    for (const uint32_t location : {0u, 1u, 2u, 3u, 4u, 5u, kZORLocationCapture}) {
      const bool capture = location == kZORLocationCapture;
      std::mt19937 random(seed * 7919 + location);
      ZOREngineEmulator::Stream stream;
      stream.inputChannels = stream.outputChannels = capture ? 1 : 2;
      stream.newerBlock = false;
      ZOREngineEmulator engine(stream);
      ASSERT_EQ(engine.Create(ClassId(location)), S_OK);
      Model model{capture};
      for (int step = 0; step < 150; ++step) {
        const auto call = static_cast<Call>(std::uniform_int_distribution<int>(0, kCallCount - 1)(random));
        if (call == kProcess && !model.locked) continue;  // the engine processes only while locked
        const HRESULT expected = model.Expected(call);
        ASSERT_EQ(RunCall(call, engine, capture ? 1 : 2, capture ? 8 : 1, random), expected)
            << "seed " << seed << " location " << location << " step " << step << " call " << call;
        zor::os::NamedMutex probe;
        ASSERT_EQ(probe.OpenExisting(CZOR_LFX_Capture_APO_Universal::kMutexName) == zor::os::NamedMutex::OpenStatus::Ok,
                  capture && model.locked);
      }
    }
  }
}

}  // namespace
