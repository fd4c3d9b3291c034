// A base for test doubles of IVCFrame from "another implementation": every
// one of the 45 methods answers E_NOTIMPL, so a double overrides only the
// calls its test is about (and a call it did not expect fails visibly).
// Reference counting and the interface query are left to the double.
#pragma once

#include <atomic>

#include "VCCodecsCore.h"

namespace vctest {

class CFrameDouble : public IVCFrame {
 public:
  HRESULT STDMETHODCALLTYPE VCGetProcessID(DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS*, LONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAVPropsSet(K_AV_PROPS*, BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCTimeSet(K_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCFlagCheck(eKFrameFlags, LONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAllGet(VC_FRAME_INFO*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioGetBytes(LONG*, LONGLONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioChannelGetBytes(LONG, BOOL, LONG*, LONGLONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioChannelsUpdate() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioAlloc(K_AUD_PROPS*, LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioSet(K_AUD_PROPS*, LONG, LONGLONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioMixDirect(LONG*, IVCFrame*, LONG*, LONG, double, double, BOOL) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE VCAudioMix(IVCFrame*, double, double, BOOL, BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioCopyTo(BSTR, IVCFrame*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioSaveToFile(BSTR, BOOL) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioLoadFromFile(BSTR, LONGLONG, LONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAudioGain(BSTR, double, double) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCVideoGetBytes(LONG*, LONGLONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCVideoGetHbitmap(LONGLONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCVideoSaveToFile(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCCut(LONG, RECT*, IVCFrame**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCClone(IVCFrame**, eKFrameClone, eVCCC) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCOverlay(IUnknown*, IUnknown*, LONG, LONG, double, BSTR, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE VCConvert(K_AV_PROPS*, IVCFrame**, LONG*, BSTR, BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCResize(eVCCC, LONG, LONG, LONG, IVCFrame**, BSTR, BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCTransition(IUnknown*, IVCFrame**, double, BSTR, BSTR, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE VCDataGetByIndex(LONG, BSTR*, LONG*, LONGLONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCDataGet(BSTR, LONG*, LONGLONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCDataSet(BSTR, LONG, LONGLONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCObjGetByIndex(LONG, BSTR*, IUnknown**, BOOL) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCObjGet(BSTR, IUnknown**, BOOL) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCObjSet(BSTR, IUnknown*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCStrGetByIndex(LONG, BSTR*, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCStrGet(BSTR, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCStrSet(BSTR, BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCSave(DWORD*, BYTE**, eKFrameClone) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCLoad(DWORD, BYTE*, eKFrameClone) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCWaitAsync() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCPrint(BSTR, double, VC_RECT*, eVCTextFlags, BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCOverlayRect(IVCFrame*, IVCFrame*, VC_RECT*, eVCOverlayFlags, double, BSTR,
                                          BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE VCVideoGetBytesEx(VC_VID_PTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCSaveToStream(IStream**, eKFrameClone) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCAddToStream(IStream*, eKFrameClone) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE VCLoadFromStream(IStream*, eKFrameClone) override { return E_NOTIMPL; }

 protected:
  virtual ~CFrameDouble() = default;
};

// A frame double on the heap that answers for IUnknown and IVCFrame and
// deletes itself at the last release; it is born with one reference.
class CCountedFrameDouble : public CFrameDouble {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, vc::IidOf<IVCFrame>())) return E_NOINTERFACE;
    *ppv = static_cast<IVCFrame*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --m_nRef;
    if (n == 0) delete this;
    return n;
  }

 private:
  std::atomic<ULONG> m_nRef{1};
};

}  // namespace vctest
