// The general splitter: opens any file or network source that libavformat
// reads and hands out its packets without copying them. The splitter facade
// creates it by class identifier, copies its own properties into it, and then
// has one reading thread call SplitterPacketGet and SplitterBeginSegment;
// SplitterStop arrives on another thread to break a read or seek that
// blocks, and the information calls may come from any thread.
//
// Properties read at open (set before SplitterOpen, or given in its bsProps
// text, which is merged into the property tree first):
//   video_track, audio_track, subtitle_track  which streams are delivered
//       (see CFFTrackSettings: empty or absent = all of that kind, "-1" none,
//       "0,2" the first and third of that kind)
//   ts_program          -1 all programs, else one program by id or index
//   open_url.max_wait / open_file.max_wait   ms for the whole open (15000 /
//       10000; 0 or less: no limit)
//   read_url.max_wait / read_file.max_wait   ms for one read or seek (30000 /
//       10000)
//   input_format        FFmpeg demuxer name to use instead of probing
// A source is a network source when its path has a scheme other than
// "file" followed by "://". An open that fails on its arguments (no path, a
// properties text that does not parse) changes nothing; any later failure
// leaves the object closed. Opening an open object replaces its source.
//
// Delivery. Stream indices are FFmpeg's; every stream is described, only the
// selected ones deliver packets. SplitterPacketGet(-1) gives the next packet
// in source order. SplitterPacketGet(n) gives the next packet of stream n:
// packets of other streams read on the way are kept, in source order, and
// handed out first by later calls (at most kMaxHeldPackets of them; beyond
// that the call answers 0x800710D2 and keeps what it holds). Packet times are
// the stream's own, as FFmpeg gives them; K_TIME is the same on the reference
// clock, and segment starts are on that clock too (the source's first time
// stamp is not subtracted). The packet hint "max_wait" (ms) overrides the
// read wait for one call.
//
// Segments. SplitterBeginSegment takes the hints' stream list as the new
// selection (empty: keep it) and seeks so that every delivered video stream
// starts at a key packet at or before the start; packets before that key are
// dropped. A segment that starts at or before the source's first time stamp
// starts with its very first packet, exactly as after the open (a seekable
// source is opened again: in some demuxers a seek to the start gives other
// packets than the open did). A source that cannot seek (live) answers
// S_FALSE and reads on.
// SplitterStop makes the current and every later read, seek or open fail
// with 0x800703E3 until the next SplitterBeginSegment or SplitterOpen; a
// call that runs past its wait fails with 0x800705B4, and so do the reads
// after it once the demuxer has handed out what it still held. The next
// SplitterBeginSegment makes the source readable again (for a live source:
// from where it is).
//
// Locks. m_csLock guards the property tree, the published description and
// the path, and is only ever held briefly. m_mtxIo serialises everything that
// uses the format context (open, read, seek, close) and may be held across a
// blocking read; SplitterStop and the information calls never take it.
// FFmpeg's interrupt callback reads the stop flag, the count of closes and
// opens waiting for the I/O lock, and the deadline, all atomics, so a
// blocked call ends within FFmpeg's own polling interval (100 ms for
// sockets).
//
// Information. SplitterInfoGet's XML is <source> with the container's tags,
// its <program>s and a <stream> element per stream (the same element
// SplitterStreamInfoGet gives); unknown durations are VC_TIME_UNSET. Side
// data holds the container's tags as strings on stream -1, each stream's
// tags as strings and its own side data as bytes (named by FFmpeg's type
// name); a packet carries the first of its FFmpeg side-data entries, with
// the AVPacketSideDataType as nSideDatatype.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "Devices/KPropsImpl.h"
#include "FFPointers.h"
#include "FFSplitterSideData.h"
#include "FFSplitterSource.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCObject.h"
#include "VCSideData.h"

struct AVFormatContext;
struct AVPacket;

