// A bare IUnknown that counts its references and is never freed by them, so
// a test can watch an object store keep and release it.
#pragma once

#include <atomic>

#include "VCPlatform.h"

namespace vctest {

class CCountedUnknown final : public IUnknown {
 public:
  explicit CCountedUnknown(ULONG nInitialRefs = 1) : m_nRef(nInitialRefs) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = IsEqualIID(riid, IID_IUnknown) ? this : nullptr;
    if (!*ppv) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_nRef; }
  ULONG Refs() const { return m_nRef; }

 private:
  std::atomic<ULONG> m_nRef;
};

}  // namespace vctest
