#include "CoVCDecoder.h"

#include "VCGuard.h"
#include "VCStrings.h"

namespace vc {

HRESULT CCoVCDecoder::DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket, BOOL* _pbSupported) {
  VC_GUARD_BEGIN
  ClearOut(_pbSupported);
  ComPtr<IVCDecoder> cpVCDecoder = m_inner.Ref();
  if (!cpVCDecoder) return VC_E_EMPTY;
  return cpVCDecoder->DecodeIsSupported(_pStreamInfo, _pVCPacket, _pbSupported);
  VC_GUARD_END
}

HRESULT CCoVCDecoder::DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, K_AV_PROPS* _pAVPropsOut,
                                   IVCFrame** _ppFrame, BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_ppFrame);
  ComPtr<IVCDecoder> cpVCDecoder = m_inner.Ref();
  if (!cpVCDecoder) return VC_E_EMPTY;
  CBstr bsHints(InString(_bsHints));  // inner objects get a real BSTR whatever the host passed
  return cpVCDecoder->DecodePacket(_pVCPacket, _rtSegmentStart, _pAVPropsOut, _ppFrame, bsHints);
  VC_GUARD_END
}

HRESULT CCoVCDecoder::DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, IVCAudioBuffer* _pAudioBuffer,
                                  LONG* _plSamplesDecode, BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_plSamplesDecode);
  ComPtr<IVCDecoder> cpVCDecoder = m_inner.Ref();
  if (!cpVCDecoder) return VC_E_EMPTY;
  CBstr bsHints(InString(_bsHints));
  return cpVCDecoder->DecodeAudio(_pVCPacket, _rtSegmentStart, _pAudioBuffer, _plSamplesDecode, bsHints);
  VC_GUARD_END
}

HRESULT CCoVCDecoder::DecodeClose() {
  VC_GUARD_BEGIN
  ComPtr<IVCDecoder> cpVCDecoder = m_inner.Detach();
  if (!cpVCDecoder) return VC_E_EMPTY;
  return cpVCDecoder->DecodeClose();  // released outside every lock
  VC_GUARD_END
}

}  // namespace vc
