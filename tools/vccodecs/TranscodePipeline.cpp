#include "TranscodePipeline.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ToolModule.h"
#include "TranscodeRate.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCStrings.h"

namespace vctool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kCmd = "vccodecs transcode";
// Queue sizes: packets are small, so the reader may run well ahead of a
// decoder; decoded pictures are large, so only a few wait for the encoder
// (the encoder holds its own look-ahead).
constexpr size_t kPacketQueue = 24;
constexpr size_t kVideoFrameQueue = 3;
constexpr size_t kAudioFrameQueue = 16;
constexpr size_t kWriterQueue = 128;
// A decoder that keeps answering frames to null packets is broken.
constexpr int kMaxDrainFrames = 4096;

double SecondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

void AddSeconds(std::atomic<double>* pTotal, Clock::time_point tStart) {
  pTotal->store(pTotal->load() + SecondsSince(tStart));
}

}  // namespace

HRESULT CreateEncoder(IVCEncoder** ppEncoder) {
  return CoCreateInstance(CLSID_VCEncoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCEncoder,
                          reinterpret_cast<void**>(ppEncoder));
}

HRESULT CreateMuxer(IVCMuxer** ppMuxer) {
  return CoCreateInstance(CLSID_VCMuxer, nullptr, CLSCTX_INPROC_SERVER, IID_IVCMuxer, reinterpret_cast<void**>(ppMuxer));
}

CTranscodePipeline::CTranscodePipeline(const TranscodeOptions& opts) : m_opts(opts), m_queueWriter(kWriterQueue) {}

CTranscodePipeline::~CTranscodePipeline() {
  _AbortAll();
  for (std::thread& thread : m_vecThreads)
    if (thread.joinable()) thread.join();
}

// ---------------------------------------------------------------------------
// Preparation

bool CTranscodePipeline::_ChooseStreams(const Source& source) {
  std::vector<LONG> vecIndexes = m_opts.vecStreams;
  if (vecIndexes.empty()) {
    for (size_t n = 0; n < source.vecStreams.size(); ++n) {
      const eVCMediaType eType = source.vecStreams[n].info.eMediaType;
      if (eType == eVCMT_Video || eType == eVCMT_Audio) vecIndexes.push_back(static_cast<LONG>(n));
    }
  }
  m_vecBySource.assign(source.vecStreams.size(), nullptr);
  for (LONG nIndex : vecIndexes) {
    if (static_cast<size_t>(nIndex) >= source.vecStreams.size()) {
      std::fprintf(stderr, "%s: no stream %d: the source has %zu\n", kCmd, I(nIndex), source.vecStreams.size());
      return false;
    }
    const Source::Stream& in = source.vecStreams[static_cast<size_t>(nIndex)];
    if (in.info.eMediaType != eVCMT_Video && in.info.eMediaType != eVCMT_Audio) {
      std::fprintf(stderr, "%s: stream %d is %s: only video and audio streams are transcoded\n", kCmd, I(nIndex),
                   TypeName(in.info.eMediaType));
      return false;
    }
    auto spStream = std::make_unique<TranscodeStream>();
    spStream->nSourceIndex = nIndex;
    spStream->eType = in.info.eMediaType;
    spStream->strSourceCodec = in.strCodec;
    spStream->dblSourceRate = in.info.dblRate;
    spStream->strCodec = spStream->eType == eVCMT_Video ? m_opts.strVideoCodec : m_opts.strAudioCodec;
    spStream->bCopy = spStream->strCodec == kCopyCodec;
    spStream->spPackets = std::make_unique<CBoundedQueue<vc::ComPtr<IVCPacket>>>(kPacketQueue);
    spStream->spFrames = std::make_unique<CBoundedQueue<vc::ComPtr<IVCFrame>>>(
        spStream->eType == eVCMT_Video ? kVideoFrameQueue : kAudioFrameQueue);
    m_vecBySource[static_cast<size_t>(nIndex)] = spStream.get();
    m_vecStreams.push_back(std::move(spStream));
  }
  if (m_vecStreams.empty()) std::fprintf(stderr, "%s: the source has no video or audio stream\n", kCmd);
  return !m_vecStreams.empty();
}

