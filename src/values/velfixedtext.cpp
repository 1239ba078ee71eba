#include "values/velfixedtext.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace {

// A natural number in base 2^32, least significant limb first, big enough
// for the largest finite double (below 2^1024) times 10^18 (below 2^60).
class BigNatural {
 public:
  explicit BigNatural(uint64_t value) {
    m_limbs[0] = static_cast<uint32_t>(value);
    m_limbs[1] = static_cast<uint32_t>(value >> 32);
    m_used = 2;
    Trim();
  }

  bool IsZero() const { return m_used == 0; }

  void MultiplySmall(uint32_t factor) {
    uint64_t carry = 0;
    for (size_t i = 0; i < m_used; ++i) {
      const uint64_t product = uint64_t{m_limbs[i]} * factor + carry;
      m_limbs[i] = static_cast<uint32_t>(product);
      carry = product >> 32;
    }
    if (carry != 0) m_limbs[m_used++] = static_cast<uint32_t>(carry);
  }

  void AddOne() {
    for (size_t i = 0; i < m_used; ++i) {
      if (++m_limbs[i] != 0) return;
    }
    m_limbs[m_used++] = 1;
  }

  void ShiftLeft(unsigned bits) {
    const size_t limbShift = bits / 32;
    const unsigned bitShift = bits % 32;
    if (m_used == 0) return;
    // One limb more for the bits that leave the top.
    const size_t newUsed = m_used + limbShift + 1;
    for (size_t i = newUsed; i-- > 0;) {
      uint64_t value = 0;
      if (i >= limbShift) {
        const size_t src = i - limbShift;
        const uint64_t high = src < m_used ? m_limbs[src] : 0;
        const uint64_t low = (src >= 1 && src - 1 < m_used) ? m_limbs[src - 1] : 0;
        value = ((high << 32 | low) << bitShift) >> 32;
      }
      m_limbs[i] = static_cast<uint32_t>(value);
    }
    m_used = newUsed;
    Trim();
  }

  // Floor division by 2^bits.
  void ShiftRight(unsigned bits) {
    const size_t limbShift = bits / 32;
    const unsigned bitShift = bits % 32;
    if (limbShift >= m_used) {
      m_used = 0;
      return;
    }
    const size_t newUsed = m_used - limbShift;
    for (size_t i = 0; i < newUsed; ++i) {
      const uint64_t low = m_limbs[i + limbShift];
      const uint64_t high = i + limbShift + 1 < m_used ? m_limbs[i + limbShift + 1] : 0;
      m_limbs[i] = static_cast<uint32_t>((high << 32 | low) >> bitShift);
    }
    m_used = newUsed;
    Trim();
  }

  // Divides in place and returns the remainder.
  uint32_t DivideSmall(uint32_t divisor) {
    uint64_t remainder = 0;
    for (size_t i = m_used; i-- > 0;) {
      const uint64_t value = remainder << 32 | m_limbs[i];
      m_limbs[i] = static_cast<uint32_t>(value / divisor);
      remainder = value % divisor;
    }
    Trim();
    return static_cast<uint32_t>(remainder);
  }

 private:
  void Trim() {
    while (m_used > 0 && m_limbs[m_used - 1] == 0) --m_used;
  }

  std::array<uint32_t, 36> m_limbs{};
  size_t m_used = 0;
};

// Decimal digits of a natural number, most significant first; "" for zero.
std::string DecimalDigits(BigNatural number) {
  std::string reversed;
  while (!number.IsZero()) {
    uint32_t chunk = number.DivideSmall(1000000000u);
    const bool last = number.IsZero();
    for (int i = 0; i < 9 && !(last && chunk == 0); ++i) {
      reversed.push_back(static_cast<char>('0' + chunk % 10));
      chunk /= 10;
    }
  }
  return std::string(reversed.rbegin(), reversed.rend());
}

template <typename CharT>
bool FormatFixed(double value, int fractionDigits, std::basic_string<CharT>& text) {
  VELFixedDigits fixed;
  if (!VELFixedDigitsOf(value, fractionDigits, fixed)) return false;

  std::basic_string<CharT> out;
  out.reserve(fixed.digits.size() + 3);
  if (fixed.negative) out.push_back(CharT('-'));
  size_t emitted = 0;
  if (fixed.decimalPosition < 1) {
    out.push_back(CharT('0'));
  } else {
    emitted = std::min(fixed.digits.size(), static_cast<size_t>(fixed.decimalPosition));
    for (size_t i = 0; i < emitted; ++i) out.push_back(CharT(fixed.digits[i]));
  }
  out.push_back(CharT('.'));
  const size_t point = out.size() - 1;
  for (size_t i = emitted; i < fixed.digits.size(); ++i) out.push_back(CharT(fixed.digits[i]));
  // Trailing zeros go, but the first place after the point stays: "3.0".
  while (out.size() > point + 2 && out.back() == CharT('0')) out.pop_back();
  text = std::move(out);
  return true;
}

}  // namespace

bool VELFixedDigitsOf(double value, int fractionDigits, VELFixedDigits& out) {
  if (!std::isfinite(value) || fractionDigits < 0 || fractionDigits > kVELFixedMaxFraction) {
    return false;
  }
  const uint64_t bits = std::bit_cast<uint64_t>(value);
  const bool negative = (bits >> 63) != 0;
  const int biasedExponent = static_cast<int>((bits >> 52) & 0x7FF);
  uint64_t mantissa = bits & ((uint64_t{1} << 52) - 1);

  if (biasedExponent == 0 && mantissa == 0) {
    // Zero keeps one zero per fractional place, with the point at the start.
    out.digits.assign(static_cast<size_t>(fractionDigits), '0');
    out.decimalPosition = 0;
    out.negative = negative;
    return true;
  }

  // |value| = mantissa * 2^exponent exactly.
  int exponent = -1074;
  if (biasedExponent != 0) {
    mantissa |= uint64_t{1} << 52;
    exponent = biasedExponent - 1075;
  }

  // scaled = floor(|value| * 10^(fractionDigits + 1)); the extra digit
  // decides the rounding, half up, as the exact value is known.
  BigNatural scaled(mantissa);
  for (int i = 0; i <= fractionDigits; ++i) scaled.MultiplySmall(10);
  if (exponent >= 0) {
    scaled.ShiftLeft(static_cast<unsigned>(exponent));
  } else {
    scaled.ShiftRight(static_cast<unsigned>(-exponent));
  }
  if (scaled.DivideSmall(10) >= 5) scaled.AddOne();

  out.digits = DecimalDigits(scaled);
  out.decimalPosition = static_cast<int32_t>(out.digits.size()) - fractionDigits;
  out.negative = negative;
  return true;
}

bool VELFormatFixed(double value, int fractionDigits, std::string& text) {
  return FormatFixed(value, fractionDigits, text);
}

bool VELFormatFixed(double value, int fractionDigits, std::u16string& text) {
  return FormatFixed(value, fractionDigits, text);
}
