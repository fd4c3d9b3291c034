// A move-aware smart interface pointer. The only place besides the object
// helpers where AddRef and Release are called by hand. Not thread-safe itself:
// one owner at a time, like any value.
#pragma once

#include <utility>

#include "VCGuid.h"

namespace vc {

template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  // Takes a new reference on p.
  ComPtr(T* p) noexcept : m_p(p) {
    if (m_p) m_p->AddRef();
  }
  ComPtr(const ComPtr& o) noexcept : ComPtr(o.m_p) {}
  ComPtr(ComPtr&& o) noexcept : m_p(std::exchange(o.m_p, nullptr)) {}
  ~ComPtr() { Release(); }

  ComPtr& operator=(const ComPtr& o) noexcept {
    ComPtr(o).Swap(*this);
    return *this;
  }
  ComPtr& operator=(ComPtr&& o) noexcept {
    ComPtr(std::move(o)).Swap(*this);
    return *this;
  }
  ComPtr& operator=(T* p) noexcept {
    ComPtr(p).Swap(*this);
    return *this;
  }
  ComPtr& operator=(std::nullptr_t) noexcept {
    Release();
    return *this;
  }

  T* Get() const noexcept { return m_p; }
  T* operator->() const noexcept { return m_p; }
  T& operator*() const noexcept { return *m_p; }
  explicit operator bool() const noexcept { return m_p != nullptr; }

  // For out-parameters: releases what is held and hands out the slot.
  T** AddressOf() noexcept {
    Release();
    return &m_p;
  }

  void Release() noexcept {
    if (T* p = std::exchange(m_p, nullptr)) p->Release();
  }
  // Hands the held reference to the caller.
  T* Detach() noexcept { return std::exchange(m_p, nullptr); }
  // Takes over a reference the caller already owns.
  void Attach(T* p) noexcept {
    Release();
    m_p = p;
  }
  void Swap(ComPtr& o) noexcept { std::swap(m_p, o.m_p); }

  // Hands out one counted reference through an out-parameter.
  HRESULT CopyTo(T** pp) const noexcept {
    if (!pp) return E_POINTER;
    *pp = m_p;
    if (m_p) m_p->AddRef();
    return S_OK;
  }

  template <class U>
  HRESULT As(ComPtr<U>* pOut) const noexcept {
    if (!pOut) return E_POINTER;
    if (!m_p) return E_POINTER;
    U* p = nullptr;
    HRESULT hr = m_p->QueryInterface(IidOf<U>(), reinterpret_cast<void**>(&p));
    pOut->Attach(SUCCEEDED(hr) ? p : nullptr);
    return hr;
  }

 private:
  T* m_p = nullptr;
};

}  // namespace vc
