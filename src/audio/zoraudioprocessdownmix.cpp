#include "audio/zoraudioprocessdownmix.h"

#include "audio/zormixkernels.h"

bool ZORAudioProcessDownmix::Init(uint32_t /*channels*/, uint32_t /*sampleRate*/) { return true; }

// audio thread
void ZORAudioProcessDownmix::Process(IZORAudioData<float>* data) {
  if (m_bypass || data == nullptr) {
    return;
  }
  ZORMixInPlaceKernel kernel = nullptr;
  uint32_t needed = 0;
  switch (m_mode) {
    case Mode_51ToStereo:
      kernel = &ZORMixInPlace51ToStereo;
      needed = 6;
      break;
    case Mode_StereoToMono:
      kernel = &ZORMixInPlaceStereoToMono;
      needed = 2;
      break;
    case Mode_MonoToBoth:
      kernel = &ZORMixInPlaceMonoToBoth;
      needed = 2;
      break;
    default:
      return;
  }
  const uint32_t channels = data->GetChannels();
  if (channels < needed) {
    return;
  }
  float* samples = data->GetData(true, true);
  if (samples != nullptr) {
    // The kernels step by their own stride, not the block's, for as many
    // steps as the block has frames: they are meant for blocks of exactly
    // their width, and on a wider one they stay inside its first frames.
    kernel(samples, data->GetFrames());
  }
  data->ReleaseData();
}

bool ZORAudioProcessDownmix::GetControl(ZORUTSValue& /*value*/) { return false; }

bool ZORAudioProcessDownmix::SetControl(const ZORUTSValue& /*value*/) { return false; }

uint32_t ZORAudioProcessDownmix::EnumControls(std::vector<ZORUTSControlInfo>& controls) {
  controls.clear();
  return 0;
}

int32_t ZORAudioProcessDownmix::PassThroughFirst(uint32_t /*code*/, void* /*data*/,
                                                 uint32_t /*size*/) {
  return 0;
}

int32_t ZORAudioProcessDownmix::PassThroughSecond(uint32_t /*code*/, void* /*data*/,
                                                  uint32_t /*size*/) {
  return 0;
}
