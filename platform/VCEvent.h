// A manual-reset event, the portable counterpart of the platform's event
// object: once set it stays set, releasing every waiter, until someone resets
// it. The packet queues hand theirs out as std::shared_ptr<CKEvent> (the
// "event handle"), so a consumer keeps waiting on a valid event even when the
// queue behind it is removed meanwhile.
//
// Any thread may call any method. WaitAny lets a consumer sleep until one of
// several events is set (one ready event per stream it takes packets from).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "VCCritSec.h"

namespace vc {

class CKEvent {
 public:
  // Waits forever, like the platform's INFINITE.
  static constexpr uint32_t kInfinite = 0xFFFFFFFFu;

  explicit CKEvent(bool bInitiallySet = false) : m_bSet(bInitiallySet) {}
  // Set and Reset take no lock when nobody waits (the queues set and reset
  // their events on every put and get); waits take the lock.
  CKEvent(const CKEvent&) = delete;
  CKEvent& operator=(const CKEvent&) = delete;

  // Sets the event and wakes every waiter, single or multiple.
  void Set();
  void Reset();
  bool IsSet() const;

  // Waits up to nMilliseconds (kInfinite: no limit); true when the event was
  // set, false on timeout. A zero wait only looks.
  bool Wait(uint32_t nMilliseconds = kInfinite) const;

  // Waits until any of the events is set. Returns the index of the first set
  // event in list order (the lowest index when several are set), or -1 on
  // timeout. Null entries are skipped; an empty list returns -1 at once
  // rather than sleeping for ever.
  static int WaitAny(std::span<CKEvent* const> events, uint32_t nMilliseconds = kInfinite);
  static int WaitAny(std::span<const std::shared_ptr<CKEvent>> events, uint32_t nMilliseconds = kInfinite);

 private:
  // One WaitAny call: registered with each event it watches, so that a Set on
  // any of them wakes it. Lock order: an event's lock may be held while the
  // waiter's is taken (Set), never the reverse.
  struct CMultiWaiter {
    std::mutex mutex;
    std::condition_variable cv;
    bool bSignalled = false;
  };
  void _AddWaiter(CMultiWaiter* pWaiter) const;
  void _RemoveWaiter(CMultiWaiter* pWaiter) const;

  // A waiter counts itself in m_nWaiters before it looks at m_bSet, and Set
  // stores m_bSet before it looks at m_nWaiters (both sequentially
  // consistent): at least one of them sees the other, so either the waiter
  // finds the event set or Set finds the waiter and notifies it under the
  // lock.
  mutable CKMutex m_mutex;
  mutable std::condition_variable m_cv;  // waits on m_mutex.native()
  std::atomic<bool> m_bSet;
  mutable std::atomic<int> m_nWaiters{0};           // single waiters plus registered WaitAny calls
  mutable std::vector<CMultiWaiter*> m_vecWaiters VC_GUARDED_BY(m_mutex);
};

using CKEventPtr = std::shared_ptr<CKEvent>;

}  // namespace vc
