#include "VCCodecs/VCPropsCopy.h"

namespace vc {

HRESULT VCPropsCopyTo(const XMLParse::CoXMLNode& props, IUnknown* pInner) {
  if (!pInner) return E_POINTER;
  ComPtr<IVCProps> cpProps;
  if (FAILED(pInner->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))) || !cpProps)
    return S_FALSE;
  return props.CopyToProps(cpProps.Get());
}

}  // namespace vc
