// The encoder facade: chooses the inner encoder from the codec table, feeds
// it frames and hands out packets, in or out of process. Selection, frame
// input and hosting come with the encoder work; until then an installed
// inner encoder gets every call passed through and, with none installed,
// every call answers 0x800710D2 (no inner object). Public calls arrive on
// any host thread; the inner encoder sits in m_inner and is called on a
// counted reference outside every lock.
#pragma once

#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vc {

class CCoVCEncoder : public CKObjectRoot, public IVCEncoder, public IKPropsImpl<CCoVCEncoder> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCEncoder, IVCProps>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  CVCInnerHolder<IVCEncoder>& _InnerHolder() { return m_inner; }

  HRESULT STDMETHODCALLTYPE EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) override;
  HRESULT STDMETHODCALLTYPE EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* _pAVPropsOut, IVCPacket** _ppPacket,
                                           BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                             BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE EncodeClose() override;

 private:
  CKCritSec m_csLock;  // the property tree and, with the encoder work, its small state
  CVCInnerHolder<IVCEncoder> m_inner;
};

}  // namespace vc
