#include "VCCodecs/VCAttachments.h"

#include <algorithm>
#include <cstring>

#include "VCCodecs/VCCodecsBase.h"
#include "VCGuard.h"

namespace vc {

namespace {

String NameOf(BSTR bsName) { return String(InString(bsName)); }

LONGLONG AddressOf(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }

}  // namespace

CKAttachments::Entry* CKAttachments::_Find(BSTR bsName) {
  const String strName = NameOf(bsName);
  auto it = std::find_if(m_vecEntries.begin(), m_vecEntries.end(),
                         [&](const Entry& e) { return e.strName == strName; });
  return it == m_vecEntries.end() ? nullptr : &*it;
}

const CKAttachments::Entry* CKAttachments::_Find(BSTR bsName) const {
  return const_cast<CKAttachments*>(this)->_Find(bsName);
}

CKAttachments::Entry& CKAttachments::_FindOrAdd(BSTR bsName) {
  if (Entry* p = _Find(bsName)) return *p;
  m_vecEntries.push_back(Entry{NameOf(bsName), eKind::Data, {}, {}});
  return m_vecEntries.back();
}

HRESULT CKAttachments::GetCount(LONG* pnCount) const {
  VC_GUARD_BEGIN
  if (!pnCount) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_csLock);
  *pnCount = static_cast<LONG>(m_vecEntries.size());
  return S_OK;
  VC_GUARD_END
}

HRESULT CKAttachments::GetByIndex(LONG nIndex, BSTR* pbsName, LONG* pcbData, LONGLONG* plpData) const {
  VC_GUARD_BEGIN
  if (pbsName) *pbsName = nullptr;
  std::lock_guard<std::mutex> lock(m_csLock);
  if (nIndex < 0 || static_cast<size_t>(nIndex) >= m_vecEntries.size()) return E_INVALIDARG;
  const Entry& entry = m_vecEntries[static_cast<size_t>(nIndex)];
  if (pbsName) {
    *pbsName = SysAllocStringLen(entry.strName.data(), static_cast<UINT>(entry.strName.size()));
    if (!*pbsName) return E_OUTOFMEMORY;
  }
  const bool bBytes = entry.eType != eKind::Object && !entry.vecData.empty();
  if (pcbData) *pcbData = bBytes ? static_cast<LONG>(entry.vecData.size()) : 0;
  if (plpData) *plpData = bBytes ? AddressOf(entry.vecData.data()) : 0;
  return S_OK;
  VC_GUARD_END
}

HRESULT CKAttachments::GetData(BSTR bsName, LONG* pcbData, LONGLONG* plpData) const {
  VC_GUARD_BEGIN
  if (!pcbData && !plpData) return E_POINTER;
  std::lock_guard<std::mutex> lock(m_csLock);
  const Entry* pEntry = _Find(bsName);
  if (!pEntry) return VC_E_EMPTY;
  if (pEntry->eType != eKind::Data) return E_INVALIDARG;
  if (pcbData) *pcbData = static_cast<LONG>(pEntry->vecData.size());
  if (plpData) *plpData = pEntry->vecData.empty() ? 0 : AddressOf(pEntry->vecData.data());
  return S_OK;
  VC_GUARD_END
}

HRESULT CKAttachments::SetData(BSTR bsName, LONG cbData, LONGLONG lpData) {
  VC_GUARD_BEGIN
  if (cbData < 0) return E_INVALIDARG;
  if (cbData > 0 && !lpData) return E_POINTER;
  const auto* pSource = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(lpData));
  std::vector<uint8_t> vecData(pSource, pSource + cbData);  // copied before the lock: may alias an entry
  std::lock_guard<std::mutex> lock(m_csLock);
  Entry& entry = _FindOrAdd(bsName);
  entry.eType = eKind::Data;
  entry.vecData = std::move(vecData);
  entry.cpObject = nullptr;
  return S_OK;
  VC_GUARD_END
}

