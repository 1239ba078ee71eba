#pragma once
// widener: stereo width by mid and side, on the first two channels.
//
// Control: "Widener-Width" in percent (gliding): 0 folds to mono, 100
// leaves the image as it is, 200 doubles the side signal. Other channels,
// and a mono stream, pass untouched.

#include "linearramp.h"
#include "techprocess.h"

namespace veltech {

class WidenerProcess : public TechProcess {
 public:
  enum ControlIndex : size_t { kWidth };
  static const ControlTable& Table();

  WidenerProcess() : TechProcess(Table()) {}

 protected:
  bool Prepare(uint32_t channels, uint32_t sampleRate) override;
  void Run(float* const* channels, uint32_t count, uint32_t frames) override;
  void TakeState(const TechProcess& other) override;

 private:
  LinearRamp m_width;
};

}  // namespace veltech
