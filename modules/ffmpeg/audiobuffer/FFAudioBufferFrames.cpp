// The audio buffer's calls that move audio between lines and frames, and
// between two lines. Frames are reached through IVCFrame only: their format
// and sample count from VCAVPropsGet, their samples from VCAudioGetBytes,
// and new audio handed over with VCAudioSet, which copies it. A frame's own
// memory is never written: a decoded frame may share it with others.
#include <algorithm>
#include <climits>
#include <new>

#include "FFAudioBuffer.h"
#include "VCLog.h"

namespace vc::ff {

using abuf::CAudioRef;
using abuf::CChannelSelection;
using abuf::CGainRamp;

namespace {

// A frame's audio as the frame reports it; pb is null for a frame without
// audio.
struct CFrameAudio {
  K_AUD_PROPS props{};
  size_t nSamples = 0;
  const uint8_t* pb = nullptr;

  bool HasAudio() const { return pb != nullptr; }
  CAudioRef Ref() const { return CAudioRef{const_cast<uint8_t*>(pb), props.nChannels, props.nBitsPerSample}; }
};

HRESULT ReadFrameAudio(IVCFrame* pFrame, CFrameAudio* pAudio) {
  K_AV_PROPS avProps{};
  LONG lSamples = 0;
  HRESULT hr = pFrame->VCAVPropsGet(&avProps, &lSamples);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "pFrame->VCAVPropsGet() FAILED hr=%08X\n", hr);
    return hr;
  }
  pAudio->props = avProps.audProps;
  if (lSamples <= 0 || avProps.audProps.nChannels <= 0) return S_OK;
  std::string strWhy;
  if (!abuf::CheckProps(avProps.audProps, &strWhy)) {
    VC_LOG(eVCLL_Error, "frame audio format: %s\n", strWhy.c_str());
    return E_INVALIDARG;
  }
  LONG cbAudio = 0;
  LONGLONG llAudio = 0;
  hr = pFrame->VCAudioGetBytes(&cbAudio, &llAudio);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "pFrame->VCAudioGetBytes() FAILED hr=%08X\n", hr);
    return hr;
  }
  const size_t cbNeeded = static_cast<size_t>(lSamples) * abuf::BlockAlign(avProps.audProps);
  if (!llAudio || cbAudio < 0 || static_cast<size_t>(cbAudio) < cbNeeded) {
    VC_LOG(eVCLL_Error, "frame audio of %d bytes at %p for %d sample(s) of %zu bytes\n", cbAudio,
           reinterpret_cast<void*>(llAudio), lSamples, abuf::BlockAlign(avProps.audProps));
    return E_UNEXPECTED;
  }
  pAudio->nSamples = static_cast<size_t>(lSamples);
  pAudio->pb = reinterpret_cast<const uint8_t*>(llAudio);
  return S_OK;
}

// Whether a frame's start time is a time (frames that were never timed
// carry 0 or the unset value at both ends).
bool HasTime(const K_TIME& time) {
  return !(time.rtStartTime == time.rtEndTime && (time.rtStartTime == 0 || time.rtStartTime == VC_TIME_UNSET));
}

HRESULT SetFrameAudio(IVCFrame* pFrame, K_AUD_PROPS props, std::vector<uint8_t>& vecAudio) {
  if (vecAudio.size() > static_cast<size_t>(LONG_MAX)) return E_INVALIDARG;
  const HRESULT hr =
      pFrame->VCAudioSet(&props, static_cast<LONG>(vecAudio.size()), reinterpret_cast<LONGLONG>(vecAudio.data()));
  if (FAILED(hr)) VC_LOG(eVCLL_Error, "pFrame->VCAudioSet(%zu bytes) FAILED hr=%08X\n", vecAudio.size(), hr);
  return hr;
}

bool SameRateOrLog(BSTR bsLine, LONG nLineRate, LONG nOtherRate) {
  if (nLineRate == nOtherRate) return true;
  VC_LOG(eVCLL_Error, "(%ws) line at %d Hz, frame or line at %d Hz\n", bsLine, nLineRate, nOtherRate);
  return false;
}

