#include "CoVCMuxer.h"

#include "VCGuard.h"
#include "VCStrings.h"

namespace vc {

HRESULT CCoVCMuxer::MuxerSet(BSTR, BSTR) {
  VC_GUARD_BEGIN
  return VC_E_EMPTY;  // the candidate walk comes with the muxer work
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) {
  VC_GUARD_BEGIN
  ClearOut(_pnStreamIdx);
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Ref();
  if (!cpVCMuxer) return VC_E_EMPTY;
  CBstr bsProps(InString(_bsProps));  // inner objects get a real BSTR whatever the host passed
  return cpVCMuxer->MuxerStreamAdd(_pStreamInfo, bsProps, _pnStreamIdx);
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo, BSTR* _pbsProps) {
  VC_GUARD_BEGIN
  ClearOut(_pbsProps);
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Ref();
  if (!cpVCMuxer) return VC_E_EMPTY;
  return cpVCMuxer->MuxerStreamInfoGet(_nStreamIdx, _pStreamInfo, _pbsProps);
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) {
  VC_GUARD_BEGIN
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Ref();
  if (!cpVCMuxer) return VC_E_EMPTY;
  CBstr bsHints(InString(_bsHints));
  return cpVCMuxer->MuxerPacketPut(_nStreamIdx, _pPacket, bsHints);
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerClose() {
  VC_GUARD_BEGIN
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Detach();
  if (!cpVCMuxer) return VC_E_EMPTY;
  return cpVCMuxer->MuxerClose();  // released outside every lock
  VC_GUARD_END
}

}  // namespace vc