std::string CTranscodePipeline::_EncoderConfig(const TranscodeStream& stream) const {
  const bool bVideo = stream.eType == eVCMT_Video;
  std::string str = "codec=" + stream.strCodec;
  const long long llBitrate = bVideo ? m_opts.llVideoBitrate : m_opts.llAudioBitrate;
  if (llBitrate > 0) str += " bitrate=" + std::to_string(llBitrate);
  if (bVideo && !m_opts.strPreset.empty()) str += " preset=" + m_opts.strPreset;
  // A split output switches files at key frames: one at least every split
  // interval puts the switches where they were asked for.
  const double dblRate = m_opts.dblRate > 0 ? m_opts.dblRate : stream.dblSourceRate;
  if (bVideo && m_opts.dblSplit > 0 && dblRate > 0 && m_opts.strProps.find("gop=") == std::string::npos)
    str += " gop=" + std::to_string(std::max(1L, std::lround(m_opts.dblSplit * dblRate)));
  if (!m_opts.strProps.empty()) str += " " + m_opts.strProps;
  return str;
}

bool CTranscodePipeline::_CreateCoders() {
  for (auto& spStream : m_vecStreams) {
    if (spStream->bCopy) continue;
    HRESULT hr = CoCreateInstance(CLSID_VCDecoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCDecoder,
                                  reinterpret_cast<void**>(spStream->cpDecoder.AddressOf()));
    if (FAILED(hr)) {
      std::fprintf(stderr, "%s: the decoder could not be created: %s\n", kCmd, HrText(hr).c_str());
      return false;
    }
    PropSet(spStream->cpDecoder.Get(), "decoder.fallback_on_error", "true");
    hr = CreateEncoder(spStream->cpEncoder.AddressOf());
    if (FAILED(hr)) {
      std::fprintf(stderr, "%s: the encoder could not be created: %s\n", kCmd, HrText(hr).c_str());
      return false;
    }
    const std::string strConfig = _EncoderConfig(*spStream);
    hr = spStream->cpEncoder->EncodeCodecSet(spStream->eType, vc::CBstr(strConfig));
    if (FAILED(hr)) {
      std::fprintf(stderr, "%s: stream %d: no %s encoder takes '%s': %s\n", kCmd, I(spStream->nSourceIndex),
                   TypeName(spStream->eType), strConfig.c_str(), HrText(hr).c_str());
      return false;
    }
    spStream->strEncoderName = PropText(spStream->cpEncoder.Get(), "codec_name");
  }
  return true;
}

bool CTranscodePipeline::_OpenMuxer() {
  HRESULT hr = CreateMuxer(m_cpMuxer.AddressOf());
  if (FAILED(hr)) {
    std::fprintf(stderr, "%s: the muxer could not be created: %s\n", kCmd, HrText(hr).c_str());
    return false;
  }
  const std::string strFirst = m_opts.dblSplit > 0 ? SplitPartPath(m_opts.strOutput, 1) : m_opts.strOutput;
  hr = m_cpMuxer->MuxerSet(vc::CBstr(strFirst), nullptr);
  if (FAILED(hr)) {
    std::fprintf(stderr, "%s: cannot write %s: %s\n", kCmd, strFirst.c_str(), HrText(hr).c_str());
    m_cpMuxer = nullptr;
    return false;
  }
  {
    vc::CKMutexLock lock(m_mtx);
    m_vecOutputs.push_back(strFirst);
  }
  // Each stream takes its description (codec, codec data, time base) from
  // its first packet, so the encoder need not be asked before it has begun.
  for (auto& spStream : m_vecStreams) {
    K_STREAM_INFO info{};
    info.eMediaType = eVCMT_Empty;
    LONG nIndex = -1;
    hr = m_cpMuxer->MuxerStreamAdd(&info, vc::CBstr("stream_idx=" + std::to_string(spStream->nSourceIndex)), &nIndex);
    if (FAILED(hr)) {
      std::fprintf(stderr, "%s: the muxer refuses stream %d (%s): %s\n", kCmd, I(spStream->nSourceIndex),
                   spStream->strCodec.c_str(), HrText(hr).c_str());
      return false;
    }
    spStream->nMuxerIndex = nIndex;
    if (!m_pSplitStream && spStream->eType == eVCMT_Video) m_pSplitStream = spStream.get();
  }
  if (!m_pSplitStream) m_pSplitStream = m_vecStreams.front().get();
  return true;
}

