#include "VCEvent.h"

#include <algorithm>
#include <chrono>

namespace vc {

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point DeadlineAfter(uint32_t nMilliseconds) {
  return Clock::now() + std::chrono::milliseconds(nMilliseconds);
}

}  // namespace

void CKEvent::Set() {
  if (m_bSet.exchange(true)) return;  // already set: every waiter has been woken
  if (m_nWaiters.load() == 0) return;
  CKMutexLock lock(m_mutex);
  m_cv.notify_all();
  // Under our lock, so that a waiter that has unregistered is never touched.
  for (CMultiWaiter* pWaiter : m_vecWaiters) {
    std::lock_guard<std::mutex> waiterLock(pWaiter->mutex);
    pWaiter->bSignalled = true;
    pWaiter->cv.notify_all();
  }
}

// Nobody waits for a reset, so it needs no ordering with the waiter count.
void CKEvent::Reset() { m_bSet.store(false, std::memory_order_release); }

bool CKEvent::IsSet() const { return m_bSet.load(); }

bool CKEvent::Wait(uint32_t nMilliseconds) const {
  if (m_bSet.load()) return true;
  if (nMilliseconds == 0) return false;
  std::unique_lock<std::mutex> lock(m_mutex.native());
  ++m_nWaiters;
  const auto isSet = [this] { return m_bSet.load(); };
  bool bSet = true;
  if (nMilliseconds == kInfinite) {
    m_cv.wait(lock, isSet);
  } else {
    bSet = m_cv.wait_until(lock, DeadlineAfter(nMilliseconds), isSet);
  }
  --m_nWaiters;
  return bSet;
}

void CKEvent::_AddWaiter(CMultiWaiter* pWaiter) const {
  CKMutexLock lock(m_mutex);
  m_vecWaiters.push_back(pWaiter);
  ++m_nWaiters;
}

void CKEvent::_RemoveWaiter(CMultiWaiter* pWaiter) const {
  CKMutexLock lock(m_mutex);
  m_vecWaiters.erase(std::remove(m_vecWaiters.begin(), m_vecWaiters.end(), pWaiter), m_vecWaiters.end());
  --m_nWaiters;
}

int CKEvent::WaitAny(std::span<CKEvent* const> events, uint32_t nMilliseconds) {
  auto firstSet = [&]() -> int {
    for (size_t i = 0; i < events.size(); ++i) {
      if (events[i] && events[i]->IsSet()) return static_cast<int>(i);
    }
    return -1;
  };
  // The cheap answer first: no registration when something is already set.
  int nIndex = firstSet();
  if (nIndex >= 0 || nMilliseconds == 0) return nIndex;
  if (std::none_of(events.begin(), events.end(), [](CKEvent* p) { return p != nullptr; })) return -1;

  CMultiWaiter waiter;
  for (CKEvent* pEvent : events) {
    if (pEvent) pEvent->_AddWaiter(&waiter);
  }
  const Clock::time_point deadline = DeadlineAfter(nMilliseconds == kInfinite ? 0 : nMilliseconds);
  for (;;) {
    // Registered before this look: a Set after it marks the waiter, so no
    // wake-up is lost between the look and the sleep. The events' locks are
    // never taken while the waiter's lock is held.
    nIndex = firstSet();
    if (nIndex >= 0) break;
    std::unique_lock<std::mutex> lock(waiter.mutex);
    if (nMilliseconds == kInfinite) {
      waiter.cv.wait(lock, [&] { return waiter.bSignalled; });
    } else if (!waiter.cv.wait_until(lock, deadline, [&] { return waiter.bSignalled; })) {
      lock.unlock();
      nIndex = firstSet();  // set at the last moment still counts
      break;
    }
    waiter.bSignalled = false;
  }
  for (CKEvent* pEvent : events) {
    if (pEvent) pEvent->_RemoveWaiter(&waiter);
  }
  return nIndex;
}

int CKEvent::WaitAny(std::span<const std::shared_ptr<CKEvent>> events, uint32_t nMilliseconds) {
  std::vector<CKEvent*> vecRaw;
  vecRaw.reserve(events.size());
  for (const std::shared_ptr<CKEvent>& spEvent : events) vecRaw.push_back(spEvent.get());
  return WaitAny(std::span<CKEvent* const>(vecRaw), nMilliseconds);
}

}  // namespace vc
