#include "FFMuxer.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <new>

#include "FFClasses.h"
#include "FFCommon.h"
#include "KPropsOps.h"
#include "KPropsRead.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

constexpr HRESULT kNotOpenHr = VC_E_EMPTY;
constexpr HRESULT kStartedHr = HRESULT_FROM_WIN32(5023);  // ERROR_INVALID_STATE

// Properties text as a tree of its own: read without touching the object's.
HRESULT ParseProps(StringView text, XMLParse::XMLNodePtr* pspNode) {
  XMLParse::XMLNodePtr spNode = XMLParse::CoXMLNode::Create();
  if (!text.empty()) {
    bool bChanged = false;
    const HRESULT hr = props::SetInTree(*spNode, {}, text, false, &bChanged);
    if (FAILED(hr)) return hr;
  }
  *pspNode = std::move(spNode);
  return S_OK;
}

void ReleasePayload(void* pOpaque, uint8_t* /*pData*/) { static_cast<IVCPacket*>(pOpaque)->Release(); }

AVRational TimeBaseOf(const K_STREAM_INFO& info) {
  if (info.raTimeBase.nNum > 0 && info.raTimeBase.nDen > 0) return AVRational{info.raTimeBase.nNum, info.raTimeBase.nDen};
  return kRefTimeBase;
}

// A failed open or write as the caller should see it: the file system's
// refusals keep their own codes, so that a host can tell a full disk from a
// path that cannot be written.
HRESULT FileErrorToHr(int nAvError) {
  switch (nAvError) {
    case AVERROR(ENOSPC):
    case AVERROR(EDQUOT):
      return HRESULT_FROM_WIN32(112);  // ERROR_DISK_FULL
    case AVERROR(EROFS):
      return HRESULT_FROM_WIN32(19);  // ERROR_WRITE_PROTECT
    case AVERROR(ENOTDIR):
      return HRESULT_FROM_WIN32(3);  // ERROR_PATH_NOT_FOUND
    case AVERROR(EISDIR):
      return E_ACCESSDENIED;
    default:
      return AvErrorToHr(nAvError);
  }
}

HRESULT ReadRecords(IVCPacket* pPacket, K_PACKET_INFO* pInfo, K_TIME* pTime) {
  if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) {
    cpRecord->RecordGet(pTime, pInfo);
    return S_OK;
  }
  HRESULT hr = pPacket->PacketInfoGet(pInfo);
  if (SUCCEEDED(hr)) hr = pPacket->PacketTimeGet(pTime);
  return hr;
}

}  // namespace

CFFMuxer::CFFMuxer() { m_sideData.Reset(kMaxSideDataStreams); }
CFFMuxer::~CFFMuxer() = default;

void CFFMuxer::FinalRelease() { MuxerClose(); }

// ---------------------------------------------------------------------------
// Target

HRESULT CFFMuxer::_OpenOutput(const String& strPath, const std::string& strFormat, CFFMuxerOutput* pOutput,
                              const AVOutputFormat** ppFormat) {
  const std::string strUtf8 = ToUtf8(strPath);
  const AVOutputFormat* pFormat = FindOutputFormat(strFormat, strUtf8);
  if (!pFormat && strFormat.empty() && m_pFormat) pFormat = m_pFormat;  // a switch keeps the running format
  if (!pFormat) {
    VC_LOG(eVCLL_Error, "MuxerSet(%ws) FAILED hr=%08X: no output format for '%hs'\n", strPath.c_str(),
           VC_E_NO_CANDIDATE, strFormat.c_str());
    return VC_E_NO_CANDIDATE;
  }
  InstallAvLogBridge();
  const char* szStep = "";
  const int nRet = pOutput->Open(pFormat, strPath, &szStep);
  if (nRet < 0) {
    const HRESULT hr = FileErrorToHr(nRet);
    VC_LOG(eVCLL_Error, "MuxerSet(%ws) FAILED hr=%08X: %hs: %hs\n", strPath.c_str(), hr, szStep,
           AvErrorText(nRet).c_str());
    return hr;
  }
  *ppFormat = pFormat;
  return S_OK;
}

