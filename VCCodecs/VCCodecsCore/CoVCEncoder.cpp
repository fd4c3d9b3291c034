#include "CoVCEncoder.h"

namespace vc {

HRESULT CCoVCEncoder::EncodeCodecSet(eVCMediaType, BSTR) { return VC_E_EMPTY; }

HRESULT CCoVCEncoder::EncodeFramePut(IVCFrame*, K_AV_PROPS*, IVCPacket** _ppPacket, BSTR) {
  ClearOut(_ppPacket);
  return VC_E_EMPTY;
}

HRESULT CCoVCEncoder::EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG, BSTR) {
  ClearOut(_ppPacket);
  ClearOut(_pnReadyPackets);
  return VC_E_EMPTY;
}

HRESULT CCoVCEncoder::EncodeClose() { return VC_E_EMPTY; }

}  // namespace vc
