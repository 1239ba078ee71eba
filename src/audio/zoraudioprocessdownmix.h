#pragma once
#include <cstdint>
#include <vector>

#include "audio/izoraudioprocess.h"
#include "config/izorutscontroller.h"

// A stage that folds channels in place by one of the in-place kernels, the
// block keeping its channel count: mode 1 folds 5.1 into the first two
// channels, mode 2 folds pairs to mono, mode 3 copies the first of each pair
// to the second. It offers no controls. No chain builds it today; it stays in
// the library of stages for configurations that want a fixed fold.
class ZORAudioProcessDownmix : public IZORAudioProcess<float>, public IZORUTSController {
 public:
  enum Mode : uint32_t {
    Mode_51ToStereo = 1,
    Mode_StereoToMono = 2,
    Mode_MonoToBoth = 3,
  };

  bool Init(uint32_t channels, uint32_t sampleRate) override;
  void SetBypass(bool bypass) override { m_bypass = bypass; }
  bool GetBypass() const override { return m_bypass; }
  uint32_t GetLatency() const override { return 0; }
  // Folds the block in place; a block with fewer channels than the mode needs
  // is left alone. Audio thread.
  void Process(IZORAudioData<float>* data) override;

  bool GetControl(ZORUTSValue& value) override;
  bool SetControl(const ZORUTSValue& value) override;
  uint32_t EnumControls(std::vector<ZORUTSControlInfo>& controls) override;
  int32_t PassThroughFirst(uint32_t code, void* data, uint32_t size) override;
  int32_t PassThroughSecond(uint32_t code, void* data, uint32_t size) override;

  void SetMode(uint32_t mode) { m_mode = mode; }
  uint32_t GetMode() const { return m_mode; }

 private:
  bool m_bypass = false;
  uint32_t m_mode = Mode_51ToStereo;
};
