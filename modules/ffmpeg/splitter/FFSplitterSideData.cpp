#include "FFSplitterSideData.h"

#include <algorithm>

#include "VCCodecs/VCCodecsBase.h"

namespace vc::ff {

namespace {

LONGLONG AddressOf(const std::vector<uint8_t>& bytes) {
  return bytes.empty() ? 0 : static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(bytes.data()));
}

}  // namespace

void CFFSideDataStore::Reset(LONG nStreams) {
  CKMutexLock lock(m_mtx);
  m_mapEntries.clear();
  m_nStreams = std::max<LONG>(nStreams, 0);
}

void CFFSideDataStore::PutString(LONG nStream, StringView type, StringView value) {
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream) || type.empty()) return;
  CEntry& entry = _FindOrAdd(nStream, type);
  entry.bHasString = true;
  entry.strValue = String(value);
}

void CFFSideDataStore::PutBytes(LONG nStream, StringView type, const std::vector<uint8_t>& bytes) {
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream) || type.empty()) return;
  CEntry& entry = _FindOrAdd(nStream, type);
  entry.bHasBytes = true;
  entry.vecBytes = bytes;
}

CFFSideDataStore::CEntry* CFFSideDataStore::_Find(LONG nStream, StringView type) {
  auto it = m_mapEntries.find(nStream);
  if (it == m_mapEntries.end()) return nullptr;
  for (CEntry& entry : it->second)
    if (entry.strType == type) return &entry;
  return nullptr;
}

CFFSideDataStore::CEntry& CFFSideDataStore::_FindOrAdd(LONG nStream, StringView type) {
  if (CEntry* pEntry = _Find(nStream, type)) return *pEntry;
  CEntries& entries = m_mapEntries[nStream];
  entries.push_back(CEntry{});
  entries.back().strType = String(type);
  return entries.back();
}

void CFFSideDataStore::_DropIfEmpty(LONG nStream, StringView type) {
  auto it = m_mapEntries.find(nStream);
  if (it == m_mapEntries.end()) return;
  CEntries& entries = it->second;
  entries.erase(std::remove_if(entries.begin(), entries.end(),
                               [&](const CEntry& entry) { return entry.strType == type && entry.Empty(); }),
                entries.end());
}

HRESULT CFFSideDataStore::GetCount(LONG nStream, LONG* pnCount) {
  if (!pnCount) return E_POINTER;
  *pnCount = 0;
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  auto it = m_mapEntries.find(nStream);
  if (it != m_mapEntries.end()) *pnCount = static_cast<LONG>(it->second.size());
  return S_OK;
}

HRESULT CFFSideDataStore::GetByIndex(LONG nStream, LONG nIndex, BSTR* pbsType, LONG* pcbData, LONGLONG* plpData) {
  if (!pbsType && !pcbData && !plpData) return E_POINTER;
  ClearOut(pbsType);
  ClearOut(pcbData);
  ClearOut(plpData);
  if (nIndex < 0) return E_INVALIDARG;
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  auto it = m_mapEntries.find(nStream);
  if (it == m_mapEntries.end() || static_cast<size_t>(nIndex) >= it->second.size()) return S_FALSE;
  const CEntry& entry = it->second[static_cast<size_t>(nIndex)];
  if (pbsType) {
    *pbsType = SysAllocStringLen(entry.strType.data(), static_cast<UINT>(entry.strType.size()));
    if (!*pbsType) return E_OUTOFMEMORY;
  }
  if (pcbData) *pcbData = static_cast<LONG>(entry.vecBytes.size());
  if (plpData) *plpData = AddressOf(entry.vecBytes);
  return S_OK;
}