namespace vc::ff {

class CFFSplitter : public CKObjectRoot, public IVCSplitter, public IKPropsImpl<CFFSplitter>,
      public IFFSideDataImpl<CFFSplitter> {
 public:
  // Packets of other streams a SplitterPacketGet(n) keeps at most.
  static constexpr size_t kMaxHeldPackets = 4096;

  CFFSplitter();
  ~CFFSplitter();

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCSplitter, IVCProps, IVCSideData>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  void FinalRelease();

  // IVCSplitter
  HRESULT STDMETHODCALLTYPE SplitterOpen(BSTR _bsFilePath, BSTR _bsProps, LONG* _pnStreamsCount) override;
  HRESULT STDMETHODCALLTYPE SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                            LONGLONG* _prtTotalDuration) override;
  HRESULT STDMETHODCALLTYPE SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo,
                                                  BSTR* _pbsStreamXMLInfo) override;
  HRESULT STDMETHODCALLTYPE SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE SplitterStop() override;
  HRESULT STDMETHODCALLTYPE SplitterClose() override;

  // IVCSideData (IFFSideDataImpl) reads and writes this store.
  CFFSideDataStore& _SideDataStore() { return m_sideData; }

 private:
  using AVFormatPtr = AvInputPtr;
  using AVPacketPtr = AvPacketPtr;

  // What FFmpeg's interrupt callback looks at; shared by the I/O thread and
  // whoever stops or closes.
  struct CInterrupt {
    std::atomic<bool> bStop{false};       // SplitterStop until the next segment or open
    std::atomic<int> nTakeovers{0};       // closes and opens waiting for the I/O lock
    std::atomic<int64_t> llWaitUs{0};     // wait of the current call, 0 for none
    std::atomic<int64_t> llDeadline{0};   // av_gettime_relative() limit, 0 until the call's first transfer
    // Why the callback first broke a transfer since the last revival; it
    // stays until the next segment or open.
    std::atomic<int> nReason{0};
  };
  static int _InterruptCallback(void* pContext);

  // Settings read from the property tree at open.
  struct COpenSettings {
    CFFTrackSettings tracks;
    int64_t llOpenWaitMs = 0;
    int64_t llReadWaitMs = 0;
    std::string strInputFormat;
  };

  // Per stream, for the packets as they are read.
  struct CStreamState {
    bool bSelected = false;
    bool bVideo = false;
    bool bWaitKey = false;        // after a seek: drop packets until a key packet
    LONG nIndexInSegment = 0;
    LONG nSinceKey = -1;          // packets since the last key packet, -1 before the first
  };

  // A packet read from the source and described, not yet handed out.
  struct CReadPacket {
    AVPacketPtr spPacket;
    K_PACKET_INFO info{};
    K_TIME time{};
  };

  HRESULT _ApplyPropsText(BSTR bsProps);
  HRESULT _ReadSettings(bool bNetwork, COpenSettings* pSettings);
  // m_mtxIo held for these two: the FFmpeg side of an open, then the whole open.
  HRESULT _OpenFormat(const String& strPath, const COpenSettings& settings, AVFormatPtr* pspFormat)
      VC_REQUIRES(m_mtxIo);
  HRESULT _OpenLocked(const String& strPath, const COpenSettings& settings, LONG* pnStreams) VC_REQUIRES(m_mtxIo);
  void _CloseLocked() VC_REQUIRES(m_mtxIo);
  void _PublishSideData(const CFFSourceDesc& desc);

  // m_mtxIo held for all of these.
  void _ArmDeadline(int64_t llWaitMs) VC_REQUIRES(m_mtxIo);
  // Makes an I/O context that an interruption left at its end readable again.
  void _Revive() VC_REQUIRES(m_mtxIo);
  void _DisarmDeadline() { m_interrupt.llWaitUs.store(0, std::memory_order_relaxed); }
  // The result of a failed FFmpeg call: stop and deadline win over its code.
  HRESULT _FailureHr(int nAvError) const VC_REQUIRES(m_mtxIo);
  // Reads the next packet of a selected stream and describes it.
  HRESULT _ReadNext(int64_t llWaitMs, CReadPacket* pOut) VC_REQUIRES(m_mtxIo);
  // Fills pOut's records for the packet just read and counts it.
  void _Describe(const AVPacket& packet, CStreamState& state, CReadPacket* pOut) VC_REQUIRES(m_mtxIo);
  HRESULT _ReadFailed(int nAvError) VC_REQUIRES(m_mtxIo);
  HRESULT _Deliver(CReadPacket& packet, IVCPacket** ppPacket) VC_REQUIRES(m_mtxIo);
  HRESULT _Seek(LONGLONG rtStart) VC_REQUIRES(m_mtxIo);
  HRESULT _SeekOnce(LONGLONG rtTarget) VC_REQUIRES(m_mtxIo);
  // Opens the source again in place (same streams, same selection): S_FALSE
  // when it cannot be, a live source for one.
  HRESULT _Reopen() VC_REQUIRES(m_mtxIo);
  HRESULT _ApplyStreamList(BSTR bsHints) VC_REQUIRES(m_mtxIo);
  void _ApplyDiscard() VC_REQUIRES(m_mtxIo);
  int64_t _PacketWaitMs(BSTR bsHints) const VC_REQUIRES(m_mtxIo);

  CKCritSec m_csLock;
  std::shared_ptr<const CFFSourceDesc> m_spDesc VC_GUARDED_BY(m_csLock);  // null while closed

  CKMutex m_mtxIo;
  CInterrupt m_interrupt;
  std::atomic<bool> m_bOpening{false};  // an open is under way (SplitterStop's answer)
  AVFormatPtr m_spFormat VC_GUARDED_BY(m_mtxIo);
  AVPacketPtr m_spReadPacket VC_GUARDED_BY(m_mtxIo);
  std::shared_ptr<const CFFSourceDesc> m_spIoDesc VC_GUARDED_BY(m_mtxIo);  // the same as m_spDesc
  std::vector<CStreamState> m_vecStreams VC_GUARDED_BY(m_mtxIo);
  std::deque<CReadPacket> m_deqHeld VC_GUARDED_BY(m_mtxIo);  // read, not yet handed out
  bool m_bUntouched VC_GUARDED_BY(m_mtxIo) = false;  // nothing read since open
  bool m_bAtEnd VC_GUARDED_BY(m_mtxIo) = false;  // the source reported its end
  int64_t m_llReadWaitMs VC_GUARDED_BY(m_mtxIo) = 0;
  COpenSettings m_openSettings VC_GUARDED_BY(m_mtxIo);  // for opening again
  LONGLONG m_rtSegmentStart VC_GUARDED_BY(m_mtxIo) = 0;
  LONG m_nOrderInSegment VC_GUARDED_BY(m_mtxIo) = 0;  // packets read since the segment began
  LONGLONG m_rtLastEnd VC_GUARDED_BY(m_mtxIo) = VC_TIME_UNSET;  // latest packet end seen

  CFFSideDataStore m_sideData;
};

}  // namespace vc::ff
