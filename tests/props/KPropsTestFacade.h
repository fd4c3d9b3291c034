// Test doubles for the shared property implementation: a facade whose hooks
// (routing, change handler, computed getter) are scripted per test, a
// delegate that records the calls it receives and answers with scripted
// codes, and small helpers over UTF-8 text. Test threads only.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Devices/KPropsImpl.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vctest {

// A facade over IKPropsImpl with every hook scriptable. Scripts are set
// before the calls that use them; what the hooks saw is recorded.
class CTestFacade : public vc::CKObjectRoot, public vc::IKPropsImpl<CTestFacade> {
 public:
  using RouteFn = std::function<HRESULT(vc::eKPropsOp, vc::StringView, vc::ComPtr<IVCProps>*, bool*)>;
  using ChangeFn = std::function<HRESULT(vc::StringView, vc::StringView)>;
  using ComputedFn = std::function<HRESULT(vc::StringView, BSTR*)>;

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCProps>(this, riid, ppv);
  }
  vc::CKCritSec& _PropsLock() { return m_csLock; }

  HRESULT _PropsRoute(vc::eKPropsOp eOp, vc::StringView name, vc::ComPtr<IVCProps>* pcp, bool* pbApply) {
    {
      std::lock_guard<std::mutex> guard(m_recordLock);
      m_routedOps.push_back(eOp);
    }
    return m_fnRoute ? m_fnRoute(eOp, name, pcp, pbApply) : S_FALSE;
  }
  HRESULT _PropsOnChange(BSTR bsName, BSTR bsValue) {
    {
      std::lock_guard<std::mutex> guard(m_recordLock);
      m_changes.emplace_back(vc::ToUtf8(vc::View(bsName)), vc::ToUtf8(vc::View(bsValue)));
    }
    return m_fnChange ? m_fnChange(vc::View(bsName), vc::View(bsValue)) : E_NOTIMPL;
  }
  HRESULT _PropsGetComputed(vc::StringView name, BSTR* pbsValue) {
    return m_fnComputed ? m_fnComputed(name, pbsValue) : S_FALSE;
  }

  std::vector<std::pair<std::string, std::string>> Changes() {
    std::lock_guard<std::mutex> guard(m_recordLock);
    return m_changes;
  }
  std::vector<vc::eKPropsOp> RoutedOps() {
    std::lock_guard<std::mutex> guard(m_recordLock);
    return m_routedOps;
  }

  RouteFn m_fnRoute;
  ChangeFn m_fnChange;
  ComputedFn m_fnComputed;

 private:
  vc::CKCritSec m_csLock;
  std::mutex m_recordLock;
  std::vector<std::pair<std::string, std::string>> m_changes;  // GUARDED_BY(m_recordLock)
  std::vector<vc::eKPropsOp> m_routedOps;                      // GUARDED_BY(m_recordLock)
};

using TestFacadePtr = vc::ComPtr<vc::CKComObject<CTestFacade>>;

inline TestFacadePtr CreateTestFacade() {
  vc::CKComObject<CTestFacade>* p = nullptr;
  TestFacadePtr cp;
  if (SUCCEEDED(vc::CKComObject<CTestFacade>::CreateInstance(&p))) cp.Attach(p);
  return cp;
}

// Whether another thread could take the lock right now (a recursive lock
// always lets its owner in, so the probe must come from elsewhere).
inline bool LockIsFreeElsewhere(vc::CKCritSec& cs) {
  std::promise<bool> result;
  std::thread probe([&] {
    const bool bFree = cs.try_lock();
    if (bFree) cs.unlock();
    result.set_value(bFree);
  });
  probe.join();
  return result.get_future().get();
}

