#pragma once
// Where a switch is heard in the output, for a stage that cannot say when
// its chain switched (the effect objects keep their chains to themselves).
// A switch changes how the output follows the input: the finder follows the
// level of output over input (the input taken `latency` frames earlier) in
// 10 ms windows, and after each action looks for the first window from which
// that gain stays more than `thresholdDb` away from its median over the
// 300 ms before the action, for 50 ms on end. An action that changes nothing
// audible, or one in quiet or silent input, shows no switch.

#include <cstdint>
#include <vector>

#include "audiofile.h"

class OutputSwitchFinder {
 public:
  static constexpr double kThresholdDb = 1.0;

  // `actionFrames`: stream frames where actions were carried out, in order.
  // Returns the frame of each switch heard, at most one per action, before
  // the next action.
  static std::vector<uint64_t> Find(const AudioClip& input, const AudioClip& output, int64_t latencyFrames,
                                    const std::vector<uint64_t>& actionFrames, double thresholdDb = kThresholdDb);
};
