// Placeholder until the class lands: the module links and refuses creation.
#include "FFClasses.h"

namespace vc::ff {

HRESULT CreateFFDecoder(IUnknown*, REFIID, void** ppv) {
  if (ppv) *ppv = nullptr;
  return E_NOTIMPL;
}

HRESULT CreateFFDecoderNVidia(IUnknown*, REFIID, void** ppv) {
  if (ppv) *ppv = nullptr;
  return E_NOTIMPL;
}

HRESULT CreateFFDecoderQuickSync(IUnknown*, REFIID, void** ppv) {
  if (ppv) *ppv = nullptr;
  return E_NOTIMPL;
}

}  // namespace vc::ff
