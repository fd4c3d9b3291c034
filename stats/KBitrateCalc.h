// The light bit-rate meter each packet queue keeps: one entry per packet,
// trimmed to a time window, and a rate of bits per second over the window.
// The queue's producer thread adds while consumers and the statistics read
// the rate; every operation holds the object's lock.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

#include "KRefObject.h"
#include "KStatsMath.h"

namespace vc {

class KBitrateCalc : public CKRefObject {
 public:
  KBitrateCalc() = default;

  // Appends a packet of nBytes at llTime (kUnsetTime: the newest entry's
  // time) and drops the oldest entries that lie more than dblWindowSeconds
  // before it, never the newest. Returns Rate().
  int32_t Add(int64_t llTime, int32_t nBytes, double dblWindowSeconds);

  // Bits per second over the entries, 0 with fewer than two or no positive
  // span. The newest packet's bytes are left out: the span ends where that
  // packet begins. Saturates at the int32 range.
  int32_t Rate() const;

  // Entries currently held (for the queue's own statistics).
  size_t Count() const;

 private:
  struct Entry {
    int64_t llTime;
    int32_t nBytes;
  };

  int32_t _Rate() const;

  mutable std::mutex m_csLock;
  std::deque<Entry> m_deqEntries;  // GUARDED_BY(m_csLock); oldest first
  int64_t m_llTotal = 0;           // GUARDED_BY(m_csLock); bytes of m_deqEntries
};

}  // namespace vc
