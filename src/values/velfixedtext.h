#pragma once
// Fixed-point text of floating values, the same bytes on every platform.
//
// VELFixedDigits yields the digit string of a value rounded to a number of
// fractional digits, in the shape of the C runtime's _fcvt_s: digits without a
// point, the position of the point relative to the first digit (zero or
// negative below 1), and a sign flag. The digits come from the exact decimal
// expansion of the binary value, rounded half up on that exact expansion, so
// no C library's printf takes part and Windows and Linux agree to the byte.
//
// VELFormatFixed turns such digits into the text of a float or double value.
// It emits the digit string as it stands after "0." when the value is below
// 1, so the zeros that lead the fraction are lost: 0.05 reads "0.5". Stored
// settings already carry text made this way, which is why it stays.
//
// Any thread; allocation only for the output strings.

#include <cstdint>
#include <string>

struct VELFixedDigits {
  std::string digits;           // '0'..'9', no point; empty when all digits round away
  int32_t decimalPosition = 0;  // digits before the point; <= 0 below 1
  bool negative = false;        // the sign bit, so -0.0 counts as negative
};

// Largest count of fractional digits VELFixedDigits accepts; 17 is what a
// double's text needs.
inline constexpr int kVELFixedMaxFraction = 17;

// False for NaN, infinities and a fraction count outside 0..17; `out` is then
// left as it was.
bool VELFixedDigitsOf(double value, int fractionDigits, VELFixedDigits& out);

// The text of `value` with `fractionDigits` digits, trailing zeros removed but
// one kept after the point. False (and `text` untouched) where
// VELFixedDigitsOf fails.
bool VELFormatFixed(double value, int fractionDigits, std::string& text);
bool VELFormatFixed(double value, int fractionDigits, std::u16string& text);
