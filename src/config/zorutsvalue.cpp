#include "config/zorutsvalue.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/text.h"

namespace {

constexpr int64_t kSaturated = int64_t{std::numeric_limits<int32_t>::max()} + 1;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

int32_t Clamp(bool negative, int64_t magnitude) {
  if (negative) return static_cast<int32_t>(-std::min(magnitude, kSaturated));
  return static_cast<int32_t>(std::min(magnitude, kSaturated - 1));
}

// Digits as far as they go, after an optional "-".
int32_t LeadingInteger(std::string_view text) {
  const bool negative = !text.empty() && text[0] == '-';
  int64_t magnitude = 0;
  for (size_t i = negative ? 1 : 0; i < text.size() && IsDigit(text[i]); ++i) {
    magnitude = std::min(magnitude * 10 + (text[i] - '0'), kSaturated);
  }
  return Clamp(negative, magnitude);
}

// The integer part of a decimal number "[-]digits[.digits][e[+-]digits]" at
// the start of `text`, exactly: the digits are shifted by the exponent rather
// than going through a double, so no locale and no rounding take part.
int32_t TruncatedDecimal(std::string_view text) {
  const bool negative = !text.empty() && text[0] == '-';
  size_t i = negative ? 1 : 0;
  std::string digits;
  int64_t point = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i, ++point) digits.push_back(text[i]);
  if (i < text.size() && text[i] == '.') {
    for (++i; i < text.size() && IsDigit(text[i]); ++i) digits.push_back(text[i]);
  }
  if (i + 1 < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    size_t j = i + 1;
    const bool negativeExponent = text[j] == '-';
    if (text[j] == '-' || text[j] == '+') ++j;
    int64_t exponent = 0;
    const size_t firstExponentDigit = j;
    for (; j < text.size() && IsDigit(text[j]); ++j) {
      exponent = std::min<int64_t>(exponent * 10 + (text[j] - '0'), 100000);
    }
    if (j > firstExponentDigit) point += negativeExponent ? -exponent : exponent;
  }
  int64_t magnitude = 0;
  for (int64_t k = 0; k < point && magnitude < kSaturated; ++k) {
    const int digit = k < static_cast<int64_t>(digits.size()) ? digits[static_cast<size_t>(k)] - '0' : 0;
    magnitude = std::min(magnitude * 10 + digit, kSaturated);
  }
  return Clamp(negative, magnitude);
}

template <typename Kind>
const Kind* As(const VELAnyVal* value) {
  return dynamic_cast<const Kind*>(value);
}

}  // namespace

ZORUTSValue::ZORUTSValue(std::string valueName, std::string text)
    : name(std::move(valueName)), value(std::make_shared<VELAnyValAString>(std::move(text))) {}

ZORUTSValue::ZORUTSValue(std::string valueName, int32_t number)
    : name(std::move(valueName)), value(std::make_shared<VELAnyValLong>(number)) {}

std::string ZORUTSValue::GetText() const {
  std::string text;
  if (value) value->GetAString(text);
  return text;
}

std::u16string ZORUTSValue::GetTextW() const { return zor::os::Utf8ToUtf16(GetText()); }

std::u16string ZORUTSValue::GetNameW() const { return zor::os::Utf8ToUtf16(name); }

int32_t ZORUTSValue::ParseLong(std::string_view text) {
  if (text == "Enabled") return 1;
  if (text == "Disabled") return 0;
  const size_t first = (!text.empty() && text[0] == '-') ? 1 : 0;
  if (first >= text.size() || !IsDigit(text[first])) return -1;
  if (text.find('.') != std::string_view::npos) return TruncatedDecimal(text);
  return LeadingInteger(text);
}

int32_t ZORUTSValue::GetLong() const {
  if (!value) return -1;
  switch (value->GetType()) {
    case VEL_ANYVAL_LONG:
      if (const auto* v = As<VELAnyValLong>(value.get())) return v->GetValue();
      break;
    case VEL_ANYVAL_INT:
      if (const auto* v = As<VELAnyValInt>(value.get())) return v->GetValue();
      break;
    case VEL_ANYVAL_FLOAT:
      if (const auto* v = As<VELAnyValFloat>(value.get())) {
        const float number = v->GetValue();
        if (std::isnan(number)) return -1;
        // Truncation toward zero, saturated where a float leaves 32 bits.
        if (number >= 2147483648.0f) return std::numeric_limits<int32_t>::max();
        if (number <= -2147483648.0f) return std::numeric_limits<int32_t>::min();
        return static_cast<int32_t>(number);
      }
      break;
    case VEL_ANYVAL_ASTRING:
      if (const auto* v = As<VELAnyValAString>(value.get())) return ParseLong(v->GetValue());
      break;
    default:
      break;
  }
  return -1;
}

std::string ZORUTSValue::GetInstanceId() const {
  const size_t colon = name.find(':');
  return colon == std::string::npos ? std::string() : name.substr(0, colon);
}

std::u16string ZORUTSValue::GetInstanceIdW() const {
  return zor::os::Utf8ToUtf16(GetInstanceId());
}

std::string ZORUTSValue::GetControlName() const {
  const size_t colon = name.find(':');
  return colon == std::string::npos ? name : name.substr(colon + 1);
}

std::u16string ZORUTSValue::GetControlNameW() const {
  return zor::os::Utf8ToUtf16(GetControlName());
}

void ZORUTSValue::SetName(std::string_view valueName) { name.assign(valueName); }

void ZORUTSValue::SetText(std::string text) {
  value = std::make_shared<VELAnyValAString>(std::move(text));
}

bool ZORUTSValue::SetTextW(std::u16string_view text) {
  std::string narrow = zor::os::Utf16ToUtf8(text);
  if (narrow.empty() && !text.empty()) return false;
  SetText(std::move(narrow));
  return true;
}

bool ZORUTSValue::TextEquals(std::string_view text) const { return GetText() == text; }

bool ZORUTSValue::NameEquals(std::string_view valueName) const { return name == valueName; }

bool ZORUTSValue::operator==(const ZORUTSValue& other) const {
  return name == other.name && GetText() == other.GetText();
}

bool ZORUTSValue::FromProperty(const ZORProperty& property, ZORUTSValue& out) {
  const VELAnyVal* content = property.value.get();
  if (content == nullptr) return false;
  VELAnyValPtr converted;
  if (As<VELAnyValLong>(content) != nullptr || As<VELAnyValAString>(content) != nullptr) {
    converted = property.value;
  } else if (As<VELAnyValWString>(content) != nullptr) {
    std::string text;
    content->GetAString(text);
    converted = std::make_shared<VELAnyValAString>(std::move(text));
  } else {
    return false;
  }
  out.name = zor::os::Utf16ToUtf8(property.name);
  out.value = std::move(converted);
  return true;
}
