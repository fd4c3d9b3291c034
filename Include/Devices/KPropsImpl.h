// IKPropsImpl<T>: the one IVCProps implementation behind every facade (and
// the process-wide runtime settings). It owns the facade's property tree (a
// root node named "props", created with the object) and answers the ten
// IVCProps calls on it under the facade's lock, after offering each call to a
// delegate: first the facade's own routing, then the process-wide runtime
// settings for "runtime::" names. Delegates are always called before the lock
// is taken, never under it.
//
// Any host thread may call any method. Input strings may be plain
// zero-terminated UTF-16 strings rather than BSTRs: they are read up to their
// terminating zero. Nothing throws out of a method (allocation failure is
// E_OUTOFMEMORY); every failure returned is logged at level 4.
//
// The facade T (CRTP) provides, as public members:
//   vc::CKCritSec& _PropsLock();            // required: the facade's one lock
// and may hide these defaults:
//   HRESULT _PropsRoute(eKPropsOp eOp, vc::StringView name,
//                       vc::ComPtr<IVCProps>* pcpDelegate, bool* pbApplyLocally);
//       Called (without the lock) for eKPO_Set, eKPO_Get, eKPO_GetCount,
//       eKPO_GetByIndex and eKPO_Remove. Setting *pcpDelegate hands the call,
//       with the same arguments, to that object; *pbApplyLocally (Set and
//       Remove only) asks for the local tree to be changed too when the
//       delegate succeeded. A failure is returned to the caller as it is.
//       Default: no delegate.
//   HRESULT _PropsOnChange(BSTR bsName, BSTR bsValue);
//       Called after a PropsSet changed the tree (also for an empty name that
//       merged text), outside the lock; its result is PropsSet's. Read the
//       strings with vc::View. Default: E_NOTIMPL, which selects the default
//       handler (S_OK).
//   HRESULT _PropsGetComputed(vc::StringView name, BSTR* pbsValue);
//       Asked by PropsGet, under the lock, for a name with no stored
//       attribute: S_OK delivers *pbsValue; anything else means "not mine"
//       and the node lookup goes on. It must not call inner objects (route
//       such names instead). Default: S_FALSE.
//   static constexpr bool kPropsRuntimeTarget;
//       False only in the runtime settings object itself. Default: true.
//
// Choices the callers can rely on:
// - PropsGetCount / PropsGetByIndex list attributes first, then child nodes.
//   A missing node answers S_FALSE (count 0). PropsGetByIndex: a negative
//   index is E_INVALIDARG; an index past the last entry is S_FALSE, so an
//   enumeration can run until S_FALSE. Any of its out pointers may be null,
//   not all of them.
// - PropsRemove accepts "_all_props_" and "_all_nodes_" alone (the root) or
//   after a node path ("stat::_all_props_"). Nothing at the path: S_FALSE.
// - Options: PropsOptionGetByIndex with an index outside the options is
//   E_INVALIDARG; a property without options answers S_FALSE. Option help
//   texts come from the metadata entry's "values_help" ('|'-separated like
//   "values"). PropsOptionGet matches the current value (the attribute, else
//   the node's own value, else the metadata default) exactly, else ignoring
//   letter case; no match is S_FALSE with index -1 and the current value.
//   PropsOptionSetByIndex sets the option through the local PropsSet path,
//   so the change handler runs.
#pragma once

#include <atomic>
#include <new>
#include <utility>
#include <vector>

#include "CoXMLNode.h"
#include "KPropsOps.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace vc {

// The process-wide runtime settings object (KRuntimeSettings.cpp); null when
// it could not be created.
ComPtr<IVCProps> RuntimeSettings();

template <class T>
class IKPropsImpl : public IVCProps {
 public:
  // --- Hooks the facade may hide (see the top of this file). ---
  static constexpr bool kPropsRuntimeTarget = true;
  HRESULT _PropsRoute(eKPropsOp, StringView, ComPtr<IVCProps>*, bool*) { return S_FALSE; }
  HRESULT _PropsOnChange(BSTR, BSTR) { return E_NOTIMPL; }
  HRESULT _PropsGetComputed(StringView, BSTR*) { return S_FALSE; }

