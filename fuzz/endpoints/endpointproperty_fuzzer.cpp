// Fuzzes what the Linux device enumerator reads from the settings store,
// which any local program may write: value names as property keys and GUID
// texts, and value data as the variants of a property store. Beyond "no
// crash, no over-read", a name that parses prints back to a name that
// parses to the same key, a GUID text reads back from its upper-case form,
// and every variant's text and list stay within the data they came from.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "platform/posix/mmdevices.h"
#include "system/zorguidtext.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text(size / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * 2);

  PROPERTYKEY key{};
  if (zor::com::ParsePropertyKeyText(text, key)) {
    PROPERTYKEY again{};
    Require(zor::com::ParsePropertyKeyText(zor::com::PropertyKeyText(key), again));
    Require(zor::com::PropertyKeysEqual(key, again));
  }
  ZORGuidText guid;
  if (guid.Parse(text)) {
    Require(guid.Text().size() == 38);
    Require(ZORGuidText(guid.Text()) == guid && ZORGuidText(guid.Guid()).Text() == guid.Text());
  } else {
    Require(guid.IsNull() && guid.Text().empty());
  }

  const std::span<const uint8_t> bytes(data, size);
  for (const uint32_t type : {1u, 2u, 3u, 4u, 7u, 11u, 0u, 5u}) {
    PROPVARIANT value;
    const bool read = zor::os::PropVariantFromRegistry(static_cast<zor::os::RegType>(type), bytes, value);
    Require(read == (value.vt != VT_EMPTY));
    if (value.vt == VT_LPWSTR) Require(std::char_traits<char16_t>::length(value.pwszVal) * 2 <= size);
    if (value.vt == VT_BLOB) Require(value.blob.cbSize == size);
    if (value.vt == (VT_VECTOR | VT_LPWSTR)) Require(value.calpwstr.cElems <= size / 2);
    PropVariantClear(&value);
  }
  return 0;
}
