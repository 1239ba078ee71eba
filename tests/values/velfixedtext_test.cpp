// Float and double text: thousands of values checked against an independent
// expansion, fcvt-shaped digit strings, extremes and failures.
#include "values/velfixedtext.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace {

std::string Text(double value, int digits) {
  std::string text = "untouched";
  EXPECT_TRUE(VELFormatFixed(value, digits, text)) << value;
  return text;
}

// The expected text, derived another way: the standard library's exact fixed
// expansion (1100 places hold every double exactly), rounded half up by
// decimal string arithmetic, then the leading zeros of a fraction below 1
// dropped as the routine does.
std::string ExpectedText(double value, int digits) {
  static char buffer[1500];
  const auto result = std::to_chars(buffer, buffer + sizeof(buffer), std::fabs(value),
                                    std::chars_format::fixed, 1100);
  const std::string exact(buffer, result.ptr);
  const size_t dot = exact.find('.');
  std::string kept = exact.substr(0, dot) + exact.substr(dot + 1, static_cast<size_t>(digits));
  if (exact[dot + 1 + static_cast<size_t>(digits)] >= '5') {
    size_t i = kept.size();
    while (i > 0 && kept[i - 1] == '9') kept[--i] = '0';
    if (i == 0) {
      kept.insert(kept.begin(), '1');
    } else {
      ++kept[i - 1];
    }
  }
  std::string integer = kept.substr(0, kept.size() - static_cast<size_t>(digits));
  std::string fraction = kept.substr(kept.size() - static_cast<size_t>(digits));
  integer.erase(0, integer.find_first_not_of('0'));
  std::string text = std::signbit(value) ? "-" : "";
  if (integer.empty()) {
    if (value != 0) fraction.erase(0, fraction.find_first_not_of('0') == std::string::npos
                                          ? fraction.size()
                                          : fraction.find_first_not_of('0'));
    text += "0." + fraction;
  } else {
    text += integer + "." + fraction;
  }
  const size_t point = text.find('.');
  while (text.size() > point + 2 && text.back() == '0') text.pop_back();
  return text;
}

TEST(VELFixedText, ExtremesAndFailures) {
  const double largest = std::numeric_limits<double>::max();
  EXPECT_EQ(Text(largest, 17), ExpectedText(largest, 17));
  EXPECT_EQ(Text(-0.0, 17), "-0.0");

  std::string text = "kept";
  EXPECT_FALSE(VELFormatFixed(std::numeric_limits<double>::quiet_NaN(), 17, text));
  EXPECT_FALSE(VELFormatFixed(std::numeric_limits<double>::infinity(), 8, text));
  EXPECT_FALSE(VELFormatFixed(-std::numeric_limits<double>::infinity(), 8, text));
  EXPECT_FALSE(VELFormatFixed(1.0, -1, text));
  EXPECT_FALSE(VELFormatFixed(1.0, kVELFixedMaxFraction + 1, text));
  EXPECT_EQ(text, "kept");
}

TEST(VELFixedText, RandomValuesMatchAnIndependentExpansion) {
  std::mt19937_64 random(20240611);
  auto check = [&](double value, int digits) {
    ASSERT_EQ(Text(value, digits), ExpectedText(value, digits)) << "bits " << std::hex
        << std::bit_cast<uint64_t>(value) << " digits " << std::dec << digits;
  };
  for (int i = 0; i < 1500; ++i) {
    // Any finite double, every exponent alike.
    double value;
    do {
      value = std::bit_cast<double>(random());
    } while (!std::isfinite(value));
    check(value, 17);
    // Any finite float, widened, as the float kind renders it.
    float single;
    do {
      single = std::bit_cast<float>(static_cast<uint32_t>(random()));
    } while (!std::isfinite(single));
    check(static_cast<double>(single), 8);
  }
  std::uniform_int_distribution<int64_t> small(-2000000, 2000000);
  for (int i = 0; i < 1500; ++i) {
    // Everyday settings: short decimals, and exact binary ties at the last
    // place (k / 2^18 for 17 places, k / 2^9 for 8).
    check(static_cast<double>(small(random)) / 1000.0, 17);
    check(static_cast<double>(static_cast<float>(small(random)) / 100.0f), 8);
    check(static_cast<double>(small(random)) / 262144.0, 17);
    check(static_cast<double>(small(random)) / 512.0, 8);
  }
  // Leading zeros lost below 1, exact binary ties rounded up (not to even), and values below the last place.
  for (const auto& [value, digits] : {std::pair{0.05, 17}, {1.05, 17}, {0.125, 2}, {1.0 / 512, 8}, {1e-12, 8},
                                      {6e-9, 8}, {std::numeric_limits<double>::denorm_min(), 17}}) {
    check(value, digits);
  }
}

}  // namespace
