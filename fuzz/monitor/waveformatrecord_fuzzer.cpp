// Any bytes as a wave format record: refused or read, never over-read, and
// what is read is within the limits the reader promises and writes back to
// a record that reads the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/waveformatrecord.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zor::os::WaveFormatRecord format;
  if (!zor::os::ParseWaveFormatRecord({data, size}, format)) return 0;
  if (format.channels < 1 || format.channels > 8 || format.sampleRate < 8000 || format.sampleRate > 384000 ||
      (format.bits != 16 && format.bits != 32) || (format.isFloat && format.bits != 32)) {
    std::abort();
  }
  uint8_t written[40];
  zor::os::WriteWaveFormatRecord(format, written);
  zor::os::WaveFormatRecord again;
  if (!zor::os::ParseWaveFormatRecord(written, again) || again.channels != format.channels ||
      again.sampleRate != format.sampleRate || again.bits != format.bits || again.isFloat != format.isFloat) {
    std::abort();
  }
  return 0;
}
