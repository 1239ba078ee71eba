#pragma once
// What velapo-host drives: a stream of one APO location, from start to stop,
// one buffer at a time. Two implementations: the APO objects as the audio
// engine drives them (through the module's class factory), and the process
// manager alone, for embedders that own their audio path.

#include <cstdint>
#include <string>
#include <vector>

class HostEndpoint;

struct HostFormat {
  uint32_t rate = 0;
  uint32_t channelsIn = 0;
  uint32_t channelsOut = 0;
};

class IHostStage {
 public:
  virtual ~IHostStage() = default;
  virtual const char* Name() const = 0;
  // Binds the stream to the endpoint at APO `location` and starts it. A
  // stage may settle on another format than asked (a proposal of the format
  // talks); `format` says what it took. False, with `error`, when the stream
  // cannot start. Main thread.
  virtual bool Start(HostEndpoint& endpoint, uint32_t location, HostFormat& format, std::string& error) = 0;
  // One buffer of `frames` interleaved frames; `output` holds as many frames
  // of the output channels. Answers the frames written. Audio thread.
  virtual uint32_t Process(const float* input, float* output, uint32_t frames, bool silent) = 0;
  // True once for each switch of chains since the last call (false where a
  // stage cannot tell). Audio thread.
  virtual bool TakeSwitch() = 0;
  // Whether TakeSwitch can tell at all; where not, velapo-host finds the
  // switches in the output afterwards (OutputSwitchFinder).
  virtual bool SeesSwitches() const { return true; }
  // The latency the stage reports, in the manager's units of 10 ns.
  virtual int64_t Latency() const = 0;
  // The active effects as the engine would list them ("n/a" where the stage
  // has no list).
  virtual std::vector<std::string> Effects() const = 0;
  // The chain that plays now: its processes in order, or why none runs.
  virtual std::string ActiveChain() const = 0;
  // Ends the stream. Main thread.
  virtual void Stop() = 0;
};
