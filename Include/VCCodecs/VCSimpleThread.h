// A worker thread with a run flag and an auto-reset wake event, owned as a
// member by the object whose work it runs (the splitter's reading thread).
//
// Waking sets the wake event (optionally changing the run flag first); wakes
// are not counted: several wakes before the body waits again give one more
// pass. Stop clears the run flag, wakes the body and joins. Destroying the
// object while the thread still runs is a bug of the owner: it is reported
// with the thread and module identities, and the thread is then stopped.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <string>
#include <thread>

#include "VCCritSec.h"
#include "VCPlatform.h"

namespace vc {

class CSimpleThreadBase {
 public:
  // szClassName names the owner in the teardown report.
  explicit CSimpleThreadBase(const char* szClassName) : m_strClassName(szClassName) {}
  ~CSimpleThreadBase();
  CSimpleThreadBase(const CSimpleThreadBase&) = delete;
  CSimpleThreadBase& operator=(const CSimpleThreadBase&) = delete;

  // Starts fnBody on a new thread with the run flag set. False when a thread
  // already runs.
  bool ThreadStart(std::function<DWORD()> fnBody);
  // Clears the run flag, wakes the body and waits for it to return.
  void ThreadStop();
  // nRun >= 1 sets the run flag, 0 clears it, -1 leaves it; then signals the
  // wake event. False when no thread exists.
  bool ThreadWake(int nRun = -1);
  // For the body: waits for a wake (no limit); returns the run flag.
  bool WaitWake() VC_EXCLUDES(m_csLock);
  bool RunFlag() const { return m_bRun.load(); }
  bool IsRunning() const;
  // The thread's id (0 when none).
  DWORD ThreadId() const { return m_dwThreadId.load(); }

  // The teardown report text (for tests): thread id, current thread, class,
  // executable and module paths.
  std::string TeardownWarningText() const;

 private:
  const std::string m_strClassName;
  mutable CKMutex m_csLock;
  std::condition_variable m_cvWake;                // waits on m_csLock.native()
  bool m_bWake VC_GUARDED_BY(m_csLock) = false;
  std::thread m_thread VC_GUARDED_BY(m_csLock);
  std::atomic<bool> m_bRun{false};
  std::atomic<DWORD> m_dwThreadId{0};
};

}  // namespace vc
