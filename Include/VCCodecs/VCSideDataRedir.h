// IVCSideDataRedir<T>: the side-data interface of the splitter and muxer
// facades. Every slot goes unchanged to the same slot of the inner object's
// IVCSideData. T provides
//   auto& _InnerHolder();
// its CVCInnerHolder (VCInnerHolder.h): each call takes a counted reference
// from it and runs outside every lock, so a swap or close of the inner object
// on another thread only waits for the reference. No inner object:
// 0x800710D2; an inner object without side data: S_FALSE. Any thread.
#pragma once

#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace vc {

template <class T>
class IVCSideDataRedir : public IVCSideData {
 public:
  HRESULT STDMETHODCALLTYPE SideDataGetCount(LONG _nStream, LONG* _pnCount) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataGetCount(_nStream, _pnCount); });
  }
  HRESULT STDMETHODCALLTYPE SideDataGetByIndex(LONG _nStream, LONG _nIndex, BSTR* _pbsType, LONG* _pcbData,
                                               LONGLONG* _plpData) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataGetByIndex(_nStream, _nIndex, _pbsType, _pcbData, _plpData); });
  }
  HRESULT STDMETHODCALLTYPE SideDataGet(LONG _nStream, BSTR _bsType, LONG* _pcbData, LONGLONG* _plpData) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataGet(_nStream, _bsType, _pcbData, _plpData); });
  }
  HRESULT STDMETHODCALLTYPE SideDataSet(LONG _nStream, BSTR _bsType, LONG _cbData, LONGLONG _lpData) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataSet(_nStream, _bsType, _cbData, _lpData); });
  }
  HRESULT STDMETHODCALLTYPE SideDataRemove(LONG _nStream, BSTR _bsType) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataRemove(_nStream, _bsType); });
  }
  HRESULT STDMETHODCALLTYPE SideDataStrGet(LONG _nStream, BSTR _bsType, BSTR* _pbsValue) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataStrGet(_nStream, _bsType, _pbsValue); });
  }
  HRESULT STDMETHODCALLTYPE SideDataStrSet(LONG _nStream, BSTR _bsType, BSTR _bsValue) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataStrSet(_nStream, _bsType, _bsValue); });
  }
  HRESULT STDMETHODCALLTYPE SideDataObjGet(LONG _nStream, BSTR _bsType, IUnknown** _ppObj) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataObjGet(_nStream, _bsType, _ppObj); });
  }
  HRESULT STDMETHODCALLTYPE SideDataObjSet(LONG _nStream, BSTR _bsType, IUnknown* _pObj) override {
    return _Forward([&](IVCSideData* p) { return p->SideDataObjSet(_nStream, _bsType, _pObj); });
  }

 private:
  template <class F>
  HRESULT _Forward(F&& fn) {
    ComPtr<IUnknown> cpInner = static_cast<T*>(this)->_InnerHolder().UnknownRef();
    if (!cpInner) return VC_E_EMPTY;
    ComPtr<IVCSideData> cpSideData;
    if (FAILED(cpInner.As(&cpSideData)) || !cpSideData) return S_FALSE;
    return fn(cpSideData.Get());
  }
};

}  // namespace vc