std::vector<int> ChannelRange(int nFirst, int nCount) {
  std::vector<int> vec(static_cast<size_t>(nCount));
  for (int k = 0; k < nCount; ++k) vec[static_cast<size_t>(k)] = nFirst + k;
  return vec;
}

}  // namespace

HRESULT CFFAudioBuffer::BufferFramePut(BSTR _bsLine, IVCFrame* _pFrame, BSTR _bsChannelsListOrTrack) {
  VC_GUARD_BEGIN
  if (!_pFrame) {
    VC_LOG(eVCLL_Error, "(%ws) no frame\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  CFrameAudio audio;
  HRESULT hr = ReadFrameAudio(_pFrame, &audio);
  if (FAILED(hr)) return hr;
  if (!audio.HasAudio()) return S_FALSE;
  K_TIME time{};
  const LONGLONG rtTime = SUCCEEDED(_pFrame->VCTimeGet(&time)) && HasTime(time) ? time.rtStartTime : VC_TIME_UNSET;
  const abuf::CSourceAudio src{audio.pb, audio.props, audio.nSamples, 0};
  return _Put(_bsLine, src, _bsChannelsListOrTrack, rtTime);
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferFrameFill(BSTR _bsLine, IVCFrame* _pFrame, LONG* _plSamples, BSTR _bsChannelsList) {
  VC_GUARD_BEGIN
  if (!_pFrame || !_plSamples) {
    VC_LOG(eVCLL_Error, "(%ws) no frame or no count\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  CLine* pLine = _NonEmptyLine(_bsLine, _plSamples);
  if (!pLine) return S_FALSE;
  CChannelSelection sel;
  if (!abuf::ParseChannelListOrLog(_bsLine, _bsChannelsList, pLine->Props(), &sel)) return E_INVALIDARG;
  CFrameAudio frame;
  HRESULT hr = ReadFrameAudio(_pFrame, &frame);
  if (FAILED(hr)) return hr;

  K_AUD_PROPS props = frame.props;
  size_t n = frame.nSamples;
  if (!frame.HasAudio()) {
    props = pLine->Props();
    props.nChannels = static_cast<LONG>(sel.vecChannels.size());
    props.nTrackSplitBits = sel.nTrackSplitBits;
    n = pLine->Samples();
  }
  if (*_plSamples > 0) n = static_cast<size_t>(*_plSamples);
  if (!SameRateOrLog(_bsLine, pLine->Props().nSamplesPerSec, props.nSamplesPerSec)) return E_INVALIDARG;

  const size_t nTaken = std::min(n, pLine->Samples());
  std::vector<uint8_t> vecAudio(n * abuf::BlockAlign(props));
  abuf::FillSilence(vecAudio.data(), vecAudio.size(), props.nBitsPerSample);
  const CAudioRef dst{vecAudio.data(), props.nChannels, props.nBitsPerSample};
  abuf::RenderSamples(pLine->Ref(), sel.vecChannels, CGainRamp(), dst, abuf::AllChannels(props.nChannels), nullptr,
                      nTaken);
  hr = SetFrameAudio(_pFrame, props, vecAudio);
  if (FAILED(hr)) return hr;
  pLine->Drop(nTaken);
  *_plSamples = static_cast<LONG>(nTaken);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferFrameMix(BSTR _bsLineFrom, IVCFrame* _pFrameTo, LONG* _plSamplesMix,
                                       double _dblGainFromStartDb, double _dblGainFromEndDb, BSTR _bsChannelsListIn,
                                       BSTR _bsChannelsListOut) {
  VC_GUARD_BEGIN
  if (!_pFrameTo) {
    VC_LOG(eVCLL_Error, "(%ws) no frame\n", _bsLineFrom);
    return E_POINTER;
  }
  if (!abuf::IsGainDb(_dblGainFromStartDb) || !abuf::IsGainDb(_dblGainFromEndDb)) {
    VC_LOG(eVCLL_Error, "(%ws) gain %g..%g dB\n", _bsLineFrom, _dblGainFromStartDb, _dblGainFromEndDb);
    return E_INVALIDARG;
  }
  if (_plSamplesMix) *_plSamplesMix = 0;
  CKAutoLock lock(m_csLock);
  CFrameAudio frame;
  HRESULT hr = ReadFrameAudio(_pFrameTo, &frame);
  if (FAILED(hr)) return hr;
  if (!frame.HasAudio()) {
    VC_LOG(eVCLL_Error, "(%ws) the frame holds no audio to mix into\n", _bsLineFrom);
    return E_INVALIDARG;
  }
  CLine* pLine = _NonEmptyLine(_bsLineFrom, nullptr);
  if (!pLine) return S_FALSE;
  CChannelSelection selIn, selOut;
  if (!abuf::ParseChannelListOrLog(_bsLineFrom, _bsChannelsListIn, pLine->Props(), &selIn) ||
      !abuf::ParseChannelListOrLog(_bsLineFrom, _bsChannelsListOut, frame.props, &selOut) ||
      !SameRateOrLog(_bsLineFrom, pLine->Props().nSamplesPerSec, frame.props.nSamplesPerSec))
    return E_INVALIDARG;

  const size_t n = std::min(frame.nSamples, pLine->Samples());
  std::vector<uint8_t> vecAudio(frame.pb, frame.pb + frame.nSamples * abuf::BlockAlign(frame.props));
  const CAudioRef dst{vecAudio.data(), frame.props.nChannels, frame.props.nBitsPerSample};
  const CGainRamp unity;
  abuf::RenderSamples(pLine->Ref(), selIn.vecChannels, CGainRamp(_dblGainFromStartDb, _dblGainFromEndDb, n), dst,
                      selOut.vecChannels, &unity, n);
  hr = SetFrameAudio(_pFrameTo, frame.props, vecAudio);
  if (FAILED(hr)) return hr;
  pLine->Drop(n);
  if (_plSamplesMix) *_plSamplesMix = static_cast<LONG>(n);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferFrameChannelsAppend(BSTR _bsLine, IVCFrame* _pFrame, LONG* _plSamplesAppend,
                                                  BSTR _bsChannelsList) {
  VC_GUARD_BEGIN
  if (!_pFrame || !_plSamplesAppend) {
    VC_LOG(eVCLL_Error, "(%ws) no frame or no count\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  CLine* pLine = _NonEmptyLine(_bsLine, _plSamplesAppend);
  if (!pLine) return S_FALSE;
  CFrameAudio frame;
  HRESULT hr = ReadFrameAudio(_pFrame, &frame);
  if (FAILED(hr)) return hr;
  if (!frame.HasAudio()) return BufferFrameFill(_bsLine, _pFrame, _plSamplesAppend, _bsChannelsList);
  CChannelSelection sel;
  if (!abuf::ParseChannelListOrLog(_bsLine, _bsChannelsList, pLine->Props(), &sel) ||
      !SameRateOrLog(_bsLine, pLine->Props().nSamplesPerSec, frame.props.nSamplesPerSec))
    return E_INVALIDARG;
  const LONG nOldCh = frame.props.nChannels;
  const LONG nNewCh = nOldCh + static_cast<LONG>(sel.vecChannels.size());
  if (nNewCh > abuf::kMaxChannels) {
    VC_LOG(eVCLL_Error, "(%ws) %d channel(s) would be more than %d\n", _bsLine, nNewCh, abuf::kMaxChannels);
    return E_INVALIDARG;
  }
  // The appended channels form a track of their own, keeping the tracks
  // they had in the line.
  K_AUD_PROPS props = frame.props;
  props.nChannels = nNewCh;
  const uint64_t llSplits = (static_cast<uint64_t>(static_cast<uint32_t>(sel.nTrackSplitBits)) | 1u) << nOldCh;
  props.nTrackSplitBits = static_cast<LONG>(static_cast<uint32_t>(frame.props.nTrackSplitBits) |
                                            static_cast<uint32_t>(llSplits & 0xFFFFFFFFu));

  const size_t n = frame.nSamples;
  const size_t nWant = *_plSamplesAppend > 0 ? std::min(n, static_cast<size_t>(*_plSamplesAppend)) : n;
  const size_t nTaken = std::min(nWant, pLine->Samples());
  std::vector<uint8_t> vecAudio(n * abuf::BlockAlign(props));
  abuf::FillSilence(vecAudio.data(), vecAudio.size(), props.nBitsPerSample);
  const CAudioRef dst{vecAudio.data(), props.nChannels, props.nBitsPerSample};
  const std::vector<int> vecOld = abuf::AllChannels(nOldCh);
  abuf::RenderSamples(frame.Ref(), vecOld, CGainRamp(), dst, vecOld, nullptr, n);
  abuf::RenderSamples(pLine->Ref(), sel.vecChannels, CGainRamp(), dst,
                      ChannelRange(nOldCh, static_cast<int>(sel.vecChannels.size())), nullptr, nTaken);
  hr = SetFrameAudio(_pFrame, props, vecAudio);
  if (FAILED(hr)) return hr;
  pLine->Drop(nTaken);
  *_plSamplesAppend = static_cast<LONG>(nTaken);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferLinesMix(BSTR _bsLineFrom, BSTR _bsLineTo, LONG* _plSamplesMix,
                                       double _dblGainFromStartDb, double _dblGainFromEndDb, double _dblGainToStartDb,
                                       double _dblGainToEndDb, BSTR _bsChannelsListIn, BSTR _bsChannelsListOut) {
  VC_GUARD_BEGIN
  if (!_plSamplesMix) {
    VC_LOG(eVCLL_Error, "(%ws) no count\n", _bsLineFrom);
    return E_POINTER;
  }
  if (!abuf::IsGainDb(_dblGainFromStartDb) || !abuf::IsGainDb(_dblGainFromEndDb) ||
      !abuf::IsGainDb(_dblGainToStartDb) || !abuf::IsGainDb(_dblGainToEndDb) ||
      StrIEquals(InString(_bsLineFrom), InString(_bsLineTo))) {
    VC_LOG(eVCLL_Error, "(%ws) into (%ws), gains %g..%g and %g..%g dB: bad argument\n", _bsLineFrom, _bsLineTo,
           _dblGainFromStartDb, _dblGainFromEndDb, _dblGainToStartDb, _dblGainToEndDb);
    return E_INVALIDARG;
  }
  CKAutoLock lock(m_csLock);
  CLine* pFrom = _NonEmptyLine(_bsLineFrom, _plSamplesMix);
  if (!pFrom) return S_FALSE;
  CChannelSelection selIn, selOut;
  if (!abuf::ParseChannelListOrLog(_bsLineFrom, _bsChannelsListIn, pFrom->Props(), &selIn)) return E_INVALIDARG;
  // Everything is checked against To's format, existing or to be, before
  // To is created.
  CLine* pTo = _FindLine(_bsLineTo);
  K_AUD_PROPS propsTo = pFrom->Props();
  if (pTo && pTo->HasProps()) {
    propsTo = pTo->Props();
  } else {
    propsTo.nChannels = static_cast<LONG>(selIn.vecChannels.size());
    propsTo.nTrackSplitBits = selIn.nTrackSplitBits;
  }
  if (!abuf::ParseChannelListOrLog(_bsLineTo, _bsChannelsListOut, propsTo, &selOut) ||
      !SameRateOrLog(_bsLineFrom, pFrom->Props().nSamplesPerSec, propsTo.nSamplesPerSec))
    return E_INVALIDARG;
  if (!pTo || !pTo->HasProps()) {
    pTo = &_LineFor(_bsLineTo);
    HRESULT hr = pTo->SetProps(propsTo, true);
    if (FAILED(hr)) return hr;
  }

  const size_t n =
      *_plSamplesMix > 0 ? std::min(pFrom->Samples(), static_cast<size_t>(*_plSamplesMix)) : pFrom->Samples();
  pTo->PadTo(n);
  const CGainRamp gainTo(_dblGainToStartDb, _dblGainToEndDb, n);
  abuf::RenderSamples(pFrom->Ref(), selIn.vecChannels, CGainRamp(_dblGainFromStartDb, _dblGainFromEndDb, n),
                      pTo->Ref(), selOut.vecChannels, &gainTo, n);
  pFrom->Drop(n);
  *_plSamplesMix = static_cast<LONG>(n);
  return S_OK;
  VC_GUARD_END
}

}  // namespace vc::ff
