#pragma once
// SharedBlockSnapshot: a copy of a named shared block as it stands, taken
// under the block's mutex when there is one, for a tool that shows it. It
// never creates a block: a block that no process holds does not exist, and
// probing must not make one that would then outlive nothing but the probe.
// One thread.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "control/controlresult.h"

class SharedBlockSnapshot {
 public:
  // Copies the block `name` of `size` bytes (what its creator gave) into
  // `bytes`, holding the mutex `name` + `mutexSuffix` while it copies when
  // that mutex exists. Fails for a block no process holds.
  static ControlResult Take(std::u16string_view name, uint32_t size,
                            std::u16string_view mutexSuffix, std::vector<uint8_t>& bytes);
};