bool CTranscodePipeline::Prepare(Source* pSource) {
  m_pSource = pSource;
  if (!_ChooseStreams(*pSource) || !_CreateCoders()) return false;
  std::string strStreams;
  for (const auto& spStream : m_vecStreams)
    strStreams += (strStreams.empty() ? "" : ",") + std::to_string(spStream->nSourceIndex);
  const HRESULT hr = pSource->cpSplitter->SplitterBeginSegment(0, vc::CBstr(strStreams));
  if (FAILED(hr)) {
    std::fprintf(stderr, "%s: the splitter cannot start: %s\n", kCmd, HrText(hr).c_str());
    return false;
  }
  return _OpenMuxer();
}

// ---------------------------------------------------------------------------
// Stage threads

void CTranscodePipeline::Start() {
  auto launch = [this](auto fn) {
    ++m_nRunning;
    m_vecThreads.emplace_back([this, fn]() {
      fn();
      --m_nRunning;
    });
  };
  for (auto& spStream : m_vecStreams) {
    if (spStream->bCopy) continue;
    TranscodeStream* p = spStream.get();
    ++m_nProducers;
    launch([this, p]() { _DecodeLoop(p); });
    launch([this, p]() { _EncodeLoop(p); });
  }
  ++m_nProducers;  // the reader, for the copied streams
  launch([this]() { _ReadLoop(); });
  launch([this]() { _WriteLoop(); });
}

void CTranscodePipeline::_ProducerDone() {
  if (--m_nProducers == 0) m_queueWriter.Close();
}

void CTranscodePipeline::_ReadLoop() {
  const Clock::time_point tStart = Clock::now();
  double dblWaiting = 0.0;
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = m_pSource->cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
    if (hr == vc::VC_E_END_OF_MEDIA) break;
    if (FAILED(hr) || !cpPacket) {
      _Fail(FAILED(hr) ? hr : E_UNEXPECTED, "reading the source stopped");
      break;
    }
    K_PACKET_INFO info{};
    cpPacket->PacketInfoGet(&info);
    if (info.nStreamIndex < 0 || static_cast<size_t>(info.nStreamIndex) >= m_vecBySource.size()) continue;
    TranscodeStream* pStream = m_vecBySource[static_cast<size_t>(info.nStreamIndex)];
    if (!pStream) continue;
    ++pStream->llPacketsIn;
    const Clock::time_point tPush = Clock::now();
    const bool bOk = pStream->bCopy ? m_queueWriter.Push(WriterItem{pStream, std::move(cpPacket)})
                                    : pStream->spPackets->Push(std::move(cpPacket));
    dblWaiting += SecondsSince(tPush);
    if (!bOk) break;
  }
  for (auto& spStream : m_vecStreams) spStream->spPackets->Close();
  {
    vc::CKMutexLock lock(m_mtx);
    m_mapBusy["reader"] = SecondsSince(tStart) - dblWaiting;
  }
  _ProducerDone();
}

void CTranscodePipeline::_DecodeLoop(TranscodeStream* pStream) {
  LONGLONG rtSegmentStart = 0;
  vc::ComPtr<IVCPacket> cpPacket;
  HRESULT hrFirstError = S_OK;
  while (pStream->spPackets->Pop(&cpPacket)) {
    K_PACKET_INFO info{};
    cpPacket->PacketInfoGet(&info);
    rtSegmentStart = info.rtSegmentStart;
    vc::ComPtr<IVCFrame> cpFrame;
    const Clock::time_point t = Clock::now();
    const HRESULT hr = pStream->cpDecoder->DecodePacket(cpPacket.Get(), rtSegmentStart, nullptr, cpFrame.AddressOf(),
                                                        nullptr);
    AddSeconds(&pStream->dblDecodeSeconds, t);
    cpPacket = nullptr;
    if (FAILED(hr)) {
      // The next key packet may well decode: count and go on.
      ++pStream->llDecodeErrors;
      if (SUCCEEDED(hrFirstError)) hrFirstError = hr;
      continue;
    }
    if (hr == S_OK && cpFrame && !_DeliverFrame(pStream, std::move(cpFrame))) break;
  }
  for (int i = 0; i < kMaxDrainFrames && !_Failed() && pStream->llPacketsIn > 0; ++i) {
    vc::ComPtr<IVCFrame> cpFrame;
    const HRESULT hr = pStream->cpDecoder->DecodePacket(nullptr, rtSegmentStart, nullptr, cpFrame.AddressOf(), nullptr);
    if (hr != S_OK || !cpFrame || !_DeliverFrame(pStream, std::move(cpFrame))) break;
  }
  if (!_Failed() && pStream->llPacketsIn > 0 && pStream->llFramesDecoded == 0) {
    _Fail(FAILED(hrFirstError) ? hrFirstError : E_FAIL,
          "stream " + std::to_string(pStream->nSourceIndex) + " (" + pStream->strSourceCodec + ") cannot be decoded");
  }
  pStream->spFrames->Close();
}

