// Process-wide named object slots (see VCProcessObjects.h). Built into
// libvcrt.so on Linux and into the platform helpers on Windows.
#include "VCProcessObjects.h"

#include <cstring>
#include <string>

#if defined(_WIN32)
#include <cwchar>
#else
#include <map>
#include <new>

#include "VCCritSec.h"
#endif

namespace {

constexpr size_t kMaxNameLength = 64;

// The name becomes part of a kernel object name on Windows: keep it to
// characters that need no escaping there.
bool IsValidSlotName(const char* szName) {
  if (!szName) return false;
  const size_t nLength = std::strlen(szName);
  if (nLength == 0 || nLength > kMaxNameLength) return false;
  for (size_t i = 0; i < nLength; ++i) {
    const char c = szName[i];
    const bool bOk = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                     c == '_' || c == '-';
    if (!bOk) return false;
  }
  return true;
}

}  // namespace

#if defined(_WIN32)

namespace {

// Releases the mutex and closes the handles this call does not keep.
class CSlotLock {
 public:
  explicit CSlotLock(HANDLE hMutex) : m_hMutex(hMutex) {
    // An abandoned mutex still hands over ownership; the slot it guards holds
    // at most a pointer written in one store, so there is nothing to repair.
    const DWORD dwWait = WaitForSingleObject(m_hMutex, INFINITE);
    m_bOwned = dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED;
  }
  ~CSlotLock() {
    if (m_bOwned) ReleaseMutex(m_hMutex);
    CloseHandle(m_hMutex);
  }
  CSlotLock(const CSlotLock&) = delete;
  CSlotLock& operator=(const CSlotLock&) = delete;
  bool Owned() const { return m_bOwned; }

 private:
  HANDLE m_hMutex;
  bool m_bOwned = false;
};

std::wstring SlotObjectName(const char* szPrefix, const char* szName) {
  std::wstring name = L"Local\\";
  for (const char* p = szPrefix; *p; ++p) name += static_cast<wchar_t>(*p);
  for (const char* p = szName; *p; ++p) name += static_cast<wchar_t>(*p);
  name += L'.';
  name += std::to_wstring(GetCurrentProcessId());
  return name;
}

HRESULT LastErrorResult() {
  const DWORD dwError = GetLastError();
  return dwError ? HRESULT_FROM_WIN32(dwError) : E_FAIL;
}

}  // namespace

namespace vc {

HRESULT ProcessObjectExchange(const char* szName, IUnknown* pCandidate, IUnknown** ppResult) {
  if (!ppResult) return E_POINTER;
  *ppResult = nullptr;
  if (!IsValidSlotName(szName)) return E_INVALIDARG;

  // Mutexes and file mappings share one kernel namespace, so the mutex takes
  // a name of its own pattern rather than the mapping's.
  HANDLE hMutex = CreateMutexW(nullptr, FALSE, SlotObjectName("Corvane.ProcessObjectLock.", szName).c_str());
  if (!hMutex) return LastErrorResult();
  CSlotLock lock(hMutex);
  if (!lock.Owned()) return LastErrorResult();

  HANDLE hMapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(IUnknown*),
                                       SlotObjectName("Corvane.ProcessObject.", szName).c_str());
  if (!hMapping) return LastErrorResult();
  auto* ppSlot = static_cast<IUnknown**>(MapViewOfFile(hMapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(IUnknown*)));
  if (!ppSlot) {
    const HRESULT hr = LastErrorResult();
    CloseHandle(hMapping);
    return hr;
  }

  HRESULT hr = S_OK;
  bool bKeepMapping = false;
  if (*ppSlot) {
    *ppResult = *ppSlot;
    (*ppResult)->AddRef();
  } else if (pCandidate) {
    // A fresh mapping is zero-filled: an empty slot means this call created
    // it (others open it only after the store, under the same mutex).
    pCandidate->AddRef();  // the slot's reference, never released
    *ppSlot = pCandidate;
    pCandidate->AddRef();
    *ppResult = pCandidate;
    // The mapping lives as long as a handle to it: whoever stores keeps its
    // handle and view for the life of the process.
    bKeepMapping = true;
  } else {
    hr = S_FALSE;
  }
  if (!bKeepMapping) {
    UnmapViewOfFile(ppSlot);
    CloseHandle(hMapping);
  }
  return hr;
}

}  // namespace vc

#else  // Linux

namespace {

struct CSlots {
  vc::CKMutex lock;
  std::map<std::string, IUnknown*> objects VC_GUARDED_BY(lock);  // each holds one reference, never released
};

// Never destroyed: objects stored here outlive every static destructor, and a
// module unloading late must still find the table.
CSlots& Slots() {
  static CSlots* s_pSlots = new CSlots();
  return *s_pSlots;
}

}  // namespace

extern "C" VCRT_API HRESULT VCProcessObjectExchange(const char* szName, IUnknown* pCandidate, IUnknown** ppResult) {
  if (!ppResult) return E_POINTER;
  *ppResult = nullptr;
  if (!IsValidSlotName(szName)) return E_INVALIDARG;
  try {
    CSlots& slots = Slots();
    vc::CKMutexLock guard(slots.lock);
    auto it = slots.objects.find(szName);
    if (it != slots.objects.end()) {
      *ppResult = it->second;
      (*ppResult)->AddRef();
      return S_OK;
    }
    if (!pCandidate) return S_FALSE;
    slots.objects.emplace(szName, pCandidate);
    pCandidate->AddRef();  // the slot's reference
    pCandidate->AddRef();
    *ppResult = pCandidate;
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

#endif
