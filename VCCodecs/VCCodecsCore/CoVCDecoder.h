// The decoder facade: chooses the inner decoder for a stream from its
// candidate table and turns packets into frames. The candidate walk and the
// decoding path come with the decoder work; until then an installed inner
// decoder gets every call passed through and, with none installed, every
// call answers 0x800710D2 (no inner object). Public calls arrive on any host
// thread; the inner decoder sits in m_inner and is called on a counted
// reference outside every lock.
#pragma once

#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vc {

class CCoVCDecoder : public CKObjectRoot, public IVCDecoder, public IKPropsImpl<CCoVCDecoder> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCDecoder, IVCProps>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  CVCInnerHolder<IVCDecoder>& _InnerHolder() { return m_inner; }

  HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket,
                                              BOOL* _pbSupported) override;
  HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, K_AV_PROPS* _pAVPropsOut,
                                         IVCFrame** _ppFrame, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart,
                                        IVCAudioBuffer* _pAudioBuffer, LONG* _plSamplesDecode,
                                        BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE DecodeClose() override;

 private:
  CKCritSec m_csLock;  // the property tree and, with the decoder work, the packet queue
  CVCInnerHolder<IVCDecoder> m_inner;
};

}  // namespace vc
