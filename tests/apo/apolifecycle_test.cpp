// Random call orders, legal and not, against every class: each call's result
// must be the one a model of the engine's contract predicts, audio always
// passes, and nothing crashes (run under the address sanitiser).
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "apotesting.h"

namespace {

using namespace velapo::test;

enum class Call {
  InitOlder, InitNewer, InitShort, InitNullData, InitZeroSize, InitNoCollection,
  Lock, LockWrongSignature, LockNullArray, LockTwoInputs, LockBadChannels,
  Unlock, Process, GetLatency, GetLatencyNull, GetInputChannelCount, FormatGood, FormatBad,
  EffectsList, Count
};

// What the engine's contract makes of each call in the state the model holds.
struct Model {
  bool capture;
  bool initialized = false;
  bool locked = false;

  HRESULT Initialize(bool accepted, HRESULT refusal = S_OK) {
    if (initialized) return APOERR_ALREADY_INITIALIZED;
    initialized = true;  // set before the block is looked at
    return accepted ? S_OK : refusal;
  }
  HRESULT Lock(HRESULT checks) {
    if (locked) return APOERR_APO_LOCKED;
    locked = checks == S_OK;
    return checks;
  }
  HRESULT Expected(Call call) {
    switch (call) {
      case Call::InitOlder: return Initialize(true);
      case Call::InitNewer: return Initialize(!capture, E_INVALIDARG);
      case Call::InitShort: return Initialize(false, E_INVALIDARG);
      case Call::InitNoCollection: return Initialize(false, E_INVALIDARG);
      case Call::InitNullData: return E_INVALIDARG;
      case Call::InitZeroSize: return E_POINTER;
      case Call::Lock: return Lock(S_OK);
      case Call::LockWrongSignature: return Lock(E_INVALIDARG);
      case Call::LockNullArray: return Lock(E_POINTER);
      case Call::LockTwoInputs: return Lock(APOERR_NUM_CONNECTIONS_INVALID);
      case Call::LockBadChannels: return Lock(APOERR_FORMAT_NOT_SUPPORTED);
      case Call::Unlock: return locked ? (locked = false, S_OK) : APOERR_ALREADY_UNLOCKED;
      case Call::GetLatencyNull: return E_POINTER;
      case Call::GetInputChannelCount: return initialized ? S_OK : APOERR_NOT_INITIALIZED;
      case Call::FormatBad: return APOERR_FORMAT_NOT_SUPPORTED;
      case Call::EffectsList: return capture ? E_NOINTERFACE : S_OK;
      default: return S_OK;
    }
  }
};

class LifeCycle {
 public:
  LifeCycle(uint32_t location, std::mt19937& random) : m_capture(location == kZORLocationCapture), m_random(random) {
    ZOREngineEmulator::Stream stream;
    stream.inputChannels = stream.outputChannels = m_capture ? 1 : 2;
    stream.newerBlock = false;
    m_engine = std::make_unique<ZOREngineEmulator>(stream);
    EXPECT_EQ(m_engine->Create(ClassId(location)), S_OK);
    m_engine->Object()->QueryInterface(IID_IAudioProcessingObjectConfiguration, reinterpret_cast<void**>(&m_config));
    m_config->Release();  // the emulator holds it
  }

  HRESULT Run(Call call) {
    IAudioProcessingObject& apo = *m_engine->Object();
    switch (call) {
      case Call::InitOlder: return m_engine->Initialize();
      case Call::InitNewer: return InitWith(sizeof(APOInitSystemEffects2), true);
      case Call::InitShort: return InitWith(40, true);
      case Call::InitNoCollection: return InitWith(56, false);
      case Call::InitNullData: return apo.Initialize(56, nullptr);
      case Call::InitZeroSize: return InitWith(0, true);
      case Call::Lock: return m_engine->Lock();
      case Call::LockWrongSignature: return LockWith(1, 1, 0, false);
      case Call::LockNullArray: return m_config->LockForProcess(1, nullptr, 1, nullptr);
      case Call::LockTwoInputs: return LockWith(2, 1, 0, true);
      case Call::LockBadChannels: return LockWith(1, 1, m_capture ? 8 : 1, true);
      case Call::Unlock: return m_engine->Unlock();
      case Call::Process: return Process();
      case Call::GetLatency: {
        HNSTIME latency = -1;
        const HRESULT hr = m_engine->GetLatency(latency);
        return latency == 0 ? hr : E_UNEXPECTED;  // no endpoint, no chain, no latency
      }
      case Call::GetLatencyNull: return apo.GetLatency(nullptr);
      case Call::GetInputChannelCount: {
        UINT32 channels = 0;
        return apo.GetInputChannelCount(&channels);
      }
      case Call::FormatGood: return Format(m_capture ? 1 : 2);
      case Call::FormatBad: return Format(m_capture ? 8 : 1);
      case Call::EffectsList: {
        std::vector<GUID> ids;
        const HRESULT hr = m_engine->GetEffectsList(ids, nullptr);
        return ids.empty() ? hr : E_UNEXPECTED;
      }
      default: return E_UNEXPECTED;
    }
  }

