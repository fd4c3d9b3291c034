// The side-data entries of the general splitter: per stream (-1 for the
// source as a whole), named entries that may hold bytes, a string and an
// object. The splitter fills it when a source opens (container and stream
// tags as strings, the streams' own side data as bytes) and empties it when
// the source closes; hosts may add and remove entries of their own.
//
// Allocation failures leave as std::bad_alloc for the splitter's exception
// guard to convert; the entries stay as they were. Type names and strings handed out are fresh
// allocations the caller frees; names given in are read up to their
// terminating zero.
//
// Any thread may call any method; one small lock guards the entries. A byte
// view handed out stays valid until that entry's bytes are set again, the
// entry is removed, or the store is reset.
#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "VCComPtr.h"
#include "VCGuard.h"
#include "VCCritSec.h"
#include "VCSideData.h"
#include "VCStrings.h"

namespace vc::ff {

class CFFSideDataStore {
 public:
  // Drops every entry; streams -1 to nStreams - 1 are valid from now on
  // (nStreams 0 while no source is open: only -1).
  void Reset(LONG nStreams);

  // Fills, used while a source opens.
  void PutString(LONG nStream, StringView type, StringView value);
  void PutBytes(LONG nStream, StringView type, const std::vector<uint8_t>& bytes);

  // The nine slots of IVCSideData. A stream outside the valid range answers
  // 0x80070585; an empty type name E_INVALIDARG; an entry (or part of one)
  // that is not there S_FALSE with the outs cleared.
  HRESULT GetCount(LONG nStream, LONG* pnCount);
  HRESULT GetByIndex(LONG nStream, LONG nIndex, BSTR* pbsType, LONG* pcbData, LONGLONG* plpData);
  HRESULT Get(LONG nStream, BSTR bsType, LONG* pcbData, LONGLONG* plpData);
  HRESULT Set(LONG nStream, BSTR bsType, LONG cbData, LONGLONG lpData);
  HRESULT Remove(LONG nStream, BSTR bsType);
  HRESULT StrGet(LONG nStream, BSTR bsType, BSTR* pbsValue);
  HRESULT StrSet(LONG nStream, BSTR bsType, BSTR bsValue);
  HRESULT ObjGet(LONG nStream, BSTR bsType, IUnknown** ppObj);
  HRESULT ObjSet(LONG nStream, BSTR bsType, IUnknown* pObj);

 private:
  struct CEntry {
    String strType;
    bool bHasBytes = false;
    std::vector<uint8_t> vecBytes;
    bool bHasString = false;
    String strValue;
    ComPtr<IUnknown> cpObject;

    bool Empty() const { return !bHasBytes && !bHasString && !cpObject; }
  };
  using CEntries = std::vector<CEntry>;  // insertion order

  bool _ValidStream(LONG nStream) const VC_REQUIRES(m_mtx) { return nStream >= -1 && nStream < m_nStreams; }
  CEntry* _Find(LONG nStream, StringView type) VC_REQUIRES(m_mtx);
  CEntry& _FindOrAdd(LONG nStream, StringView type) VC_REQUIRES(m_mtx);
  void _DropIfEmpty(LONG nStream, StringView type) VC_REQUIRES(m_mtx);

  CKMutex m_mtx;
  std::map<LONG, CEntries> m_mapEntries VC_GUARDED_BY(m_mtx);
  LONG m_nStreams VC_GUARDED_BY(m_mtx) = 0;
};

// IVCSideData over a store, for classes that keep one (the splitter, the
// muxer): every slot goes to T::_SideDataStore() under the exception guard.
template <class T>
class IFFSideDataImpl : public IVCSideData {
 public:
  HRESULT STDMETHODCALLTYPE SideDataGetCount(LONG _nStream, LONG* _pnCount) override {
    VC_GUARD_BEGIN
    return _Store().GetCount(_nStream, _pnCount);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataGetByIndex(LONG _nStream, LONG _nIndex, BSTR* _pbsType, LONG* _pcbData,
                                               LONGLONG* _plpData) override {
    VC_GUARD_BEGIN
    return _Store().GetByIndex(_nStream, _nIndex, _pbsType, _pcbData, _plpData);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataGet(LONG _nStream, BSTR _bsType, LONG* _pcbData, LONGLONG* _plpData) override {
    VC_GUARD_BEGIN
    return _Store().Get(_nStream, _bsType, _pcbData, _plpData);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataSet(LONG _nStream, BSTR _bsType, LONG _cbData, LONGLONG _lpData) override {
    VC_GUARD_BEGIN
    return _Store().Set(_nStream, _bsType, _cbData, _lpData);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataRemove(LONG _nStream, BSTR _bsType) override {
    VC_GUARD_BEGIN
    return _Store().Remove(_nStream, _bsType);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataStrGet(LONG _nStream, BSTR _bsType, BSTR* _pbsValue) override {
    VC_GUARD_BEGIN
    return _Store().StrGet(_nStream, _bsType, _pbsValue);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataStrSet(LONG _nStream, BSTR _bsType, BSTR _bsValue) override {
    VC_GUARD_BEGIN
    return _Store().StrSet(_nStream, _bsType, _bsValue);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataObjGet(LONG _nStream, BSTR _bsType, IUnknown** _ppObj) override {
    VC_GUARD_BEGIN
    return _Store().ObjGet(_nStream, _bsType, _ppObj);
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE SideDataObjSet(LONG _nStream, BSTR _bsType, IUnknown* _pObj) override {
    VC_GUARD_BEGIN
    return _Store().ObjSet(_nStream, _bsType, _pObj);
    VC_GUARD_END
  }

 private:
  CFFSideDataStore& _Store() { return static_cast<T*>(this)->_SideDataStore(); }
};

}  // namespace vc::ff
