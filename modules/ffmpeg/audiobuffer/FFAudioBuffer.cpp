#include "FFAudioBuffer.h"

#include <algorithm>
#include <climits>
#include <new>

#include "FFAudioBufferFile.h"
#include "FFClasses.h"
#include "VCLog.h"
#include "VCTimeText.h"

namespace vc::ff {

using abuf::CChannelSelection;
using abuf::CheckProps;
using abuf::CSourceAudio;

namespace {

String LineKey(BSTR bsLine) { return ToLowerAscii(InString(bsLine)); }

LONG ClampToLong(size_t n) { return static_cast<LONG>(std::min<size_t>(n, LONG_MAX)); }

}  // namespace

CFFAudioBuffer::CLine* CFFAudioBuffer::_FindLine(BSTR bsLine) {
  const auto it = m_mapLines.find(LineKey(bsLine));
  return it == m_mapLines.end() ? nullptr : it->second.get();
}

CFFAudioBuffer::CLine* CFFAudioBuffer::_NonEmptyLine(BSTR bsLine, LONG* pnSamples) {
  CLine* pLine = _FindLine(bsLine);
  if (pLine && pLine->Samples() > 0) return pLine;
  if (pnSamples) *pnSamples = 0;
  return nullptr;
}

CFFAudioBuffer::CLine& CFFAudioBuffer::_LineFor(BSTR bsLine) {
  std::unique_ptr<CLine>& spLine = m_mapLines[LineKey(bsLine)];
  if (!spLine) spLine = std::make_unique<CLine>();
  return *spLine;
}

HRESULT CFFAudioBuffer::_Put(BSTR bsLine, const CSourceAudio& src, BSTR bsChannels, LONGLONG rtTime, bool bFlush) {
  CKAutoLock lock(m_csLock);
  CChannelSelection sel;
  if (!abuf::ParseChannelListOrLog(bsLine, bsChannels, src.props, &sel)) return E_INVALIDARG;
  size_t nAdded = 0;
  CLine& line = _LineFor(bsLine);
  const HRESULT hr = line.Put(src, sel.vecChannels, sel.nTrackSplitBits, rtTime, &nAdded);
  if (FAILED(hr) || !bFlush) return hr;
  return line.Flush();
}

HRESULT CFFAudioBuffer::BufferLoadFromFile(BSTR _bsLine, BSTR _bsFileName, LONG _lSamplesOffset,
                                           LONG _lSamplesLoad) {
  VC_GUARD_BEGIN
  if (!_bsFileName) {
    VC_LOG(eVCLL_Error, "(%ws) no file name\n", _bsLine);
    return E_POINTER;
  }
  if (InString(_bsFileName).empty() || _lSamplesOffset < 0) {
    VC_LOG(eVCLL_Error, "(%ws) file '%ws' from sample %d: bad argument\n", _bsLine, _bsFileName, _lSamplesOffset);
    return E_INVALIDARG;
  }
  K_AUD_PROPS rawProps{};
  const bool bRaw = abuf::IsRawPcmName(InString(_bsFileName));
  if (bRaw) {
    CKAutoLock lock(m_csLock);
    CLine* pLine = _FindLine(_bsLine);
    if (!pLine || !pLine->HasProps()) {
      VC_LOG(eVCLL_Error, "(%ws) raw file '%ws' needs the line's format set first\n", _bsLine, _bsFileName);
      return E_INVALIDARG;
    }
    rawProps = pLine->Props();
  }
  // Decoding can take a while: done without the lock, the samples put
  // afterwards in one piece.
  abuf::CDecodedAudio audio;
  HRESULT hr = abuf::DecodeAudioFile(ToUtf8(InString(_bsFileName)), bRaw ? &rawProps : nullptr, _lSamplesOffset,
                                     _lSamplesLoad, &audio);
  if (FAILED(hr)) return hr;
  if (audio.nSamples == 0) return S_FALSE;
  const CSourceAudio src{audio.vecData.data(), audio.props, audio.nSamples, 0};
  hr = _Put(_bsLine, src, nullptr, VC_TIME_UNSET, true);
  if (SUCCEEDED(hr))
    VC_LOG(eVCLL_Progress, "(%ws) '%ws': %zu sample(s), %d Hz, %d channel(s)\n", _bsLine, _bsFileName,
           audio.nSamples, audio.props.nSamplesPerSec, audio.props.nChannels);
  return hr;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferPropsSet(BSTR _bsLine, K_AUD_PROPS* _pAudProps, BOOL _bResetBuffer) {
  VC_GUARD_BEGIN
  if (!_pAudProps) {
    VC_LOG(eVCLL_Error, "(%ws) no format\n", _bsLine);
    return E_POINTER;
  }
  std::string strWhy;
  if (!CheckProps(*_pAudProps, &strWhy)) {
    VC_LOG(eVCLL_Error, "(%ws) format: %s\n", _bsLine, strWhy.c_str());
    return E_INVALIDARG;
  }
  CKAutoLock lock(m_csLock);
  return _LineFor(_bsLine).SetProps(*_pAudProps, _bResetBuffer != FALSE);
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferPropsGet(BSTR _bsLine, K_AUD_PROPS* _pAudProps, LONG* _plSamples) {
  VC_GUARD_BEGIN
  if (!_pAudProps) {
    VC_LOG(eVCLL_Error, "(%ws) no place for the format\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  const CLine* pLine = _FindLine(_bsLine);
  const bool bHas = pLine && pLine->HasProps();
  *_pAudProps = bHas ? pLine->Props() : K_AUD_PROPS{};
  if (_plSamples) *_plSamples = bHas ? ClampToLong(pLine->Samples()) : 0;
  return bHas ? S_OK : S_FALSE;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferPutPtr(BSTR _bsLine, K_AUD_PROPS* _pAudProps, LONG _lSamples, LONGLONG _pbAudio,
                                     BSTR _bsChannelsListOrTrack) {
  VC_GUARD_BEGIN
  return BufferPutPtrEx(_bsLine, VC_TIME_UNSET, _pAudProps, _lSamples, _pbAudio, 0, _bsChannelsListOrTrack);
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferPutPtrEx(BSTR _bsLine, LONGLONG _rtTime, K_AUD_PROPS* _pAudProps, LONG _lSamples,
                                       LONGLONG _pbAudio, LONG _cbAudioPlane, BSTR _bsChannelsList) {
  VC_GUARD_BEGIN
  if (_lSamples < 0 || _cbAudioPlane < 0) {
    VC_LOG(eVCLL_Error, "(%ws) %d sample(s), plane of %d bytes\n", _bsLine, _lSamples, _cbAudioPlane);
    return E_INVALIDARG;
  }
  if (_lSamples == 0) return S_FALSE;
  if (!_pbAudio) {
    VC_LOG(eVCLL_Error, "(%ws) no samples at address 0\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  K_AUD_PROPS props{};
  if (_pAudProps) {
    props = *_pAudProps;
  } else if (const CLine* pLine = _FindLine(_bsLine); pLine && pLine->HasProps()) {
    props = pLine->Props();
  } else {
    VC_LOG(eVCLL_Error, "(%ws) no format given and the line has none\n", _bsLine);
    return E_INVALIDARG;
  }
  std::string strWhy;
  if (!CheckProps(props, &strWhy)) {
    VC_LOG(eVCLL_Error, "(%ws) format: %s\n", _bsLine, strWhy.c_str());
    return E_INVALIDARG;
  }
  const int64_t llPlaneNeeded = static_cast<int64_t>(_lSamples) * abuf::BytesPerSample(props.nBitsPerSample);
  if (_cbAudioPlane > 0 && _cbAudioPlane < llPlaneNeeded) {
    VC_LOG(eVCLL_Error, "(%ws) planes of %d bytes cannot hold %d sample(s)\n", _bsLine, _cbAudioPlane, _lSamples);
    return E_INVALIDARG;
  }
  const CSourceAudio src{reinterpret_cast<const uint8_t*>(_pbAudio), props, static_cast<size_t>(_lSamples),
                         static_cast<size_t>(_cbAudioPlane)};
  return _Put(_bsLine, src, _bsChannelsList, _rtTime);
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferLinesRemove(BSTR _bsLine) {
  VC_GUARD_BEGIN
  CKAutoLock lock(m_csLock);
  if (InString(_bsLine).empty()) {
    const bool bAny = !m_mapLines.empty();
    m_mapLines.clear();
    return bAny ? S_OK : S_FALSE;
  }
  return m_mapLines.erase(LineKey(_bsLine)) ? S_OK : S_FALSE;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferRemove(BSTR _bsLine, LONG* _plSamples) {
  VC_GUARD_BEGIN
  CKAutoLock lock(m_csLock);
  CLine* pLine = _FindLine(_bsLine);
  size_t nWant = _plSamples && *_plSamples >= 0 ? static_cast<size_t>(*_plSamples) : SIZE_MAX;
  const size_t nDropped = pLine ? pLine->Drop(nWant) : 0;
  if (_plSamples) *_plSamples = ClampToLong(nDropped);
  return nDropped ? S_OK : S_FALSE;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferGet(BSTR _bsLine, LONG* _plSamples, LONGLONG* _ppbAudio, LONG _cbAudioPlane,
                                  BSTR _bsChannelsList) {
  VC_GUARD_BEGIN
  if (!_plSamples || !_ppbAudio) {
    VC_LOG(eVCLL_Error, "(%ws) no count or no address\n", _bsLine);
    return E_POINTER;
  }
  const bool bAllocate = *_ppbAudio == 0;
  if (_cbAudioPlane < 0 || (!bAllocate && *_plSamples <= 0)) {
    VC_LOG(eVCLL_Error, "(%ws) %d sample(s) into %s, plane of %d bytes\n", _bsLine, *_plSamples,
           bAllocate ? "a new block" : "the caller's memory", _cbAudioPlane);
    return E_INVALIDARG;
  }
  CKAutoLock lock(m_csLock);
  CLine* pLine = _NonEmptyLine(_bsLine, _plSamples);
  if (!pLine) return S_FALSE;
  CChannelSelection sel;
  if (!abuf::ParseChannelListOrLog(_bsLine, _bsChannelsList, pLine->Props(), &sel)) {
    return E_INVALIDARG;
  }
  const size_t nAsked = *_plSamples > 0 ? static_cast<size_t>(*_plSamples) : pLine->Samples();
  const size_t n = std::min(nAsked, pLine->Samples());
  const auto cbSample = static_cast<size_t>(abuf::BytesPerSample(pLine->Props().nBitsPerSample));
  const size_t nOutCh = sel.vecChannels.size();
  // A plane must hold what the caller asked for, not just what there is,
  // so the same call never writes past a plane whatever the line holds.
  if (_cbAudioPlane > 0 && static_cast<size_t>(_cbAudioPlane) < nAsked * cbSample) {
    VC_LOG(eVCLL_Error, "(%ws) planes of %d bytes cannot hold %zu sample(s)\n", _bsLine, _cbAudioPlane, nAsked);
    return E_INVALIDARG;
  }
  uint8_t* pbOut = reinterpret_cast<uint8_t*>(*_ppbAudio);
  if (bAllocate) {
    const size_t cbOut = _cbAudioPlane > 0 ? nOutCh * static_cast<size_t>(_cbAudioPlane) : n * nOutCh * cbSample;
    pbOut = static_cast<uint8_t*>(CoTaskMemAlloc(cbOut));
    if (!pbOut) return E_OUTOFMEMORY;
  }
  const size_t cbBlock = pLine->BlockAlign();
  const uint8_t* pbLine = pLine->Data();
  const LONG nBits = pLine->Props().nBitsPerSample;
  for (size_t k = 0; k < nOutCh; ++k) {
    const int nCh = sel.vecChannels[k];
    for (size_t i = 0; i < n; ++i) {
      uint8_t* pbTo = _cbAudioPlane > 0 ? pbOut + k * static_cast<size_t>(_cbAudioPlane) + i * cbSample
                                        : pbOut + (i * nOutCh + k) * cbSample;
      if (nCh < 0) abuf::FillSilence(pbTo, cbSample, nBits);
      else std::memcpy(pbTo, pbLine + i * cbBlock + static_cast<size_t>(nCh) * cbSample, cbSample);
    }
  }
  pLine->Drop(n);
  *_plSamples = ClampToLong(n);
  if (bAllocate) *_ppbAudio = reinterpret_cast<LONGLONG>(pbOut);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferTimesEnable(BSTR _bsLine, BOOL _bEnable, LONGLONG _prtMinDiff, LONGLONG _prtMaxDiff) {
  VC_GUARD_BEGIN
  if (_bEnable && (_prtMinDiff > 0 || _prtMaxDiff < 0)) {
    VC_LOG(eVCLL_Error, "(%ws) window %I64d..%I64d must hold 0\n", _bsLine, _prtMinDiff, _prtMaxDiff);
    return E_INVALIDARG;
  }
  CKAutoLock lock(m_csLock);
  _LineFor(_bsLine).TimesEnable(_bEnable != FALSE, _prtMinDiff, _prtMaxDiff);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferTimesIsEnabled(BSTR _bsLine, BOOL* _pbEnabled, LONGLONG* _prtMinDiff,
                                             LONGLONG* _prtMaxDiff) {
  VC_GUARD_BEGIN
  if (!_pbEnabled) {
    VC_LOG(eVCLL_Error, "(%ws) no place for the answer\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  const CLine* pLine = _FindLine(_bsLine);
  *_pbEnabled = pLine && pLine->TimesEnabled() ? TRUE : FALSE;
  if (_prtMinDiff) *_prtMinDiff = pLine ? pLine->MinDiff() : 0;
  if (_prtMaxDiff) *_prtMaxDiff = pLine ? pLine->MaxDiff() : 0;
  return pLine ? S_OK : S_FALSE;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferTimesGet(BSTR _bsLine, LONGLONG* _prtStartTime, LONGLONG* _prtEndTime) {
  VC_GUARD_BEGIN
  if (!_prtStartTime && !_prtEndTime) {
    VC_LOG(eVCLL_Error, "(%ws) no place for the times\n", _bsLine);
    return E_POINTER;
  }
  CKAutoLock lock(m_csLock);
  const CLine* pLine = _FindLine(_bsLine);
  const LONGLONG rtStart = pLine ? pLine->StartTime() : VC_TIME_UNSET;
  if (_prtStartTime) *_prtStartTime = rtStart;
  if (_prtEndTime) *_prtEndTime = pLine ? pLine->EndTime() : VC_TIME_UNSET;
  return rtStart == VC_TIME_UNSET ? S_FALSE : S_OK;
  VC_GUARD_END
}

HRESULT CFFAudioBuffer::BufferTimesSet(BSTR _bsLine, LONGLONG _rtStartTime, LONGLONG _rtMinEndTime) {
  VC_GUARD_BEGIN
  CKAutoLock lock(m_csLock);
  CLine* pLine = _FindLine(_bsLine);
  if (!pLine || !pLine->HasProps()) {
    VC_LOG(eVCLL_Error, "(%ws) the line has no format\n", _bsLine);
    return E_INVALIDARG;
  }
  const LONGLONG rtStart = _rtStartTime != VC_TIME_UNSET ? _rtStartTime : pLine->StartTime();
  if (_rtMinEndTime == VC_TIME_UNSET) {
    pLine->SetStartTime(rtStart);
    return S_OK;
  }
  if (rtStart == VC_TIME_UNSET) {
    VC_LOG(eVCLL_Error, "(%ws) end %ws asked of a line without a time\n", _bsLine, TimeTextW(_rtMinEndTime).c_str());
    return E_INVALIDARG;
  }
  // The end is checked before anything changes, so a refused call leaves
  // the line as it was.
  const LONG nRate = pLine->Props().nSamplesPerSec;
  const LONGLONG rtEnd = rtStart + abuf::SamplesToRefTime(static_cast<int64_t>(pLine->Samples()), nRate);
  if (_rtMinEndTime - rtEnd > abuf::kMaxTimeCorrection) {
    VC_LOG(eVCLL_Error, "(%ws) end %ws is more than 10 s after the line's end %ws\n", _bsLine,
           TimeTextW(_rtMinEndTime).c_str(), TimeTextW(rtEnd).c_str());
    return E_INVALIDARG;
  }
  pLine->SetStartTime(rtStart);
  if (_rtMinEndTime > rtEnd)
    pLine->PadTo(pLine->Samples() + static_cast<size_t>(abuf::RefTimeToSamples(_rtMinEndTime - rtEnd, nRate)));
  return S_OK;
  VC_GUARD_END
}

HRESULT CreateFFAudioBuffer(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CFFAudioBuffer>(pOuter, riid, ppv);
}

}  // namespace vc::ff
