#include "VCAssert.h"

#include <mutex>
#include <utility>

#include "VCCritSec.h"

namespace vc {

namespace {

std::mutex& HandlerLock() {
  static std::mutex* s_pLock = new std::mutex;  // never destroyed: asserts may fire during exit
  return *s_pLock;
}
// Guarded by HandlerLock(); null means the default report.
std::shared_ptr<const AssertHandler>& HandlerSlot() {
  static auto* s_pSlot = new std::shared_ptr<const AssertHandler>;
  return *s_pSlot;
}

void DefaultReport(const AssertRecord& rec) {
  if (LogIsOn(eVCLL_Error))
    LogWrite(eVCLL_Error, rec.pszPath, rec.nLine, rec.pszFunction, "ASSERT FAILED: %s at %s(%d)\n",
             rec.pszCondition, rec.pszPath, rec.nLine);
}

}  // namespace

void AssertFailed(const char* pszCondition, const char* pszPath, int nLine, const char* pszFunction) noexcept {
  AssertRecord rec;
  rec.pszCondition = pszCondition ? pszCondition : "";
  rec.pszPath = pszPath ? pszPath : "";
  rec.nLine = nLine;
  rec.pszFunction = pszFunction ? pszFunction : "";
  try {
    std::shared_ptr<const AssertHandler> spHandler;
    {
      std::lock_guard lock(HandlerLock());
      spHandler = HandlerSlot();
    }
    if (spHandler)
      (*spHandler)(rec);
    else
      DefaultReport(rec);
  } catch (...) {
    // A report that fails must not turn a check into a crash.
  }
}

AssertHandler AssertSetHandler(AssertHandler handler) {
  auto spNew = handler ? std::make_shared<const AssertHandler>(std::move(handler)) : nullptr;
  std::lock_guard lock(HandlerLock());
  std::shared_ptr<const AssertHandler> spOld = std::exchange(HandlerSlot(), std::move(spNew));
  return spOld ? *spOld : AssertHandler();
}

struct CAssertCounter::CStore {
  mutable CKMutex csLock;
  int nCount VC_GUARDED_BY(csLock) = 0;
  std::string strCondition VC_GUARDED_BY(csLock);
  std::string strPath VC_GUARDED_BY(csLock);
  int nLine VC_GUARDED_BY(csLock) = 0;
};

CAssertCounter::CAssertCounter() : m_spStore(std::make_shared<CStore>()) {
  std::shared_ptr<CStore> spStore = m_spStore;
  m_prevHandler = AssertSetHandler([spStore](const AssertRecord& rec) {
    CKMutexLock lock(spStore->csLock);
    ++spStore->nCount;
    spStore->strCondition = rec.pszCondition;
    spStore->strPath = rec.pszPath;
    spStore->nLine = rec.nLine;
  });
}

CAssertCounter::~CAssertCounter() { AssertSetHandler(std::move(m_prevHandler)); }

int CAssertCounter::Count() const {
  CKMutexLock lock(m_spStore->csLock);
  return m_spStore->nCount;
}

std::string CAssertCounter::LastCondition() const {
  CKMutexLock lock(m_spStore->csLock);
  return m_spStore->strCondition;
}

std::string CAssertCounter::LastPath() const {
  CKMutexLock lock(m_spStore->csLock);
  return m_spStore->strPath;
}

int CAssertCounter::LastLine() const {
  CKMutexLock lock(m_spStore->csLock);
  return m_spStore->nLine;
}

}  // namespace vc
