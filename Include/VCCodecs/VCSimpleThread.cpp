#include "VCCodecs/VCSimpleThread.h"

#include <utility>

#include "KModuleInfo.h"
#include "VCFormat.h"
#include "VCLog.h"

namespace vc {

CSimpleThreadBase::~CSimpleThreadBase() {
  if (IsRunning()) {
    VC_LOG(eVCLL_Error, "%s", TeardownWarningText().c_str());
    ThreadStop();
  }
}

std::string CSimpleThreadBase::TeardownWarningText() const {
  const DWORD dwThread = m_dwThreadId.load();
  const DWORD dwCurrent = GetCurrentThreadId();
  const String strExe = ProcessImagePath();
  const String strDll = ModuleFilePath();
  return Format("WARNING !!! Thread %04X(%d) NOT STOPPED before destroying.\nCurrent:%04X(%d) %hs\nEXE: %ws\nDLL: %ws",
                static_cast<unsigned>(dwThread), static_cast<int>(dwThread), static_cast<unsigned>(dwCurrent),
                static_cast<int>(dwCurrent), m_strClassName.c_str(), strExe.c_str(), strDll.c_str());
}

bool CSimpleThreadBase::ThreadStart(std::function<DWORD()> fnBody) {
  CKMutexLock lock(m_csLock);
  if (m_thread.joinable()) return false;
  m_bRun = true;
  m_bWake = false;
  m_thread = std::thread([this, fnBody = std::move(fnBody)] {
    m_dwThreadId = GetCurrentThreadId();
    fnBody();
  });
  return true;
}

void CSimpleThreadBase::ThreadStop() {
  std::thread thread;
  {
    CKMutexLock lock(m_csLock);
    m_bRun = false;
    m_bWake = true;
    m_cvWake.notify_all();
    thread = std::move(m_thread);
  }
  if (thread.joinable()) {
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();  // the body stops itself: it returns once it sees the flag
    } else {
      thread.join();
    }
  }
  m_dwThreadId = 0;
}

bool CSimpleThreadBase::ThreadWake(int nRun) {
  CKMutexLock lock(m_csLock);
  if (!m_thread.joinable()) return false;
  if (nRun >= 0) m_bRun = nRun >= 1;
  m_bWake = true;
  m_cvWake.notify_all();
  return true;
}

// The condition variable needs the std::mutex inside m_csLock, which the
// analysis cannot follow through std::unique_lock: this one method is checked
// by reading it.
bool CSimpleThreadBase::WaitWake() VC_NO_THREAD_SAFETY_ANALYSIS {
  std::unique_lock<std::mutex> lock(m_csLock.native());
  m_cvWake.wait(lock, [this]() VC_NO_THREAD_SAFETY_ANALYSIS { return m_bWake; });
  m_bWake = false;
  return m_bRun.load();
}

bool CSimpleThreadBase::IsRunning() const {
  CKMutexLock lock(m_csLock);
  return m_thread.joinable();
}

}  // namespace vc
