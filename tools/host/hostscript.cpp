#include "hostscript.h"

#include <charconv>

namespace {

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

// Splits off the first word; `rest` keeps what follows, trimmed.
std::string_view FirstWord(std::string_view text, std::string_view& rest) {
  const size_t end = text.find_first_of(" \t");
  rest = end == std::string_view::npos ? std::string_view{} : Trim(text.substr(end));
  return text.substr(0, end);
}

bool ParseInteger(std::string_view text, int64_t low, int64_t high, int64_t& number) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, number);
  return ec == std::errc() && ptr == end && !text.empty() && number >= low && number <= high;
}

// "<name> = <value>", both present and of bounded length.
bool ParseAssignment(std::string_view args, ScriptAction& action, std::string& why) {
  const size_t equals = args.find('=');
  if (equals == std::string_view::npos) {
    why = "expected '<name> = <value>'";
    return false;
  }
  const std::string_view name = Trim(args.substr(0, equals));
  const std::string_view value = Trim(args.substr(equals + 1));
  if (name.empty() || value.empty()) {
    why = name.empty() ? "the setting has no name" : "the setting has no value";
    return false;
  }
  if (name.size() > HostScript::kMaxNameBytes || value.size() > HostScript::kMaxNameBytes) {
    why = "name or value longer than 255 bytes";
    return false;
  }
  action.text = name;
  action.value = value;
  return true;
}

}  // namespace

std::string ScriptAction::Describe() const {
  switch (kind) {
    case ScriptActionKind::Mode:
      return "mode " + text + (value.empty() ? "" : " / " + value);
    case ScriptActionKind::Public:
      return "public " + text + " = " + value;
    case ScriptActionKind::Global:
      return "global " + text + " = " + value;
    case ScriptActionKind::TuneOpen:
      return "tune open";
    case ScriptActionKind::Tune:
      return "tune " + text + " = " + value;
    case ScriptActionKind::TuneMode:
      return "tune-mode " + std::to_string(number);
    case ScriptActionKind::SysFx:
      return number != 0 ? "sysfx on" : "sysfx off";
    case ScriptActionKind::Stall:
      return "stall " + std::to_string(number);
  }
  return {};
}

bool HostScript::ParseTime(std::string_view text, uint64_t& timeUs) {
  uint64_t scale = 1000000;  // seconds unless a unit says otherwise
  if (text.size() > 2 && text.substr(text.size() - 2) == "ms") {
    scale = 1000;
    text.remove_suffix(2);
  } else if (text.size() > 1 && text.back() == 's') {
    text.remove_suffix(1);
  }
  const size_t dot = text.find('.');
  const std::string_view whole = text.substr(0, dot);
  const std::string_view fraction = dot == std::string_view::npos ? std::string_view{} : text.substr(dot + 1);
  if (whole.empty() || whole.size() > 9 || (dot != std::string_view::npos && fraction.empty()) ||
      fraction.size() > 6) {
    return false;
  }
  uint64_t value = 0;
  for (const char c : whole) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  value *= scale;
  uint64_t place = scale;
  for (const char c : fraction) {
    if (c < '0' || c > '9') return false;
    place /= 10;
    value += static_cast<uint64_t>(c - '0') * place;  // digits below a microsecond add 0
  }
  if (value > kMaxTimeUs) return false;
  timeUs = value;
  return true;
}

bool HostScript::Parse(std::string_view text, std::string& error) {
  m_actions.clear();
  uint32_t number = 0;
  while (!text.empty()) {
    ++number;
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    std::string why;
    if (line.size() > kMaxLineBytes) {
      why = "longer than 4096 bytes";
    } else if (!ParseLine(line, number, why)) {
    } else if (m_actions.size() > kMaxActions) {
      why = "more than 10000 actions";
    } else {
      continue;
    }
    error = "line " + std::to_string(number) + ": " + why;
    m_actions.clear();
    return false;
  }
  return true;
}

bool HostScript::ParseLine(std::string_view line, uint32_t number, std::string& why) {
  for (const char c : line) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\r') {
      why = "holds a control character";
      return false;
    }
  }
  line = Trim(line.substr(0, line.find('#')));
  if (line.empty()) return true;

  std::string_view rest;
  const std::string_view timeText = FirstWord(line, rest);
  ScriptAction action;
  action.line = number;
  if (!ParseTime(timeText, action.timeUs)) {
    why = "'" + std::string(timeText) + "' is not a time (e.g. 1.5, 1.5s, 1500ms)";
    return false;
  }
  if (!m_actions.empty() && action.timeUs < m_actions.back().timeUs) {
    why = "time goes back (actions must be in order)";
    return false;
  }
  std::string_view args;
  const std::string_view verb = FirstWord(rest, args);
  bool ok = true;
  if (verb == "mode") {
    action.kind = ScriptActionKind::Mode;
    const size_t slash = args.find('/');
    const std::string_view mode = Trim(args.substr(0, slash));
    const std::string_view speaker = slash == std::string_view::npos ? std::string_view{} : Trim(args.substr(slash + 1));
    if (mode.empty() || (slash != std::string_view::npos && speaker.empty()) ||
        mode.size() > kMaxNameBytes || speaker.size() > kMaxNameBytes) {
      why = "expected 'mode <operating mode> [/ <speaker type>]'";
      return false;
    }
    action.text = mode;
    action.value = speaker;
  } else if (verb == "public" || verb == "global") {
    action.kind = verb == "public" ? ScriptActionKind::Public : ScriptActionKind::Global;
    ok = ParseAssignment(args, action, why);
  } else if (verb == "tune") {
    if (args == "open") {
      action.kind = ScriptActionKind::TuneOpen;
    } else {
      action.kind = ScriptActionKind::Tune;
      ok = ParseAssignment(args, action, why);
    }
  } else if (verb == "tune-mode") {
    action.kind = ScriptActionKind::TuneMode;
    if (!ParseInteger(args, INT32_MIN, INT32_MAX, action.number)) {
      why = "expected 'tune-mode <number>'";
      return false;
    }
  } else if (verb == "sysfx") {
    action.kind = ScriptActionKind::SysFx;
    if (args != "on" && args != "off") {
      why = "expected 'sysfx on' or 'sysfx off'";
      return false;
    }
    action.number = args == "on" ? 1 : 0;
  } else if (verb == "stall") {
    action.kind = ScriptActionKind::Stall;
    if (!ParseInteger(args, 1, kMaxStallMs, action.number)) {
      why = "expected 'stall <milliseconds>' from 1 to 10000";
      return false;
    }
  } else {
    why = verb.empty() ? "a time without an action"
                       : "unknown action '" + std::string(verb) +
                             "' (mode, public, global, tune, tune-mode, sysfx, stall)";
    return false;
  }
  if (ok) m_actions.push_back(std::move(action));
  return ok;
}