bool CTranscodePipeline::_DeliverFrame(TranscodeStream* pStream, vc::ComPtr<IVCFrame> cpFrame) {
  ++pStream->llFramesDecoded;
  return pStream->spFrames->Push(std::move(cpFrame));
}

bool CTranscodePipeline::_CollectPackets(TranscodeStream* pStream) {
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    LONG nReady = 0;
    const HRESULT hr = pStream->cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), &nReady, 0, nullptr);
    if (hr == vc::VC_E_EMPTY || hr == vc::VC_E_TIMEOUT) return true;
    if (FAILED(hr)) {
      _Fail(hr, "stream " + std::to_string(pStream->nSourceIndex) + ": the encoder gives no packet");
      return false;
    }
    if (!cpPacket) return true;
    if (!m_queueWriter.Push(WriterItem{pStream, std::move(cpPacket)})) return false;
  }
}

bool CTranscodePipeline::_EncodeFrame(TranscodeStream* pStream, vc::ComPtr<IVCFrame> cpFrame) {
  // A new size is the encoder's to make (its converter), asked for with the
  // output properties: the frame's own, changed where asked. Their rate is
  // the frame's, which the rate changer has already set: the encoder facade
  // never changes rates.
  const bool bResize = pStream->eType == eVCMT_Video && m_opts.nWidth > 0;
  K_AV_PROPS propsOut{};
  if (bResize) {
    LONG lSamples = 0;
    cpFrame->VCAVPropsGet(&propsOut, &lSamples);
    propsOut.vidProps.nWidth = m_opts.nWidth;
    propsOut.vidProps.nHeight = m_opts.nHeight;
    propsOut.vidProps.nRowBytes = 0;
  }
  const Clock::time_point t = Clock::now();
  const HRESULT hr = pStream->cpEncoder->EncodeFramePut(cpFrame.Get(), bResize ? &propsOut : nullptr, nullptr, nullptr);
  cpFrame = nullptr;
  if (FAILED(hr)) {
    _Fail(hr, "stream " + std::to_string(pStream->nSourceIndex) + ": the encoder refuses a frame");
    return false;
  }
  ++pStream->llFramesEncoded;
  const bool bOk = _CollectPackets(pStream);
  AddSeconds(&pStream->dblEncodeSeconds, t);
  return bOk;
}

void CTranscodePipeline::_EncodeLoop(TranscodeStream* pStream) {
  std::unique_ptr<CRateChanger> spRate;
  if (pStream->eType == eVCMT_Video && m_opts.dblRate > 0) spRate = std::make_unique<CRateChanger>(m_opts.dblRate);
  const CRateChanger::Sink encode = [this, pStream](vc::ComPtr<IVCFrame> cpFrame) {
    return _EncodeFrame(pStream, std::move(cpFrame));
  };
  auto rateFailed = [this, pStream](HRESULT hr) {
    if (SUCCEEDED(hr)) return false;
    _Fail(hr, "stream " + std::to_string(pStream->nSourceIndex) + ": the frame rate cannot be changed");
    return true;
  };
  vc::ComPtr<IVCFrame> cpFrame;
  bool bOk = true;
  while (bOk && pStream->spFrames->Pop(&cpFrame)) {
    if (!spRate) {
      bOk = _EncodeFrame(pStream, std::move(cpFrame));
      continue;
    }
    const HRESULT hr = spRate->Put(cpFrame.Get(), encode);
    cpFrame = nullptr;
    bOk = hr == S_OK && !_Failed();
    if (rateFailed(hr)) break;
  }
  // The last picture is held until its end is known: the end of the stream.
  if (spRate && bOk && !_Failed()) {
    const HRESULT hr = spRate->Flush(encode);
    bOk = hr == S_OK && !_Failed();
    rateFailed(hr);
  }
  if (bOk && !_Failed()) {
    // The close drains the encoder (its delayed packets are then readable)
    // and clears its statistics: keep them first, then add what the drained
    // packets changed.
    pStream->mapEncoderStats = StatValues(pStream->cpEncoder.Get());
    const Clock::time_point t = Clock::now();
    const HRESULT hr = pStream->cpEncoder->EncodeClose();
    if (FAILED(hr)) {
      _Fail(hr, "stream " + std::to_string(pStream->nSourceIndex) + ": the encoder could not finish");
    } else {
      _CollectPackets(pStream);
      for (const auto& [strName, strValue] : StatValues(pStream->cpEncoder.Get()))
        pStream->mapEncoderStats[strName] = strValue;
    }
    AddSeconds(&pStream->dblEncodeSeconds, t);
  }
  _ProducerDone();
}

