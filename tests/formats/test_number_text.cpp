// Numbers in the written files: number_text must give exactly what "%.<digits>g" gives,
// whichever quick path it takes, and 17 digits must read back to the same double.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "formats/frame/text_writer.h"

using qubor::formats::number_text;

namespace {

// Whole numbers, short decimals at every scale, and arbitrary bit patterns.
double sample_value(std::mt19937_64& rng, int kind) {
  switch (kind) {
    case 0: {
      uint64_t bits = rng();
      double v;
      std::memcpy(&v, &bits, sizeof v);
      return std::isfinite(v) ? v : 1.5;
    }
    case 1:
      return static_cast<double>(static_cast<int64_t>(rng() % 2000001) - 1000000) / std::pow(10.0, rng() % 12);
    case 2:
      return std::ldexp(static_cast<double>(rng() % 100000), static_cast<int>(rng() % 80) - 40);
    default:
      return static_cast<double>(static_cast<int64_t>(rng() % 100000000000000000ULL)) * (rng() % 2 ? 1 : -1);
  }
}

}  // namespace

TEST(NumberText, MatchesPrintfGeneralForm) {
  std::mt19937_64 rng(1);
  for (int k = 0; k < 200000; ++k) {
    const double v = sample_value(rng, k % 4);
    const int digits = 1 + static_cast<int>(rng() % 16);
    char want[64];
    std::snprintf(want, sizeof want, "%.*g", digits, v);
    ASSERT_EQ(number_text(v, digits), want) << "digits " << digits;
  }
  for (double v : {0.0, -0.0, 1e-5, 1e-4, 0.0001234, 123456.0, 999999999999999.0, 1e15, 0.1, 1.0 / 3}) {
    char want[64];
    std::snprintf(want, sizeof want, "%.15g", v);
    EXPECT_EQ(number_text(v, 15), want);
  }
}

TEST(NumberText, SeventeenDigitsReadBackExactly) {
  std::mt19937_64 rng(2);
  for (int k = 0; k < 100000; ++k) {
    const double v = sample_value(rng, k % 4);
    const std::string s = number_text(v, 17);
    ASSERT_EQ(std::strtod(s.c_str(), nullptr), v) << s;
    ASSERT_LE(s.size(), 24u) << s;
  }
}
