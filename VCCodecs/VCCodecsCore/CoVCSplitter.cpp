#include "CoVCSplitter.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "Devices/KPropsRead.h"
#include "VCAssert.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacketsStats.h"
#include "VCCodecs/VCPropsCopy.h"
#include "VCGuard.h"
#include "VCLog.h"
#include "VCTimeText.h"

#define VC_SPLITTER_ASSERT(cond) VC_ASSERT_AT(cond, "VCCodecs/VCCodecsCore/CoVCSplitter")

namespace vc {

namespace {

// A consumer wakes the reading thread after a take from a queue that held
// less than this.
constexpr LONGLONG kWakeBelow = 3 * VC_TIME_SECOND;
// The full level stays at least this far above the ready level.
constexpr LONGLONG kFullAboveReady = VC_TIME_SECOND / 10;
// The waits of a segment request, in milliseconds.
constexpr DWORD kFirstSegmentWait = 100;
constexpr DWORD kFirstSegmentWaitMissing = 3000;  // the property is missing
constexpr DWORD kSecondSegmentWait = 1000000;

// Registered at construction; all of them reach the inner splitter by the
// property copy at open.
constexpr VCPropDefault kDefaults[] = {
    {W("audio_track"), W("0")},
    {W("video_track"), W("0")},
    {W("subtitle_track"), W("-1")},
    {W("ts_program"), W("-1")},
    {W("auto_index"), W("false")},
    {W("file.buffer_max"), W("1.0")},
    {W("file.buffer_min"), W("0.0")},
    {W("network.buffer_max"), W("10.0")},
    {W("network.buffer_min"), W("1.0")},
    {W("open_url.max_wait"), W("15000")},
    {W("open_file.max_wait"), W("10000")},
    {W("read_url.max_wait"), W("30000")},
    {W("read_file.max_wait"), W("10000")},
    {W("mxf.force_ffmpeg"), W("true")},
    {W("mxf.fp500_offset"), W("true")},
    {W("mxf.s377_metadata"), W("false")},
    {W("mxf.open_file_flags"), W("")},
    {W("play_while_rec.update_len"), W("true")},
    {W("duration.recalc_on_open"), W("false")},
    {W("srt.force_ffmpeg"), W("true")},
};

// "scheme://..." : the scheme in lower case, empty for a plain path.
String UrlScheme(const String& strPath) {
  const size_t nPos = strPath.find(W("://"));
  if (nPos == String::npos || nPos == 0) return String();
  String strScheme = strPath.substr(0, nPos);
  for (OLECHAR& c : strScheme) {
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' ||
          c == '-' || c == '.'))
      return String();
    if (c >= 'A' && c <= 'Z') c = static_cast<OLECHAR>(c - 'A' + 'a');
  }
  return strScheme;
}

// The extension after the last dot of the last path element, lower case.
String Extension(const String& strPath) {
  const size_t nSlash = strPath.find_last_of(W("/\\"));
  const size_t nDot = strPath.find_last_of('.');
  if (nDot == String::npos || (nSlash != String::npos && nDot < nSlash)) return String();
  String strExt = strPath.substr(nDot + 1);
  for (OLECHAR& c : strExt)
    if (c >= 'A' && c <= 'Z') c = static_cast<OLECHAR>(c - 'A' + 'a');
  return strExt;
}

LONGLONG SecondsToRefTime(double dblSeconds) {
  const double dbl = dblSeconds * static_cast<double>(VC_TIME_SECOND);
  return static_cast<LONGLONG>(dbl < 0 ? std::ceil(dbl - 0.5) : std::floor(dbl + 0.5));
}

String PacketText(IVCPacket* pPacket) {
  K_PACKET_INFO info{};
  K_TIME time{};
  if (pPacket) {
    pPacket->PacketInfoGet(&info);
    pPacket->PacketTimeGet(&time);
  }
  return FromUtf8(Format("Stm:%d #%d Ord:%d Key:%d Time:%ws..%ws Size:%d", info.nStreamIndex, info.nIndexInSegment,
                         info.nOrderInSegment, info.nKeyDistance, TimeTextW(time.rtStartTime).c_str(),
                         TimeTextW(time.rtEndTime).c_str(), info.cbPacketData));
}

}  // namespace

