// Object helpers for component classes, shared by the core module and its
// sibling modules: the module lock count, the stand-alone object
// (CKComObject), the aggregated object with its non-delegating unknown
// (CKAggObject), interface tables for QueryInterface, and the class factory.
//
// An implementation class derives from CKObjectRoot and its interfaces, and
// answers
//   HRESULT _InternalQueryInterface(REFIID riid, void** ppv)
// usually with vc::QueryInterfaceTable<I1, I2, ...>(this, riid, ppv). It may
// override FinalConstruct (its initialisation; a failure destroys the
// half-built object) and FinalRelease. The IUnknown methods are written once,
// here, by the stand-alone or aggregated wrapper. Any thread may call any of
// them; reference counts are atomic.
#pragma once

#include <atomic>
#include <new>
#include <type_traits>

#include "VCComPtr.h"
#include "VCGuard.h"
#include "VCGuid.h"
#include "VCPlatform.h"

namespace vc {

// Outstanding objects plus explicit server locks of the module this header is
// compiled into (hidden visibility gives each module its own counter).
inline std::atomic<LONG>& ModuleLockCount() {
  static std::atomic<LONG> s_nLocks{0};
  return s_nLocks;
}
inline LONG ModuleLock() { return ++ModuleLockCount(); }
inline LONG ModuleUnlock() { return --ModuleLockCount(); }

class CKObjectRoot {
 public:
  // Objects of this system are thread-safe and may be called from any
  // apartment: on Windows the stand-alone form aggregates the free-threaded
  // marshaler so that callers in other apartments get the object itself, not
  // a proxy (the classes are registered with the Neutral threading model).
  static constexpr bool kFreeThreaded = true;

  HRESULT FinalConstruct() { return S_OK; }
  void FinalRelease() {}

 protected:
  CKObjectRoot() = default;
  ~CKObjectRoot() = default;
};

// Answers riid from the listed interfaces of p; IID_IUnknown gives the first.
template <class First, class... Rest, class T>
HRESULT QueryInterfaceTable(T* p, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (IsEqualIID(riid, IID_IUnknown)) {
    *ppv = static_cast<IUnknown*>(static_cast<First*>(p));
    return S_OK;
  }
  bool bFound = false;
  auto tryOne = [&](auto* pItf) {
    using I = std::remove_pointer_t<decltype(pItf)>;
    if (!bFound && IsEqualIID(riid, IidOf<I>())) {
      *ppv = pItf;
      bFound = true;
    }
  };
  tryOne(static_cast<First*>(p));
  (tryOne(static_cast<Rest*>(p)), ...);
  return bFound ? S_OK : E_NOINTERFACE;
}

// Stand-alone form: owns its reference count and holds a module lock for its
// whole life.
template <class T>
class CKComObject final : public T {
 public:
  CKComObject() { ModuleLock(); }
  ~CKComObject() {
#if defined(_WIN32)
    if (m_pMarshaler) m_pMarshaler->Release();
#endif
    ModuleUnlock();
  }
  CKComObject(const CKComObject&) = delete;
  CKComObject& operator=(const CKComObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
#if defined(_WIN32)
    if (m_pMarshaler && IsEqualIID(riid, IID_IMarshal)) return m_pMarshaler->QueryInterface(riid, ppv);
#endif
    HRESULT hr = this->_InternalQueryInterface(riid, ppv);
    if (SUCCEEDED(hr)) static_cast<IUnknown*>(*ppv)->AddRef();
    return hr;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --m_nRef;
    if (n == 0) {
      this->FinalRelease();
      delete this;
    }
    return n;
  }

  // Creates the object with one reference and runs its final construction;
  // a failure there destroys it and is returned.
  static HRESULT CreateInstance(CKComObject** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    auto* p = new (std::nothrow) CKComObject();
    if (!p) return E_OUTOFMEMORY;
    p->m_nRef = 1;  // keeps the object alive while FinalConstruct hands out references
    HRESULT hr = p->FinalConstruct();
#if defined(_WIN32)
    if (SUCCEEDED(hr) && T::kFreeThreaded) {
      IUnknown* pSelf = nullptr;
      p->_InternalQueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pSelf));
      hr = CoCreateFreeThreadedMarshaler(pSelf, &p->m_pMarshaler);
    }
#endif
    if (FAILED(hr)) {
      p->m_nRef = 0;
      delete p;
      return hr;
    }
    *pp = p;
    return S_OK;
  }

 private:
  std::atomic<ULONG> m_nRef{0};
