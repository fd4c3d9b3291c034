// A frame as a host or an inner decoder hands one to a facade: times,
// properties, and named data, strings and objects, each kind in its own
// store so that its index runs over its own entries. Every other call
// answers E_NOTIMPL. Shared by the scripted test module (the frames its
// decoder makes) and the suites (the frames a test gives an encoder); any
// thread may call it.
#pragma once

#include "FrameDouble.h"
#include "VCCodecs/VCAttachments.h"
#include "VCCritSec.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vctest {

class CAttachingFrame : public vc::CKObjectRoot, public CFrameDouble {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCFrame>(this, riid, ppv);
  }
  void Init(const K_TIME& time, const K_AV_PROPS& props) {
    vc::CKMutexLock lock(m_csLock);
    m_time = time;
    m_props = props;
  }

  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* _pProps, LONG* _plAudioSamples) override {
    if (!_pProps) return E_POINTER;
    vc::CKMutexLock lock(m_csLock);
    *_pProps = m_props;
    if (_plAudioSamples) *_plAudioSamples = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCAVPropsSet(K_AV_PROPS* _pProps, BSTR) override {
    if (!_pProps) return E_POINTER;
    vc::CKMutexLock lock(m_csLock);
    m_props = *_pProps;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME* _pTime) override {
    if (!_pTime) return E_POINTER;
    vc::CKMutexLock lock(m_csLock);
    *_pTime = m_time;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCTimeSet(K_TIME* _pTime) override {
    if (!_pTime) return E_POINTER;
    vc::CKMutexLock lock(m_csLock);
    m_time = *_pTime;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCDataGet(BSTR _bsDataID, LONG* _pcbData, LONGLONG* _ppbData) override {
    return m_data.GetData(_bsDataID, _pcbData, _ppbData);
  }
  HRESULT STDMETHODCALLTYPE VCDataSet(BSTR _bsDataID, LONG _cbData, LONGLONG _pbData) override {
    return m_data.SetData(_bsDataID, _cbData, _pbData);
  }
  HRESULT STDMETHODCALLTYPE VCObjGetByIndex(LONG _nIndex, BSTR* _pbsObjID, IUnknown** _ppObj, BOOL) override {
    if (_pbsObjID) *_pbsObjID = nullptr;
    if (_ppObj) *_ppObj = nullptr;
    vc::CBstr bsName;
    HRESULT hr = m_objects.GetByIndex(_nIndex, &bsName, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    if (_ppObj && FAILED(hr = m_objects.GetObject(bsName, _ppObj))) return hr;
    if (_pbsObjID) *_pbsObjID = bsName.Detach();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCObjGet(BSTR _bsObjID, IUnknown** _ppObj, BOOL) override {
    return m_objects.GetObject(_bsObjID, _ppObj);
  }
  HRESULT STDMETHODCALLTYPE VCObjSet(BSTR _bsObjID, IUnknown* _pObj) override {
    return m_objects.SetObject(_bsObjID, _pObj);
  }
  HRESULT STDMETHODCALLTYPE VCStrGetByIndex(LONG _nIndex, BSTR* _pbsStrID, BSTR* _pbsString) override {
    if (_pbsStrID) *_pbsStrID = nullptr;
    if (_pbsString) *_pbsString = nullptr;
    vc::CBstr bsName;
    HRESULT hr = m_strings.GetByIndex(_nIndex, &bsName, nullptr, nullptr);
    if (hr != S_OK) return hr;
    if (_pbsString && FAILED(hr = m_strings.GetString(bsName, _pbsString))) return hr;
    if (_pbsStrID) *_pbsStrID = bsName.Detach();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCStrGet(BSTR _bsStrID, BSTR* _pbsString) override {
    return m_strings.GetString(_bsStrID, _pbsString);
  }
  HRESULT STDMETHODCALLTYPE VCStrSet(BSTR _bsStrID, BSTR _bsString) override {
    return m_strings.SetString(_bsStrID, _bsString);
  }

 private:
  vc::CKMutex m_csLock;
  K_TIME m_time VC_GUARDED_BY(m_csLock){};
  K_AV_PROPS m_props VC_GUARDED_BY(m_csLock){};
  // One store per kind, so that each kind's index runs over its own entries.
  vc::CKAttachments m_data;
  vc::CKAttachments m_strings;
  vc::CKAttachments m_objects;
};

}  // namespace vctest