CCoVCSplitter::CCoVCSplitter() = default;

HRESULT CCoVCSplitter::FinalConstruct() {
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return E_OUTOFMEMORY;
  return VCPropsSetDefaults(*spRoot, kDefaults);
}

void CCoVCSplitter::FinalRelease() { SplitterClose(); }

std::vector<VCCandidate> CCoVCSplitter::_SourceCandidates() {
  return {{CLSID_NabletMxfSplitter, String(W("nablet MXF")), eVCMT_Empty, String(), 0},
          {CLSID_GeneralSplitter, String(W("general")), eVCMT_Empty, String(), 0}};
}

const OLECHAR* CCoVCSplitter::_FirstWaitProperty(StringView strPath) {
  const String strScheme = UrlScheme(String(strPath));
  if (strScheme == W("rtsp")) return W("read_url.max_wait");
  if (!strScheme.empty()) return nullptr;  // other URLs: whatever their last letters
  const String strExt = Extension(String(strPath));
  if (strExt == W("mxf") || strExt == W("lxf")) return W("read_file.max_wait");
  return nullptr;
}

String CCoVCSplitter::_SourcePath() {
  CKAutoLock lock(m_csInner);
  return m_strPath;
}

void CCoVCSplitter::_RefreshLevels() {
  const bool bNetwork = m_bNetwork.load();
  const uint32_t nGeneration = m_nPropsGeneration.load(std::memory_order_acquire);
  const auto tpNow = std::chrono::steady_clock::now();
  if (m_levels.nGeneration == nGeneration && m_levels.bNetwork == bNetwork &&
      tpNow - m_levels.tpRead < std::chrono::seconds(1))
    return;
  CLevels levels;
  levels.bNetwork = bNetwork;
  levels.nGeneration = nGeneration;
  levels.tpRead = tpNow;
  bool bDrop = false;
  {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    if (spRoot) {
      bDrop = ReadPropBool(*spRoot, W("vccodecs.drop_packets"), false);
      if (bNetwork) {
        const bool bLowDelay = ReadPropBool(*spRoot, W("network.low_delay"), false);
        levels.rtReady = bLowDelay ? 0 : SecondsToRefTime(ReadPropDouble(*spRoot, W("network.buffer_min"), 1.0));
        levels.rtFull = SecondsToRefTime(ReadPropDouble(*spRoot, W("network.buffer_max"), 10.0));
      } else {
        levels.rtReady = SecondsToRefTime(ReadPropDouble(*spRoot, W("file.buffer_min"), 0.0));
        levels.rtFull = SecondsToRefTime(ReadPropDouble(*spRoot, W("file.buffer_max"), 1.0));
      }
    }
  }
  m_bDropPackets.store(bDrop, std::memory_order_relaxed);
  m_levels = levels;
}

// ---------------------------------------------------------------------------
// Open

