#include "platform/text.h"

#include <windows.h>

#include <climits>

// Narrow text on Windows is in the ANSI code page.
namespace zor::os {
namespace {

int ClampToInt(size_t size) { return size > INT_MAX ? INT_MAX : static_cast<int>(size); }

}  // namespace

std::u16string NarrowToWide(std::string_view narrow) {
  if (narrow.empty()) return {};
  const int length = ClampToInt(narrow.size());
  const int units = ::MultiByteToWideChar(CP_ACP, 0, narrow.data(), length, nullptr, 0);
  if (units <= 0) return {};
  std::u16string wide(static_cast<size_t>(units), u'\0');
  ::MultiByteToWideChar(CP_ACP, 0, narrow.data(), length, AsWinChars(wide.data()), units);
  return wide;
}

std::string WideToNarrow(std::u16string_view wide) {
  if (wide.empty()) return {};
  const int length = ClampToInt(wide.size());
  const int bytes =
      ::WideCharToMultiByte(CP_ACP, 0, AsWinChars(wide.data()), length, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return {};
  std::string narrow(static_cast<size_t>(bytes), '\0');
  ::WideCharToMultiByte(CP_ACP, 0, AsWinChars(wide.data()), length, narrow.data(), bytes, nullptr,
                        nullptr);
  return narrow;
}

size_t NarrowToWideInto(std::string_view narrow, char16_t* out, size_t capacity) {
  if (narrow.empty() || capacity == 0) return 0;
  const int length = ClampToInt(narrow.size());
  const int fitted =
      ::MultiByteToWideChar(CP_ACP, 0, narrow.data(), length, AsWinChars(out), ClampToInt(capacity));
  if (fitted > 0) return static_cast<size_t>(fitted);
  // Too long for the room: convert all of it and keep what fits, without
  // splitting a surrogate pair.
  const std::u16string wide = NarrowToWide(narrow);
  size_t units = wide.size() < capacity ? wide.size() : capacity;
  if (units < wide.size() && units > 0 && wide[units - 1] >= 0xD800 && wide[units - 1] <= 0xDBFF) {
    --units;
  }
  wide.copy(out, units);
  return units;
}

}  // namespace zor::os
