#include "spectrum.h"

bool Spectrum::Available() { return false; }
std::vector<double> Spectrum::Of(const AudioClip&) { return {}; }