HRESULT CFFMuxer::MuxerSet(BSTR _bsFilePath, BSTR _bsProps) {
  VC_GUARD_BEGIN
  const StringView path = InString(_bsFilePath);
  if (path.empty()) {
    VC_LOG(eVCLL_Error, "MuxerSet() FAILED hr=%08X: no path\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  // The call's settings go on a copy of the tree, which replaces it only
  // when the call succeeds.
  XMLParse::XMLNodePtr spProps;
  {
    CKAutoLock lock(m_csLock);
    const XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    spProps = spRoot ? spRoot->Clone() : XMLParse::CoXMLNode::Create();
  }
  if (!InString(_bsProps).empty()) {
    bool bChanged = false;
    const HRESULT hr = props::SetInTree(*spProps, {}, InString(_bsProps), false, &bChanged);
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "MuxerSet(%ws) FAILED hr=%08X: the properties '%ws' do not parse\n", _bsFilePath, hr,
             _bsProps);
      return hr;
    }
  }
  const std::string strFormat = ToUtf8(ReadPropText(*spProps, u"format", u""));
  const bool bSeamless = ReadPropBool(*spProps, u"seamless_switch", false);

  CKMutexLock lock(m_mtx);
  HRESULT hr = S_OK;
  if (m_bOpen) {
    const String& strTarget = m_next.IsOpen() ? m_next.Path() : m_output.Path();
    if (strTarget == path) return S_FALSE;
    hr = _MoveTo(String(path), strFormat, bSeamless);
  } else {
    const AVOutputFormat* pFormat = nullptr;
    hr = _OpenOutput(String(path), strFormat, &m_output, &pFormat);
    if (SUCCEEDED(hr)) {
      m_pFormat = pFormat;
      m_bOpen = true;
      m_vecStreams.clear();
      m_nVideoStream = -1;
      m_rtNewest = VC_TIME_UNSET;
      m_nQueued = 0;
    }
  }
  if (FAILED(hr)) return hr;
  // A switch request is for this call only: kept in the tree, it would turn
  // every later move into a switch at a key packet.
  if (!bSeamless) {
    CKAutoLock propsLock(m_csLock);
    _PropsReplaceRootLocked(spProps);
  }
  VC_LOG(eVCLL_Progress, "MuxerSet(%ws, %ws) OK: %hs%hs\n", _bsFilePath, _bsProps, m_pFormat->name,
         bSeamless ? ", switching at the next key packet" : "");
  return hr;
  VC_GUARD_END
}

HRESULT CFFMuxer::_MoveTo(const String& strPath, const std::string& strFormat, bool bSeamless) {
  CFFMuxerOutput next;
  const AVOutputFormat* pFormat = nullptr;
  HRESULT hr = _OpenOutput(strPath, strFormat, &next, &pFormat);
  if (FAILED(hr)) return hr;
  m_next.Discard();  // an earlier switch that never came: its file stays unwritten
  m_next = std::move(next);
  if (!m_output.IsStarted()) {
    // Nothing written yet: the new path takes over now.
    m_output.Discard();
    m_output = std::move(m_next);
    return S_OK;
  }
  if (bSeamless) return S_OK;
  hr = _Drain(true);
  const HRESULT hrSwitch = _SwitchNow();
  return FAILED(hr) ? hr : hrSwitch;
}

HRESULT CFFMuxer::_SwitchNow() {
  const String strOld = m_output.Path();
  const int nRet = m_output.Finish();
  m_output = std::move(m_next);
  HRESULT hr = S_OK;
  if (nRet < 0) {
    hr = FileErrorToHr(nRet);
    VC_LOG(eVCLL_Error, "MuxerSet(%ws) FAILED hr=%08X: finishing %ws: %hs\n", m_output.Path().c_str(), hr,
           strOld.c_str(), AvErrorText(nRet).c_str());
  }
  const HRESULT hrStart = _StartOutput();
  if (SUCCEEDED(hrStart))
    VC_LOG(eVCLL_Info, "MuxerSet: %ws finished, going on in %ws\n", strOld.c_str(), m_output.Path().c_str());
  return FAILED(hr) ? hr : hrStart;
}

// ---------------------------------------------------------------------------
// Streams