 private:
  // The emulator's own store and collection, which outlive the object.
  HRESULT InitWith(UINT32 cb, bool collection) {
    APOInitSystemEffects2 block{};
    block.pAPOSystemEffectsProperties = &m_engine->FxProperties();
    block.pDeviceCollection = collection ? &m_engine->Devices() : nullptr;
    std::vector<BYTE> bytes(std::max<size_t>(cb, sizeof(block)));
    std::memcpy(bytes.data(), &block, sizeof(block));
    bytes.resize(cb);
    return m_engine->Object()->Initialize(cb, cb ? bytes.data() : reinterpret_cast<BYTE*>(&block));
  }
  HRESULT LockWith(UINT32 inputs, UINT32 outputs, uint32_t channels, bool signed_) {
    const uint32_t width = channels ? channels : (m_capture ? 1 : 2);
    IAudioMediaType* format = ZORTestMediaType::Create(ZORTestMediaType::Float(width, 48000.0f));
    std::vector<float> in(480 * 8), out(480 * 8);
    ZORTestConnection a(format, in.data(), 480), b(format, out.data(), 480), c(format, out.data(), 480);
    format->Release();
    if (!signed_) a.descriptor.u32Signature = 0;
    APO_CONNECTION_DESCRIPTOR* ins[] = {a.entry, c.entry};
    return m_config->LockForProcess(inputs, ins, outputs, &b.entry);
  }
  HRESULT Format(uint32_t channels) {
    IAudioMediaType* format = ZORTestMediaType::Create(ZORTestMediaType::Float(channels, 48000.0f));
    IAudioMediaType* supported = nullptr;
    const HRESULT hr = m_engine->Object()->IsOutputFormatSupported(nullptr, format, &supported);
    if (supported) supported->Release();
    format->Release();
    return hr;
  }
  // Only while locked, as the engine calls it. A valid buffer comes out as
  // it went in, whatever the object's state: nothing is configured.
  HRESULT Process() {
    std::vector<float> input = Ramp(480, m_capture ? 1 : 2, 0.001f);
    for (float& s : input) s *= 1e-4f;
    const uint32_t flags = std::uniform_int_distribution<uint32_t>(0, 3)(m_random);
    const uint32_t out = m_engine->Process(input, flags);
    if (flags == BUFFER_VALID && (out != BUFFER_VALID || m_engine->Output() != input)) return E_UNEXPECTED;
    return S_OK;
  }

  bool m_capture;
  std::mt19937& m_random;
  std::unique_ptr<ZOREngineEmulator> m_engine;
  IAudioProcessingObjectConfiguration* m_config = nullptr;
};

TEST(LifeCycleTest, RandomCallOrdersGetTheContractsCodes) {
  const uint32_t locations[] = {0, 1, 2, 3, 4, 5, kZORLocationCapture};
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    for (const uint32_t location : locations) {
      std::mt19937 random(seed * 7919 + location);
      LifeCycle object(location, random);
      Model model{location == kZORLocationCapture};
      for (int step = 0; step < 150; ++step) {
        const auto call = static_cast<Call>(std::uniform_int_distribution<int>(0, int(Call::Count) - 1)(random));
        if (call == Call::Process && !model.locked) continue;
        const HRESULT expected = model.Expected(call);
        ASSERT_EQ(object.Run(call), expected) << "seed " << seed << " location " << location << " step " << step
                                               << " call " << int(call);
      }
    }
  }
}

}  // namespace