HRESULT CCoVCSplitter::SplitterOpen(BSTR _bsFilePath, BSTR _bsProps, LONG* _pnStreamsCount) {
  VC_GUARD_BEGIN
  ClearOut(_pnStreamsCount);
  const String strPath(InString(_bsFilePath));
  if (strPath.empty()) {
    VC_LOG(eVCLL_Error, "SplitterOpen() FAILED hr=%08X: no source path", E_INVALIDARG);
    return E_INVALIDARG;
  }
  // The inner splitter gets real BSTRs whatever the host passed.
  const CBstr bsPath(StringView{strPath});
  const CBstr bsProps(InString(_bsProps));
  const XMLParse::XMLNodePtr spProps = VCPropsSnapshot(*this);
  const bool bNablet = ReadPropBool(*spProps, W("nablet.enabled"), false) && Extension(strPath) == W("mxf");

  // One of the two candidates fits; its failure is the answer (no fallback
  // from the MXF splitter to the general one).
  std::vector<VCCandidate> vecTable = _SourceCandidates();
  VCCandidateWalk walk;
  walk.fnEligible = [bNablet](const VCCandidate& entry) {
    return IsEqualGUID(entry.clsid, CLSID_NabletMxfSplitter) == bNablet;
  };
  walk.pProps = spProps.get();
  walk.fnCreateFailed = [](const VCCandidate& entry, HRESULT hr) {
    VC_SPLITTER_ASSERT((((HRESULT)(hr)) >= 0));
    VC_LOG(eVCLL_Error, "CoCreateInstance(%ws) FAILED hr=%08X", GuidToString(entry.clsid).c_str(), hr);
  };
  walk.fnRefused = [&strPath](const VCCandidate&, HRESULT hr) {
    VC_LOG(eVCLL_Error, "cpVCSplitter->SplitterOpen(%ws) FAILED hr=%08X", strPath.c_str(), hr);
  };
  HRESULT hrOpen = S_OK;
  ComPtr<IVCSplitter> cpVCSplitter;
  const VCCandidateResult result = VCWalkCandidates(
      vecTable, walk,
      [&](IVCSplitter* pVCSplitter) {
        hrOpen = pVCSplitter->SplitterOpen(bsPath, bsProps, _pnStreamsCount);
        return SUCCEEDED(hrOpen) ? S_OK : hrOpen;
      },
      &cpVCSplitter);
  if (result.hr != S_OK) return FAILED(result.hrLast) ? result.hrLast : result.hr;
  VC_LOG(eVCLL_Progress, "cpVCSplitter->SplitterOpen(%ws) OK hr=%08X", strPath.c_str(), hrOpen);

  // The earlier source goes and this one comes in one step: a second open
  // racing this one waits here, so the inner object, the path and the
  // reading thread always belong to the same source.
  const bool bNetwork = !UrlScheme(strPath).empty();
  CKMutexLock lockOpen(m_csOpen);
  _CloseSource();
  CKAutoLock lockInner(m_csInner);
  m_inner.Swap(cpVCSplitter);
  m_strPath = strPath;
  m_bNetwork = bNetwork;
  m_bTimeOffset = false;
  m_llSeekingPos = -1;
  m_evSegmentDone.Set();
  m_evStop.Reset();
  m_evAbort.Reset();
  m_thread.ThreadStart([this, cpVCSplitter] { return _RunThread(cpVCSplitter); });
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Reading thread

DWORD CCoVCSplitter::_RunThread(ComPtr<IVCSplitter> cpVCSplitter) {
  const HRESULT hrInit = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  VC_SPLITTER_ASSERT(hrInit == S_OK);
  LONG nOrder = 0;
  LONGLONG rtSegment = -1;
  // After a failed read (end of file too) every queue is at its end: the
  // thread reads again only for a new segment, however often consumers
  // wake it meanwhile.
  bool bAtEnd = false;
  while (m_thread.RunFlag()) {
    if (!m_thread.WaitWake()) break;

    const LONGLONG llPos = m_llSeekingPos.exchange(-1);
    if (llPos >= 0) {
      bAtEnd = false;
      bool bStreamsChanged = false;
      _ApplySegment(cpVCSplitter.Get(), llPos, &bStreamsChanged);
      rtSegment = llPos;
      nOrder = 0;
      m_evSegmentDone.Set();
      if (bStreamsChanged) continue;  // the next wake starts reading
    }
    // The order counts packets only: an empty or failed read takes no number.
    if (bAtEnd) continue;
    if (_ReadOne(cpVCSplitter.Get(), nOrder, rtSegment, &bAtEnd)) ++nOrder;
  }
  if (SUCCEEDED(hrInit)) CoUninitialize();
  return 0;
}

void CCoVCSplitter::_ApplySegment(IVCSplitter* pVCSplitter, LONGLONG rtSegment, bool* pbStreamsChanged) {
  m_bTimeOffset = false;
  CBstr bsHints;
  {
    CKMutexLock lock(m_csHints);
    bsHints = m_cbsHints;
  }
  *pbStreamsChanged = false;
  if (bsHints.Get() && SysStringLen(bsHints) > 0) {
    const std::vector<LONG> vecStreams = ParseStreamList(bsHints.Get());
    if (m_streams.StreamsChanged(vecStreams)) {
      m_streams.DeqRemove(-1);
      for (LONG nStream : vecStreams) m_streams.SetAVIndex(nStream, -1);
      *pbStreamsChanged = true;
    }
  }
  // Queues that still hold this segment from its first packet are kept, and
  // then the source need not move.
  if (!*pbStreamsChanged && !m_streams.BeginSegment(-1, rtSegment, 1)) return;
  const HRESULT hr = pVCSplitter->SplitterBeginSegment(rtSegment, bsHints);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "cpVCSplitter->SplitterBeginSegment(%ws %ws) FAILED hr=%08X", TimeTextW(rtSegment).c_str(),
           bsHints.Get() ? bsHints.Get() : W(""), hr);
  }
}

