#include "CoVCMuxer.h"

namespace vc {

ComPtr<IUnknown> CCoVCMuxer::_SideDataInner() {
  CKAutoLock lock(m_csLock);
  return ComPtr<IUnknown>(m_cpVCMuxer.Get());
}

HRESULT CCoVCMuxer::MuxerSet(BSTR, BSTR) { return VC_E_EMPTY; }

HRESULT CCoVCMuxer::MuxerStreamAdd(K_STREAM_INFO*, BSTR, LONG* _pnStreamIdx) {
  ClearOut(_pnStreamIdx);
  return VC_E_EMPTY;
}

HRESULT CCoVCMuxer::MuxerStreamInfoGet(LONG, K_STREAM_INFO*, BSTR* _pbsProps) {
  ClearOut(_pbsProps);
  return VC_E_EMPTY;
}

HRESULT CCoVCMuxer::MuxerPacketPut(LONG, IVCPacket*, BSTR) { return VC_E_EMPTY; }

HRESULT CCoVCMuxer::MuxerClose() { return VC_E_EMPTY; }

}  // namespace vc
