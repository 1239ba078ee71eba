#pragma once
// passthrough: leaves the audio as it is. A chain position that must exist
// but does nothing, and the simplest process to try a host against.

#include "techprocess.h"

namespace veltech {

class PassthroughProcess : public TechProcess {
 public:
  static const ControlTable& Table() {
    static const ControlTable table({});
    return table;
  }

  PassthroughProcess() : TechProcess(Table()) {}

 protected:
  bool Prepare(uint32_t, uint32_t) override { return true; }
  void Run(float* const*, uint32_t, uint32_t) override {}
  void TakeState(const TechProcess&) override {}
};

}  // namespace veltech
