// The frame's named attachments: data blocks, objects and strings, three
// separate sets, each kept in the order its names were first set (replacing
// keeps the place). Names compare exactly. Removal: a null data address
// with size 0, a null object, a null string.
#include <algorithm>
#include <cstring>

#include "FFFrameImpl.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

template <class Entry>
Entry* FindEntry(std::vector<Entry>& vec, StringView name) {
  auto it = std::find_if(vec.begin(), vec.end(), [&](const Entry& e) { return e.strName == name; });
  return it == vec.end() ? nullptr : &*it;
}

template <class Entry>
bool RemoveEntry(std::vector<Entry>* pVec, StringView name) {
  auto it = std::find_if(pVec->begin(), pVec->end(), [&](const Entry& e) { return e.strName == name; });
  if (it == pVec->end()) return false;
  pVec->erase(it);
  return true;
}

LONGLONG ToAddress(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }

HRESULT AllocBstr(StringView s, BSTR* pbs) {
  *pbs = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
  return *pbs ? S_OK : E_OUTOFMEMORY;
}

// The identity of an object (its IUnknown), for the "not itself" check.
IUnknown* Identity(IUnknown* p) {
  ComPtr<IUnknown> cp;
  if (!p || FAILED(p->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(cp.AddressOf())))) return nullptr;
  return cp.Get();  // compared only, never called
}

// A frame made in another process, read back into a frame of this one.
HRESULT MakeLocal(ComPtr<IUnknown>* pcpObj) {
  ComPtr<IVCFrame> cpFrame;
  if (FAILED((*pcpObj)->QueryInterface(IidOf<IVCFrame>(), reinterpret_cast<void**>(cpFrame.AddressOf())))) return S_OK;
  DWORD dwPid = 0;
  if (FAILED(cpFrame->VCGetProcessID(&dwPid)) || dwPid == GetCurrentProcessId()) return S_OK;
  DWORD cbData = 0;
  BYTE* pData = nullptr;
  HRESULT hr = cpFrame->VCSave(&cbData, &pData, eKFC_Full);
  if (FAILED(hr)) return hr;
  ComPtr<IVCFrame> cpLocal;
  if (!CFFFrame::Create(&cpLocal)) hr = E_OUTOFMEMORY;
  if (SUCCEEDED(hr)) hr = cpLocal->VCLoad(cbData, pData, eKFC_Full);
  CoTaskMemFree(pData);
  if (FAILED(hr)) return hr;
  pcpObj->Release();
  return cpLocal->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(pcpObj->AddressOf()));
}

}  // namespace

// ---------------------------------------------------------------------------
// Data blocks