#if defined(_WIN32)
  IUnknown* m_pMarshaler = nullptr;  // the free-threaded marshaler, aggregated
#endif
};

// The aggregated object's implementation part: its IUnknown calls go to the
// outer object.
template <class T>
class CKContainedObject final : public T {
 public:
  explicit CKContainedObject(IUnknown* pOuter) : m_pOuter(pOuter) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    return m_pOuter->QueryInterface(riid, ppv);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return m_pOuter->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return m_pOuter->Release(); }

 private:
  IUnknown* m_pOuter;  // not counted: the outer object owns us
};

// Aggregated form: this object is the non-delegating unknown that the outer
// object holds; every other interface delegates to the outer object.
template <class T>
class CKAggObject final : public IUnknown {
 public:
  explicit CKAggObject(IUnknown* pOuter) : m_contained(pOuter) { ModuleLock(); }
  ~CKAggObject() { ModuleUnlock(); }
  CKAggObject(const CKAggObject&) = delete;
  CKAggObject& operator=(const CKAggObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (IsEqualIID(riid, IID_IUnknown)) {
      *ppv = static_cast<IUnknown*>(this);
      AddRef();
      return S_OK;
    }
    HRESULT hr = m_contained._InternalQueryInterface(riid, ppv);
    if (SUCCEEDED(hr)) static_cast<IUnknown*>(*ppv)->AddRef();  // counts on the outer object
    return hr;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --m_nRef;
    if (n == 0) {
      m_contained.FinalRelease();
      delete this;
    }
    return n;
  }

  T* Inner() { return &m_contained; }

  static HRESULT CreateInstance(IUnknown* pOuter, CKAggObject** pp) {
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (!pOuter) return E_INVALIDARG;
    auto* p = new (std::nothrow) CKAggObject(pOuter);
    if (!p) return E_OUTOFMEMORY;
    p->m_nRef = 1;
    HRESULT hr = p->m_contained.FinalConstruct();
    if (FAILED(hr)) {
      p->m_nRef = 0;
      delete p;
      return hr;
    }
    *pp = p;
    return S_OK;
  }

 private:
  std::atomic<ULONG> m_nRef{0};
  CKContainedObject<T> m_contained;
};

// Creates T stand-alone for riid, or aggregated (IID_IUnknown only) inside pOuter.
template <class T>
HRESULT CreateObject(IUnknown* pOuter, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (pOuter) {
    if (!IsEqualIID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
    CKAggObject<T>* p = nullptr;
    HRESULT hr = CKAggObject<T>::CreateInstance(pOuter, &p);
    if (FAILED(hr)) return hr;
    *ppv = static_cast<IUnknown*>(p);  // hands over the creation reference
    return S_OK;
  }
  CKComObject<T>* p = nullptr;
  HRESULT hr = CKComObject<T>::CreateInstance(&p);
  if (FAILED(hr)) return hr;
  hr = p->QueryInterface(riid, ppv);
  p->Release();
  return hr;
}

using PFN_KCREATE = HRESULT (*)(IUnknown* pOuter, REFIID riid, void** ppv);

// The class factory: creates one class through its creator. Cached factories
// do not lock the module (they live as long as the module); LockServer does.
class CKClassFactory final : public IClassFactory {
 public:
  explicit CKClassFactory(PFN_KCREATE pfnCreate) : m_pfnCreate(pfnCreate) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
      *ppv = static_cast<IClassFactory*>(this);
      AddRef();
      return S_OK;
    }
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --m_nRef;
    if (n == 0) delete this;
    return n;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override {
    VC_GUARD_BEGIN
    if (!ppvObject) return E_POINTER;
    *ppvObject = nullptr;
    if (pUnkOuter && !IsEqualIID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
    return m_pfnCreate(pUnkOuter, riid, ppvObject);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override {
    VC_GUARD_BEGIN
    if (fLock) ModuleLock();
    else ModuleUnlock();
    return S_OK;
    VC_GUARD_END
  }

 private:
  ~CKClassFactory() = default;
  std::atomic<ULONG> m_nRef{0};
  PFN_KCREATE m_pfnCreate;
};

}  // namespace vc
