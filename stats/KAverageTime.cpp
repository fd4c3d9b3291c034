#include "KAverageTime.h"

#include <utility>

#include "VCFormat.h"
#include "VCPlatform.h"

namespace vc {

KAverageTime::KAverageTime(int nWindow, eKStatsLocking eLocking) : KAverageCalc(nWindow, eLocking) {}

KAverageTime::KAverageTime(int nWindow, KClock::CounterFn fnCounter, int64_t llFrequency)
    : KAverageCalc(nWindow), m_clock(std::move(fnCounter), llFrequency) {}

void KAverageTime::Start() { m_clock.Elapsed(true); }

int64_t KAverageTime::Stop(int nCount) {
  const int64_t llElapsed = m_clock.Elapsed(false);
  Add(static_cast<double>(llElapsed) / (nCount > 0 ? nCount : 1));
  return llElapsed;
}

std::string KAverageTime::Text(bool bMilliseconds) const {
  double dblAverage = 0.0, dblJitter = 0.0, dblMin = 0.0, dblMax = 0.0;
  Statistics(&dblAverage, &dblJitter, &dblMin, &dblMax);
  if (!bMilliseconds)
    return Format("Avg:%.03f Min:%.03f Max:%.03f Jitter:%.03f", dblAverage, dblMin, dblMax, dblJitter);
  const double dblFps = dblAverage > 0.0 ? static_cast<double>(VC_TIME_SECOND) / dblAverage : 0.0;
  return Format("Avg:%.03f (%.3f fps) Min:%.03f Max:%.03f Jitter:%.03f (msec)", dblAverage / 10000.0, dblFps,
                dblMin / 10000.0, dblMax / 10000.0, dblJitter / 10000.0);
}

}  // namespace vc
