// The process-wide runtime settings object and its one-per-process slot.
#include "KRuntimeSettings.h"

#include <atomic>
#include <mutex>
#include <new>

#include "VCLog.h"
#include "VCProcessObjects.h"

namespace vc {
namespace {

// This copy's reference to the process's object, kept (never released) once
// found: releasing it from a static destructor could run code of a module
// that is already gone.
std::atomic<IVCProps*> g_pRuntimeSettings{nullptr};

HRESULT FindOrPublish(IVCProps** ppProps) {
  CKComObject<CKRuntimeSettings>* pCandidate = nullptr;
  HRESULT hr = CKComObject<CKRuntimeSettings>::CreateInstance(&pCandidate);
  if (FAILED(hr)) return hr;
  ComPtr<IUnknown> cpCandidate;
  cpCandidate.Attach(static_cast<IUnknown*>(static_cast<IVCProps*>(pCandidate)));

  // Another copy of this code may have published its object first: then ours
  // is dropped and theirs is used.
  ComPtr<IUnknown> cpPublished;
  hr = ProcessObjectExchange(kRuntimeSettingsSlot, cpCandidate.Get(), cpPublished.AddressOf());
  if (FAILED(hr)) return hr;
  ComPtr<IVCProps> cpProps;
  hr = cpPublished.As(&cpProps);
  if (FAILED(hr)) return hr;
  *ppProps = cpProps.Detach();
  return S_OK;
}

}  // namespace

ComPtr<IVCProps> RuntimeSettings() {
  if (IVCProps* p = g_pRuntimeSettings.load(std::memory_order_acquire)) return ComPtr<IVCProps>(p);
  // Never destroyed, like the reference it guards.
  static std::mutex* s_pCreateLock = new std::mutex();
  std::lock_guard<std::mutex> guard(*s_pCreateLock);
  if (IVCProps* p = g_pRuntimeSettings.load(std::memory_order_acquire)) return ComPtr<IVCProps>(p);
  IVCProps* pProps = nullptr;
  HRESULT hr = E_OUTOFMEMORY;
  try {
    hr = FindOrPublish(&pProps);
  } catch (const std::bad_alloc&) {
    hr = E_OUTOFMEMORY;
  }
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "runtime settings not available hr=%08X\n", hr);
    return nullptr;
  }
  g_pRuntimeSettings.store(pProps, std::memory_order_release);
  return ComPtr<IVCProps>(pProps);
}

}  // namespace vc
