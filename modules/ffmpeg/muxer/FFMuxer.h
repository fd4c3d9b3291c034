// The general muxer: writes packets into any container libavformat writes
// (mp4, mov, mkv, webm, ts, mxf, avi, flv, ...). The muxer facade creates it
// by class identifier, copies its properties into it and calls MuxerSet; the
// stream and packet calls then come from the facade's caller, one at a time
// or from several threads (one lock serialises them).
//
// MuxerSet(path, props) opens the file at once, so a path that cannot be
// written fails there. The format is the "format" property (a muxer name
// or an extension: "mp4", "mkv", "ts") or the path's extension. Streams are
// added before the first packet is written; MuxerStreamAdd's "stream_idx"
// property names the index the caller's packets carry (K_PACKET_INFO's
// nStreamIndex), so MuxerPacketPut(-1, packet) finds its stream by it. A
// stream added without a description (null or eVCMT_Empty) takes the
// description of its first packet; the header waits until every stream is
// described.
//
// Packet times are read in the time base of the packet's stream description
// (the stream's, when the packet has none). Packets of different streams may
// come in any order: they are queued per stream and written in time order
// once every stream has one queued, or when the queued span passes
// kMaxInterleaveSpan (a stream that went quiet does not hold the rest).
//
// MuxerSet with a new path while a file is open moves to it: at once (the
// queued packets go to the old file first), or with "seamless_switch=true"
// at the next key packet of the first video stream in time order (with no
// video stream, at the next packet), so no packet is lost or written twice.
// The switch request holds for that call only; the settings stay those of
// the last plain MuxerSet. A second request before the key packet replaces
// the first, whose file is removed unwritten.
// MuxerClose writes what is queued and the trailer (index, moov, duration).
// A failed write is returned with its code; the file keeps what was written
// before it, and MuxerClose still finishes it.
//
// Side data: entries set with a string on stream -1 become container tags,
// on stream n the tags of stream n, when the header is written.
#pragma once

#include <deque>
#include <vector>

#include "Devices/KPropsImpl.h"
#include "FFMuxerOutput.h"
#include "FFPointers.h"
#include "FFSplitterSideData.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCObject.h"
#include "VCSideData.h"

namespace vc::ff {

class CFFMuxer : public CKObjectRoot, public IVCMuxer, public IKPropsImpl<CFFMuxer>,
      public IFFSideDataImpl<CFFMuxer> {
 public:
  // How far ahead of the slowest stream packets are queued before it is
  // written anyway: 10 s in reference time.
  static constexpr LONGLONG kMaxInterleaveSpan = 10 * VC_TIME_SECOND;
  // Streams that side data may name.
  static constexpr LONG kMaxSideDataStreams = 64;

  CFFMuxer();
  ~CFFMuxer();

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCMuxer, IVCProps, IVCSideData>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  void FinalRelease();

  // IVCMuxer
  HRESULT STDMETHODCALLTYPE MuxerSet(BSTR _bsFilePath, BSTR _bsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo, BSTR* _pbsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE MuxerClose() override;

  // IVCSideData (IFFSideDataImpl) reads and writes this store.
  CFFSideDataStore& _SideDataStore() { return m_sideData; }

 private:
  // A packet waiting for its turn; its payload is the IVCPacket's, held by
  // the AVPacket's buffer.
  struct CQueued {
    AvPacketPtr spPacket;
    LONGLONG rtOrder = 0;  // decoding time on the reference clock
    bool bKey = false;
  };

  struct CStream {
    CKStreamInfo info;
    bool bDescribed = false;
    LONG nAlias = -1;  // the "stream_idx" property
    String strProps;
    AVRational tbIn{1, 1};
    LONGLONG rtLast = VC_TIME_UNSET;  // order time of the last packet queued
    std::deque<CQueued> deqQueue;
  };

  HRESULT _OpenOutput(const String& strPath, const std::string& strFormat, CFFMuxerOutput* pOutput,
                      const AVOutputFormat** ppFormat) VC_REQUIRES(m_mtx);
  HRESULT _MoveTo(const String& strPath, const std::string& strFormat, bool bSeamless) VC_REQUIRES(m_mtx);
  LONG _FindStream(LONG nStreamIdx, const K_PACKET_INFO& info) const VC_REQUIRES(m_mtx);
  HRESULT _Describe(LONG nStream, IVCPacket* pPacket) VC_REQUIRES(m_mtx);
  HRESULT _Queue(CStream& stream, IVCPacket* pPacket, const K_PACKET_INFO& info, const K_TIME& time)
      VC_REQUIRES(m_mtx);
  HRESULT _StartOutput() VC_REQUIRES(m_mtx);
  // Writes queued packets in time order: those that are due, or all of them.
  HRESULT _Drain(bool bAll) VC_REQUIRES(m_mtx);
  HRESULT _WriteNext(size_t nStream) VC_REQUIRES(m_mtx);
  // Finishes the current file and goes on in the prepared one.
  HRESULT _SwitchNow() VC_REQUIRES(m_mtx);
  HRESULT _CloseLocked() VC_REQUIRES(m_mtx);
  void _CollectTags(CFFTags* pContainer, std::vector<CFFTags>* pvecStreams) VC_REQUIRES(m_mtx);

  CKCritSec m_csLock;  // the property tree

  CKMutex m_mtx;
  bool m_bOpen VC_GUARDED_BY(m_mtx) = false;
  const AVOutputFormat* m_pFormat VC_GUARDED_BY(m_mtx) = nullptr;
  CFFMuxerOutput m_output VC_GUARDED_BY(m_mtx);
  CFFMuxerOutput m_next VC_GUARDED_BY(m_mtx);  // open while a seamless switch waits
  std::deque<CStream> m_vecStreams VC_GUARDED_BY(m_mtx);  // a deque: streams never move
  LONG m_nVideoStream VC_GUARDED_BY(m_mtx) = -1;  // the stream whose key packets switch files
  LONGLONG m_rtNewest VC_GUARDED_BY(m_mtx) = VC_TIME_UNSET;  // latest order time queued
  size_t m_nQueued VC_GUARDED_BY(m_mtx) = 0;

  CFFSideDataStore m_sideData;
};

}  // namespace vc::ff
