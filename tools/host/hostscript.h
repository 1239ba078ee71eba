#pragma once
// The timed script of velapo-host: what a control panel (or the engine, for
// a stall) does to a running stream, and when. One action per line:
//
//   <time> <action> [arguments]      # comments run to the end of the line
//
// Times are stream times ("1.5", "1.5s" or "1500ms") and never go back.
// Actions: mode, public, global, tune, tune-mode, sysfx, stall (see
// docs/velapo-host.md). Parsing is strict: anything it cannot read fails with
// the line's number and what was wrong, and nothing of the script is used.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum class ScriptActionKind {
  Mode,      // text: operating mode, value: speaker type (may be empty)
  Public,    // text = value: a public setting of the current mode
  Global,    // text = value: a global setting
  TuneOpen,  // opens the current mode's tuned block and keeps it open
  Tune,      // text = value: a tuned value in the open block
  TuneMode,  // number: the block's tuning mode
  SysFx,     // number: 1 system effects on, 0 off
  Stall,     // number: milliseconds without a buffer
};

struct ScriptAction {
  uint64_t timeUs = 0;  // stream time, microseconds
  ScriptActionKind kind = ScriptActionKind::Stall;
  std::string text;
  std::string value;
  int64_t number = 0;
  uint32_t line = 0;  // 1-based line in the script

  // The action as the report prints it: "global APO4-Process Enable = 0".
  std::string Describe() const;
  // True for the actions a control panel carries out through the stores.
  bool IsControl() const { return kind != ScriptActionKind::Stall; }
};

class HostScript {
 public:
  // Bounds that keep a hostile script from costing time or memory.
  static constexpr size_t kMaxLineBytes = 4096;
  static constexpr size_t kMaxActions = 10000;
  static constexpr size_t kMaxNameBytes = 255;
  static constexpr uint64_t kMaxTimeUs = 24ull * 3600 * 1000000;
  static constexpr int64_t kMaxStallMs = 10000;

  // Parses a whole script. False, with `error` saying "line N: why" and the
  // actions emptied, at the first line that does not parse.
  bool Parse(std::string_view text, std::string& error);
  const std::vector<ScriptAction>& Actions() const { return m_actions; }

  // One stream time ("2", "2.5s", "2500ms") in microseconds; false for
  // anything else, negative times and times past kMaxTimeUs.
  static bool ParseTime(std::string_view text, uint64_t& timeUs);

 private:
  bool ParseLine(std::string_view line, uint32_t number, std::string& why);

  std::vector<ScriptAction> m_actions;
};
