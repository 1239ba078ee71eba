#include "apo/cbaseaudioprocessingobject.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>

#include "apo/zorapoformatrules.h"
#include "apo/zoraporegproperties.h"
#include "engine/zortestmediatype.h"

namespace {

// The smallest complete effect object on the base: render format rules and a count of the caches a lock asks for.
class TestAPO final : public CBaseAudioProcessingObject {
 public:
  explicit TestAPO(const APO_REG_PROPERTIES* reg) : CBaseAudioProcessingObject(reg) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* o, IAudioMediaType* r, IAudioMediaType** s) override {
    return ZORAPOFormatRules::Negotiate(ZORAPOFormatRules::Family::Render, ZORAPOFormatRules::Direction::Input, o, r, s);
  }
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* o, IAudioMediaType* r, IAudioMediaType** s) override {
    return ZORAPOFormatRules::Negotiate(ZORAPOFormatRules::Family::Render, ZORAPOFormatRules::Direction::Output, o, r, s);
  }
  void STDMETHODCALLTYPE APOProcess(UINT32, APO_CONNECTION_PROPERTY**, UINT32, APO_CONNECTION_PROPERTY**) override {}
  HRESULT ValidateAndCacheConnectionInfo(UINT32, APO_CONNECTION_DESCRIPTOR**, UINT32, APO_CONNECTION_DESCRIPTOR**) override {
    ++caches;
    return cacheResult;
  }

  int caches = 0;
  HRESULT cacheResult = S_OK;
};

const APO_REG_PROPERTIES* SfxRecord() { return ZORAPORenderClass(kZORLocationSFX)->regProperties; }

// A lock's connections as the engine lays them out: one input, one output, each in a buffer of its own.
class LockTest : public testing::Test {
 protected:
  static constexpr uint32_t kFrames = 480;
  static constexpr UINT_PTR kFrameBytes = 2 * sizeof(float);
  using Faults = ZORTestMediaType::Faults;
  static UNCOMPRESSEDAUDIOFORMAT F(uint32_t channels, float rate = 48000, uint32_t container = 4) {
    return ZORTestMediaType::Float(channels, rate, 32, container);
  }

  void Build(const UNCOMPRESSEDAUDIOFORMAT& in, const UNCOMPRESSEDAUDIOFORMAT& out, const Faults& inFaults = Faults()) {
    ZORTestMediaType* inType = ZORTestMediaType::Create(in, inFaults);
    ZORTestMediaType* outType = ZORTestMediaType::Create(out);
    m_in.emplace(inType, m_inBuffer.data(), kFrames);
    m_out.emplace(outType, m_outBuffer.data(), kFrames);
    inType->Release();
    outType->Release();
    m_inArray = {m_in->entry, m_in->entry};
    m_outArray = {m_out->entry, m_out->entry};
    m_nIn = m_nOut = 1;
    m_ppIn = m_inArray.data();
    m_apo = std::make_unique<TestAPO>(SfxRecord());
    ASSERT_EQ(m_apo->Initialize(0, nullptr), S_OK);
  }
  void SetUp() override { Build(F(2), F(2)); }
  HRESULT Lock() { return m_apo->LockForProcess(m_nIn, m_ppIn, m_nOut, m_outArray.data()); }

  std::unique_ptr<TestAPO> m_apo;
  std::array<float, 8 * kFrames * 2> m_inBuffer{};
  std::array<float, 8 * kFrames> m_outBuffer{};
  std::optional<ZORTestConnection> m_in, m_out;
  std::array<APO_CONNECTION_DESCRIPTOR*, 2> m_inArray{}, m_outArray{};
  UINT32 m_nIn = 1, m_nOut = 1;
  APO_CONNECTION_DESCRIPTOR** m_ppIn = nullptr;
};

TEST_F(LockTest, EveryResultCodeIsReachedByBadInput) {
  struct Case {
    const char* name;
    std::function<void()> spoil;
    HRESULT expected;
  };
  const Case cases[] = {
      {"valid", [] {}, S_OK},
      {"null input array", [this] { m_ppIn = nullptr; }, E_POINTER},
      {"null first output", [this] { m_outArray[0] = nullptr; }, E_POINTER},
      {"no inputs", [this] { m_nIn = 0; }, APOERR_NUM_CONNECTIONS_INVALID},
      {"two outputs", [this] { m_nOut = 2; }, APOERR_NUM_CONNECTIONS_INVALID},
      {"null first format", [this] { m_in->descriptor.pFormat = nullptr; }, E_POINTER},
      {"unreadable first format", [this] { Build(F(2), F(2), {.uncompressedQuery = E_FAIL}); }, E_FAIL},
      {"null output format", [this] { m_out->descriptor.pFormat = nullptr; }, APOERR_FORMAT_NOT_SUPPORTED},
      {"rates differ", [this] { Build(F(2), F(2, 44100)); }, APOERR_FORMAT_NOT_SUPPORTED},
      {"mono input", [this] { Build(F(1), F(2)); }, APOERR_FORMAT_NOT_SUPPORTED},
      {"wrong input signature", [this] { m_in->descriptor.u32Signature = 0; }, E_INVALIDARG},
      {"wrong output signature", [this] { m_out->descriptor.u32Signature = 0x41434454; }, E_INVALIDARG},
      {"container differs", [this] { Build(F(2), F(2, 48000, 3)); }, APOERR_INVALID_CONNECTION_FORMAT},
      {"input may carry more", [this] { m_in->descriptor.u32MaxFrameCount++; }, APOERR_INVALID_OUTPUT_MAXFRAMECOUNT},
      {"same buffer", [this] { m_out->descriptor.pBuffer = m_in->descriptor.pBuffer; }, APOERR_BUFFERS_OVERLAP},
      {"last frame overlaps",
       [this] { m_out->descriptor.pBuffer = m_in->descriptor.pBuffer + (kFrames - 1) * kFrameBytes; },
       APOERR_BUFFERS_OVERLAP},
      {"adjacent buffers", [this] { m_out->descriptor.pBuffer = m_in->descriptor.pBuffer + kFrames * kFrameBytes; },
       S_OK},
      {"cache refuses", [this] { m_apo->cacheResult = E_FAIL; }, E_FAIL},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Build(F(2), F(2));
    c.spoil();
    const HRESULT hr = Lock();
    EXPECT_EQ(hr, c.expected);
    EXPECT_EQ(m_apo->UnlockForProcess(), hr == S_OK ? S_OK : APOERR_ALREADY_UNLOCKED);
  }
}

}  // namespace
