// Compiled, not run: clang's thread-safety analysis must accept the lock uses
// below as they stand and reject each VC_CASE_* variant (tests/CMakeLists.txt
// compiles one per case). If an annotation stops reaching the compiler, the
// analysis goes quiet; these cases are what notice.
#include "KStatsLock.h"
#include "VCCritSec.h"
#include "VCSharedLock.h"

namespace {

class CCounters {
 public:
  int Read() {
    vc::CKReadLock lock(m_srwLock);
    return m_nShared;
  }
  void Write(int n) {
    vc::CKWriteLock lock(m_srwLock);
    m_nShared = n;
  }
  void Bump() {
    vc::CKMutexLock lock(m_mutex);
    _BumpLocked();
  }
  void Recurse() {
    vc::CKAutoLock lock(m_csLock);
    ++m_nFacade;
  }
  void Measure() {
    vc::CKStatsAutoLock lock(m_statsLock);
    ++m_nStats;
  }

#if defined(VC_CASE_WRITE_UNDER_READ_LOCK)
  void Bad() {
    vc::CKReadLock lock(m_srwLock);
    m_nShared = 1;
  }
#elif defined(VC_CASE_READ_WITHOUT_LOCK)
  int Bad() { return m_nShared; }
#elif defined(VC_CASE_CALL_WITHOUT_LOCK)
  void Bad() { _BumpLocked(); }
#elif defined(VC_CASE_STATS_WITHOUT_LOCK)
  void Bad() { ++m_nStats; }
#elif defined(VC_CASE_MUTEX_LEFT_LOCKED)
  void Bad() { m_mutex.lock(); }
#endif

 private:
  void _BumpLocked() VC_REQUIRES(m_mutex) { ++m_nCount; }

  vc::CKSharedLock m_srwLock;
  int m_nShared VC_GUARDED_BY(m_srwLock) = 0;
  vc::CKMutex m_mutex;
  int m_nCount VC_GUARDED_BY(m_mutex) = 0;
  vc::CKCritSec m_csLock;
  int m_nFacade VC_GUARDED_BY(m_csLock) = 0;
  vc::CKStatsLock m_statsLock;
  int m_nStats VC_GUARDED_BY(m_statsLock) = 0;
};

}  // namespace

int VcLockAnalysisCases() {
  CCounters c;
  c.Write(2);
  c.Bump();
  c.Recurse();
  c.Measure();
  return c.Read();
}