  // --- For the facade's own code, which holds _PropsLock(). ---
  XMLParse::XMLNodePtr _PropsRootLocked() const { return m_spPropsRoot; }
  // Replaces the whole tree (null leaves the facade without properties:
  // every call then fails with E_FAIL).
  void _PropsReplaceRootLocked(XMLParse::XMLNodePtr spRoot) { m_spPropsRoot = std::move(spRoot); }
  // Any thread, no lock needed.
  void _PropsSetReportUnchanged(bool bOn) { m_bReportUnchanged.store(bOn, std::memory_order_relaxed); }

  // --- IVCProps ---
  HRESULT STDMETHODCALLTYPE PropsSet(BSTR _bsPropName, BSTR _bsPropValue) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _Set(_bsPropName, _bsPropValue); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsSet(%ws) FAILED hr=%08X\n", _bsPropName, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsGet(BSTR _bsPropName, BSTR* _pbsPropValue) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _Get(_bsPropName, _pbsPropValue); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsGet(%ws) FAILED hr=%08X\n", _bsPropName, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsGetCount(BSTR _bsNodeName, LONG* _pnCount) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _GetCount(_bsNodeName, _pnCount); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsGetCount(%ws) FAILED hr=%08X\n", _bsNodeName, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsGetByIndex(BSTR _bsNodeName, LONG _nIndex, BSTR* _pbsPropName, BSTR* _pbsPropValue,
                                            BOOL* _pbNode) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _GetByIndex(_bsNodeName, _nIndex, _pbsPropName, _pbsPropValue, _pbNode); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsGetByIndex(%ws, %d) FAILED hr=%08X\n", _bsNodeName, _nIndex, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsRemove(BSTR _bsPropName) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION, [&] { return _Remove(_bsPropName); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsRemove(%ws) FAILED hr=%08X\n", _bsPropName, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsInfoGet(BSTR _bsPropName, eKInfoType _eType, BSTR* _pbsInfo) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _InfoGet(_bsPropName, _eType, _pbsInfo); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsInfoGet(%ws, %d) FAILED hr=%08X\n", _bsPropName, _eType, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGetCount(BSTR _bsPropName, LONG* _pnOptionCount) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _OptionGetCount(_bsPropName, _pnOptionCount); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsOptionGetCount(%ws) FAILED hr=%08X\n", _bsPropName, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGetByIndex(BSTR _bsPropName, LONG _nOptionIdx, BSTR* _pbsOptionValue,
                                                  BSTR* _pbsHelp) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _OptionGetByIndex(_bsPropName, _nOptionIdx, _pbsOptionValue, _pbsHelp); });
    if (FAILED(hr))
      VC_LOG(eVCLL_Error, "PropsOptionGetByIndex(%ws, %d) FAILED hr=%08X\n", _bsPropName, _nOptionIdx, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionSetByIndex(BSTR _bsPropName, LONG _nOptionInx) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _OptionSetByIndex(_bsPropName, _nOptionInx); });
    if (FAILED(hr))
      VC_LOG(eVCLL_Error, "PropsOptionSetByIndex(%ws, %d) FAILED hr=%08X\n", _bsPropName, _nOptionInx, hr);
    return hr;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGet(BSTR _bsPropName, LONG* _pnOptionIdx, BSTR* _pbsOptionValue,
                                           BSTR* _pbsHelp) override {
    const HRESULT hr = ::vc::GuardCall(__FILE__, __LINE__, VC_FUNCTION,
        [&] { return _OptionGet(_bsPropName, _pnOptionIdx, _pbsOptionValue, _pbsHelp); });
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "PropsOptionGet(%ws) FAILED hr=%08X\n", _bsPropName, hr);
    return hr;
  }

 protected:
  IKPropsImpl() {
    try {
      m_spPropsRoot = XMLParse::CoXMLNode::Create(props::kRootName);
    } catch (const std::bad_alloc&) {
      // Without a root every call answers E_FAIL; the object itself stays usable.
    }
  }
  ~IKPropsImpl() = default;

 private:
  // Where a call goes when it is not handled locally.
  struct CDelegate {
    ComPtr<IVCProps> cpProps;
    CBstr bsName;  // the name as the delegate gets it (a real BSTR)
    bool bApplyLocally = false;
  };
  enum class eDelegation { eFacadeAndRuntime, eRuntimeOnly };

  T* _Self() { return static_cast<T*>(this); }

  // S_OK with pd->cpProps set when a delegate takes the call, S_OK with none
  // when it stays local; a failure of the facade's routing is returned.
  HRESULT _FindDelegate(eKPropsOp eOp, BSTR bsName, eDelegation eWho, CDelegate* pd) {
    const StringView name = View(bsName);
    if (eWho == eDelegation::eFacadeAndRuntime) {
      ComPtr<IVCProps> cpRouted;
      bool bApplyLocally = false;
      const HRESULT hr = _Self()->_PropsRoute(eOp, name, &cpRouted, &bApplyLocally);
      if (FAILED(hr)) return hr;
      if (cpRouted) {
        pd->cpProps = std::move(cpRouted);
        pd->bApplyLocally = bApplyLocally;
        return _SetDelegateName(name, pd);
      }
    }
    if constexpr (T::kPropsRuntimeTarget) {
      StringView forward;
      if (props::RoutesToRuntime(eOp, name, &forward)) {
        // Not available: handled locally.
        if (ComPtr<IVCProps> cpRuntime = RuntimeSettings()) {
          pd->cpProps = std::move(cpRuntime);
          return _SetDelegateName(forward, pd);
        }
      }
    }
    return S_OK;
  }
  static HRESULT _SetDelegateName(StringView name, CDelegate* pd) {
    pd->bsName = CBstr(name);
    return pd->bsName.Get() ? S_OK : E_OUTOFMEMORY;
  }
  // A reading call answered by a delegate: its failure means nothing delivered.
  static HRESULT _ReadResult(HRESULT hrDelegate, BSTR bsName) {
    if (SUCCEEDED(hrDelegate)) return hrDelegate;
    VC_LOG(eVCLL_Retry, "delegate for %ws failed hr=%08X: nothing delivered\n", bsName, hrDelegate);
    return S_FALSE;
  }

  HRESULT _Set(BSTR bsName, BSTR bsValue) {
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_Set, bsName, eDelegation::eFacadeAndRuntime, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) {
      CBstr bsValueCopy(View(bsValue));
      if (!bsValueCopy.Get()) return E_OUTOFMEMORY;
      hr = d.cpProps->PropsSet(d.bsName, bsValueCopy);
      if (FAILED(hr) || !d.bApplyLocally) return hr;
    }
    return _SetLocal(bsName, bsValue);
  }
  // The tree change and the change handler, after delegation.
  HRESULT _SetLocal(BSTR bsName, BSTR bsValue) {
    bool bNotify = false;
    {
      CKAutoLock lock(_Self()->_PropsLock());
      if (!m_spPropsRoot) return E_FAIL;
      const HRESULT hr = props::SetInTree(*m_spPropsRoot, View(bsName), View(bsValue),
                                          m_bReportUnchanged.load(std::memory_order_relaxed), &bNotify);
      if (FAILED(hr) || !bNotify) return hr;
    }
    const HRESULT hr = _Self()->_PropsOnChange(bsName, bsValue);
    return hr == E_NOTIMPL ? S_OK : hr;
  }

  HRESULT _Get(BSTR bsName, BSTR* pbsValue) {
    if (!pbsValue) return E_POINTER;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_Get, bsName, eDelegation::eFacadeAndRuntime, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsGet(d.bsName, pbsValue), bsName);

    const StringView name = View(bsName);
    String strValue;
    CKAutoLock lock(_Self()->_PropsLock());
    if (!m_spPropsRoot) return E_FAIL;
    if (name.empty()) return props::CopyToBstr(m_spPropsRoot->Serialize(), pbsValue);
    if (props::ReservedValue(name, &strValue) || props::GetAttribute(*m_spPropsRoot, name, &strValue))
      return props::CopyToBstr(strValue, pbsValue);
    BSTR bsComputed = nullptr;
    if (_Self()->_PropsGetComputed(name, &bsComputed) == S_OK) {
      *pbsValue = bsComputed;
      return S_OK;
    }
    SysFreeString(bsComputed);  // a getter that declined yet allocated
    if (!props::GetNodeText(m_spPropsRoot, name, &strValue)) return S_FALSE;
    return props::CopyToBstr(strValue, pbsValue);
  }

  HRESULT _GetCount(BSTR bsName, LONG* pnCount) {
    if (!pnCount) return E_POINTER;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_GetCount, bsName, eDelegation::eFacadeAndRuntime, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsGetCount(d.bsName, pnCount), bsName);
    CKAutoLock lock(_Self()->_PropsLock());
    if (!m_spPropsRoot) return E_FAIL;
    return props::CountEntries(m_spPropsRoot, View(bsName), pnCount);
  }

  HRESULT _GetByIndex(BSTR bsName, LONG nIndex, BSTR* pbsName, BSTR* pbsValue, BOOL* pbNode) {
    if (!pbsName && !pbsValue && !pbNode) return E_POINTER;
    ClearOut(pbsName);
    ClearOut(pbsValue);
    ClearOut(pbNode);
    if (nIndex < 0) return E_INVALIDARG;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_GetByIndex, bsName, eDelegation::eFacadeAndRuntime, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsGetByIndex(d.bsName, nIndex, pbsName, pbsValue, pbNode), bsName);

    String strName, strValue;
    bool bNode = false;
    {
      CKAutoLock lock(_Self()->_PropsLock());
      if (!m_spPropsRoot) return E_FAIL;
      hr = props::EntryAt(m_spPropsRoot, View(bsName), static_cast<size_t>(nIndex), &strName, &strValue, &bNode);
      if (hr != S_OK) return hr;
    }
    return _DeliverPair(strName, pbsName, strValue, pbsValue, [&] {
      if (pbNode) *pbNode = bNode ? TRUE : FALSE;
    });
  }

  HRESULT _Remove(BSTR bsName) {
    if (View(bsName).empty()) return E_INVALIDARG;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_Remove, bsName, eDelegation::eFacadeAndRuntime, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) {
      hr = d.cpProps->PropsRemove(d.bsName);
      if (FAILED(hr) || !d.bApplyLocally) return hr;
    }
    CKAutoLock lock(_Self()->_PropsLock());
    if (!m_spPropsRoot) return E_FAIL;
    return props::RemoveFromTree(m_spPropsRoot, View(bsName));
  }

  HRESULT _InfoGet(BSTR bsName, eKInfoType eType, BSTR* pbsInfo) {
    if (View(bsName).empty()) return E_INVALIDARG;
    if (!pbsInfo) return E_POINTER;
    if (eType < eKIT_Help || eType > eKIT_Dynamic) return E_INVALIDARG;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_InfoGet, bsName, eDelegation::eRuntimeOnly, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsInfoGet(d.bsName, eType, pbsInfo), bsName);
    String strAnswer;
    CKAutoLock lock(_Self()->_PropsLock());
    if (!m_spPropsRoot) return E_FAIL;
    const XMLParse::XMLNodePtr spEntry = props::FindInfoEntry(m_spPropsRoot, View(bsName));
    if (!spEntry || !props::InfoAnswer(m_spPropsRoot, *spEntry, eType, &strAnswer)) return S_FALSE;
    return props::CopyToBstr(strAnswer, pbsInfo);
  }

  // The options of a property, read under the lock.
  HRESULT _Options(BSTR bsName, std::vector<props::COption>* pOptions, String* pCurrent, bool* pbHasCurrent) {
    CKAutoLock lock(_Self()->_PropsLock());
    if (!m_spPropsRoot) return E_FAIL;
    *pOptions = props::OptionsOf(m_spPropsRoot, View(bsName));
    if (pCurrent) *pbHasCurrent = props::CurrentOptionValue(m_spPropsRoot, View(bsName), pCurrent);
    return S_OK;
  }

  HRESULT _OptionGetCount(BSTR bsName, LONG* pnCount) {
    if (View(bsName).empty()) return E_INVALIDARG;
    if (!pnCount) return E_POINTER;
    *pnCount = 0;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_OptionGetCount, bsName, eDelegation::eRuntimeOnly, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsOptionGetCount(d.bsName, pnCount), bsName);
    std::vector<props::COption> options;
    hr = _Options(bsName, &options, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    *pnCount = static_cast<LONG>(options.size());
    return options.empty() ? S_FALSE : S_OK;
  }

  HRESULT _OptionGetByIndex(BSTR bsName, LONG nIndex, BSTR* pbsValue, BSTR* pbsHelp) {
    if (View(bsName).empty()) return E_INVALIDARG;
    if (!pbsValue && !pbsHelp) return E_POINTER;
    ClearOut(pbsValue);
    ClearOut(pbsHelp);
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_OptionGetByIndex, bsName, eDelegation::eRuntimeOnly, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsOptionGetByIndex(d.bsName, nIndex, pbsValue, pbsHelp), bsName);
    std::vector<props::COption> options;
    hr = _Options(bsName, &options, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    if (options.empty()) return S_FALSE;
    if (nIndex < 0 || static_cast<size_t>(nIndex) >= options.size()) return E_INVALIDARG;
    const props::COption& option = options[static_cast<size_t>(nIndex)];
    return _DeliverPair(option.strValue, pbsValue, option.strHelp, pbsHelp, [] {});
  }

  HRESULT _OptionSetByIndex(BSTR bsName, LONG nIndex) {
    if (View(bsName).empty()) return E_INVALIDARG;
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_OptionSetByIndex, bsName, eDelegation::eRuntimeOnly, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return d.cpProps->PropsOptionSetByIndex(d.bsName, nIndex);
    std::vector<props::COption> options;
    hr = _Options(bsName, &options, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    if (nIndex < 0 || static_cast<size_t>(nIndex) >= options.size()) return E_INVALIDARG;
    CBstr bsValue(StringView(options[static_cast<size_t>(nIndex)].strValue));
    if (!bsValue.Get()) return E_OUTOFMEMORY;
    return _SetLocal(bsName, bsValue);
  }

  HRESULT _OptionGet(BSTR bsName, LONG* pnIndex, BSTR* pbsValue, BSTR* pbsHelp) {
    if (View(bsName).empty()) return E_INVALIDARG;
    if (!pnIndex && !pbsValue && !pbsHelp) return E_POINTER;
    if (pnIndex) *pnIndex = -1;
    ClearOut(pbsValue);
    ClearOut(pbsHelp);
    CDelegate d;
    HRESULT hr = _FindDelegate(eKPO_OptionGet, bsName, eDelegation::eRuntimeOnly, &d);
    if (FAILED(hr)) return hr;
    if (d.cpProps) return _ReadResult(d.cpProps->PropsOptionGet(d.bsName, pnIndex, pbsValue, pbsHelp), bsName);
    std::vector<props::COption> options;
    String strCurrent;
    bool bHasCurrent = false;
    hr = _Options(bsName, &options, &strCurrent, &bHasCurrent);
    if (FAILED(hr)) return hr;
    const LONG nFound = bHasCurrent ? props::FindOption(options, strCurrent) : -1;
    if (nFound < 0) {
      // Not among the options: the caller still learns what the value is.
      if (bHasCurrent && pbsValue) {
        hr = props::CopyToBstr(strCurrent, pbsValue);
        if (FAILED(hr)) return hr;
      }
      return S_FALSE;
    }
    const props::COption& option = options[static_cast<size_t>(nFound)];
    return _DeliverPair(option.strValue, pbsValue, option.strHelp, pbsHelp, [&] {
      if (pnIndex) *pnIndex = nFound;
    });
  }

  // Fills the two optional string outs (and then the rest through fnRest);
  // on failure nothing is left allocated.
  template <class F>
  static HRESULT _DeliverPair(StringView first, BSTR* pbsFirst, StringView second, BSTR* pbsSecond, F&& fnRest) {
    if (pbsFirst && FAILED(props::CopyToBstr(first, pbsFirst))) return E_OUTOFMEMORY;
    if (pbsSecond && FAILED(props::CopyToBstr(second, pbsSecond))) {
      if (pbsFirst) {
        SysFreeString(*pbsFirst);
        *pbsFirst = nullptr;
      }
      return E_OUTOFMEMORY;
    }
    fnRest();
    return S_OK;
  }

  XMLParse::XMLNodePtr m_spPropsRoot;  // GUARDED_BY(_PropsLock())
  std::atomic<bool> m_bReportUnchanged{false};
};

}  // namespace vc
