// IKPropsImpl<T>: the property interface of a facade. The property store
// (node tree, text parser, option metadata) is not built yet: until it is,
// every call answers 0x800710D2 with its out-parameters cleared, so that no
// caller mistakes an empty answer for a real one.
#pragma once

#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"

namespace vc {

template <class T>
class IKPropsImpl : public IVCProps {
 public:
  HRESULT STDMETHODCALLTYPE PropsSet(BSTR, BSTR) override { return VC_E_EMPTY; }
  HRESULT STDMETHODCALLTYPE PropsGet(BSTR, BSTR* _pbsPropValue) override {
    ClearOut(_pbsPropValue);
    return VC_E_EMPTY;
  }
  HRESULT STDMETHODCALLTYPE PropsGetCount(BSTR, LONG* _pnCount) override {
    ClearOut(_pnCount);
    return VC_E_EMPTY;
  }
  HRESULT STDMETHODCALLTYPE PropsGetByIndex(BSTR, LONG, BSTR* _pbsPropName, BSTR* _pbsPropValue,
                                            BOOL* _pbNode) override {
    ClearOut(_pbsPropName);
    ClearOut(_pbsPropValue);
    ClearOut(_pbNode);
    return VC_E_EMPTY;
  }
  HRESULT STDMETHODCALLTYPE PropsRemove(BSTR) override { return VC_E_EMPTY; }
  HRESULT STDMETHODCALLTYPE PropsInfoGet(BSTR, eKInfoType, BSTR* _pbsInfo) override {
    ClearOut(_pbsInfo);
    return VC_E_EMPTY;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGetCount(BSTR, LONG* _pnOptionCount) override {
    ClearOut(_pnOptionCount);
    return VC_E_EMPTY;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionGetByIndex(BSTR, LONG, BSTR* _pbsOptionValue, BSTR* _pbsHelp) override {
    ClearOut(_pbsOptionValue);
    ClearOut(_pbsHelp);
    return VC_E_EMPTY;
  }
  HRESULT STDMETHODCALLTYPE PropsOptionSetByIndex(BSTR, LONG) override { return VC_E_EMPTY; }
  HRESULT STDMETHODCALLTYPE PropsOptionGet(BSTR, LONG* _pnOptionIdx, BSTR* _pbsOptionValue, BSTR* _pbsHelp) override {
    ClearOut(_pnOptionIdx);
    ClearOut(_pbsOptionValue);
    ClearOut(_pbsHelp);
    return VC_E_EMPTY;
  }
};

}  // namespace vc