LONGLONG CCoVCSplitter::_NetworkTimeOffset(IVCSplitter* pVCSplitter, const K_PACKET_INFO& info) {
  if (m_bTimeOffset.exchange(true)) return m_rtTimeOffset;
  m_rtTimeOffset = 0;
  CBstr bsPath, bsXml;
  LONG nStreams = 0;
  LONGLONG rtDuration = 0;
  if (FAILED(pVCSplitter->SplitterInfoGet(&bsPath, &bsXml, &nStreams, &rtDuration))) return 0;
  for (LONG n = 0; n < nStreams; ++n) {
    K_STREAM_INFO stream{};
    CBstr bsStreamXml;
    const HRESULT hr = pVCSplitter->SplitterStreamInfoGet(n, &stream, &bsStreamXml);
    SysFreeString(stream.bsCodecNameOrTag);
    if (FAILED(hr) || stream.eMediaType == eVCMT_Video) return 0;
  }
  LONGLONG llMin = std::min(info.llDts, info.llPts);
  if (llMin == VC_TIME_UNSET) llMin = 0;
  m_rtTimeOffset = llMin;
  return m_rtTimeOffset;
}

bool CCoVCSplitter::_ReadOne(IVCSplitter* pVCSplitter, LONG nOrder, LONGLONG rtSegment, bool* pbAtEnd) {
  ComPtr<IVCPacket> cpVCPacket;
  const HRESULT hr = pVCSplitter->SplitterPacketGet(-1, cpVCPacket.AddressOf(), nullptr);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "cpVCSplitter->SplitterPacketGet() FAILED hr=%08X", hr);
    m_streams.DeqEOS(-1, false);
    *pbAtEnd = true;
    return false;
  }
  if (!cpVCPacket) {
    m_thread.ThreadWake();
    return false;
  }
  const eVCMediaType eMediaType = VCPacketMediaType(cpVCPacket.Get());  // no copy of the description
  K_PACKET_INFO info{};
  cpVCPacket->PacketInfoGet(&info);
  info.nOrderInSegment = nOrder;
  info.rtSegmentStart = rtSegment;
  if (m_bNetwork.load()) {
    const LONGLONG llOffset = _NetworkTimeOffset(pVCSplitter, info);
    if (info.llDts != VC_TIME_UNSET) info.llDts -= llOffset;
    if (info.llPts != VC_TIME_UNSET) info.llPts -= llOffset;
  }
  cpVCPacket->PacketInfoSet(&info);

  _RefreshLevels();
  const LONGLONG rtReady = m_levels.rtReady;
  const LONGLONG rtFull = m_levels.rtFull;
  const LONGLONG rtMax = std::max(rtFull, rtReady + kFullAboveReady);
  const bool bAV = eMediaType == eVCMT_Video || eMediaType == eVCMT_Audio;
  const LONGLONG rtDuration = m_streams.PacketPut(cpVCPacket.Get(), false, bAV ? static_cast<double>(rtReady) : 0.0,
                                                  static_cast<double>(rtMax));
  const LONGLONG rtBuffered = m_streams.BufferedDuration(-1, -1, 3);
  if (rtBuffered >= rtMax) {
    VC_LOG(eVCLL_Progress, "Deq(%d):%ws - FULL Max:%ws", info.nStreamIndex, TimeTextW(rtDuration).c_str(),
           TimeTextW(rtMax).c_str());
  } else {
    VC_LOG(eVCLL_Progress, "Deq(%d):%ws - AWAKE THREAD Max:%ws", info.nStreamIndex, TimeTextW(rtDuration).c_str(),
           TimeTextW(rtMax).c_str());
    m_thread.ThreadWake();
  }
  _UpdateStatistics(info.nStreamIndex);
  return true;
}