HRESULT CFFSideDataStore::Get(LONG nStream, BSTR bsType, LONG* pcbData, LONGLONG* plpData) {
  if (!pcbData && !plpData) return E_POINTER;
  ClearOut(pcbData);
  ClearOut(plpData);
  if (InString(bsType).empty()) return E_INVALIDARG;
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  const CEntry* pEntry = _Find(nStream, InString(bsType));
  if (!pEntry || !pEntry->bHasBytes) return S_FALSE;
  if (pcbData) *pcbData = static_cast<LONG>(pEntry->vecBytes.size());
  if (plpData) *plpData = AddressOf(pEntry->vecBytes);
  return S_OK;
}

HRESULT CFFSideDataStore::Set(LONG nStream, BSTR bsType, LONG cbData, LONGLONG lpData) {
  if (InString(bsType).empty() || cbData < 0) return E_INVALIDARG;
  if (cbData > 0 && !lpData) return E_POINTER;
  const auto* pData = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(lpData));
  std::vector<uint8_t> vecBytes(pData, pData + cbData);
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  CEntry& entry = _FindOrAdd(nStream, InString(bsType));
  entry.bHasBytes = true;
  entry.vecBytes = std::move(vecBytes);
  return S_OK;
}

HRESULT CFFSideDataStore::Remove(LONG nStream, BSTR bsType) {
  if (InString(bsType).empty()) return E_INVALIDARG;
  ComPtr<IUnknown> cpObject;  // released after the lock: its destructor is not ours
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  CEntry* pEntry = _Find(nStream, InString(bsType));
  if (!pEntry) return S_FALSE;
  cpObject = std::move(pEntry->cpObject);
  *pEntry = CEntry{};
  pEntry->strType = String(InString(bsType));
  _DropIfEmpty(nStream, InString(bsType));
  return S_OK;
}

HRESULT CFFSideDataStore::StrGet(LONG nStream, BSTR bsType, BSTR* pbsValue) {
  if (!pbsValue) return E_POINTER;
  *pbsValue = nullptr;
  if (InString(bsType).empty()) return E_INVALIDARG;
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  const CEntry* pEntry = _Find(nStream, InString(bsType));
  if (!pEntry || !pEntry->bHasString) return S_FALSE;
  *pbsValue = SysAllocStringLen(pEntry->strValue.data(), static_cast<UINT>(pEntry->strValue.size()));
  return *pbsValue ? S_OK : E_OUTOFMEMORY;
}

HRESULT CFFSideDataStore::StrSet(LONG nStream, BSTR bsType, BSTR bsValue) {
  if (InString(bsType).empty()) return E_INVALIDARG;
  String strValue(InString(bsValue));
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  CEntry& entry = _FindOrAdd(nStream, InString(bsType));
  entry.bHasString = true;
  entry.strValue = std::move(strValue);
  return S_OK;
}

HRESULT CFFSideDataStore::ObjGet(LONG nStream, BSTR bsType, IUnknown** ppObj) {
  if (!ppObj) return E_POINTER;
  *ppObj = nullptr;
  if (InString(bsType).empty()) return E_INVALIDARG;
  CKMutexLock lock(m_mtx);
  if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
  const CEntry* pEntry = _Find(nStream, InString(bsType));
  if (!pEntry || !pEntry->cpObject) return S_FALSE;
  return pEntry->cpObject.CopyTo(ppObj);
}

HRESULT CFFSideDataStore::ObjSet(LONG nStream, BSTR bsType, IUnknown* pObj) {
  if (InString(bsType).empty()) return E_INVALIDARG;
  ComPtr<IUnknown> cpOld;
  {
    CKMutexLock lock(m_mtx);
    if (!_ValidStream(nStream)) return VC_E_BAD_STREAM;
    if (!pObj) {
      CEntry* pEntry = _Find(nStream, InString(bsType));
      if (!pEntry || !pEntry->cpObject) return S_FALSE;
      cpOld = std::move(pEntry->cpObject);
      _DropIfEmpty(nStream, InString(bsType));
    } else {
      CEntry& entry = _FindOrAdd(nStream, InString(bsType));
      cpOld = std::move(entry.cpObject);
      entry.cpObject = pObj;
    }
  }
  return S_OK;  // cpOld goes here, outside the lock
}

}  // namespace vc::ff
