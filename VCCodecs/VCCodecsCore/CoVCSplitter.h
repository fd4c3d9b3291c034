// The splitter facade: opens a source through an inner splitter chosen by
// class identifier, reads it ahead on its own thread into one packet queue
// per stream, and hands packets out per stream or in source order.
//
// Threads: any host thread calls the public methods; SplitterPacketGet may
// run on several consumer threads at once (one per stream). The reading
// thread is the only caller of the inner SplitterPacketGet and
// SplitterBeginSegment outside direct mode.
//
// Locks, in the order they may nest: m_csInner (serialises segment requests,
// information calls and the swap of the inner object; held across the waits
// of SplitterBeginSegment), then m_csInnerRef (the reference itself, so that
// SplitterStop, direct mode and the thread get a counted reference without
// waiting for a seek), then the queue set's locks. m_csLock guards the
// property tree and is never held across a call into the inner object.
#pragma once

#include <atomic>
#include <mutex>

#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCPackets.h"
#include "VCCodecs/VCSideDataRedir.h"
#include "VCCodecs/VCSimpleThread.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCEvent.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vc {

// The inner splitters the facade chooses between.
inline constexpr CLSID CLSID_GeneralSplitter = MakeGuid("96EB1F14-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_NabletMxfSplitter = MakeGuid("ECFBFE56-F923-44B6-91D4-C9E3EA04131B");

class CCoVCSplitter : public CKObjectRoot,
                      public IVCSplitter,
                      public IKPropsImpl<CCoVCSplitter>,
                      public IVCSideDataRedir<CCoVCSplitter> {
 public:
  CCoVCSplitter();
  HRESULT FinalConstruct();
  void FinalRelease();

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCSplitter, IVCProps, IVCSideData>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  ComPtr<IUnknown> _SideDataInner();
  // The queue set's hook: whether a queue far over its maximum may drop.
  bool _DropPacketsAllowed();

  HRESULT STDMETHODCALLTYPE SplitterOpen(BSTR _bsFilePath, BSTR _bsProps, LONG* _pnStreamsCount) override;
  HRESULT STDMETHODCALLTYPE SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                            LONGLONG* _prtTotalDuration) override;
  HRESULT STDMETHODCALLTYPE SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo,
                                                  BSTR* _pbsStreamXMLInfo) override;
  HRESULT STDMETHODCALLTYPE SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE SplitterStop() override;
  HRESULT STDMETHODCALLTYPE SplitterClose() override;

  // Publishes the buffering statistics of one stream (rate-limited unless
  // bForce).
  bool _UpdateStatistics(LONG nStream, bool bForce = false);

  // For tests: the network source flag and whether the thread runs.
  bool _IsNetworkSource() const { return m_bNetwork.load(); }
  bool _IsThreadRunning() const { return m_thread.IsRunning(); }

 private:
  ComPtr<IVCSplitter> _InnerRef();
  DWORD _RunThread(ComPtr<IVCSplitter> cpVCSplitter);
  void _ApplySegment(IVCSplitter* pVCSplitter, LONGLONG rtSegment, bool* pbStreamsChanged);
  void _ReadOne(IVCSplitter* pVCSplitter, LONG nOrder, LONGLONG rtSegment);
  LONGLONG _NetworkTimeOffset(IVCSplitter* pVCSplitter, const K_PACKET_INFO& info);
  // The ready and full levels in 100 ns units for the source kind.
  void _BufferLevels(LONGLONG* prtReady, LONGLONG* prtFull);
  DWORD _FirstSegmentWait();
  // SplitterPacketGet(-1): the stream to take from, waiting up to dwWait ms
  // while every queue is empty and some stream has not ended.
  HRESULT _WaitAnyStream(DWORD dwWait, LONG* pnStream);

  CKCritSec m_csLock;   // the property tree
  CKCritSec m_csInner;  // see the top of this file
  std::mutex m_csInnerRef;
  ComPtr<IVCSplitter> m_cpVCSplitter;  // GUARDED_BY(m_csInnerRef)
  String m_strPath;                    // GUARDED_BY(m_csInnerRef)

  VCPacketsStreams<CCoVCSplitter> m_streams{this};
  CSimpleThreadBase m_thread{"CCoVCSplitter"};

  // The pending segment request: a start (-1 none) and its hints.
  std::atomic<LONGLONG> m_llSeekingPos{-1};
  std::mutex m_csHints;
  CBstr m_cbsHints;  // GUARDED_BY(m_csHints)
  CKEvent m_evSegmentDone{true};
  CKEvent m_evStop{false};

  std::atomic<bool> m_bNetwork{false};
  std::atomic<bool> m_bTimeOffset{false};
  LONGLONG m_rtTimeOffset = 0;  // the reading thread's own
};

}  // namespace vc