bool CCoVCSplitter::_UpdateStatistics(LONG nStream, bool bForce) {
  XMLParse::XMLNodePtr spRoot;
  {
    CKAutoLock lock(m_csLock);
    spRoot = _PropsRootLocked();
  }
  return VCPacketsUpdateStatistics(m_streams, nStream, spRoot.get(), m_csLock, bForce);
}

// ---------------------------------------------------------------------------
// Delivery and segments

// The information calls run under m_csInner, so they wait until a seek in
// progress has been applied (see docs/decisions.md).
HRESULT CCoVCSplitter::SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                       LONGLONG* _prtTotalDuration) {
  VC_GUARD_BEGIN
  CKAutoLock lock(m_csInner);
  ComPtr<IVCSplitter> cpVCSplitter = m_inner.Ref();
  if (!cpVCSplitter) {
    ClearOut(_pbsFilePath);
    ClearOut(_pbsXMLInfo);
    ClearOut(_pnStreamsCount);
    ClearOut(_prtTotalDuration);
    return VC_E_EMPTY;
  }
  return cpVCSplitter->SplitterInfoGet(_pbsFilePath, _pbsXMLInfo, _pnStreamsCount, _prtTotalDuration);
  VC_GUARD_END
}

HRESULT CCoVCSplitter::SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo, BSTR* _pbsStreamXMLInfo) {
  VC_GUARD_BEGIN
  CKAutoLock lock(m_csInner);
  ComPtr<IVCSplitter> cpVCSplitter = m_inner.Ref();
  if (!cpVCSplitter) {
    ClearOut(_pbsStreamXMLInfo);
    return VC_E_EMPTY;
  }
  return cpVCSplitter->SplitterStreamInfoGet(_nStream, _pStreamInfo, _pbsStreamXMLInfo);
  VC_GUARD_END
}

DWORD CCoVCSplitter::_FirstSegmentWait() {
  const OLECHAR* szProp = _FirstWaitProperty(m_strPath);
  if (!szProp) return kFirstSegmentWait;
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  const int64_t llWait = spRoot ? ReadPropInt(*spRoot, szProp, kFirstSegmentWaitMissing) : kFirstSegmentWaitMissing;
  return static_cast<DWORD>(std::clamp<int64_t>(llWait, 0, 0x7FFFFFFF));
}

bool CCoVCSplitter::_WaitSegmentDone(DWORD dwWait, bool* pbAborted) {
  CKEvent* const events[] = {&m_evSegmentDone, &m_evAbort};
  const int nSignalled = CKEvent::WaitAny(std::span<CKEvent* const>(events), dwWait);
  *pbAborted = nSignalled == 1;  // done wins when both are set
  return nSignalled == 0;
}