HRESULT CFFMuxer::MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) {
  VC_GUARD_BEGIN
  if (!_pnStreamIdx) return E_POINTER;
  *_pnStreamIdx = -1;
  XMLParse::XMLNodePtr spProps;
  HRESULT hr = ParseProps(InString(_bsProps), &spProps);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "MuxerStreamAdd(%ws) FAILED hr=%08X: the properties do not parse\n", _bsProps, hr);
    return hr;
  }
  const LONG nAlias = static_cast<LONG>(ReadPropInt(*spProps, u"stream_idx", -1));
  const bool bDescribed = _pStreamInfo && _pStreamInfo->eMediaType != eVCMT_Empty;
  if (!bDescribed && nAlias < 0) {
    VC_LOG(eVCLL_Error, "MuxerStreamAdd(%ws) FAILED hr=%08X: neither a description nor a stream_idx\n", _bsProps,
           E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (bDescribed) {
    AVCodecParameters* pPar = avcodec_parameters_alloc();
    if (!pPar) return E_OUTOFMEMORY;
    const int nRet = FillCodecParameters(*_pStreamInfo, pPar);
    avcodec_parameters_free(&pPar);
    if (nRet < 0) {
      hr = nRet == AVERROR(EINVAL) ? VC_E_NO_CANDIDATE : AvErrorToHr(nRet);
      VC_LOG(eVCLL_Error, "MuxerStreamAdd(%ws) FAILED hr=%08X: codec '%ws' unknown\n", _bsProps, hr,
             _pStreamInfo->bsCodecNameOrTag);
      return hr;
    }
  }
  CKMutexLock lock(m_mtx);
  if (!m_bOpen || m_output.IsStarted()) {
    hr = m_bOpen ? kStartedHr : kNotOpenHr;
    VC_LOG(eVCLL_Error, "MuxerStreamAdd(%ws) FAILED hr=%08X: %hs\n", _bsProps, hr,
           m_bOpen ? "packets are already written" : "no file is open");
    return hr;
  }
  for (const CStream& other : m_vecStreams) {
    if (nAlias >= 0 && other.nAlias == nAlias) {
      VC_LOG(eVCLL_Error, "MuxerStreamAdd(%ws) FAILED hr=%08X: stream_idx %d is taken\n", _bsProps, E_INVALIDARG,
             nAlias);
      return E_INVALIDARG;
    }
  }
  CStream stream;
  if (bDescribed) {
    stream.info = CKStreamInfo(*_pStreamInfo);
    stream.tbIn = TimeBaseOf(*_pStreamInfo);
    stream.bDescribed = true;
  }
  stream.nAlias = nAlias;
  stream.strProps = String(InString(_bsProps));
  m_vecStreams.push_back(std::move(stream));
  *_pnStreamIdx = static_cast<LONG>(m_vecStreams.size() - 1);
  if (bDescribed && _pStreamInfo->eMediaType == eVCMT_Video && m_nVideoStream < 0) m_nVideoStream = *_pnStreamIdx;
  VC_LOG(eVCLL_Progress, "MuxerStreamAdd(%ws) OK: stream %d\n", _bsProps, *_pnStreamIdx);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFMuxer::MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo, BSTR* _pbsProps) {
  VC_GUARD_BEGIN
  if (!_pStreamInfo) return E_POINTER;
  if (_pbsProps) *_pbsProps = nullptr;
  CKMutexLock lock(m_mtx);
  if (_nStreamIdx < 0 || static_cast<size_t>(_nStreamIdx) >= m_vecStreams.size()) {
    VC_LOG(eVCLL_Error, "MuxerStreamInfoGet(%d) FAILED hr=%08X: no such stream\n", _nStreamIdx, VC_E_BAD_STREAM);
    return VC_E_BAD_STREAM;
  }
  const CStream& stream = m_vecStreams[static_cast<size_t>(_nStreamIdx)];
  CBstr bsName(InString(stream.info.bsCodecNameOrTag));
  CBstr bsProps(StringView(stream.strProps));
  if ((stream.info.bsCodecNameOrTag && !bsName.Get()) || (_pbsProps && !bsProps.Get())) return E_OUTOFMEMORY;
  // The codec data stays the muxer's: valid while this stream exists.
  *_pStreamInfo = stream.info.Get();
  _pStreamInfo->bsCodecNameOrTag = bsName.Detach();
  if (_pbsProps) *_pbsProps = bsProps.Detach();
  return stream.bDescribed ? S_OK : S_FALSE;
  VC_GUARD_END
}

LONG CFFMuxer::_FindStream(LONG nStreamIdx, const K_PACKET_INFO& info) const {
  if (nStreamIdx >= 0) return static_cast<size_t>(nStreamIdx) < m_vecStreams.size() ? nStreamIdx : -1;
  if (nStreamIdx != -1) return -1;
  for (size_t n = 0; n < m_vecStreams.size(); ++n)
    if (m_vecStreams[n].nAlias >= 0 && m_vecStreams[n].nAlias == info.nStreamIndex) return static_cast<LONG>(n);
  return -1;
}

HRESULT CFFMuxer::_Describe(LONG nStream, IVCPacket* pPacket) {
  CStream& stream = m_vecStreams[static_cast<size_t>(nStream)];
  CKStreamInfo info;
  HRESULT hr = VCPacketStreamInfo(pPacket, &info);
  if (SUCCEEDED(hr) && info.eMediaType == eVCMT_Empty) hr = E_INVALIDARG;
  if (SUCCEEDED(hr)) {
    AVCodecParameters* pPar = avcodec_parameters_alloc();
    if (!pPar) return E_OUTOFMEMORY;
    const int nRet = FillCodecParameters(info, pPar);
    avcodec_parameters_free(&pPar);
    if (nRet < 0) hr = nRet == AVERROR(EINVAL) ? VC_E_NO_CANDIDATE : AvErrorToHr(nRet);
  }
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "MuxerPacketPut(%d) FAILED hr=%08X: the packet does not describe its stream\n",
           stream.nAlias, hr);
    return hr;
  }
  stream.tbIn = TimeBaseOf(info);
  stream.info = std::move(info);
  stream.bDescribed = true;
  if (stream.info.eMediaType == eVCMT_Video && m_nVideoStream < 0)
    m_nVideoStream = nStream;
  return S_OK;
}