HRESULT CTranscodePipeline::_SplitBefore(TranscodeStream* pStream, IVCPacket* pPacket, const K_TIME& time) {
  if (m_opts.dblSplit <= 0 || pStream != m_pSplitStream || time.rtStartTime == VC_TIME_UNSET) return S_OK;
  const LONGLONG rtSplit = static_cast<LONGLONG>(std::llround(m_opts.dblSplit * VC_TIME_SECOND));
  if (m_rtNextSplit == VC_TIME_UNSET) {
    m_rtNextSplit = time.rtStartTime + rtSplit;
    return S_OK;
  }
  K_PACKET_INFO info{};
  pPacket->PacketInfoGet(&info);
  // Half a millisecond of slack: a key frame stamped a hair early still
  // opens the part it belongs to.
  if (!(info.eFlags & eVCPF_KeyFrame) || time.rtStartTime + 5000 < m_rtNextSplit) return S_OK;
  while (m_rtNextSplit <= time.rtStartTime + 5000) m_rtNextSplit += rtSplit;
  const std::string strNext = SplitPartPath(m_opts.strOutput, ++m_nPart);
  // The muxer moves to the new file itself at this key packet, so that no
  // packet of any stream is lost or written twice.
  const HRESULT hr = m_cpMuxer->MuxerSet(vc::CBstr(strNext), vc::CBstr(std::string("seamless_switch=true")));
  if (FAILED(hr)) return hr;
  vc::CKMutexLock lock(m_mtx);
  m_vecOutputs.push_back(strNext);
  return S_OK;
}

HRESULT CTranscodePipeline::_Write(TranscodeStream* pStream, IVCPacket* pPacket) {
  K_TIME time{};
  K_PACKET_INFO info{};
  pPacket->PacketTimeGet(&time);
  pPacket->PacketInfoGet(&info);
  HRESULT hr = _SplitBefore(pStream, pPacket, time);
  if (FAILED(hr)) return hr;
  hr = m_cpMuxer->MuxerPacketPut(pStream->nMuxerIndex, pPacket, nullptr);
  if (FAILED(hr)) return hr;
  ++pStream->llPacketsOut;
  pStream->llBytesOut += info.cbPacketData;
  if (info.eFlags & eVCPF_KeyFrame) {
    if (pStream->llLastKeyAt >= 0) pStream->llKeyDistance = pStream->llPacketsOut - pStream->llLastKeyAt;
    pStream->llLastKeyAt = pStream->llPacketsOut;
    ++pStream->llKeysOut;
  }
  if (time.rtStartTime != VC_TIME_UNSET) {
    if (pStream->rtFirstOut == VC_TIME_UNSET) pStream->rtFirstOut = time.rtStartTime;
    pStream->rtLastOut = std::max<long long>(pStream->rtLastOut, time.rtStartTime);
  }
  return S_OK;
}

void CTranscodePipeline::_WriteLoop() {
  const Clock::time_point tStart = Clock::now();
  double dblWaiting = 0.0;
  WriterItem item;
  for (;;) {
    const Clock::time_point tPop = Clock::now();
    const bool bGot = m_queueWriter.Pop(&item);
    dblWaiting += SecondsSince(tPop);
    if (!bGot) break;
    const HRESULT hr = _Write(item.pStream, item.cpPacket.Get());
    item.cpPacket = nullptr;
    if (FAILED(hr)) {
      _Fail(hr, "writing " + Outputs().back() + " failed");
      break;
    }
  }
  vc::CKMutexLock lock(m_mtx);
  m_mapBusy["writer"] = SecondsSince(tStart) - dblWaiting;
}

// ---------------------------------------------------------------------------
// Failure and the end

void CTranscodePipeline::_AbortAll() {
  m_queueWriter.Abort();
  for (auto& spStream : m_vecStreams) {
    spStream->spPackets->Abort();
    spStream->spFrames->Abort();
  }
  if (m_pSource && m_pSource->cpSplitter) m_pSource->cpSplitter->SplitterStop();
}

