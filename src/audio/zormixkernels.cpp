#include "audio/zormixkernels.h"

#include <cstddef>

namespace {

constexpr float k = kZORMixGain;

// One frame of each kernel. The formulas are the definition of the result:
// keep their grouping.
struct Mix51ToStereo {
  static constexpr size_t kIn = 6;
  static constexpr size_t kOut = 2;
  static void Frame(const float* in, float* out) {
    out[0] = (in[4] + in[2]) * k + in[0];
    out[1] = (in[5] + in[2]) * k + in[1];
  }
};

struct Mix51ToFour {
  static constexpr size_t kIn = 6;
  static constexpr size_t kOut = 4;
  static void Frame(const float* in, float* out) {
    out[0] = in[2] * k + in[0];
    out[1] = in[2] * k + in[1];
    out[2] = in[4];
    out[3] = in[5];
  }
};

struct Mix71To51 {
  static constexpr size_t kIn = 8;
  static constexpr size_t kOut = 6;
  static void Frame(const float* in, float* out) {
    out[0] = in[0];
    out[1] = in[1];
    out[2] = in[2];
    out[3] = in[3];
    out[4] = (in[6] + in[4]) * k;
    out[5] = (in[7] + in[5]) * k;
  }
};

struct Mix71ToFour {
  static constexpr size_t kIn = 8;
  static constexpr size_t kOut = 4;
  static void Frame(const float* in, float* out) {
    out[0] = in[2] * k + in[0];
    out[1] = in[2] * k + in[1];
    out[2] = (in[6] + in[4]) * k;
    out[3] = (in[7] + in[5]) * k;
  }
};

struct MixStereoToMono {
  static constexpr size_t kIn = 2;
  static constexpr size_t kOut = 1;
  static void Frame(const float* in, float* out) { out[0] = (in[1] + in[0]) * k; }
};

struct MixMonoToStereo {
  static constexpr size_t kIn = 1;
  static constexpr size_t kOut = 2;
  static void Frame(const float* in, float* out) {
    out[0] = in[0];
    out[1] = in[0];
  }
};

// audio thread
template <typename Mix>
void Run(const float* __restrict source, float* __restrict target, uint32_t frames) {
  if (source == nullptr || target == nullptr) {
    return;
  }
  size_t f = 0;
  for (; f + 4 <= frames; f += 4) {
    const float* in = source + f * Mix::kIn;
    float* out = target + f * Mix::kOut;
    Mix::Frame(in, out);
    Mix::Frame(in + Mix::kIn, out + Mix::kOut);
    Mix::Frame(in + 2 * Mix::kIn, out + 2 * Mix::kOut);
    Mix::Frame(in + 3 * Mix::kIn, out + 3 * Mix::kOut);
  }
  for (; f < frames; ++f) {
    Mix::Frame(source + f * Mix::kIn, target + f * Mix::kOut);
  }
}

// In place, one frame at a time: every read of a frame comes before its writes.
struct InPlace51ToStereo {
  static constexpr size_t kStride = 6;
  static void Frame(float* a) {
    a[0] = (a[2] + a[4]) * k + a[0];
    a[1] = (a[2] + a[5]) * k + a[1];
    a[2] = 0.0f;
    a[3] = 0.0f;
    a[4] = 0.0f;
    a[5] = 0.0f;
  }
};

struct InPlaceStereoToMono {
  static constexpr size_t kStride = 2;
  static void Frame(float* a) {
    a[0] = (a[1] + a[0]) * k;
    a[1] = 0.0f;
  }
};

struct InPlaceMonoToBoth {
  static constexpr size_t kStride = 2;
  static void Frame(float* a) { a[1] = a[0]; }
};

// audio thread
template <typename Mix>
void RunInPlace(float* block, uint32_t frames) {
  if (block == nullptr) {
    return;
  }
  size_t f = 0;
  for (; f + 4 <= frames; f += 4) {
    float* a = block + f * Mix::kStride;
    Mix::Frame(a);
    Mix::Frame(a + Mix::kStride);
    Mix::Frame(a + 2 * Mix::kStride);
    Mix::Frame(a + 3 * Mix::kStride);
  }
  for (; f < frames; ++f) {
    Mix::Frame(block + f * Mix::kStride);
  }
}

struct KernelEntry {
  uint32_t inputChannels;
  uint32_t outputChannels;
  ZORMixKernel kernel;
};

constexpr KernelEntry kKernels[] = {
    {6, 2, &ZORMix51ToStereo},   {6, 4, &ZORMix51ToFour},      {2, 1, &ZORMixStereoToMono},
    {1, 2, &ZORMixMonoToStereo}, {8, 6, &ZORMix71To51},        {8, 4, &ZORMix71ToFour},
};

}  // namespace

void ZORMix51ToStereo(const float* source, float* target, uint32_t frames) {
  Run<Mix51ToStereo>(source, target, frames);
}

void ZORMix51ToFour(const float* source, float* target, uint32_t frames) {
  Run<Mix51ToFour>(source, target, frames);
}

void ZORMix71To51(const float* source, float* target, uint32_t frames) {
  Run<Mix71To51>(source, target, frames);
}

void ZORMix71ToFour(const float* source, float* target, uint32_t frames) {
  Run<Mix71ToFour>(source, target, frames);
}

void ZORMixStereoToMono(const float* source, float* target, uint32_t frames) {
  Run<MixStereoToMono>(source, target, frames);
}

void ZORMixMonoToStereo(const float* source, float* target, uint32_t frames) {
  Run<MixMonoToStereo>(source, target, frames);
}

ZORMixKernel ZORFindMixKernel(uint32_t inputChannels, uint32_t outputChannels) {
  for (const KernelEntry& entry : kKernels) {
    if (entry.inputChannels == inputChannels && entry.outputChannels == outputChannels) {
      return entry.kernel;
    }
  }
  return nullptr;
}

void ZORMixInPlace51ToStereo(float* block, uint32_t frames) {
  RunInPlace<InPlace51ToStereo>(block, frames);
}

void ZORMixInPlaceStereoToMono(float* block, uint32_t frames) {
  RunInPlace<InPlaceStereoToMono>(block, frames);
}

void ZORMixInPlaceMonoToBoth(float* block, uint32_t frames) {
  RunInPlace<InPlaceMonoToBoth>(block, frames);
}
