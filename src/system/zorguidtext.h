#pragma once
// ZORGuidText: a GUID and the text it was parsed from, held together. The
// text is kept as given, in upper case, so that names built from it (keys
// of the settings store, names of shared objects) are the same in every
// process whatever case the source used. Zero GUID and empty text are the
// default state and the result of text that does not parse.
// A plain value: no lock, any thread that owns it.

#include <string>
#include <string_view>

#include "platform/com.h"

class ZORGuidText {
 public:
  ZORGuidText() = default;
  explicit ZORGuidText(std::u16string_view text) { Parse(text); }
  explicit ZORGuidText(const GUID& guid);

  // Parses `text` as CLSIDFromString does. On success the GUID is its value
  // and the text the input in upper case; on failure both go back to the
  // default state. Returns whether it parsed.
  bool Parse(std::u16string_view text);
  void Clear();

  const GUID& Guid() const { return m_guid; }
  const std::u16string& Text() const { return m_text; }
  // True for the zero GUID (so also for text that did not parse).
  bool IsNull() const { return IsEqualGUID(m_guid, GUID_NULL); }

  // Two values are equal when their GUIDs are; the text follows the GUID.
  bool operator==(const ZORGuidText& other) const { return IsEqualGUID(m_guid, other.m_guid); }

 private:
  GUID m_guid = GUID_NULL;
  std::u16string m_text;
};
