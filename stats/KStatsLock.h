// The lock of a statistics object, which its owner may switch off when the
// owner already serialises every call (a packet queue feeds and reads its
// meters under its own lock; a second lock there would only cost time).
// The thread-safety analysis treats it as a lock either way: in ByOwner mode
// the owner's lock stands in for it, which only the owner's header can say.
#pragma once

#include <mutex>

#include "VCCritSec.h"

namespace vc {

enum class eKStatsLocking {
  Own,      // the object locks each operation itself (shared between threads)
  ByOwner,  // every call is already made under the owner's lock
};

class VC_CAPABILITY("mutex") CKStatsLock {
 public:
  explicit CKStatsLock(eKStatsLocking eLocking = eKStatsLocking::Own) : m_bEnabled(eLocking == eKStatsLocking::Own) {}
  void lock() VC_ACQUIRE() {
    if (m_bEnabled) m_cs.lock();
  }
  void unlock() VC_RELEASE() {
    if (m_bEnabled) m_cs.unlock();
  }

 private:
  std::mutex m_cs;
  const bool m_bEnabled;
};

using CKStatsAutoLock = CKScopedLock<CKStatsLock>;

}  // namespace vc
