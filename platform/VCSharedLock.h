// A reader/writer lock, annotated for clang's thread-safety analysis
// (VCThreadAnnotations.h), with scoped holders the analysis follows:
//
//   mutable CKSharedLock m_srwLock;
//   std::map<LONG, CStream> m_mapStreams VC_GUARDED_BY(m_srwLock);
//   { CKReadLock lock(m_srwLock); ... }   // readers side by side
//   { CKWriteLock lock(m_srwLock); ... }  // one writer alone
//
// It also meets the standard SharedLockable requirements, so std::shared_lock
// and std::unique_lock work with it (the analysis then sees nothing).
//
// On Windows it is the system's slim reader/writer lock. The MinGW posix
// toolchain builds std::shared_mutex on winpthreads' rwlock, whose lazy
// set-up of a statically initialised lock lets two threads that take a fresh
// lock at the same moment both hold it exclusively (two threads creating the
// same stream each got their own queue). SRWLOCK needs no set-up at all.
// On Linux it is std::shared_mutex (pthread_rwlock_t), which ThreadSanitizer
// understands.
#pragma once

#include <shared_mutex>  // std::shared_lock for callers on both platforms

#include "VCCritSec.h"
#include "VCPlatform.h"
#include "VCThreadAnnotations.h"

namespace vc {

class VC_CAPABILITY("shared mutex") CKSharedLock {
 public:
  CKSharedLock() = default;
  CKSharedLock(const CKSharedLock&) = delete;
  CKSharedLock& operator=(const CKSharedLock&) = delete;

#if defined(_WIN32)
  void lock() VC_ACQUIRE() { AcquireSRWLockExclusive(&m_lock); }
  bool try_lock() VC_TRY_ACQUIRE(true) { return TryAcquireSRWLockExclusive(&m_lock) != 0; }
  void unlock() VC_RELEASE() { ReleaseSRWLockExclusive(&m_lock); }
  void lock_shared() VC_ACQUIRE_SHARED() { AcquireSRWLockShared(&m_lock); }
  bool try_lock_shared() VC_TRY_ACQUIRE_SHARED(true) { return TryAcquireSRWLockShared(&m_lock) != 0; }
  void unlock_shared() VC_RELEASE_SHARED() { ReleaseSRWLockShared(&m_lock); }

 private:
  SRWLOCK m_lock = SRWLOCK_INIT;
#else
  void lock() VC_ACQUIRE() { m_lock.lock(); }
  bool try_lock() VC_TRY_ACQUIRE(true) { return m_lock.try_lock(); }
  void unlock() VC_RELEASE() { m_lock.unlock(); }
  void lock_shared() VC_ACQUIRE_SHARED() { m_lock.lock_shared(); }
  bool try_lock_shared() VC_TRY_ACQUIRE_SHARED(true) { return m_lock.try_lock_shared(); }
  void unlock_shared() VC_RELEASE_SHARED() { m_lock.unlock_shared(); }

 private:
  std::shared_mutex m_lock;
#endif
};

// Holds the lock exclusively for its scope.
using CKWriteLock = CKScopedLock<CKSharedLock>;

// Holds the lock shared for its scope.
class VC_SCOPED_CAPABILITY CKReadLock {
 public:
  explicit CKReadLock(CKSharedLock& lock) VC_ACQUIRE_SHARED(lock) : m_lock(lock) { m_lock.lock_shared(); }
  // A shared scoped capability is released with the generic form: the
  // analysis pairs it with the shared acquire above.
  ~CKReadLock() VC_RELEASE_GENERIC() { m_lock.unlock_shared(); }
  CKReadLock(const CKReadLock&) = delete;
  CKReadLock& operator=(const CKReadLock&) = delete;

 private:
  CKSharedLock& m_lock;
};

}  // namespace vc
