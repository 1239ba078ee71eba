#pragma once
// The example programme velapo-host can make, so that nothing needs to be
// downloaded to try velapo: stereo, in four parts of equal length: steady
// tones (440 Hz left, 660 Hz right, -12 dBFS), a logarithmic sweep from 40 Hz
// to 16 kHz (-12 dBFS), pink-ish noise bursts of 250 ms with silence between
// (-18 dBFS), and the tones again. Deterministic: the same arguments give
// the same samples.

#include <cstdint>

#include "audiofile.h"

AudioClip MakeProgramme(double seconds, uint32_t rate);
