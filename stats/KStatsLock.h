// The lock of a statistics object, which its owner may switch off when the
// owner already serialises every call (a packet queue feeds and reads its
// meters under its own lock; a second lock there would only cost time).
#pragma once

#include <mutex>

namespace vc {

enum class eKStatsLocking {
  Own,      // the object locks each operation itself (shared between threads)
  ByOwner,  // every call is already made under the owner's lock
};

class CKStatsLock {
 public:
  explicit CKStatsLock(eKStatsLocking eLocking = eKStatsLocking::Own) : m_bEnabled(eLocking == eKStatsLocking::Own) {}
  void lock() {
    if (m_bEnabled) m_cs.lock();
  }
  void unlock() {
    if (m_bEnabled) m_cs.unlock();
  }

 private:
  std::mutex m_cs;
  const bool m_bEnabled;
};

}  // namespace vc
