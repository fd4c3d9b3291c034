// The muxer facade: creates the inner muxer for an output format and routes
// packets to it. Creation and routing come with the muxer work; until then
// an installed inner muxer gets every call passed through and, with none
// installed, every call answers 0x800710D2 (no inner object). Public calls
// arrive on any host thread; the inner muxer sits in m_inner and is called
// on a counted reference outside every lock, side-data calls included.
#pragma once

#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecs/VCSideDataRedir.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vc {

class CCoVCMuxer : public CKObjectRoot,
                   public IVCMuxer,
                   public IKPropsImpl<CCoVCMuxer>,
                   public IVCSideDataRedir<CCoVCMuxer> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCMuxer, IVCProps, IVCSideData>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  CVCInnerHolder<IVCMuxer>& _InnerHolder() { return m_inner; }

  HRESULT STDMETHODCALLTYPE MuxerSet(BSTR _bsFilePath, BSTR _bsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo,
                                               BSTR* _pbsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE MuxerClose() override;

 private:
  CKCritSec m_csLock;  // the property tree and, with the muxer work, the stored target
  CVCInnerHolder<IVCMuxer> m_inner;
};

}  // namespace vc
