// The decoder facade: chooses the inner decoder for a stream from its
// candidate table (NVIDIA, Intel QuickSync, then the FFmpeg software
// decoder), turns packets into frames through it, repairs the frames' times,
// attaches the packets each frame came from, and publishes per-stream
// statistics under "stat::v_decode." or "stat::a_decode.".
//
// Selection. DecodeIsSupported rebuilds the table (every entry eligible
// again) and walks it; DecodePacket re-runs the walk for every packet whose
// stream description differs from the current one under the loose
// comparison, over the table as earlier walks left it, so an entry that
// failed is not tried again until the next DecodeIsSupported. A new decoder
// is swapped in under the facade lock together with its description, and
// the packets queued for the old one are dropped.
//
// Fallback ("decoder.fallback_on_error", off by default): when the installed
// decoder fails a packet, or gives no frame for
// "decoder.fallback.no_output_packets" packets in a row, its entry is
// marked failed, the next candidate is installed, and the packets since the
// last key packet are fed to it again. Frames the caller already had are
// dropped; the first new frame is marked as a break, and frames the replay
// produced beyond it are handed out by the following calls before anything
// new.
//
// Threads: public calls arrive on any host thread; DecodePacket and
// DecodeAudio from one thread at a time for one stream (the caller's
// promise). Locks, in the order they may nest: m_csSelect (one candidate
// walk at a time, held across the calls into candidates), then m_csLock (the
// property tree, the packet queue, the current description and the swap;
// never held across a call into an inner decoder), then the holder's own
// lock. The inner decoder is called on a counted reference outside m_csLock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "Devices/KPropsImpl.h"
#include "KAverageTime.h"
#include "KBitrateCalculator.h"
#include "KPacketStats.h"
#include "VCCodecs/VCCandidates.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vc {

class CCoVCDecoder : public CKObjectRoot, public IVCDecoder, public IKPropsImpl<CCoVCDecoder> {
 public:
  CCoVCDecoder();
  ~CCoVCDecoder();
  HRESULT FinalConstruct();

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCDecoder, IVCProps>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  CVCInnerHolder<IVCDecoder>& _InnerHolder() { return m_inner; }
  // Called after a PropsSet changed the tree: the options are read again
  // before the next packet.
  HRESULT _PropsOnChange(BSTR, BSTR) {
    m_nPropsGeneration.fetch_add(1, std::memory_order_release);
    return E_NOTIMPL;  // and the default handling
  }

  HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket,
                                              BOOL* _pbSupported) override;
  HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, K_AV_PROPS* _pAVPropsOut,
                                         IVCFrame** _ppFrame, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart,
                                        IVCAudioBuffer* _pAudioBuffer, LONG* _plSamplesDecode,
                                        BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE DecodeClose() override;

  // The candidate table in order, for the current properties: NVIDIA when
  // "decoder.nvidia" (default true), QuickSync when "decoder.quicksync"
  // (default false), then "FFmpeg A/V".
  static std::vector<VCCandidate> _BuildCandidates(bool bNVidia, bool bQuickSync);

  // For tests: the table as the last walk left it, the packets queued for
  // attaching, the in-flight counter and the frames held back by a replay.
  std::vector<VCCandidate> _Candidates() VC_EXCLUDES(m_csSelect);
  size_t _QueuedPackets() VC_EXCLUDES(m_csLock);
  LONG _InFlightPackets() const { return m_nInFlight.load(); }
  size_t _HeldFrames() VC_EXCLUDES(m_csLock);

 private:
  struct CStartTC {
    bool bSet = false;
    int32_t nFrame = 0;
    bool bDrop = false;
    bool bUser = false;
  };
  // The options the decoding path reads, as last read from the tree.
  struct COptions {
    bool bCorrectTimes = true;
    LONGLONG llMaxDeq = 100;
    bool bAttach = false;
    bool bFallback = false;
    LONGLONG llNoOutputMax = 64;
  };

  // The description to use: the packet's when it has a usable one, else
  // *pStreamInfo (copied into *pInfo). false when there is none.
  static bool _ChooseStream(const K_STREAM_INFO* pStreamInfo, IVCPacket* pPacket, CKStreamInfo* pInfo,
                            bool* pbFromPacket);
  // Walks the table for info and installs the accepted decoder (see the top
  // of this file). bForce skips the "unchanged stream" answer (a fallback).
  HRESULT _CreateDecoder(const K_STREAM_INFO* pStreamInfo, IVCPacket* pPacket, String* pstrDecoderType,
                         bool bForce = false) VC_EXCLUDES(m_csLock, m_csSelect);
  // Copies the inner decoder's information properties into the tree.
  void _PublishDecoderInfo(IVCDecoder* pDecoder) VC_EXCLUDES(m_csLock);
  void _UpdateStartTC() VC_REQUIRES(m_csLock);
  COptions _ReadOptions() VC_EXCLUDES(m_csLock);
  String _Prefix() VC_REQUIRES(m_csLock);
  void _SetStat(const String& strPrefix, const char* szSuffix, const String& strValue) VC_REQUIRES(m_csLock);
  // Time repair of one frame against the previous one.
  void _CorrectTime(IVCFrame* pFrame, K_TIME* pTime, LONGLONG rtSegmentStart) VC_REQUIRES(m_csLock);
  LONG _AttachPacketsAndCopyData(IVCFrame* pFrame, const COptions& options) VC_REQUIRES(m_csLock);
  // The fallback: marks the installed entry failed and replays the kept
  // packets into the next candidate. S_OK with *ppFrame (or none yet), or
  // the code to hand the caller when no candidate is left.
  HRESULT _FallBack(HRESULT hrFailure, IVCPacket* pPacket, LONGLONG rtSegmentStart, K_AV_PROPS* pAVPropsOut,
                    BSTR bsHints, ComPtr<IVCFrame>* pcpFrame) VC_EXCLUDES(m_csLock, m_csSelect);
  // A frame from the inner decoder joins the held frames, unless a replay
  // made it again after the caller had it.
  void _TakeFrame(ComPtr<IVCFrame> cpFrame) VC_REQUIRES(m_csLock);
  void _ResetStreamState() VC_REQUIRES(m_csLock);

  CKMutex m_csSelect VC_ACQUIRED_BEFORE(m_csLock);
  std::vector<VCCandidate> m_vecCandidates VC_GUARDED_BY(m_csSelect);
  int m_nInstalled VC_GUARDED_BY(m_csSelect) = -1;  // table index of the installed decoder
  // Entries a fallback marked failed: they failed this stream only, so a
  // changed stream makes them eligible again.
  std::vector<int> m_vecFallbackMarked VC_GUARDED_BY(m_csSelect);

  CKCritSec m_csLock;
  CVCInnerHolder<IVCDecoder> m_inner;
  // Reading the options costs five tree walks, so a packet reads them only
  // after a PropsSet or once a second (changes that bypass PropsSet).
  std::atomic<uint32_t> m_nPropsGeneration{1};
  COptions m_options VC_GUARDED_BY(m_csLock);
  uint32_t m_nOptionsGeneration VC_GUARDED_BY(m_csLock) = 0;
  std::chrono::steady_clock::time_point m_tpOptions VC_GUARDED_BY(m_csLock);
  CKStreamInfo m_streamInfo VC_GUARDED_BY(m_csLock);
  bool m_bHasStream VC_GUARDED_BY(m_csLock) = false;
  uint32_t m_nStreamGeneration VC_GUARDED_BY(m_csLock) = 0;  // counts installs and closes
  std::deque<ComPtr<IVCPacket>> m_deqPackets VC_GUARDED_BY(m_csLock);
  std::atomic<LONG> m_nInFlight{0};
  K_TIME m_timePrev VC_GUARDED_BY(m_csLock){};
  int32_t m_nTCFrame VC_GUARDED_BY(m_csLock) = -1;
  CStartTC m_startTC VC_GUARDED_BY(m_csLock);
  LONG m_nDecodeErrors VC_GUARDED_BY(m_csLock) = 0;
  KAverageTime m_perf;
  KBitrateCalculator m_inputRate;
  uint32_t m_nPublishGeneration VC_GUARDED_BY(m_csLock) = 0;  // the stream the averages were last shown for
  std::chrono::steady_clock::time_point m_tpPublished VC_GUARDED_BY(m_csLock);
  std::unique_ptr<KPacketStats> m_spVideoStats VC_GUARDED_BY(m_csLock);
  std::unique_ptr<KPacketStats> m_spAudioStats VC_GUARDED_BY(m_csLock);

  // Fallback state: the packets since the last key packet, the packets in a
  // row without a frame, the latest start handed out and the frames a
  // replay produced ahead of the caller.
  std::deque<ComPtr<IVCPacket>> m_deqReplay VC_GUARDED_BY(m_csLock);
  int32_t m_nNoOutput VC_GUARDED_BY(m_csLock) = 0;
  LONGLONG m_rtLatestOut VC_GUARDED_BY(m_csLock);
  std::deque<ComPtr<IVCFrame>> m_deqHeld VC_GUARDED_BY(m_csLock);
  bool m_bReplayFilter VC_GUARDED_BY(m_csLock) = false;  // until the first frame the caller has not had
  bool m_bBreakNext VC_GUARDED_BY(m_csLock) = false;
  LONG m_nFallbacks VC_GUARDED_BY(m_csLock) = 0;
};

}  // namespace vc