HRESULT CCoVCSplitter::SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) {
  VC_GUARD_BEGIN
  VC_SPLITTER_ASSERT(_rtSegmentStart >= 0);
  if (_rtSegmentStart < 0) return E_INVALIDARG;
  m_bTimeOffset = false;

  CKAutoLock lock(m_csInner);
  ComPtr<IVCSplitter> cpVCSplitter = m_inner.Ref();
  if (!cpVCSplitter) return VC_E_EMPTY;

  const StringView hints = InString(_bsHints);
  bool bStreamsChange = false;
  if (!hints.empty()) bStreamsChange = m_streams.StreamsChanged(ParseStreamList(String(hints).c_str()));
  if (bStreamsChange && !m_evSegmentDone.IsSet()) cpVCSplitter->SplitterStop();

  m_evSegmentDone.Reset();
  {
    CKMutexLock lockHints(m_csHints);
    VC_SPLITTER_ASSERT(m_llSeekingPos < 0 && ( !(m_cbsHints) || !(m_cbsHints)[0] ));
    m_cbsHints = CBstr(hints);
  }
  m_llSeekingPos = _rtSegmentStart;
  m_thread.ThreadWake();

  // A request still pending after the first wait means the thread sits in a
  // read: break it. One the thread has taken is being applied (a seek, which
  // may reopen the source): stopping would only abort the seek itself.
  bool bAborted = false;
  bool bDone = _WaitSegmentDone(_FirstSegmentWait(), &bAborted);
  if (!bDone && !bAborted) {
    if (m_llSeekingPos.load() >= 0) cpVCSplitter->SplitterStop();
    bDone = _WaitSegmentDone(kSecondSegmentWait, &bAborted);
  }
  {
    CKMutexLock lockHints(m_csHints);
    m_cbsHints = CBstr();
  }
  if (!bDone) {
    m_llSeekingPos = -1;  // withdrawn
    const HRESULT hr = bAborted ? VC_E_ABORTED : VC_E_TIMEOUT;
    VC_LOG(eVCLL_Error, "SplitterBeginSegment(%ws) FAILED hr=%08X", TimeTextW(_rtSegmentStart).c_str(), hr);
    return hr;
  }
  VC_SPLITTER_ASSERT(m_llSeekingPos == -1);
  m_evStop.Reset();
  return S_OK;
  VC_GUARD_END
}

HRESULT CCoVCSplitter::SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR _bsHints) {
  VC_GUARD_BEGIN
  VC_TRACE("SplitterPacketGet\n");
  ClearOut(_ppPacket);
  const StringView hints = InString(_bsHints);
  // Most calls come without hints: no tree is built for them.
  XMLParse::XMLNodePtr spHints;
  if (!hints.empty()) {
    spHints = XMLParse::CoXMLNode::Create();
    spHints->Parse(hints);
  }

  if (spHints && ReadPropBool(*spHints, W("direct"), false)) {
    ComPtr<IVCSplitter> cpVCSplitter = m_inner.Ref();
    if (!cpVCSplitter) return VC_E_EMPTY;
    return cpVCSplitter->SplitterPacketGet(_nStreamIdx, _ppPacket, CBstr(hints));
  }

  if (!m_inner.Has()) return VC_E_EMPTY;
  DWORD dwWait = CKEvent::kInfinite;
  if (m_bNetwork.load()) {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    const int64_t llReconnect = spRoot ? ReadPropInt(*spRoot, W("network.reconnect.max_wait"), 0) : 0;
    if (llReconnect >= 1) dwWait = static_cast<DWORD>(std::min<int64_t>(llReconnect, 0x7FFFFFFF));
  }
  const int64_t llHintWait = spHints ? ReadPropInt(*spHints, W("max_wait"), -1) : -1;
  if (llHintWait >= 0) dwWait = static_cast<DWORD>(std::min<int64_t>(llHintWait, 0x7FFFFFFF));

  LONG nStream = _nStreamIdx;
  if (nStream < 0) {
    // Any stream: while every queue is empty, wait for whichever fills
    // first, so that one stream's end does not end the others (the next
    // packet may well come on a stream nobody was waiting for).
    const HRESULT hr = _WaitAnyStream(dwWait, &nStream);
    if (FAILED(hr)) return hr;
  }
  CKEventPtr hReady = m_streams.ReadyEventGet(nStream, false);
  if (!hReady) return VC_E_BAD_STREAM;

  m_streams.SetWaitStream(nStream, true);
  if (!hReady->IsSet()) {
    m_thread.ThreadWake();
    const bool bReady = hReady->Wait(dwWait);
    m_streams.SetWaitStream(nStream, false);
    if (!bReady) return VC_E_TIMEOUT;
  }
  m_streams.SetWaitStream(nStream, false);

  ComPtr<IVCPacket> cpVCPacket;
  LONG nAVIndex = 0;
  LONGLONG rtBefore = 0;
  const HRESULT hr = m_streams.PacketGet(cpVCPacket.AddressOf(), nStream, true, nullptr, &nAVIndex, &rtBefore);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "PacketsGet(%d) FAILED hr=%08X\n", nStream, hr);
    // The stream's last word: its final values are published whatever the
    // interval, so a short source still leaves its statistics behind.
    if (hr == VC_E_END_OF_MEDIA) {
      if (_nStreamIdx >= 0) {
        _UpdateStatistics(nStream, true);
      } else {
        for (LONG n : m_streams.Streams()) _UpdateStatistics(n, true);  // every stream has ended
      }
    }
    return hr;
  }
  VC_SPLITTER_ASSERT(cpVCPacket);
  if (!cpVCPacket) return VC_E_EMPTY;
  _UpdateStatistics(nStream);
  if (rtBefore >= kWakeBelow) {
    VC_LOG(eVCLL_Progress, "[%ws] Deq:%ws - FULL", PacketText(cpVCPacket.Get()).c_str(),
           TimeTextW(rtBefore).c_str());
  } else {
    VC_LOG(eVCLL_Progress, "[%ws] Deq:%ws - AWAKE THREAD", PacketText(cpVCPacket.Get()).c_str(),
           TimeTextW(rtBefore).c_str());
    m_thread.ThreadWake();
  }
  return cpVCPacket.CopyTo(_ppPacket);
  VC_GUARD_END
}

