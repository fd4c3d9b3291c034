// The muxer facade: creates the inner muxer for an output format and routes
// packets to it. Creation and routing come with the muxer work; until then
// every call answers 0x800710D2 (no inner object). Public calls arrive on any
// host thread; m_csLock guards the inner-object reference.
#pragma once

#include "Devices/KPropsImpl.h"
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
  ComPtr<IUnknown> _SideDataInner();

  HRESULT STDMETHODCALLTYPE MuxerSet(BSTR _bsFilePath, BSTR _bsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo,
                                               BSTR* _pbsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE MuxerClose() override;

 private:
  CKCritSec m_csLock;
  ComPtr<IVCMuxer> m_cpVCMuxer;  // GUARDED_BY(m_csLock); none until creation is built
};

}  // namespace vc
