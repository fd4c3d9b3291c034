#include "CoVCEncoder.h"

#include "VCGuard.h"
#include "VCStrings.h"

namespace vc {

HRESULT CCoVCEncoder::EncodeCodecSet(eVCMediaType, BSTR) {
  VC_GUARD_BEGIN
  return VC_E_EMPTY;  // choosing from the codec table comes with the encoder work
  VC_GUARD_END
}

HRESULT CCoVCEncoder::EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* _pAVPropsOut, IVCPacket** _ppPacket,
                                     BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_ppPacket);
  ComPtr<IVCEncoder> cpVCEncoder = m_inner.Ref();
  if (!cpVCEncoder) return VC_E_EMPTY;
  CBstr bsHints(InString(_bsHints));  // inner objects get a real BSTR whatever the host passed
  return cpVCEncoder->EncodeFramePut(_pFrame, _pAVPropsOut, _ppPacket, bsHints);
  VC_GUARD_END
}

HRESULT CCoVCEncoder::EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                       BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_ppPacket);
  ClearOut(_pnReadyPackets);
  ComPtr<IVCEncoder> cpVCEncoder = m_inner.Ref();
  if (!cpVCEncoder) return VC_E_EMPTY;
  CBstr bsHints(InString(_bsHints));
  return cpVCEncoder->EncodePacketsGet(_ppPacket, _pnReadyPackets, _rtMaxWaitTime, bsHints);
  VC_GUARD_END
}

HRESULT CCoVCEncoder::EncodeClose() {
  VC_GUARD_BEGIN
  ComPtr<IVCEncoder> cpVCEncoder = m_inner.Detach();
  if (!cpVCEncoder) return VC_E_EMPTY;
  return cpVCEncoder->EncodeClose();  // released outside every lock
  VC_GUARD_END
}

}  // namespace vc
