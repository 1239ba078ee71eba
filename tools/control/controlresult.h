#pragma once
// ControlResult: how every control operation answers: whether it worked and,
// either way, one line a person can act on ("no endpoint {...} in the store
// under ..."). Tools print the message; scripts test `ok`.
#include <string>
#include <utility>

struct ControlResult {
  bool ok = false;
  std::string message;

  static ControlResult Success(std::string text = {}) { return {true, std::move(text)}; }
  static ControlResult Failure(std::string text) { return {false, std::move(text)}; }
  explicit operator bool() const { return ok; }
};
