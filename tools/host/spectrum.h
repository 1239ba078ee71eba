#pragma once
// Average magnitude spectrum of a clip (all channels mixed), for the
// report's picture: Hann windows of kSize samples, half overlapping, their
// power averaged. Computed with FFTW where the build has it; elsewhere
// Available() is false and the picture leaves the spectra out.

#include <vector>

#include "audiofile.h"

struct Spectrum {
  static constexpr size_t kSize = 4096;
  static bool Available();
  // Level in dB of each bin from 0 to rate/2 (kSize/2 + 1 values); empty
  // for a clip shorter than one window or without FFTW.
  static std::vector<double> Of(const AudioClip& clip);
};