// ---------------------------------------------------------------------------
// Packets

HRESULT CFFMuxer::MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR /*_bsHints*/) {
  VC_GUARD_BEGIN
  if (!_pPacket) return E_POINTER;
  K_PACKET_INFO info{};
  K_TIME time{};
  HRESULT hr = ReadRecords(_pPacket, &info, &time);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "MuxerPacketPut(%d) FAILED hr=%08X: the packet does not answer\n", _nStreamIdx, hr);
    return hr;
  }
  CKMutexLock lock(m_mtx);
  if (!m_bOpen) {
    VC_LOG(eVCLL_Error, "MuxerPacketPut(%d) FAILED hr=%08X: no file is open\n", _nStreamIdx, kNotOpenHr);
    return kNotOpenHr;
  }
  const LONG nStream = _FindStream(_nStreamIdx, info);
  if (nStream < 0) {
    VC_LOG(eVCLL_Error, "MuxerPacketPut(%d) FAILED hr=%08X: no such stream (packet of stream %d)\n", _nStreamIdx,
           VC_E_BAD_STREAM, info.nStreamIndex);
    return VC_E_BAD_STREAM;
  }
  CStream& stream = m_vecStreams[static_cast<size_t>(nStream)];
  if (!stream.bDescribed) {
    hr = _Describe(nStream, _pPacket);
    if (FAILED(hr)) return hr;
  }
  hr = _Queue(stream, _pPacket, info, time);
  if (FAILED(hr)) return hr;
  return _Drain(false);
  VC_GUARD_END
}

