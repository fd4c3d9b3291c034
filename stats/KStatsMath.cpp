#include "KStatsMath.h"

namespace vc {

namespace {
__extension__ typedef __int128 Int128;

constexpr Int128 kInt64Max = std::numeric_limits<int64_t>::max();
constexpr Int128 kInt64Min = std::numeric_limits<int64_t>::min();
}  // namespace

int64_t MulDivRound(int64_t a, int64_t b, int64_t c) noexcept {
  if (c == 0) return 0;
  const Int128 product = static_cast<Int128>(a) * b;
  Int128 quotient = product / c;  // truncates toward zero
  const Int128 remainder = product % c;
  const Int128 absRemainder = remainder < 0 ? -remainder : remainder;
  const Int128 absDivisor = c < 0 ? -static_cast<Int128>(c) : static_cast<Int128>(c);
  if (2 * absRemainder >= absDivisor) quotient += ((product < 0) != (c < 0)) ? -1 : 1;
  if (quotient > kInt64Max) return std::numeric_limits<int64_t>::max();
  if (quotient < kInt64Min) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(quotient);
}

int64_t SaturatingAdd(int64_t a, int64_t b) noexcept {
  int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
}

}  // namespace vc
