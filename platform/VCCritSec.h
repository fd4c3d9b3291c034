// The locks of the system, annotated for clang's thread-safety analysis
// (VCThreadAnnotations.h).
//
// CKCritSec is the facade lock: recursive like the platform's critical
// section, so a facade method holding it may call another that takes it
// again. One per facade; it guards the inner-object reference, the property
// tree and the facade's small state. Never held across a call into an inner
// object. CKMutex is a plain, non-recursive lock for small state.
//
// Both satisfy the standard Lockable requirements, so std::unique_lock and
// condition_variable_any work with them (the analysis then sees nothing:
// prefer the scoped guards below).
#pragma once

#include <mutex>

#include "VCThreadAnnotations.h"

namespace vc {

class VC_CAPABILITY("mutex") CKCritSec {
 public:
  CKCritSec() = default;
  CKCritSec(const CKCritSec&) = delete;
  CKCritSec& operator=(const CKCritSec&) = delete;

  void lock() VC_ACQUIRE() { m_mutex.lock(); }
  bool try_lock() VC_TRY_ACQUIRE(true) { return m_mutex.try_lock(); }
  void unlock() VC_RELEASE() { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;
};

class VC_CAPABILITY("mutex") CKMutex {
 public:
  CKMutex() = default;
  CKMutex(const CKMutex&) = delete;
  CKMutex& operator=(const CKMutex&) = delete;

  void lock() VC_ACQUIRE() { m_mutex.lock(); }
  bool try_lock() VC_TRY_ACQUIRE(true) { return m_mutex.try_lock(); }
  void unlock() VC_RELEASE() { m_mutex.unlock(); }
  // For std::condition_variable, which needs the std::mutex itself.
  std::mutex& native() VC_RETURN_CAPABILITY(this) { return m_mutex; }

 private:
  std::mutex m_mutex;
};

// Scoped holders the analysis follows.
template <class Lock>
class VC_SCOPED_CAPABILITY CKScopedLock {
 public:
  explicit CKScopedLock(Lock& lock) VC_ACQUIRE(lock) : m_lock(lock) { m_lock.lock(); }
  ~CKScopedLock() VC_RELEASE() { m_lock.unlock(); }
  CKScopedLock(const CKScopedLock&) = delete;
  CKScopedLock& operator=(const CKScopedLock&) = delete;

 private:
  Lock& m_lock;
};

using CKAutoLock = CKScopedLock<CKCritSec>;
using CKMutexLock = CKScopedLock<CKMutex>;

}  // namespace vc
