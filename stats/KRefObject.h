// The common base of the statistics objects: an intrusive reference count
// behind IUnknown, with the virtual destructor right after Release so the
// slot order is query, add reference, release, destructor. The objects are
// internal to the core module (no class factory, no module lock), and may
// equally be used as plain members, in which case the count is never touched.
//
// A new object holds no reference; its first owner takes one (vc::ComPtr does
// on construction). AddRef and Release may be called from any thread.
#pragma once

#include <atomic>

#include "VCPlatform.h"

namespace vc {

class CKRefObject : public IUnknown {
 public:
  CKRefObject(const CKRefObject&) = delete;
  CKRefObject& operator=(const CKRefObject&) = delete;

  // Answers IID_IUnknown only: these objects have no published interface.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown)) return E_NOINTERFACE;
    *ppv = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --m_nRef;
    if (n == 0) delete this;
    return n;
  }
  virtual ~CKRefObject() = default;

 protected:
  CKRefObject() = default;

 private:
  std::atomic<ULONG> m_nRef{0};
};

}  // namespace vc
