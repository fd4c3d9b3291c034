#include "FFSplitter.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/time.h>
}

#include <algorithm>
#include <new>

#include "FFClasses.h"
#include "FFCommon.h"
#include "FFPacket.h"
#include "KPropsOps.h"
#include "KPropsRead.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"
#include "VCTimeText.h"

namespace vc::ff {

namespace {

constexpr int64_t kOpenUrlWaitMs = 15000;
constexpr int64_t kOpenFileWaitMs = 10000;
constexpr int64_t kReadUrlWaitMs = 30000;
constexpr int64_t kReadFileWaitMs = 10000;
constexpr HRESULT kAbortedHr = HRESULT_FROM_WIN32(ERROR_OPERATION_ABORTED);

// Why the interrupt callback broke a transfer.
constexpr int kReasonNone = 0;
constexpr int kReasonStopped = 1;
constexpr int kReasonTimedOut = 2;

// A scheme (letters, digits, '+', '-', '.') followed by "://", other than "file".
bool IsNetworkPath(StringView path) {
  const size_t nColon = path.find(u"://");
  if (nColon == StringView::npos || nColon == 0) return false;
  const StringView scheme = path.substr(0, nColon);
  for (OLECHAR c : scheme) {
    const bool bAlnum = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
    if (!bAlnum && c != u'+' && c != u'-' && c != u'.') return false;
  }
  return !StrIEquals(scheme, u"file");
}

eVCPacketFlags FlagsOf(int nAvFlags) {
  int nFlags = eVCPF_None;
  if (nAvFlags & AV_PKT_FLAG_KEY) nFlags |= eVCPF_KeyFrame;
  if (nAvFlags & AV_PKT_FLAG_CORRUPT) nFlags |= eVCPF_AvCorrupt;
  if (nAvFlags & AV_PKT_FLAG_DISCARD) nFlags |= eVCPF_AvDiscard;
  if (nAvFlags & AV_PKT_FLAG_TRUSTED) nFlags |= eVCPF_AvTrusted;
  if (nAvFlags & AV_PKT_FLAG_DISPOSABLE) nFlags |= eVCPF_AvDisposable;
  return static_cast<eVCPacketFlags>(nFlags);
}

HRESULT CopyOut(StringView text, BSTR* pbs) {
  *pbs = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return *pbs ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

// ---------------------------------------------------------------------------
// Object


CFFSplitter::CFFSplitter() = default;
CFFSplitter::~CFFSplitter() = default;

void CFFSplitter::FinalRelease() { SplitterClose(); }

int CFFSplitter::_InterruptCallback(void* pContext) {
  auto* pInterrupt = static_cast<CInterrupt*>(pContext);
  int nReason = kReasonNone;
  if (pInterrupt->bStop.load(std::memory_order_relaxed) || pInterrupt->nTakeovers.load(std::memory_order_relaxed) > 0) {
    nReason = kReasonStopped;
  } else if (const int64_t llWaitUs = pInterrupt->llWaitUs.load(std::memory_order_relaxed); llWaitUs > 0) {
    // The clock starts at the call's first transfer: a read served from
    // FFmpeg's buffer never asks, and never pays for the clock.
    const int64_t llNow = av_gettime_relative();
    const int64_t llDeadline = pInterrupt->llDeadline.load(std::memory_order_relaxed);
    if (llDeadline == 0) pInterrupt->llDeadline.store(llNow + llWaitUs, std::memory_order_relaxed);
    else if (llNow > llDeadline) nReason = kReasonTimedOut;
  }
  if (nReason == kReasonNone) return 0;
  int nExpected = kReasonNone;
  pInterrupt->nReason.compare_exchange_strong(nExpected, nReason);
  return 1;
}

void CFFSplitter::_ArmDeadline(int64_t llWaitMs) {
  m_interrupt.llDeadline.store(0, std::memory_order_relaxed);
  m_interrupt.llWaitUs.store(llWaitMs > 0 ? llWaitMs * 1000 : 0, std::memory_order_relaxed);
}

void CFFSplitter::_Revive() {
  if (m_interrupt.nReason.exchange(kReasonNone) == kReasonNone) return;
  // A transfer the callback broke leaves the I/O context at its end with
  // AVERROR_EXIT, and FFmpeg would never read from it again; the data may
  // well still come (a live source that paused).
  if (AVIOContext* pIo = m_spFormat ? m_spFormat->pb : nullptr) {
    pIo->eof_reached = 0;
    pIo->error = 0;
  }
}

HRESULT CFFSplitter::_FailureHr(int nAvError) const {
  if (m_interrupt.bStop.load() || m_interrupt.nTakeovers.load() > 0) return kAbortedHr;
  // Once a transfer was broken, what FFmpeg reports afterwards (often "end
  // of file") is a consequence of that.
  switch (m_interrupt.nReason.load()) {
    case kReasonTimedOut:
      return VC_E_TIMEOUT;
    case kReasonStopped:
      return kAbortedHr;
    default:
      return AvErrorToHr(nAvError);
  }
}

// ---------------------------------------------------------------------------
// Open and close

HRESULT CFFSplitter::_ApplyPropsText(BSTR bsProps) {
  if (InString(bsProps).empty()) return S_OK;
  CKAutoLock lock(m_csLock);
  const XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return E_FAIL;
  bool bChanged = false;
  return props::SetInTree(*spRoot, {}, InString(bsProps), false, &bChanged);
}

HRESULT CFFSplitter::_ReadSettings(bool bNetwork, COpenSettings* pSettings) {
  CKAutoLock lock(m_csLock);
  const XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return E_FAIL;
  const XMLParse::CoXMLNode& root = *spRoot;
  pSettings->tracks.strVideo = ReadPropText(root, u"video_track", u"");
  pSettings->tracks.strAudio = ReadPropText(root, u"audio_track", u"");
  pSettings->tracks.strSubtitle = ReadPropText(root, u"subtitle_track", u"");
  pSettings->tracks.llProgram = ReadPropInt(root, u"ts_program", -1);
  pSettings->llOpenWaitMs = bNetwork ? ReadPropInt(root, u"open_url.max_wait", kOpenUrlWaitMs)
                                     : ReadPropInt(root, u"open_file.max_wait", kOpenFileWaitMs);
  pSettings->llReadWaitMs = bNetwork ? ReadPropInt(root, u"read_url.max_wait", kReadUrlWaitMs)
                                     : ReadPropInt(root, u"read_file.max_wait", kReadFileWaitMs);
  pSettings->strInputFormat = ToUtf8(ReadPropText(root, u"input_format", u""));
  return S_OK;
}

HRESULT CFFSplitter::SplitterOpen(BSTR _bsFilePath, BSTR _bsProps, LONG* _pnStreamsCount) {
  VC_GUARD_BEGIN
  if (_pnStreamsCount) *_pnStreamsCount = 0;
  const StringView path = InString(_bsFilePath);
  if (path.empty()) {
    VC_LOG(eVCLL_Error, "SplitterOpen() FAILED hr=%08X: no path\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  HRESULT hr = _ApplyPropsText(_bsProps);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "SplitterOpen(%ws) FAILED hr=%08X: the properties '%ws' do not parse\n", _bsFilePath, hr,
           _bsProps);
    return hr;
  }
  const bool bNetwork = IsNetworkPath(path);
  COpenSettings settings;
  hr = _ReadSettings(bNetwork, &settings);
  if (FAILED(hr)) return hr;
  InstallAvLogBridge();

  // A read that blocks on the previous source lets go of the I/O lock.
  ++m_interrupt.nTakeovers;
  CKMutexLock io(m_mtxIo);
  --m_interrupt.nTakeovers;
  _CloseLocked();
  m_interrupt.bStop.store(false);
  m_interrupt.nReason.store(kReasonNone);
  LONG nStreams = 0;
  m_bOpening.store(true);
  try {
    hr = _OpenLocked(String(path), settings, &nStreams);
  } catch (const std::bad_alloc&) {
    hr = E_OUTOFMEMORY;
    VC_LOG(eVCLL_Error, "SplitterOpen(%ws) FAILED hr=%08X: out of memory\n", _bsFilePath, hr);
  }
  m_bOpening.store(false);
  if (FAILED(hr)) {
    _CloseLocked();
    return hr;
  }
  if (_pnStreamsCount) *_pnStreamsCount = nStreams;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFSplitter::_OpenFormat(const String& strPath, const COpenSettings& settings, AVFormatPtr* pspFormat) {
  const AVInputFormat* pInput = nullptr;
  if (!settings.strInputFormat.empty()) {
    pInput = av_find_input_format(settings.strInputFormat.c_str());
    if (!pInput) {
      const HRESULT hr = HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);
      VC_LOG(eVCLL_Error, "SplitterOpen(%ws) FAILED hr=%08X: no demuxer called '%hs'\n", strPath.c_str(), hr,
             settings.strInputFormat.c_str());
      return hr;
    }
  }
  AVFormatContext* pFormat = avformat_alloc_context();
  if (!pFormat) return E_OUTOFMEMORY;
  pFormat->interrupt_callback.callback = &_InterruptCallback;
  pFormat->interrupt_callback.opaque = &m_interrupt;

  // The open wait covers the connection, the header and the stream probing.
  _ArmDeadline(settings.llOpenWaitMs);
  int nRet = avformat_open_input(&pFormat, ToUtf8(strPath).c_str(), pInput, nullptr);  // frees pFormat on failure
  AVFormatPtr spFormat(nRet >= 0 ? pFormat : nullptr);
  const char* szStep = "avformat_open_input";
  if (nRet >= 0) {
    nRet = avformat_find_stream_info(pFormat, nullptr);
    szStep = "avformat_find_stream_info";
    // Probing that the wait or a stop broke off still "succeeds" with what it
    // had, and the source is then left at an interrupted end: a server that
    // went silent after the header would open, take the whole wait, and
    // deliver nothing. The wait is for the whole open, so that is its end.
    if (nRet >= 0 && m_interrupt.nReason.load() != kReasonNone) nRet = AVERROR_EXIT;
  }
  _DisarmDeadline();
  if (nRet < 0) {
    const HRESULT hr = _FailureHr(nRet);
    VC_LOG(eVCLL_Error, "SplitterOpen(%ws) FAILED hr=%08X: %hs: %hs\n", strPath.c_str(), hr, szStep,
           AvErrorText(nRet).c_str());
    return hr;
  }
  if (pFormat->nb_streams == 0) {
    const HRESULT hr = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    VC_LOG(eVCLL_Error, "SplitterOpen(%ws) FAILED hr=%08X: the source has no streams\n", strPath.c_str(), hr);
    return hr;
  }
  *pspFormat = std::move(spFormat);
  return S_OK;
}

HRESULT CFFSplitter::_OpenLocked(const String& strPath, const COpenSettings& settings, LONG* pnStreams) {
  AVFormatPtr spFormat;
  HRESULT hr = _OpenFormat(strPath, settings, &spFormat);
  if (FAILED(hr)) return hr;
  std::vector<bool> vecSelected;
  std::string strError;
  if (!SelectStreams(spFormat.get(), settings.tracks, &vecSelected, &strError)) {
    VC_LOG(eVCLL_Error, "SplitterOpen(%ws) FAILED hr=%08X: %hs\n", strPath.c_str(), E_INVALIDARG, strError.c_str());
    return E_INVALIDARG;
  }
  m_spReadPacket.reset(av_packet_alloc());
  if (!m_spReadPacket) return E_OUTOFMEMORY;
  const std::shared_ptr<const CFFSourceDesc> spDesc = DescribeSource(spFormat.get(), strPath);

  const size_t nStreams = vecSelected.size();
  m_vecStreams.assign(nStreams, CStreamState{});
  LONG nSelected = 0;
  for (size_t n = 0; n < nStreams; ++n) {
    const CFFStreamDesc& stream = spDesc->vecStreams[n];
    m_vecStreams[n].bSelected = vecSelected[n];
    m_vecStreams[n].bVideo = stream.info.eMediaType == eVCMT_Video && !stream.bAttachedPicture;
    nSelected += vecSelected[n] ? 1 : 0;
  }
  m_spFormat = std::move(spFormat);
  m_spIoDesc = spDesc;
  m_llReadWaitMs = settings.llReadWaitMs;
  m_openSettings = settings;
  m_bUntouched = true;
  m_bAtEnd = false;
  m_rtSegmentStart = 0;
  m_nOrderInSegment = 0;
  m_rtLastEnd = VC_TIME_UNSET;
  _ApplyDiscard();
  _PublishSideData(*spDesc);
  {
    CKAutoLock lock(m_csLock);
    m_spDesc = spDesc;
  }
  *pnStreams = static_cast<LONG>(nStreams);
  if (nSelected == 0) VC_LOG(eVCLL_Retry, "SplitterOpen(%ws): the track settings select no stream\n", strPath.c_str());
  VC_LOG(eVCLL_Progress, "SplitterOpen(%ws) OK: %ws, %d streams (%d delivered), duration %ws\n", strPath.c_str(),
         spDesc->strFormatName.c_str(), *pnStreams, nSelected, TimeTextW(spDesc->rtDuration).c_str());
  return S_OK;
}

void CFFSplitter::_PublishSideData(const CFFSourceDesc& desc) {
  m_sideData.Reset(static_cast<LONG>(desc.vecStreams.size()));
  for (const auto& [key, value] : desc.tags) m_sideData.PutString(-1, key, value);
  for (size_t n = 0; n < desc.vecStreams.size(); ++n) {
    const CFFStreamDesc& stream = desc.vecStreams[n];
    for (const auto& [key, value] : stream.tags) m_sideData.PutString(static_cast<LONG>(n), key, value);
    for (const auto& [name, bytes] : stream.vecSideData) m_sideData.PutBytes(static_cast<LONG>(n), name, bytes);
  }
}

void CFFSplitter::_CloseLocked() {
  m_deqHeld.clear();
  m_spReadPacket.reset();
  m_spFormat.reset();
  m_spIoDesc.reset();
  m_vecStreams.clear();
  m_bUntouched = false;
  m_bAtEnd = false;
  {
    CKAutoLock lock(m_csLock);
    m_spDesc.reset();
  }
  m_sideData.Reset(0);
}

HRESULT CFFSplitter::SplitterClose() {
  VC_GUARD_BEGIN
  ++m_interrupt.nTakeovers;
  CKMutexLock io(m_mtxIo);
  --m_interrupt.nTakeovers;
  const bool bWasOpen = m_spFormat != nullptr;
  _CloseLocked();
  m_interrupt.bStop.store(false);
  if (bWasOpen) VC_LOG(eVCLL_Progress, "SplitterClose() OK\n");
  return bWasOpen ? S_OK : S_FALSE;
  VC_GUARD_END
}

HRESULT CFFSplitter::SplitterStop() {
  VC_GUARD_BEGIN
  m_interrupt.bStop.store(true);
  bool bOpen = m_bOpening.load();
  {
    CKAutoLock lock(m_csLock);
    bOpen = bOpen || m_spDesc != nullptr;
  }
  VC_LOG(eVCLL_Progress, "SplitterStop()%hs\n", bOpen ? "" : ": nothing open");
  return bOpen ? S_OK : S_FALSE;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Information

HRESULT CFFSplitter::SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                     LONGLONG* _prtTotalDuration) {
  VC_GUARD_BEGIN
  ClearOut(_pbsFilePath);
  ClearOut(_pbsXMLInfo);
  ClearOut(_pnStreamsCount);
  ClearOut(_prtTotalDuration);
  std::shared_ptr<const CFFSourceDesc> spDesc;
  {
    CKAutoLock lock(m_csLock);
    spDesc = m_spDesc;
  }
  if (!spDesc) return VC_E_EMPTY;
  if (_pbsFilePath && FAILED(CopyOut(spDesc->strPath, _pbsFilePath))) return E_OUTOFMEMORY;
  if (_pbsXMLInfo && FAILED(CopyOut(spDesc->strXml, _pbsXMLInfo))) {
    if (_pbsFilePath) {
      SysFreeString(*_pbsFilePath);
      *_pbsFilePath = nullptr;
    }
    return E_OUTOFMEMORY;
  }
  if (_pnStreamsCount) *_pnStreamsCount = static_cast<LONG>(spDesc->vecStreams.size());
  if (_prtTotalDuration) *_prtTotalDuration = spDesc->rtDuration;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFSplitter::SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo, BSTR* _pbsStreamXMLInfo) {
  VC_GUARD_BEGIN
  if (!_pStreamInfo && !_pbsStreamXMLInfo) return E_POINTER;
  if (_pStreamInfo) *_pStreamInfo = K_STREAM_INFO{};
  ClearOut(_pbsStreamXMLInfo);
  std::shared_ptr<const CFFSourceDesc> spDesc;
  {
    CKAutoLock lock(m_csLock);
    spDesc = m_spDesc;
  }
  if (!spDesc) return VC_E_EMPTY;
  if (_nStream < 0 || static_cast<size_t>(_nStream) >= spDesc->vecStreams.size()) {
    VC_LOG(eVCLL_Error, "SplitterStreamInfoGet(%d) FAILED hr=%08X: the source has %d streams\n", _nStream,
           VC_E_BAD_STREAM, static_cast<int>(spDesc->vecStreams.size()));
    return VC_E_BAD_STREAM;
  }
  const CFFStreamDesc& stream = spDesc->vecStreams[static_cast<size_t>(_nStream)];
  if (_pbsStreamXMLInfo && FAILED(CopyOut(stream.strXml, _pbsStreamXMLInfo))) return E_OUTOFMEMORY;
  if (_pStreamInfo) {
    // The codec data stays ours (valid while the source is open); the name is the caller's copy.
    K_STREAM_INFO info = stream.info;
    if (FAILED(CopyOut(stream.bsCodecName.View(), &info.bsCodecNameOrTag))) {
      if (_pbsStreamXMLInfo) {
        SysFreeString(*_pbsStreamXMLInfo);
        *_pbsStreamXMLInfo = nullptr;
      }
      return E_OUTOFMEMORY;
    }
    *_pStreamInfo = info;
  }
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Reading

int64_t CFFSplitter::_PacketWaitMs(BSTR bsHints) const {
  if (InString(bsHints).empty()) return m_llReadWaitMs;
  try {
    const XMLParse::XMLNodePtr spHints = XMLParse::CoXMLNode::Create(u"hints");
    if (FAILED(spHints->Parse(InString(bsHints)))) return m_llReadWaitMs;
    return ReadPropInt(*spHints, u"max_wait", m_llReadWaitMs);
  } catch (const std::bad_alloc&) {
    return m_llReadWaitMs;
  }
}

HRESULT CFFSplitter::SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR _bsHints) {
  VC_GUARD_BEGIN
  if (!_ppPacket) return E_POINTER;
  *_ppPacket = nullptr;
  CKMutexLock io(m_mtxIo);
  if (!m_spFormat) return VC_E_EMPTY;
  const LONG nStreams = static_cast<LONG>(m_vecStreams.size());
  if (_nStreamIdx < -1 || _nStreamIdx >= nStreams ||
      (_nStreamIdx >= 0 && !m_vecStreams[static_cast<size_t>(_nStreamIdx)].bSelected)) {
    VC_LOG(eVCLL_Error, "SplitterPacketGet(%d) FAILED hr=%08X: no such stream delivered\n", _nStreamIdx,
           VC_E_BAD_STREAM);
    return VC_E_BAD_STREAM;
  }
  if (m_interrupt.bStop.load()) {
    VC_LOG(eVCLL_Error, "SplitterPacketGet(%d) FAILED hr=%08X: stopped until the next segment\n", _nStreamIdx,
           kAbortedHr);
    return kAbortedHr;
  }

  // Packets read earlier for the sake of another stream go first, in source order.
  for (auto it = m_deqHeld.begin(); it != m_deqHeld.end(); ++it) {
    if (_nStreamIdx >= 0 && it->info.nStreamIndex != _nStreamIdx) continue;
    CReadPacket packet = std::move(*it);
    m_deqHeld.erase(it);
    return _Deliver(packet, _ppPacket);
  }
  const int64_t llWaitMs = _PacketWaitMs(_bsHints);
  for (;;) {
    if (m_deqHeld.size() >= kMaxHeldPackets) {
      VC_LOG(eVCLL_Retry, "SplitterPacketGet(%d): %d packets of other streams held, none of this one\n", _nStreamIdx,
             static_cast<int>(m_deqHeld.size()));
      return VC_E_EMPTY;
    }
    CReadPacket packet;
    const HRESULT hr = _ReadNext(llWaitMs, &packet);
    if (FAILED(hr)) return hr;
    if (_nStreamIdx < 0 || packet.info.nStreamIndex == _nStreamIdx) return _Deliver(packet, _ppPacket);
    packet.spPacket.reset(av_packet_alloc());
    if (!packet.spPacket) return E_OUTOFMEMORY;
    av_packet_move_ref(packet.spPacket.get(), m_spReadPacket.get());
    m_deqHeld.push_back(std::move(packet));
  }
  VC_GUARD_END
}

HRESULT CFFSplitter::_ReadNext(int64_t llWaitMs, CReadPacket* pOut) {
  AVFormatContext* pFormat = m_spFormat.get();
  AVPacket* pPacket = m_spReadPacket.get();
  for (;;) {
    _ArmDeadline(llWaitMs);
    const int nRet = av_read_frame(pFormat, pPacket);
    _DisarmDeadline();
    if (nRet < 0) return _ReadFailed(nRet);
    m_bUntouched = false;
    const int nStream = pPacket->stream_index;
    // Streams that appear after the open are not described, so not delivered.
    if (nStream < 0 || static_cast<size_t>(nStream) >= m_vecStreams.size() || !m_vecStreams[nStream].bSelected) {
      av_packet_unref(pPacket);
      continue;
    }
    CStreamState& state = m_vecStreams[static_cast<size_t>(nStream)];
    if (state.bWaitKey) {
      if (!(pPacket->flags & AV_PKT_FLAG_KEY)) {
        av_packet_unref(pPacket);
        continue;
      }
      state.bWaitKey = false;
    }
    m_bAtEnd = false;
    _Describe(*pPacket, state, pOut);
    return S_OK;
  }
}

void CFFSplitter::_Describe(const AVPacket& packet, CStreamState& state, CReadPacket* pOut) {
  const bool bKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  state.nSinceKey = bKey ? 0 : (state.nSinceKey < 0 ? -1 : state.nSinceKey + 1);

  K_PACKET_INFO& info = pOut->info;
  info = K_PACKET_INFO{};
  info.eFlags = FlagsOf(packet.flags);
  info.llDts = packet.dts;
  info.llPts = packet.pts;
  info.llDuration = packet.duration;
  info.rtSegmentStart = m_rtSegmentStart;
  info.nIndexInSegment = state.nIndexInSegment++;
  info.nOrderInSegment = m_nOrderInSegment++;
  info.nKeyDistance = state.nSinceKey;
  info.nStreamIndex = packet.stream_index;
  info.llFilePos = packet.pos;
  if (packet.side_data_elems > 0) {
    // The first entry travels with the packet (the packet copies it);
    // nSideDatatype is FFmpeg's AVPacketSideDataType.
    const AVPacketSideData& side = packet.side_data[0];
    info.lpSideData = static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(side.data));
    info.cbSideData = static_cast<LONG>(side.size);
    info.nSideDatatype = side.type;
    info.nSideDataElems = packet.side_data_elems;
  }

  const AVRational tb = m_spFormat->streams[packet.stream_index]->time_base;
  const int64_t llStart = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  K_TIME& time = pOut->time;
  time = K_TIME{};
  time.rtStartTime = ToRefTime(llStart, tb);
  time.rtEndTime = time.rtStartTime;
  if (time.rtStartTime != VC_TIME_UNSET && packet.duration > 0)
    time.rtEndTime = time.rtStartTime + ToRefTime(packet.duration, tb);
  if (time.rtEndTime != VC_TIME_UNSET && (m_rtLastEnd == VC_TIME_UNSET || time.rtEndTime > m_rtLastEnd))
    m_rtLastEnd = time.rtEndTime;
}

HRESULT CFFSplitter::_ReadFailed(int nAvError) {
  const HRESULT hr = _FailureHr(nAvError);
  if (hr != VC_E_END_OF_MEDIA) {
    VC_LOG(eVCLL_Error, "SplitterPacketGet(%ws) FAILED hr=%08X: av_read_frame: %hs\n", m_spIoDesc->strPath.c_str(),
           hr, AvErrorText(nAvError).c_str());
    return hr;
  }
  if (m_bAtEnd) return hr;
  m_bAtEnd = true;
  VC_LOG(eVCLL_Progress, "SplitterPacketGet(%ws): end of media\n", m_spIoDesc->strPath.c_str());
  // A source that ends well before the end its header declares was cut off.
  const CFFSourceDesc& desc = *m_spIoDesc;
  if (desc.rtDuration != VC_TIME_UNSET && m_rtLastEnd != VC_TIME_UNSET) {
    const LONGLONG rtDeclaredEnd = desc.rtDuration + (desc.rtStartTime == VC_TIME_UNSET ? 0 : desc.rtStartTime);
    const LONGLONG rtTolerance = std::max<LONGLONG>(5000000, desc.rtDuration / 10);
    if (rtDeclaredEnd - m_rtLastEnd > rtTolerance) {
      VC_LOG(eVCLL_Retry, "SplitterPacketGet(%ws): the source ends at %ws, before its declared end %ws (truncated?)\n",
             desc.strPath.c_str(), TimeTextW(m_rtLastEnd).c_str(), TimeTextW(rtDeclaredEnd).c_str());
    }
  }
  return hr;
}

HRESULT CFFSplitter::_Deliver(CReadPacket& packet, IVCPacket** ppPacket) {
  AVPacket* pSource = packet.spPacket ? packet.spPacket.get() : m_spReadPacket.get();
  const CKStreamInfo& streamInfo = m_spIoDesc->vecPacketStreams[static_cast<size_t>(packet.info.nStreamIndex)];
  const HRESULT hr = PacketFromAVPacket(pSource, packet.info, streamInfo, packet.time, ppPacket);
  if (FAILED(hr)) {
    av_packet_unref(pSource);
    VC_LOG(eVCLL_Error, "SplitterPacketGet(%d) FAILED hr=%08X: no packet object\n", packet.info.nStreamIndex, hr);
  }
  return hr;
}

// ---------------------------------------------------------------------------
// Segments

HRESULT CFFSplitter::SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) {
  VC_GUARD_BEGIN
  if (_rtSegmentStart < 0) {
    VC_LOG(eVCLL_Error, "SplitterBeginSegment(%ws) FAILED hr=%08X: negative start\n",
           TimeTextW(_rtSegmentStart).c_str(), E_INVALIDARG);
    return E_INVALIDARG;
  }
  CKMutexLock io(m_mtxIo);
  if (!m_spFormat) return VC_E_EMPTY;
  m_interrupt.bStop.store(false);
  _Revive();
  HRESULT hr = _ApplyStreamList(_bsHints);
  if (FAILED(hr)) return hr;
  hr = _Seek(_rtSegmentStart);
  if (SUCCEEDED(hr))
    VC_LOG(eVCLL_Progress, "SplitterBeginSegment(%ws %ws) OK\n", TimeTextW(_rtSegmentStart).c_str(), _bsHints);
  return hr;
  VC_GUARD_END
}

HRESULT CFFSplitter::_ApplyStreamList(BSTR bsHints) {
  const std::vector<LONG> vecList = ParseStreamList(bsHints);
  if (vecList.empty()) return S_OK;
  std::vector<bool> vecSelected(m_vecStreams.size(), false);
  bool bAny = false;
  for (LONG nStream : vecList) {
    if (nStream >= 0 && static_cast<size_t>(nStream) < vecSelected.size()) {
      vecSelected[static_cast<size_t>(nStream)] = true;
      bAny = true;
    }
  }
  if (!bAny) {
    VC_LOG(eVCLL_Error, "SplitterBeginSegment(%ws) FAILED hr=%08X: the source has %d streams\n", bsHints,
           VC_E_BAD_STREAM, static_cast<int>(m_vecStreams.size()));
    return VC_E_BAD_STREAM;
  }
  for (size_t n = 0; n < m_vecStreams.size(); ++n) m_vecStreams[n].bSelected = vecSelected[n];
  m_deqHeld.erase(std::remove_if(m_deqHeld.begin(), m_deqHeld.end(),
                                 [&](const CReadPacket& p) { return !vecSelected[static_cast<size_t>(p.info.nStreamIndex)]; }),
                  m_deqHeld.end());
  _ApplyDiscard();
  return S_OK;
}

void CFFSplitter::_ApplyDiscard() {
  for (size_t n = 0; n < m_vecStreams.size(); ++n)
    m_spFormat->streams[n]->discard = m_vecStreams[n].bSelected ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

HRESULT CFFSplitter::_Seek(LONGLONG rtStart) {
  m_rtSegmentStart = rtStart;
  m_nOrderInSegment = 0;
  for (CStreamState& state : m_vecStreams) {
    state.nIndexInSegment = 0;
    state.nSinceKey = -1;
  }
  const LONGLONG rtFirst = m_spIoDesc->rtStartTime == VC_TIME_UNSET ? 0 : m_spIoDesc->rtStartTime;
  // A source may start a little before 0 (Opus and AAC priming): a segment
  // at 0 is still its start, and a file without an index (a truncated
  // Matroska file) cannot seek there.
  if (rtStart <= std::max<LONGLONG>(rtFirst, 0)) {
    // Nothing read since the open: the source is already there (live sources
    // cannot seek at all).
    if (m_bUntouched) return S_OK;
    // Seeks to the very start differ from the open by demuxer: Matroska drops
    // the audio before the first cue, MXF stamps the first packet otherwise.
    // Opening again gives exactly what the first open gave.
    if (_Reopen() == S_OK) return S_OK;
  }

  // The packet that decides whether the seek landed early enough: the first
  // delivered video stream's (other kinds start at any packet).
  int nReference = -1;
  for (size_t n = 0; n < m_vecStreams.size() && nReference < 0; ++n)
    if (m_vecStreams[n].bSelected && m_vecStreams[n].bVideo) nReference = static_cast<int>(n);

  // A seek without an index may land after the target: step back and retry.
  LONGLONG rtTarget = rtStart;
  LONGLONG rtStep = VC_TIME_SECOND;
  for (int nTry = 0;; ++nTry) {
    HRESULT hr = _SeekOnce(rtTarget);
    if (hr != S_OK || nReference < 0) return hr;
    CReadPacket packet;
    for (;;) {
      hr = _ReadNext(m_llReadWaitMs, &packet);
      if (hr == VC_E_END_OF_MEDIA) return S_OK;  // the next read tells the caller
      if (FAILED(hr)) return hr;
      packet.spPacket.reset(av_packet_alloc());
      if (!packet.spPacket) return E_OUTOFMEMORY;
      av_packet_move_ref(packet.spPacket.get(), m_spReadPacket.get());
      const bool bFound = packet.info.nStreamIndex == nReference;
      const LONGLONG rtFound = packet.time.rtStartTime;
      m_deqHeld.push_back(std::move(packet));
      if (bFound) {
        if (rtFound == VC_TIME_UNSET || rtFound <= rtStart || rtTarget <= rtFirst || nTry >= 4) return S_OK;
        break;
      }
      if (m_deqHeld.size() >= kMaxHeldPackets) return S_OK;
    }
    VC_LOG(eVCLL_Retry, "SplitterBeginSegment(%ws): landed at %ws, seeking earlier\n", TimeTextW(rtStart).c_str(),
           TimeTextW(m_deqHeld.back().time.rtStartTime).c_str());
    rtTarget = std::max(rtFirst, rtTarget - rtStep);
    rtStep *= 2;
  }
}

HRESULT CFFSplitter::_Reopen() {
  const AVIOContext* pIo = m_spFormat->pb;
  if (!pIo || !(pIo->seekable & AVIO_SEEKABLE_NORMAL)) return S_FALSE;  // live: nothing to go back to
  AVFormatPtr spFormat;
  const HRESULT hr = _OpenFormat(m_spIoDesc->strPath, m_openSettings, &spFormat);
  if (FAILED(hr)) return hr;
  if (spFormat->nb_streams != m_spFormat->nb_streams) {
    VC_LOG(eVCLL_Retry, "SplitterBeginSegment(%ws): the source changed its streams, seeking instead\n",
           m_spIoDesc->strPath.c_str());
    return S_FALSE;
  }
  m_spFormat = std::move(spFormat);
  av_packet_unref(m_spReadPacket.get());
  m_deqHeld.clear();
  for (CStreamState& state : m_vecStreams) state.bWaitKey = false;
  _ApplyDiscard();
  m_bUntouched = true;
  m_bAtEnd = false;
  return S_OK;
}

HRESULT CFFSplitter::_SeekOnce(LONGLONG rtTarget) {
  AVFormatContext* pFormat = m_spFormat.get();
  const int64_t llTs = av_rescale_q(rtTarget, kRefTimeBase, AV_TIME_BASE_Q);
  _ArmDeadline(m_llReadWaitMs);
  int nRet = avformat_seek_file(pFormat, -1, INT64_MIN, llTs, llTs, 0);
  if (nRet < 0) nRet = av_seek_frame(pFormat, -1, llTs, AVSEEK_FLAG_BACKWARD);
  _DisarmDeadline();
  if (nRet < 0) {
    const HRESULT hr = _FailureHr(nRet);
    const bool bLive = (pFormat->pb && !(pFormat->pb->seekable & AVIO_SEEKABLE_NORMAL)) ||
                       (!pFormat->pb && !pFormat->iformat->read_seek && !pFormat->iformat->read_seek2);
    if (bLive && hr != kAbortedHr && hr != VC_E_TIMEOUT) {
      // A live source goes on from where it is: the segment starts with its next packet.
      VC_LOG(eVCLL_Retry, "SplitterBeginSegment(%ws): %ws cannot seek, reading on\n", TimeTextW(rtTarget).c_str(),
             m_spIoDesc->strPath.c_str());
      return S_FALSE;
    }
    VC_LOG(eVCLL_Error, "SplitterBeginSegment(%ws) FAILED hr=%08X: seek in %ws: %hs\n", TimeTextW(rtTarget).c_str(),
           hr, m_spIoDesc->strPath.c_str(), AvErrorText(nRet).c_str());
    return hr;
  }
  m_deqHeld.clear();
  m_bUntouched = false;
  m_bAtEnd = false;
  m_nOrderInSegment = 0;
  for (CStreamState& state : m_vecStreams) {
    state.bWaitKey = state.bVideo;
    state.nIndexInSegment = 0;
    state.nSinceKey = -1;
  }
  return S_OK;
}

// ---------------------------------------------------------------------------
// Side data

// ---------------------------------------------------------------------------

HRESULT CreateFFSplitter(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CFFSplitter>(pOuter, riid, ppv);
}

}  // namespace vc::ff
