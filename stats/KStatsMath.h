// Integer arithmetic shared by the statistics classes: the unset reference
// time, rounding half away from zero, and a multiply-then-divide that neither
// overflows in the middle nor loses the remainder (counter ticks to reference
// time, bytes over a time span to bits per second). Pure functions; any
// thread.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace vc {

// The reference time (100 ns units) that stands for "no time".
inline constexpr int64_t kUnsetTime = std::numeric_limits<int64_t>::min();

// Nearest integer, halves away from zero (2.5 -> 3, -2.5 -> -3), saturated
// to the int64 range; NaN gives 0.
inline int64_t RoundHalfAway(double dbl) noexcept {
  if (std::isnan(dbl)) return 0;
  // 2^63 is exactly representable; anything at or beyond it saturates.
  if (dbl >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
  if (dbl <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
  return std::llround(dbl);  // llround rounds halves away from zero in every rounding mode
}

// a * b / c rounded half away from zero, computed exactly in 128 bits and
// saturated to the int64 range. c == 0 gives 0.
int64_t MulDivRound(int64_t a, int64_t b, int64_t c) noexcept;

// a + b saturated to the int64 range (time arithmetic on values that may be
// the unset time).
int64_t SaturatingAdd(int64_t a, int64_t b) noexcept;

}  // namespace vc
