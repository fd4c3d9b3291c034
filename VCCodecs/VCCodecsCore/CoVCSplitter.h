// The splitter facade: opens a source through an inner splitter chosen by
// class identifier, reads it ahead on its own thread into one packet queue
// per stream, and hands packets out per stream or in source order.
//
// Threads: any host thread calls the public methods; SplitterPacketGet may
// run on several consumer threads at once (one per stream). The reading
// thread is the only caller of the inner SplitterPacketGet and
// SplitterBeginSegment outside direct mode.
//
// Locks, in the order they may nest: m_csOpen (one source change at a time:
// the close of the old source and the install of the new one, so that the
// inner object, its path and the reading thread always belong together),
// then m_csInner (serialises segment requests, information calls and the
// swap of the inner object; held across the waits of SplitterBeginSegment),
// then the holder's own lock inside m_inner (the reference itself, so that
// SplitterStop, direct mode and the thread get a counted reference without
// waiting for a seek), then the queue set's locks. m_csLock guards the
// property tree and is never held across a call into the inner object;
// m_csHints guards the pending request's hints and nests inside nothing.
//
// Stopping the reading thread sets m_evAbort first: a segment request
// waiting for the thread then gives up at once (VC_E_ABORTED) instead of
// waiting for a thread that will not come back.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCCandidates.h"
#include "VCCodecs/VCInnerClasses.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecs/VCPackets.h"
#include "VCCodecs/VCSideDataRedir.h"
#include "VCCodecs/VCSimpleThread.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCEvent.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vc {

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
  CVCInnerHolder<IVCSplitter>& _InnerHolder() { return m_inner; }
  // The queue set's hook: whether a queue far over its maximum may drop
  // (the reading thread's copy of "vccodecs.drop_packets").
  bool _DropPacketsAllowed() { return m_bDropPackets.load(std::memory_order_relaxed); }
  // Called after a PropsSet changed the tree: the reading thread reads its
  // buffer levels again before its next packet.
  HRESULT _PropsOnChange(BSTR, BSTR) {
    m_nPropsGeneration.fetch_add(1, std::memory_order_release);
    return E_NOTIMPL;  // and the default handling
  }

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

  // The inner splitters in order of preference: the nablet MXF splitter
  // (only for "mxf" files with "nablet.enabled"), then the general one.
  static std::vector<VCCandidate> _SourceCandidates();
  // The property that sets the first wait of a segment request for a source
  // (null: the default 100 ms): "read_url.max_wait" for rtsp URLs,
  // "read_file.max_wait" for files (not URLs) ending in "mxf" or "lxf".
  static const OLECHAR* _FirstWaitProperty(StringView strPath);

  // For tests: the network source flag, whether the thread runs and the
  // path of the open source.
  bool _IsNetworkSource() const { return m_bNetwork.load(); }
  bool _IsThreadRunning() const { return m_thread.IsRunning(); }
  String _SourcePath() VC_EXCLUDES(m_csInner);

 private:
  // Ends the reading thread, closes and releases the inner splitter and
  // drops the queues.
  void _CloseSource() VC_REQUIRES(m_csOpen);
  DWORD _RunThread(ComPtr<IVCSplitter> cpVCSplitter);
  void _ApplySegment(IVCSplitter* pVCSplitter, LONGLONG rtSegment, bool* pbStreamsChanged);
  // One read; true when a packet was queued (stamped with nOrder). A failed
  // read puts every queue at its end and sets *pbAtEnd.
  bool _ReadOne(IVCSplitter* pVCSplitter, LONG nOrder, LONGLONG rtSegment, bool* pbAtEnd);
  LONGLONG _NetworkTimeOffset(IVCSplitter* pVCSplitter, const K_PACKET_INFO& info);
  // The ready and full levels in 100 ns units for the source kind, and the
  // drop flag, as the reading thread last read them from the properties.
  // Reading them costs a tree walk and two number parses, so it happens only
  // when a property was set, the source kind changed, or a second passed
  // (changes that bypass PropsSet, such as a removal). Reading thread only.
  void _RefreshLevels();
  DWORD _FirstSegmentWait() VC_REQUIRES(m_csInner);
  // Waits for the segment-done event up to dwWait ms. false on timeout or,
  // with *pbAborted set, when the reading thread is being stopped.
  bool _WaitSegmentDone(DWORD dwWait, bool* pbAborted);
  // SplitterPacketGet(-1): the stream to take from, waiting up to dwWait ms
  // while every queue is empty and some stream has not ended.
  HRESULT _WaitAnyStream(DWORD dwWait, LONG* pnStream);

  CKCritSec m_csLock;  // the property tree
  CKMutex m_csOpen VC_ACQUIRED_BEFORE(m_csInner);
  CKCritSec m_csInner;  // see the top of this file
  CVCInnerHolder<IVCSplitter> m_inner;
  String m_strPath VC_GUARDED_BY(m_csInner);

  VCPacketsStreams<CCoVCSplitter> m_streams{this};
  CSimpleThreadBase m_thread{"CCoVCSplitter"};

  // The pending segment request: a start (-1 none) and its hints.
  std::atomic<LONGLONG> m_llSeekingPos{-1};
  CKMutex m_csHints;
  CBstr m_cbsHints VC_GUARDED_BY(m_csHints);
  CKEvent m_evSegmentDone{true};
  CKEvent m_evStop{false};
  CKEvent m_evAbort{false};  // set while the reading thread is being stopped

  std::atomic<bool> m_bNetwork{false};
  std::atomic<bool> m_bTimeOffset{false};
  std::atomic<uint32_t> m_nPropsGeneration{1};
  std::atomic<bool> m_bDropPackets{false};
  struct CLevels {
    LONGLONG rtReady = 0;
    LONGLONG rtFull = VC_TIME_SECOND;
    bool bNetwork = false;
    uint32_t nGeneration = 0;  // 0: never read
    std::chrono::steady_clock::time_point tpRead;
  };
  CLevels m_levels;  // the reading thread's own
  LONGLONG m_rtTimeOffset = 0;  // the reading thread's own
};

}  // namespace vc
