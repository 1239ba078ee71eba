#include "system/zorguidtext.h"

ZORGuidText::ZORGuidText(const GUID& guid) : m_guid(guid), m_text(zor::com::GuidText(guid)) {}

bool ZORGuidText::Parse(std::u16string_view text) {
  Clear();
  // CLSIDFromString wants a terminated string.
  const std::u16string terminated(text);
  GUID guid = GUID_NULL;
  if (FAILED(CLSIDFromString(zor::com::ToComText(terminated.c_str()), &guid))) return false;
  m_guid = guid;
  m_text = terminated.c_str();  // what CLSIDFromString read
  for (char16_t& c : m_text) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  return true;
}

void ZORGuidText::Clear() {
  m_guid = GUID_NULL;
  m_text.clear();
}
