#pragma once

#include "platform/apotypes.h"

// What formats the effect objects take, and the format talks with the engine
// built on it. Two families: the render objects take 2, 4, 6 or 8 channels,
// the capture object 0, 1 or 2; both only 32-bit float. The rate must be the
// same on both sides and at most 192 kHz; when only the rate differs, the
// opposite side's rate is proposed. Stateless; any thread.
class ZORAPOFormatRules {
 public:
  enum class Family { Render, Capture };
  enum class Direction { Input, Output };

  // The sample type, bits and channel test of one format, rate aside.
  static bool IsFormatAcceptable(Family family, const UNCOMPRESSEDAUDIOFORMAT& format);

  // One answer of IsInputFormatSupported (Direction::Input) or
  // IsOutputFormatSupported: `opposite` may be null, meaning any. S_OK hands
  // the request back, S_FALSE a proposal, each with a reference for the
  // caller; APOERR_FORMAT_NOT_SUPPORTED leaves `ppSupported` alone. The render
  // family logs as the engine's tools expect to read it; capture is silent.
  static HRESULT Negotiate(Family family, Direction direction, IAudioMediaType* opposite,
                           IAudioMediaType* requested, IAudioMediaType** ppSupported);

  // Forces `format` into what the engine can carry at all: float samples,
  // 1 to 4096 channels, 4-byte containers of 32 valid bits, 10 Hz to 384 kHz.
  // True when anything changed.
  static bool ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format);

  // Copies a connection's wave format into `cache`: the 16 leading bytes,
  // then the extensible part only when the tag says there is one, else only
  // the size field. A plain format is never read past its end, and the rest
  // of `cache` keeps what it held. A null format leaves `cache` alone.
  static void CacheWaveFormat(IAudioMediaType* format, WAVEFORMATEXTENSIBLE& cache);
};
