// The latency cache as another process may have left it: the first byte is
// the value's type, the rest its data. Anything but eight bytes of REG_QWORD
// is refused; nothing is read beyond the data.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "manager/zorapolatencycalculator.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const auto type = static_cast<zor::os::RegType>(data[0]);
  uint64_t value = 0;
  const bool parsed = ZORAPOLatencyCalculator::ParseQword(type, {data + 1, size - 1}, value);
  if (parsed != (type == zor::os::RegType::Qword && size == 9)) std::abort();
  return 0;
}