HRESULT CFFFrame::VCDataGetByIndex(LONG _nIndex, BSTR* _pbsDataID, LONG* _pcbANCData, LONGLONG* _ppbANCData) {
  VC_GUARD_BEGIN
  if (_pbsDataID) *_pbsDataID = nullptr;
  if (_pcbANCData) *_pcbANCData = 0;
  if (_ppbANCData) *_ppbANCData = 0;
  if (_nIndex < 0) {
    VC_LOG(eVCLL_Error, "index %d FAILED hr=%08X\n", _nIndex, E_INVALIDARG);
    return E_INVALIDARG;
  }
  Lock lock(m_csLock);
  if (static_cast<size_t>(_nIndex) >= m_content.vecData.size()) return S_FALSE;
  const DataEntry& entry = m_content.vecData[static_cast<size_t>(_nIndex)];
  if (_pbsDataID && FAILED(AllocBstr(entry.strName, _pbsDataID))) return E_OUTOFMEMORY;
  if (_pcbANCData) *_pcbANCData = static_cast<LONG>(entry.vecData.size());
  if (_ppbANCData) *_ppbANCData = entry.vecData.empty() ? 0 : ToAddress(entry.vecData.data());
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCDataGet(BSTR _bsDataID, LONG* _pcbANCData, LONGLONG* _ppbANCData) {
  VC_GUARD_BEGIN
  if (_pcbANCData) *_pcbANCData = 0;
  if (_ppbANCData) *_ppbANCData = 0;
  const StringView name = InString(_bsDataID);
  if (name.empty()) {
    VC_LOG(eVCLL_Error, "no data name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  Lock lock(m_csLock);
  const DataEntry* pEntry = FindEntry(m_content.vecData, name);
  if (!pEntry) return kHrEmpty;
  if (_pcbANCData) *_pcbANCData = static_cast<LONG>(pEntry->vecData.size());
  if (_ppbANCData) *_ppbANCData = pEntry->vecData.empty() ? 0 : ToAddress(pEntry->vecData.data());
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCDataSet(BSTR _bsDataID, LONG _cbANCData, LONGLONG _pbANCData) {
  VC_GUARD_BEGIN
  const StringView name = InString(_bsDataID);
  if (name.empty() || _cbANCData < 0) {
    VC_LOG(eVCLL_Error, "data '%ws' size %d FAILED hr=%08X\n", _bsDataID, _cbANCData, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (!_pbANCData && _cbANCData > 0) {
    VC_LOG(eVCLL_Error, "data '%ws' without an address FAILED hr=%08X\n", _bsDataID, E_POINTER);
    return E_POINTER;
  }
  if (!_pbANCData) {
    Lock lock(m_csLock);
    return RemoveEntry(&m_content.vecData, name) ? S_OK : S_FALSE;
  }
  // Copied before the lock: the bytes may be the frame's own.
  const auto* pBytes = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(_pbANCData));
  std::vector<uint8_t> vecData(pBytes, pBytes + _cbANCData);
  Lock lock(m_csLock);
  if (DataEntry* pEntry = FindEntry(m_content.vecData, name)) {
    pEntry->vecData = std::move(vecData);
  } else {
    m_content.vecData.push_back(DataEntry{String(name), std::move(vecData)});
  }
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Objects

HRESULT CFFFrame::VCObjGetByIndex(LONG _nIndex, BSTR* _pbsObjID, IUnknown** _ppObj, BOOL _bMakeLocal) {
  VC_GUARD_BEGIN
  if (_pbsObjID) *_pbsObjID = nullptr;
  if (_ppObj) *_ppObj = nullptr;
  if (_nIndex < 0) {
    VC_LOG(eVCLL_Error, "index %d FAILED hr=%08X\n", _nIndex, E_INVALIDARG);
    return E_INVALIDARG;
  }
  ComPtr<IUnknown> cpObj;
  String strName;
  {
    Lock lock(m_csLock);
    if (static_cast<size_t>(_nIndex) >= m_content.vecObj.size()) return S_FALSE;
    cpObj = m_content.vecObj[static_cast<size_t>(_nIndex)].cpObj;
    strName = m_content.vecObj[static_cast<size_t>(_nIndex)].strName;
  }
  // Outside the lock: making a copy calls into the object.
  if (_bMakeLocal) {
    const HRESULT hr = MakeLocal(&cpObj);
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "local copy of '%ws' FAILED hr=%08X\n", strName.c_str(), hr);
      return hr;
    }
  }
  if (_pbsObjID && FAILED(AllocBstr(strName, _pbsObjID))) return E_OUTOFMEMORY;
  if (_ppObj) *_ppObj = cpObj.Detach();
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCObjGet(BSTR _bsObjID, IUnknown** _ppObj, BOOL _bMakeLocal) {
  VC_GUARD_BEGIN
  if (!_ppObj) return E_POINTER;
  *_ppObj = nullptr;
  const StringView name = InString(_bsObjID);
  if (name.empty()) {
    VC_LOG(eVCLL_Error, "no object name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  ComPtr<IUnknown> cpObj;
  {
    Lock lock(m_csLock);
    const ObjEntry* pEntry = FindEntry(m_content.vecObj, name);
    if (!pEntry) return kHrEmpty;
    cpObj = pEntry->cpObj;
  }
  if (_bMakeLocal) {
    const HRESULT hr = MakeLocal(&cpObj);
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "local copy of '%ws' FAILED hr=%08X\n", _bsObjID, hr);
      return hr;
    }
  }
  *_ppObj = cpObj.Detach();
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCObjSet(BSTR _bsObjID, IUnknown* _pObj) {
  VC_GUARD_BEGIN
  const StringView name = InString(_bsObjID);
  if (name.empty()) {
    VC_LOG(eVCLL_Error, "no object name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  // A frame holding itself would never be released.
  if (_pObj && Identity(_pObj) == Identity(static_cast<IVCFrame*>(this))) {
    VC_LOG(eVCLL_Error, "object '%ws' is the frame itself FAILED hr=%08X\n", _bsObjID, E_INVALIDARG);
    return E_INVALIDARG;
  }
  ComPtr<IUnknown> cpObj(_pObj);
  ComPtr<IUnknown> cpOld;  // released after the lock
  Lock lock(m_csLock);
  ObjEntry* pEntry = FindEntry(m_content.vecObj, name);
  if (!_pObj) {
    if (!pEntry) return S_FALSE;
    cpOld = std::move(pEntry->cpObj);
    RemoveEntry(&m_content.vecObj, name);
    return S_OK;
  }
  if (pEntry) {
    cpOld = std::move(pEntry->cpObj);
    pEntry->cpObj = std::move(cpObj);
  } else {
    m_content.vecObj.push_back(ObjEntry{String(name), std::move(cpObj)});
  }
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Strings

HRESULT CFFFrame::VCStrGetByIndex(LONG _nIndex, BSTR* _pbsStrID, BSTR* _pbsString) {
  VC_GUARD_BEGIN
  if (_pbsStrID) *_pbsStrID = nullptr;
  if (_pbsString) *_pbsString = nullptr;
  if (_nIndex < 0) {
    VC_LOG(eVCLL_Error, "index %d FAILED hr=%08X\n", _nIndex, E_INVALIDARG);
    return E_INVALIDARG;
  }
  Lock lock(m_csLock);
  if (static_cast<size_t>(_nIndex) >= m_content.vecStr.size()) return S_FALSE;
  const StrEntry& entry = m_content.vecStr[static_cast<size_t>(_nIndex)];
  if (_pbsStrID && FAILED(AllocBstr(entry.strName, _pbsStrID))) return E_OUTOFMEMORY;
  if (_pbsString && FAILED(AllocBstr(entry.strValue, _pbsString))) {
    if (_pbsStrID) SysFreeString(std::exchange(*_pbsStrID, nullptr));
    return E_OUTOFMEMORY;
  }
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCStrGet(BSTR _bsStrID, BSTR* _pbsString) {
  VC_GUARD_BEGIN
  if (!_pbsString) return E_POINTER;
  *_pbsString = nullptr;
  const StringView name = InString(_bsStrID);
  if (name.empty()) {
    VC_LOG(eVCLL_Error, "no string name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  Lock lock(m_csLock);
  const StrEntry* pEntry = FindEntry(m_content.vecStr, name);
  if (!pEntry) return kHrEmpty;
  return AllocBstr(pEntry->strValue, _pbsString);
  VC_GUARD_END
}

HRESULT CFFFrame::VCStrSet(BSTR _bsStrID, BSTR _bsString) {
  VC_GUARD_BEGIN
  const StringView name = InString(_bsStrID);
  if (name.empty()) {
    VC_LOG(eVCLL_Error, "no string name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  Lock lock(m_csLock);
  if (!_bsString) return RemoveEntry(&m_content.vecStr, name) ? S_OK : S_FALSE;
  String strValue(InString(_bsString));
  if (StrEntry* pEntry = FindEntry(m_content.vecStr, name)) {
    pEntry->strValue = std::move(strValue);
  } else {
    m_content.vecStr.push_back(StrEntry{String(name), std::move(strValue)});
  }
  return S_OK;
  VC_GUARD_END
}

}  // namespace vc::ff
