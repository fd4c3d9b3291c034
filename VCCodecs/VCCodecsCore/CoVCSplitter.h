// The splitter facade: opens a source through an inner splitter chosen by
// class identifier and delivers its packets per stream. The reading thread,
// queues and inner-object choice come with the splitter work; until then
// every call answers 0x800710D2 (no inner object). Public calls arrive on any
// host thread; m_csLock guards the inner-object reference.
#pragma once

#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCSideDataRedir.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vc {

class CCoVCSplitter : public CKObjectRoot,
                      public IVCSplitter,
                      public IKPropsImpl<CCoVCSplitter>,
                      public IVCSideDataRedir<CCoVCSplitter> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCSplitter, IVCProps, IVCSideData>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  ComPtr<IUnknown> _SideDataInner();

  HRESULT STDMETHODCALLTYPE SplitterOpen(BSTR _bsFilePath, BSTR _bsProps, LONG* _pnStreamsCount) override;
  HRESULT STDMETHODCALLTYPE SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                            LONGLONG* _prtTotalDuration) override;
  HRESULT STDMETHODCALLTYPE SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo,
                                                  BSTR* _pbsStreamXMLInfo) override;
  HRESULT STDMETHODCALLTYPE SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE SplitterStop() override;
  HRESULT STDMETHODCALLTYPE SplitterClose() override;

 private:
  CKCritSec m_csLock;
  ComPtr<IVCSplitter> m_cpVCSplitter;  // GUARDED_BY(m_csLock); none until open is built
};

}  // namespace vc
