#include "CoVCDecoder.h"

namespace vc {

HRESULT CCoVCDecoder::DecodeIsSupported(K_STREAM_INFO*, IVCPacket*, BOOL* _pbSupported) {
  ClearOut(_pbSupported);
  return VC_E_EMPTY;
}

HRESULT CCoVCDecoder::DecodePacket(IVCPacket*, LONGLONG, K_AV_PROPS*, IVCFrame** _ppFrame, BSTR) {
  ClearOut(_ppFrame);
  return VC_E_EMPTY;
}

HRESULT CCoVCDecoder::DecodeAudio(IVCPacket*, LONGLONG, IVCAudioBuffer*, LONG* _plSamplesDecode, BSTR) {
  ClearOut(_plSamplesDecode);
  return VC_E_EMPTY;
}

HRESULT CCoVCDecoder::DecodeClose() { return VC_E_EMPTY; }

}  // namespace vc
