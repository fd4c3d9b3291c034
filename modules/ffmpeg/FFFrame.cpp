// Placeholder until the class lands: the module links and refuses creation.
#include "FFFrame.h"

#include "FFClasses.h"

namespace vc::ff {

HRESULT CreateFFFrame(IUnknown*, REFIID, void** ppv) {
  if (ppv) *ppv = nullptr;
  return E_NOTIMPL;
}

HRESULT FrameFromAVFrame(AVFrame*, const K_TIME&, double, IVCFrame** ppFrame) {
  if (ppFrame) *ppFrame = nullptr;
  return E_NOTIMPL;
}

const AVFrame* FrameAVFrame(IVCFrame*) { return nullptr; }

AVPixelFormat PixelFormatFromFourcc(eVCCC) { return AV_PIX_FMT_NONE; }
eVCCC FourccFromPixelFormat(AVPixelFormat) { return eVCCC_Default; }

}  // namespace vc::ff