HRESULT CFFMuxer::_Queue(CStream& stream, IVCPacket* pPacket, const K_PACKET_INFO& info, const K_TIME& time) {
  // Times are in the packet's own stream time base when it tells one.
  AVRational tb = stream.tbIn;
  if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) {
    const CKStreamInfo* pOwn = cpRecord->StreamInfoPeek();
    if (pOwn && pOwn->raTimeBase.nNum > 0 && pOwn->raTimeBase.nDen > 0) tb = TimeBaseOf(*pOwn);
  }
  AvPacketPtr spPacket(av_packet_alloc());
  if (!spPacket) return E_OUTOFMEMORY;
  AVPacket* pAv = spPacket.get();
  if (info.cbPacketData > 0 && info.lpPacketData) {
    auto* pData = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(info.lpPacketData));
    pAv->buf = av_buffer_create(pData, static_cast<size_t>(info.cbPacketData), &ReleasePayload, pPacket,
                                AV_BUFFER_FLAG_READONLY);
    if (!pAv->buf) return E_OUTOFMEMORY;
    pPacket->AddRef();  // released with the buffer
    pAv->data = pData;
    pAv->size = info.cbPacketData;
  }
  pAv->pts = info.llPts;
  pAv->dts = info.llDts;
  if (pAv->pts == AV_NOPTS_VALUE && pAv->dts == AV_NOPTS_VALUE && time.rtStartTime != VC_TIME_UNSET)
    pAv->pts = FromRefTime(time.rtStartTime, tb);
  pAv->duration = info.llDuration > 0 ? info.llDuration : 0;
  const bool bKey = (info.eFlags & eVCPF_KeyFrame) != 0;
  if (bKey) pAv->flags |= AV_PKT_FLAG_KEY;
  // The interleaving runs on the reference clock, where every stream's
  // times compare; a packet without times keeps its stream's last place.
  if (tb.num != stream.tbIn.num || tb.den != stream.tbIn.den) av_packet_rescale_ts(pAv, tb, stream.tbIn);
  const int64_t llOrder = pAv->dts != AV_NOPTS_VALUE ? pAv->dts : pAv->pts;
  LONGLONG rtOrder = llOrder != AV_NOPTS_VALUE ? ToRefTime(llOrder, stream.tbIn) : stream.rtLast;
  if (rtOrder == VC_TIME_UNSET) rtOrder = m_rtNewest != VC_TIME_UNSET ? m_rtNewest : 0;
  stream.rtLast = rtOrder;
  if (m_rtNewest == VC_TIME_UNSET || rtOrder > m_rtNewest) m_rtNewest = rtOrder;
  stream.deqQueue.push_back(CQueued{std::move(spPacket), rtOrder, bKey});
  ++m_nQueued;
  return S_OK;
}

void CFFMuxer::_CollectTags(CFFTags* pContainer, std::vector<CFFTags>* pvecStreams) {
  const auto collect = [this](LONG nStream, CFFTags* pTags) {
    LONG nCount = 0;
    if (m_sideData.GetCount(nStream, &nCount) != S_OK) return;
    for (LONG n = 0; n < nCount; ++n) {
      CBstr bsType, bsValue;
      LONG cbData = 0;
      LONGLONG lpData = 0;
      if (m_sideData.GetByIndex(nStream, n, &bsType, &cbData, &lpData) != S_OK) continue;
      if (m_sideData.StrGet(nStream, bsType, &bsValue) == S_OK)
        pTags->emplace_back(String(bsType.View()), String(bsValue.View()));
    }
  };
  collect(-1, pContainer);
  pvecStreams->resize(m_vecStreams.size());
  for (size_t n = 0; n < m_vecStreams.size() && n < static_cast<size_t>(kMaxSideDataStreams); ++n)
    collect(static_cast<LONG>(n), &(*pvecStreams)[n]);
}

HRESULT CFFMuxer::_StartOutput() {
  std::vector<CKStreamInfo> vecInfos;
  std::vector<AVRational> vecTimeBases;
  for (const CStream& stream : m_vecStreams) {
    vecInfos.push_back(stream.info);
    vecTimeBases.push_back(stream.tbIn);
  }
  CFFTags containerTags;
  std::vector<CFFTags> vecStreamTags;
  _CollectTags(&containerTags, &vecStreamTags);
  const char* szStep = "";
  const int nRet = m_output.Start(vecInfos, vecTimeBases, containerTags, vecStreamTags, &szStep);
  if (nRet < 0) {
    const HRESULT hr = FileErrorToHr(nRet);
    VC_LOG(eVCLL_Error, "MuxerPacketPut(%ws) FAILED hr=%08X: %hs: %hs\n", m_output.Path().c_str(), hr, szStep,
           AvErrorText(nRet).c_str());
    return hr;
  }
  return S_OK;
}