// A delegate: records each call (operation and name as received), lets a test
// run code inside the call, and answers with the scripted code; its reads
// deliver "delegate:<name>".
class CFakeProps : public vc::CKObjectRoot, public IVCProps {
 public:
  struct CCall {
    vc::eKPropsOp eOp;
    std::string strName;
    std::string strValue;
  };

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCProps>(this, riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE PropsSet(BSTR bsName, BSTR bsValue) override {
    return Record(vc::eKPO_Set, bsName, vc::ToUtf8(vc::View(bsValue)));
  }
  HRESULT STDMETHODCALLTYPE PropsGet(BSTR bsName, BSTR* pbsValue) override {
    const HRESULT hr = Record(vc::eKPO_Get, bsName);
    Deliver(hr, bsName, pbsValue);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsGetCount(BSTR bsName, LONG* pnCount) override {
    const HRESULT hr = Record(vc::eKPO_GetCount, bsName);
    if (pnCount) *pnCount = SUCCEEDED(hr) ? 7 : 0;
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsGetByIndex(BSTR bsName, LONG, BSTR* pbsName, BSTR* pbsValue, BOOL* pbNode) override {
    const HRESULT hr = Record(vc::eKPO_GetByIndex, bsName);
    Deliver(hr, bsName, pbsName);
    Deliver(hr, bsName, pbsValue);
    if (pbNode) *pbNode = FALSE;
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsRemove(BSTR bsName) override { return Record(vc::eKPO_Remove, bsName); }
  HRESULT STDMETHODCALLTYPE PropsInfoGet(BSTR bsName, eKInfoType, BSTR* pbsInfo) override {
    const HRESULT hr = Record(vc::eKPO_InfoGet, bsName);
    Deliver(hr, bsName, pbsInfo);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGetCount(BSTR bsName, LONG* pnCount) override {
    const HRESULT hr = Record(vc::eKPO_OptionGetCount, bsName);
    if (pnCount) *pnCount = 0;
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGetByIndex(BSTR bsName, LONG, BSTR* pbsValue, BSTR* pbsHelp) override {
    const HRESULT hr = Record(vc::eKPO_OptionGetByIndex, bsName);
    Deliver(hr, bsName, pbsValue);
    if (pbsHelp) *pbsHelp = nullptr;
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionSetByIndex(BSTR bsName, LONG) override {
    return Record(vc::eKPO_OptionSetByIndex, bsName);
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGet(BSTR bsName, LONG* pnIndex, BSTR* pbsValue, BSTR* pbsHelp) override {
    const HRESULT hr = Record(vc::eKPO_OptionGet, bsName);
    if (pnIndex) *pnIndex = 0;
    Deliver(hr, bsName, pbsValue);
    if (pbsHelp) *pbsHelp = nullptr;
    return hr;
  }

  std::vector<CCall> Calls() {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_calls;
  }

  HRESULT m_hrAnswer = S_OK;
  std::function<void()> m_fnDuringCall;  // runs inside every call

 private:
  HRESULT Record(vc::eKPropsOp eOp, BSTR bsName, std::string strValue = {}) {
    {
      std::lock_guard<std::mutex> guard(m_lock);
      m_calls.push_back({eOp, vc::ToUtf8(vc::View(bsName)), std::move(strValue)});
    }
    if (m_fnDuringCall) m_fnDuringCall();
    return m_hrAnswer;
  }
  static void Deliver(HRESULT hr, BSTR bsName, BSTR* pbs) {
    if (!pbs) return;
    *pbs = SUCCEEDED(hr) ? vc::CBstr("delegate:" + vc::ToUtf8(vc::View(bsName))).Detach() : nullptr;
  }

  std::mutex m_lock;
  std::vector<CCall> m_calls;  // GUARDED_BY(m_lock)
};

using FakePropsPtr = vc::ComPtr<vc::CKComObject<CFakeProps>>;

inline FakePropsPtr CreateFakeProps() {
  vc::CKComObject<CFakeProps>* p = nullptr;
  FakePropsPtr cp;
  if (SUCCEEDED(vc::CKComObject<CFakeProps>::CreateInstance(&p))) cp.Attach(p);
  return cp;
}

// UTF-8 front ends of the IVCProps calls.
inline HRESULT PropsSetText(IVCProps* p, const std::string& strName, const std::string& strValue) {
  return p->PropsSet(vc::CBstr(strName), vc::CBstr(strValue));
}
inline HRESULT PropsGetText(IVCProps* p, const std::string& strName, std::string* pstrValue) {
  vc::CBstr bsValue;
  const HRESULT hr = p->PropsGet(vc::CBstr(strName), &bsValue);
  pstrValue->assign(bsValue.Utf8());
  return hr;
}
// The value, or "<hr=...>" when PropsGet did not answer S_OK.
inline std::string PropsValue(IVCProps* p, const std::string& strName) {
  std::string strValue;
  const HRESULT hr = PropsGetText(p, strName, &strValue);
  return hr == S_OK ? strValue : "<hr=" + std::to_string(hr) + ">";
}
inline HRESULT PropsRemoveText(IVCProps* p, const std::string& strName) {
  return p->PropsRemove(vc::CBstr(strName));
}

}  // namespace vctest
