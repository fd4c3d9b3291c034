// A reader/writer lock usable with std::shared_lock and std::unique_lock.
//
// On Windows it is the system's slim reader/writer lock. The MinGW posix
// toolchain builds std::shared_mutex on winpthreads' rwlock, whose lazy
// set-up of a statically initialised lock lets two threads that take a fresh
// lock at the same moment both hold it exclusively (two threads creating the
// same stream each got their own queue). SRWLOCK needs no set-up at all.
// On Linux std::shared_mutex is pthread_rwlock_t, which ThreadSanitizer
// understands.
#pragma once

#include <shared_mutex>  // std::shared_lock for both

#include "VCPlatform.h"

#if defined(_WIN32)

namespace vc {

class CKSharedLock {
 public:
  CKSharedLock() = default;
  CKSharedLock(const CKSharedLock&) = delete;
  CKSharedLock& operator=(const CKSharedLock&) = delete;

  void lock() { AcquireSRWLockExclusive(&m_lock); }
  bool try_lock() { return TryAcquireSRWLockExclusive(&m_lock) != 0; }
  void unlock() { ReleaseSRWLockExclusive(&m_lock); }
  void lock_shared() { AcquireSRWLockShared(&m_lock); }
  bool try_lock_shared() { return TryAcquireSRWLockShared(&m_lock) != 0; }
  void unlock_shared() { ReleaseSRWLockShared(&m_lock); }

 private:
  SRWLOCK m_lock = SRWLOCK_INIT;
};

}  // namespace vc

#else

namespace vc {
using CKSharedLock = std::shared_mutex;
}  // namespace vc

#endif
