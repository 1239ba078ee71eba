#include "platform/text.h"

namespace zor::os {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one character at `at` and moves past it. An ill-formed sequence
// gives U+FFFD and moves past its maximal well-formed prefix only, so the
// byte that broke it starts the next character.
char32_t DecodeUtf8(std::string_view text, size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at++]);
  if (lead < 0x80) return lead;
  size_t continuations = 0;
  char32_t value = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    continuations = 1;
    value = lead & 0x1Fu;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    continuations = 2;
    value = lead & 0x0Fu;
    if (lead == 0xE0) low = 0xA0;   // overlong
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    continuations = 3;
    value = lead & 0x07u;
    if (lead == 0xF0) low = 0x90;   // overlong
    if (lead == 0xF4) high = 0x8F;  // past U+10FFFF
  } else {
    return kReplacement;
  }
  for (size_t i = 0; i < continuations; ++i) {
    if (at >= text.size()) return kReplacement;
    const auto next = static_cast<unsigned char>(text[at]);
    if (next < low || next > high) return kReplacement;
    low = 0x80;
    high = 0xBF;
    value = (value << 6) | (next & 0x3Fu);
    ++at;
  }
  return value;
}

char32_t DecodeUtf16(std::u16string_view text, size_t& at) {
  const char16_t unit = text[at++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit <= 0xDBFF && at < text.size() && text[at] >= 0xDC00 && text[at] <= 0xDFFF) {
    const char16_t trail = text[at++];
    return 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (trail - 0xDC00);
  }
  return kReplacement;
}

size_t Utf16Units(char32_t value) { return value >= 0x10000 ? 2 : 1; }

size_t Utf8Units(char32_t value) {
  if (value < 0x80) return 1;
  if (value < 0x800) return 2;
  if (value < 0x10000) return 3;
  return 4;
}

void EncodeUtf16(char32_t value, char16_t* out) {
  if (value >= 0x10000) {
    value -= 0x10000;
    out[0] = static_cast<char16_t>(0xD800 + (value >> 10));
    out[1] = static_cast<char16_t>(0xDC00 + (value & 0x3FF));
  } else {
    out[0] = static_cast<char16_t>(value);
  }
}

void EncodeUtf8(char32_t value, char* out) {
  const size_t units = Utf8Units(value);
  if (units == 1) {
    out[0] = static_cast<char>(value);
    return;
  }
  static constexpr unsigned char kLeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
  for (size_t i = units - 1; i > 0; --i) {
    out[i] = static_cast<char>(0x80 | (value & 0x3F));
    value >>= 6;
  }
  out[0] = static_cast<char>(kLeadMarks[units] | value);
}

}  // namespace

size_t Utf8ToUtf16Into(std::string_view utf8, char16_t* out, size_t capacity) {
  size_t written = 0;
  for (size_t at = 0; at < utf8.size();) {
    const char32_t value = DecodeUtf8(utf8, at);
    if (written + Utf16Units(value) > capacity) break;
    EncodeUtf16(value, out + written);
    written += Utf16Units(value);
  }
  return written;
}

size_t Utf16ToUtf8Into(std::u16string_view utf16, char* out, size_t capacity) {
  size_t written = 0;
  for (size_t at = 0; at < utf16.size();) {
    const char32_t value = DecodeUtf16(utf16, at);
    if (written + Utf8Units(value) > capacity) break;
    EncodeUtf8(value, out + written);
    written += Utf8Units(value);
  }
  return written;
}

size_t Utf8LengthOf(std::u16string_view utf16) {
  size_t length = 0;
  for (size_t at = 0; at < utf16.size();) length += Utf8Units(DecodeUtf16(utf16, at));
  return length;
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
  // Never more UTF-16 units than UTF-8 bytes.
  std::u16string result(utf8.size(), u'\0');
  result.resize(Utf8ToUtf16Into(utf8, result.data(), result.size()));
  return result;
}

std::string Utf16ToUtf8(std::u16string_view utf16) {
  std::string result(Utf8LengthOf(utf16), '\0');
  Utf16ToUtf8Into(utf16, result.data(), result.size());
  return result;
}

}  // namespace zor::os