HRESULT CFFMuxer::_Drain(bool bAll) {
  if (m_vecStreams.empty() || m_nQueued == 0) return S_OK;
  if (!m_output.IsStarted()) {
    for (const CStream& stream : m_vecStreams) {
      if (stream.bDescribed) continue;
      if (!bAll) return S_OK;  // the header waits for this stream's first packet
      VC_LOG(eVCLL_Error, "MuxerClose() FAILED hr=%08X: stream_idx %d never had a packet\n", VC_E_INVALID_DATA,
             stream.nAlias);
      return VC_E_INVALID_DATA;
    }
    const HRESULT hr = _StartOutput();
    if (FAILED(hr)) return hr;
  }
  while (m_nQueued > 0) {
    size_t nFirst = m_vecStreams.size();
    bool bAllHave = true;
    for (size_t n = 0; n < m_vecStreams.size(); ++n) {
      const auto& deq = m_vecStreams[n].deqQueue;
      if (deq.empty()) {
        bAllHave = false;
        continue;
      }
      if (nFirst == m_vecStreams.size() || deq.front().rtOrder < m_vecStreams[nFirst].deqQueue.front().rtOrder)
        nFirst = n;
    }
    const LONGLONG rtFirst = m_vecStreams[nFirst].deqQueue.front().rtOrder;
    if (!bAll && !bAllHave && m_rtNewest - rtFirst <= kMaxInterleaveSpan) break;
    const HRESULT hr = _WriteNext(nFirst);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT CFFMuxer::_WriteNext(size_t nStream) {
  CQueued queued = std::move(m_vecStreams[nStream].deqQueue.front());
  m_vecStreams[nStream].deqQueue.pop_front();
  --m_nQueued;
  if (m_next.IsOpen() && (m_nVideoStream < 0 || (static_cast<LONG>(nStream) == m_nVideoStream && queued.bKey))) {
    const HRESULT hr = _SwitchNow();
    if (FAILED(hr)) return hr;
  }
  const int nRet = m_output.Write(static_cast<int>(nStream), queued.spPacket.get());
  if (nRet < 0) {
    const HRESULT hr = FileErrorToHr(nRet);
    VC_LOG(eVCLL_Error, "MuxerPacketPut(%d) FAILED hr=%08X: writing %ws: %hs\n", static_cast<int>(nStream), hr,
           m_output.Path().c_str(), AvErrorText(nRet).c_str());
    return hr;
  }
  return S_OK;
}

// ---------------------------------------------------------------------------
// Close

HRESULT CFFMuxer::_CloseLocked() {
  if (!m_bOpen) return S_FALSE;
  HRESULT hr = _Drain(true);
  const String strPath = m_output.Path();
  if (!m_output.IsStarted() && SUCCEEDED(hr) && !m_vecStreams.empty() && m_nQueued == 0) {
    bool bAllDescribed = true;
    for (const CStream& stream : m_vecStreams) bAllDescribed = bAllDescribed && stream.bDescribed;
    if (bAllDescribed) hr = _StartOutput();  // no packets: still a valid, empty file
  }
  const int nRet = m_output.Finish();
  if (nRet < 0) {
    const HRESULT hrFinish = FileErrorToHr(nRet);
    VC_LOG(eVCLL_Error, "MuxerClose() FAILED hr=%08X: finishing %ws: %hs\n", hrFinish, strPath.c_str(),
           AvErrorText(nRet).c_str());
    if (SUCCEEDED(hr)) hr = hrFinish;
  }
  m_next.Discard();
  m_bOpen = false;
  m_vecStreams.clear();
  m_nVideoStream = -1;
  m_nQueued = 0;
  m_rtNewest = VC_TIME_UNSET;
  if (SUCCEEDED(hr)) VC_LOG(eVCLL_Progress, "MuxerClose() OK: %ws\n", strPath.c_str());
  return FAILED(hr) ? hr : S_OK;
}

HRESULT CFFMuxer::MuxerClose() {
  VC_GUARD_BEGIN
  CKMutexLock lock(m_mtx);
  return _CloseLocked();
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Side data

// ---------------------------------------------------------------------------

HRESULT CreateFFMuxer(IUnknown* pOuter, REFIID riid, void** ppv) { return CreateObject<CFFMuxer>(pOuter, riid, ppv); }

}  // namespace vc::ff
