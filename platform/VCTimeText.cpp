#include "VCTimeText.h"

#include <cstdint>

namespace vc {

namespace {

constexpr uint64_t kUnitsPerMs = 10'000;
constexpr uint64_t kMsPerSecond = 1'000;
constexpr uint64_t kSecondsPerMinute = 60;
constexpr uint64_t kMinutesPerHour = 60;

void AppendDigits(std::string& out, uint64_t v, int nMinDigits) {
  char buf[24];
  int n = 0;
  do {
    buf[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  while (n < nMinDigits) buf[n++] = '0';
  while (n > 0) out += buf[--n];
}

}  // namespace

std::string TimeText(REFERENCE_TIME rt) {
  if (rt == VC_TIME_UNSET) return "UNSET";
  std::string out;
  // Unsigned magnitude: every value but the unset one has a positive twin.
  uint64_t u = static_cast<uint64_t>(rt);
  if (rt < 0) {
    out += '-';
    u = 0 - u;
  }
  const uint64_t ullMs = u / kUnitsPerMs;
  const uint64_t ullSeconds = ullMs / kMsPerSecond;
  const uint64_t ullMinutes = ullSeconds / kSecondsPerMinute;
  AppendDigits(out, ullMinutes / kMinutesPerHour, 2);
  out += ':';
  AppendDigits(out, ullMinutes % kMinutesPerHour, 2);
  out += ':';
  AppendDigits(out, ullSeconds % kSecondsPerMinute, 2);
  out += '.';
  AppendDigits(out, ullMs % kMsPerSecond, 3);
  return out;
}

String TimeTextW(REFERENCE_TIME rt) {
  const std::string s = TimeText(rt);
  return String(s.begin(), s.end());  // ASCII only
}

}  // namespace vc
