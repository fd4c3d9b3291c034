#include "CoVCSplitter.h"

namespace vc {

ComPtr<IUnknown> CCoVCSplitter::_SideDataInner() {
  CKAutoLock lock(m_csLock);
  return ComPtr<IUnknown>(m_cpVCSplitter.Get());
}

HRESULT CCoVCSplitter::SplitterOpen(BSTR, BSTR, LONG* _pnStreamsCount) {
  ClearOut(_pnStreamsCount);
  return VC_E_EMPTY;
}

HRESULT CCoVCSplitter::SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                       LONGLONG* _prtTotalDuration) {
  ClearOut(_pbsFilePath);
  ClearOut(_pbsXMLInfo);
  ClearOut(_pnStreamsCount);
  ClearOut(_prtTotalDuration);
  return VC_E_EMPTY;
}

HRESULT CCoVCSplitter::SplitterStreamInfoGet(LONG, K_STREAM_INFO*, BSTR* _pbsStreamXMLInfo) {
  ClearOut(_pbsStreamXMLInfo);
  return VC_E_EMPTY;
}

HRESULT CCoVCSplitter::SplitterBeginSegment(LONGLONG, BSTR) { return VC_E_EMPTY; }

HRESULT CCoVCSplitter::SplitterPacketGet(LONG, IVCPacket** _ppPacket, BSTR) {
  ClearOut(_ppPacket);
  return VC_E_EMPTY;
}

HRESULT CCoVCSplitter::SplitterStop() { return VC_E_EMPTY; }

HRESULT CCoVCSplitter::SplitterClose() { return VC_E_EMPTY; }

}  // namespace vc
