#pragma once
// ZORUTSValue: one named tuning value on its way from the configuration, the
// registry or shared memory to a tech process.
//
// The name reads "InstanceId:Control-Name" (the instance id addresses one
// process of a chain) or a bare "Control-Name" (all processes). Names compare
// exactly, case and all, unlike property-set names.
//
// The value is shared and immutable: copying a ZORUTSValue shares it, and
// setting new text makes a new VELAnyVal, so other copies keep the old one.
// A value is built and read on one thread at a time; nothing here is for the
// audio thread.
//
// Names and texts are UTF-8, as the configuration file is, on every
// platform; the wide forms are their UTF-16.

#include <cstdint>
#include <string>
#include <string_view>

#include "values/velanyval.h"
#include "values/zorproperty.h"

class ZORUTSValue {
 public:
  ZORUTSValue() = default;
  ZORUTSValue(const ZORUTSValue&) = default;
  ZORUTSValue& operator=(const ZORUTSValue&) = default;
  // A text value (VELAnyValAString).
  ZORUTSValue(std::string valueName, std::string text);
  // A number value (VELAnyValLong).
  ZORUTSValue(std::string valueName, int32_t number);
  virtual ~ZORUTSValue() = default;

  // The value's UTF-8 text; empty when there is no value or it has no text.
  std::string GetText() const;
  std::u16string GetTextW() const;
  std::u16string GetNameW() const;

  // The value as a number: Long and Int as they are, Float truncated toward
  // zero, text by ParseLong; -1 for every other kind. -1 is thus both the
  // number -1 and "no number".
  int32_t GetLong() const;
  // "Enabled" 1, "Disabled" 0; text that starts with a digit or "-" and a
  // digit: with a "." anywhere a decimal number truncated toward zero,
  // otherwise the integer its leading digits spell; anything else -1.
  // Out-of-range numbers saturate to 32 bits.
  static int32_t ParseLong(std::string_view text);

  // Text before the first colon, or empty without a colon.
  std::string GetInstanceId() const;
  std::u16string GetInstanceIdW() const;
  // Text after the first colon (later colons included), or the whole name.
  std::string GetControlName() const;
  std::u16string GetControlNameW() const;

  void SetName(std::string_view valueName);
  void SetText(std::string text);
  // False, keeping the old value, when non-empty wide text converts to
  // nothing.
  bool SetTextW(std::u16string_view text);

  bool TextEquals(std::string_view text) const;
  bool NameEquals(std::string_view valueName) const;
  // Same name and same text, whatever the kinds: a Long 1 equals the text "1".
  bool operator==(const ZORUTSValue& other) const;
  bool operator!=(const ZORUTSValue& other) const { return !(*this == other); }

  // A property as a tuning value: the narrow name, and the value shared for a
  // Long or narrow text, converted to narrow text for wide text. False, with
  // `out` untouched, for every other kind and for a missing value.
  static bool FromProperty(const ZORProperty& property, ZORUTSValue& out);

  std::string name;
  VELAnyValPtr value;
};