void CTranscodePipeline::_Fail(HRESULT hr, const std::string& strWhat) {
  {
    vc::CKMutexLock lock(m_mtx);
    if (!m_strError.empty()) return;
    m_strError = strWhat + ": " + HrText(hr);
  }
  m_bFailed = true;
  _AbortAll();
}

std::string CTranscodePipeline::ErrorText() const {
  vc::CKMutexLock lock(m_mtx);
  return m_strError;
}

std::vector<std::string> CTranscodePipeline::Outputs() const {
  vc::CKMutexLock lock(m_mtx);
  return m_vecOutputs;
}

std::map<std::string, double> CTranscodePipeline::StageBusySeconds() const {
  std::map<std::string, double> map;
  {
    vc::CKMutexLock lock(m_mtx);
    map = m_mapBusy;
  }
  for (const auto& spStream : m_vecStreams) {
    if (spStream->bCopy) continue;
    const std::string strIndex = std::to_string(spStream->nSourceIndex);
    map["decode " + strIndex] = spStream->dblDecodeSeconds.load();
    map["encode " + strIndex] = spStream->dblEncodeSeconds.load();
  }
  return map;
}

std::map<std::string, double> CTranscodePipeline::QueueFills() const {
  std::map<std::string, double> map;
  for (const auto& spStream : m_vecStreams) {
    if (spStream->bCopy) continue;
    const std::string strName = std::to_string(spStream->nSourceIndex) + " " + TypeName(spStream->eType);
    map[strName + " packets"] = static_cast<double>(spStream->spPackets->Size());
    map[strName + " frames"] = static_cast<double>(spStream->spFrames->Size());
  }
  map["writer packets"] = static_cast<double>(m_queueWriter.Size());
  return map;
}

double CTranscodePipeline::Position() const {
  LONGLONG rtFirst = VC_TIME_UNSET, rtLast = VC_TIME_UNSET;
  for (const auto& spStream : m_vecStreams) {
    const LONGLONG rtStreamFirst = spStream->rtFirstOut.load(), rtStreamLast = spStream->rtLastOut.load();
    if (rtStreamFirst == VC_TIME_UNSET) continue;
    rtFirst = rtFirst == VC_TIME_UNSET ? rtStreamFirst : std::min(rtFirst, rtStreamFirst);
    rtLast = rtLast == VC_TIME_UNSET ? rtStreamLast : std::max(rtLast, rtStreamLast);
  }
  return rtFirst == VC_TIME_UNSET ? 0.0 : static_cast<double>(rtLast - rtFirst) / VC_TIME_SECOND;
}

bool CTranscodePipeline::Finish() {
  for (std::thread& thread : m_vecThreads)
    if (thread.joinable()) thread.join();
  m_vecThreads.clear();
  // Statistics first: the closes remove them.
  for (auto& spStream : m_vecStreams) {
    if (spStream->bCopy) continue;
    spStream->strDecoderType = PropText(spStream->cpDecoder.Get(), "decoder.type");
    spStream->mapDecoderStats = StatValues(spStream->cpDecoder.Get());
    if (spStream->mapEncoderStats.empty()) spStream->mapEncoderStats = StatValues(spStream->cpEncoder.Get());
    if (spStream->strEncoderName.empty()) spStream->strEncoderName = PropText(spStream->cpEncoder.Get(), "codec_name");
  }
  m_mapSplitterStats = StatValues(m_pSource->cpSplitter.Get());
  if (m_cpMuxer) m_mapMuxerStats = StatValues(m_cpMuxer.Get());
  for (auto& spStream : m_vecStreams) {
    if (spStream->cpEncoder && _Failed()) spStream->cpEncoder->EncodeClose();
    if (spStream->cpDecoder) spStream->cpDecoder->DecodeClose();
  }
  if (m_cpMuxer) {
    const HRESULT hr = m_cpMuxer->MuxerClose();
    if (FAILED(hr)) _Fail(hr, "finishing " + Outputs().back() + " failed");
  }
  if (!_Failed()) {
    for (const auto& spStream : m_vecStreams) {
      if (spStream->llPacketsIn > 0 && spStream->llPacketsOut == 0) {
        _Fail(E_FAIL, "stream " + std::to_string(spStream->nSourceIndex) + " gave no packet to write");
        break;
      }
    }
  }
  return !_Failed();
}

}  // namespace vctool
