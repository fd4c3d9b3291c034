// Placeholder until the class lands: the module links and refuses creation.
#include "FFClasses.h"

namespace vc::ff {

HRESULT CreateFFSplitter(IUnknown*, REFIID, void** ppv) {
  if (ppv) *ppv = nullptr;
  return E_NOTIMPL;
}

}  // namespace vc::ff