HRESULT CCoVCSplitter::_WaitAnyStream(DWORD dwWait, LONG* pnStream) {
  const auto tpDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(dwWait);
  for (;;) {
    LONG nStream = m_streams.NextStream();
    if (nStream < 0) nStream = 0;
    *pnStream = nStream;
    auto pDeq = m_streams._GetDeq(nStream, false);
    if (!pDeq || pDeq->DeqSize() > 0) return S_OK;  // packets first in source order, or no such queue
    bool bAllEnded = false;
    const std::vector<CKEventPtr> vecEvents = m_streams.ReadyEventsNotEnded(&bAllEnded);
    if (bAllEnded) return S_OK;  // the chosen queue answers end of media
    if (std::any_of(vecEvents.begin(), vecEvents.end(), [](const CKEventPtr& h) { return h->IsSet(); })) continue;
    m_thread.ThreadWake();
    DWORD dwLeft = CKEvent::kInfinite;
    if (dwWait != CKEvent::kInfinite) {
      const auto msLeft = std::chrono::duration_cast<std::chrono::milliseconds>(tpDeadline -
                                                                                std::chrono::steady_clock::now());
      dwLeft = static_cast<DWORD>(std::max<int64_t>(msLeft.count(), 0));
    }
    if (CKEvent::WaitAny(std::span<const CKEventPtr>(vecEvents), dwLeft) < 0) return VC_E_TIMEOUT;
  }
}

HRESULT CCoVCSplitter::SplitterStop() {
  VC_GUARD_BEGIN
  ComPtr<IVCSplitter> cpVCSplitter = m_inner.Ref();
  if (!cpVCSplitter) return S_FALSE;
  m_evStop.Set();
  cpVCSplitter->SplitterStop();
  m_bNetwork = false;
  return S_OK;
  VC_GUARD_END
}

HRESULT CCoVCSplitter::SplitterClose() {
  VC_GUARD_BEGIN
  CKMutexLock lockOpen(m_csOpen);
  _CloseSource();
  return S_OK;
  VC_GUARD_END
}

void CCoVCSplitter::_CloseSource() {
  SplitterStop();
  // A segment request waiting for the thread gives up now; it would
  // otherwise keep m_csInner (and this close) waiting for a thread that has
  // gone.
  m_evAbort.Set();
  m_thread.ThreadStop();
  // Closed means closed: the source is let go here, not when the host
  // happens to release the facade, and every call answers "nothing open".
  ComPtr<IVCSplitter> cpVCSplitter;
  {
    CKAutoLock lock(m_csInner);
    cpVCSplitter = m_inner.Detach();
    m_strPath.clear();
  }
  // Consumers still waiting on a queue see its end rather than sleep on.
  m_streams.DeqEOS(-1, false);
  m_streams.DeqRemove(-1);
  if (cpVCSplitter) {
    const HRESULT hr = cpVCSplitter->SplitterClose();
    if (FAILED(hr)) VC_LOG(eVCLL_Retry, "cpVCSplitter->SplitterClose() FAILED hr=%08X", hr);
  }
}

}  // namespace vc