HRESULT CKAttachments::Remove(BSTR bsName) {
  VC_GUARD_BEGIN
  ComPtr<IUnknown> cpReleased;  // released after the lock: its destructor is not ours
  std::lock_guard<std::mutex> lock(m_csLock);
  Entry* pEntry = _Find(bsName);
  if (!pEntry) return S_FALSE;
  cpReleased = std::move(pEntry->cpObject);
  m_vecEntries.erase(m_vecEntries.begin() + (pEntry - m_vecEntries.data()));
  return S_OK;
  VC_GUARD_END
}

HRESULT CKAttachments::GetString(BSTR bsName, BSTR* pbsValue) const {
  VC_GUARD_BEGIN
  if (!pbsValue) return E_POINTER;
  *pbsValue = nullptr;
  std::lock_guard<std::mutex> lock(m_csLock);
  const Entry* pEntry = _Find(bsName);
  if (!pEntry) return VC_E_EMPTY;
  if (pEntry->eType != eKind::Text) return E_INVALIDARG;
  *pbsValue = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(pEntry->vecData.data()),
                                static_cast<UINT>(pEntry->vecData.size() / 2));
  return *pbsValue ? S_OK : E_OUTOFMEMORY;
  VC_GUARD_END
}

HRESULT CKAttachments::SetString(BSTR bsName, BSTR bsValue) {
  VC_GUARD_BEGIN
  const StringView value = InString(bsValue);
  std::vector<uint8_t> vecData(value.size() * 2);
  if (!value.empty()) std::memcpy(vecData.data(), value.data(), value.size() * 2);
  std::lock_guard<std::mutex> lock(m_csLock);
  Entry& entry = _FindOrAdd(bsName);
  entry.eType = eKind::Text;
  entry.vecData = std::move(vecData);
  entry.cpObject = nullptr;
  return S_OK;
  VC_GUARD_END
}

HRESULT CKAttachments::GetObject(BSTR bsName, IUnknown** ppObj) const {
  VC_GUARD_BEGIN
  if (!ppObj) return E_POINTER;
  *ppObj = nullptr;
  std::lock_guard<std::mutex> lock(m_csLock);
  const Entry* pEntry = _Find(bsName);
  if (!pEntry) return VC_E_EMPTY;
  if (pEntry->eType != eKind::Object) return E_INVALIDARG;
  return pEntry->cpObject.CopyTo(ppObj);
  VC_GUARD_END
}

HRESULT CKAttachments::SetObject(BSTR bsName, IUnknown* pObj) {
  VC_GUARD_BEGIN
  if (!pObj) return Remove(bsName) == S_OK ? S_OK : S_FALSE;
  ComPtr<IUnknown> cpReleased;
  std::lock_guard<std::mutex> lock(m_csLock);
  Entry& entry = _FindOrAdd(bsName);
  cpReleased = std::move(entry.cpObject);
  entry.eType = eKind::Object;
  entry.vecData.clear();
  entry.cpObject = pObj;
  return S_OK;
  VC_GUARD_END
}

bool CKAttachments::KindAt(LONG nIndex, eKind* peKind) const {
  std::lock_guard<std::mutex> lock(m_csLock);
  if (nIndex < 0 || static_cast<size_t>(nIndex) >= m_vecEntries.size()) return false;
  if (peKind) *peKind = m_vecEntries[static_cast<size_t>(nIndex)].eType;
  return true;
}

HRESULT CKAttachments::CopyFrom(const CKAttachments& other) {
  VC_GUARD_BEGIN
  if (&other == this) return S_FALSE;
  std::vector<Entry> vecCopy;
  {
    std::lock_guard<std::mutex> lock(other.m_csLock);
    vecCopy = other.m_vecEntries;
  }
  std::lock_guard<std::mutex> lock(m_csLock);
  for (Entry& entry : vecCopy) {
    CBstr bsName{StringView(entry.strName)};
    Entry& own = _FindOrAdd(bsName);
    own.eType = entry.eType;
    own.vecData = std::move(entry.vecData);
    own.cpObject = std::move(entry.cpObject);
  }
  return S_OK;
  VC_GUARD_END
}

}  // namespace vc
