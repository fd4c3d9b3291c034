// The frame's audio: allocation, setting, per-channel access, gain ramps,
// mixing, copying channels to another frame and WAV files. Audio is
// interleaved PCM (8 unsigned, 16 or 32 signed); sample arithmetic runs on
// full-scale 32-bit values and saturates when written back.
//
// Gain ramps go linearly in amplitude from the start gain at the first
// sample to the end gain at the last, as the audio buffer's do. A symmetric
// mix ramps the frame's own samples the other way (end to start) while the
// mixed-in samples ramp start to end: a cross-fade.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "FFAudioBufferFormat.h"
#include "FFFormats.h"
#include "FFFrameChannels.h"
#include "FFFrameImpl.h"
#include "FFFrameScale.h"
#include "FFFrameWav.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

LONGLONG ToAddress(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }

int BitsOf(const AVFrame* pAudio) { return BitsFromSampleFormat(static_cast<AVSampleFormat>(pAudio->format)); }

size_t AudioBytes(const AVFrame* pAudio) {
  return static_cast<size_t>(pAudio->nb_samples) * static_cast<size_t>(pAudio->ch_layout.nb_channels) *
         static_cast<size_t>(PcmBytes(BitsOf(pAudio)));
}

bool ValidAudioProps(const K_AUD_PROPS* p) {
  return p && p->nChannels > 0 && p->nChannels <= kMaxAudioChannels && p->nSamplesPerSec > 0 &&
         SampleFormatFromBits(p->nBitsPerSample) != AV_SAMPLE_FMT_NONE;
}

// The audio of any frame as an interleaved AVFrame: a shared reference for
// this module's frames, a copy through the interface for others.
HRESULT AudioOf(IVCFrame* pFrame, AvFramePtr* pOut) {
  pOut->reset();
  if (CFFFrame* pOurs = CFFFrame::FromInterface(pFrame)) {
    *pOut = pOurs->AudioSnapshot();
    return S_OK;
  }
  K_AV_PROPS props{};
  LONG lSamples = 0;
  HRESULT hr = pFrame->VCAVPropsGet(&props, &lSamples);
  if (FAILED(hr)) return hr;
  LONG cbAudio = 0;
  LONGLONG llAudio = 0;
  hr = pFrame->VCAudioGetBytes(&cbAudio, &llAudio);
  if (FAILED(hr)) return hr;
  if (cbAudio <= 0 || !llAudio || lSamples <= 0) return S_OK;
  const K_AUD_PROPS& aud = props.audProps;
  if (!ValidAudioProps(&aud) ||
      static_cast<int64_t>(lSamples) * aud.nChannels * PcmBytes(aud.nBitsPerSample) > cbAudio) {
    VC_LOG(eVCLL_Error, "frame audio %d ch %d bits %d samples in %d bytes FAILED hr=%08X\n", aud.nChannels,
           aud.nBitsPerSample, lSamples, cbAudio, E_INVALIDARG);
    return E_INVALIDARG;
  }
  AvFramePtr spCopy;
  hr = AllocAudio(SampleFormatFromBits(aud.nBitsPerSample), aud.nChannels, aud.nSamplesPerSec, lSamples, &spCopy);
  if (FAILED(hr)) return hr;
  std::memcpy(spCopy->data[0], reinterpret_cast<const void*>(static_cast<uintptr_t>(llAudio)), AudioBytes(spCopy.get()));
  *pOut = std::move(spCopy);
  return S_OK;
}

void CopyChannel(const AVFrame* pSrc, int nSrc, AVFrame* pDst, int nDst) {
  const int nSrcBits = BitsOf(pSrc);
  const int nDstBits = BitsOf(pDst);
  const int nSrcStep = PcmBytes(nSrcBits) * pSrc->ch_layout.nb_channels;
  const int nDstStep = PcmBytes(nDstBits) * pDst->ch_layout.nb_channels;
  const uint8_t* pIn = pSrc->data[0] + nSrc * PcmBytes(nSrcBits);
  uint8_t* pTo = pDst->data[0] + nDst * PcmBytes(nDstBits);
  const int nSamples = std::min(pSrc->nb_samples, pDst->nb_samples);
  for (int s = 0; s < nSamples; ++s, pIn += nSrcStep, pTo += nDstStep) PcmWrite(pTo, nDstBits, PcmRead(pIn, nSrcBits));
}

}  // namespace

AvFramePtr CFFFrame::AudioSnapshot() {
  Lock lock(m_csLock);
  return AvFramePtr(m_content.pAudio ? av_frame_clone(m_content.pAudio.get()) : nullptr);
}

bool CFFFrame::_AudioWritableLocked() {
  return m_content.pAudio && av_frame_make_writable(m_content.pAudio.get()) >= 0;
}

void CFFFrame::_RefreshChannelsLocked() {
  if (m_vecChannels.empty()) return;
  const AVFrame* pAudio = m_content.pAudio.get();
  if (!pAudio) {
    m_vecChannels.clear();
    return;
  }
  const int nChannels = pAudio->ch_layout.nb_channels;
  const int nBytes = PcmBytes(BitsOf(pAudio));
  m_vecChannels.resize(static_cast<size_t>(nChannels));
  for (int c = 0; c < nChannels; ++c) {
    std::vector<uint8_t>& vecChannel = m_vecChannels[static_cast<size_t>(c)];
    vecChannel.resize(static_cast<size_t>(pAudio->nb_samples) * static_cast<size_t>(nBytes));
    const uint8_t* pIn = pAudio->data[0] + c * nBytes;
    for (int s = 0; s < pAudio->nb_samples; ++s, pIn += nBytes * nChannels) {
      std::memcpy(&vecChannel[static_cast<size_t>(s) * nBytes], pIn, static_cast<size_t>(nBytes));
    }
  }
}

// ---------------------------------------------------------------------------
// Allocation and setting

HRESULT CFFFrame::VCAudioAlloc(K_AUD_PROPS* _pAudProps, LONG _lSamples) {
  VC_GUARD_BEGIN
  if (!_pAudProps) {
    VC_LOG(eVCLL_Error, "no audio properties FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  const K_AUD_PROPS aud = *_pAudProps;
  if (!ValidAudioProps(&aud) || _lSamples < 0) {
    VC_LOG(eVCLL_Error, "audio %d ch %d Hz %d bits, %d samples FAILED hr=%08X\n", aud.nChannels, aud.nSamplesPerSec,
           aud.nBitsPerSample, _lSamples, E_INVALIDARG);
    return E_INVALIDARG;
  }
  AvFramePtr spAudio;
  const HRESULT hr =
      AllocAudio(SampleFormatFromBits(aud.nBitsPerSample), aud.nChannels, aud.nSamplesPerSec, _lSamples, &spAudio);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "audio of %d samples FAILED hr=%08X\n", _lSamples, hr);
    return hr;
  }
  Lock lock(m_csLock);
  m_content.pAudio = std::move(spAudio);
  m_content.props.audProps = aud;
  SyncAudioProps(&m_content);
  _RefreshChannelsLocked();
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAudioSet(K_AUD_PROPS* _pAudProps, LONG _cbSize, LONGLONG _pbAudio) {
  VC_GUARD_BEGIN
  if (!_pAudProps) {
    VC_LOG(eVCLL_Error, "no audio properties FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  const K_AUD_PROPS aud = *_pAudProps;
  const int nAlign = ValidAudioProps(&aud) ? aud.nChannels * PcmBytes(aud.nBitsPerSample) : 0;
  if (nAlign == 0 || _cbSize < 0 || _cbSize % nAlign != 0) {
    VC_LOG(eVCLL_Error, "audio %d ch %d Hz %d bits in %d bytes FAILED hr=%08X\n", aud.nChannels, aud.nSamplesPerSec,
           aud.nBitsPerSample, _cbSize, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (!_pbAudio && _cbSize > 0) {
    VC_LOG(eVCLL_Error, "%d audio bytes without an address FAILED hr=%08X\n", _cbSize, E_POINTER);
    return E_POINTER;
  }
  // Copied into new memory first: the bytes may be this frame's own.
  AvFramePtr spAudio;
  const HRESULT hr = AllocAudio(SampleFormatFromBits(aud.nBitsPerSample), aud.nChannels, aud.nSamplesPerSec,
                                _cbSize / nAlign, &spAudio);
  if (FAILED(hr)) return hr;
  if (_cbSize > 0) {
    std::memcpy(spAudio->data[0], reinterpret_cast<const void*>(static_cast<uintptr_t>(_pbAudio)),
                static_cast<size_t>(_cbSize));
  }
  Lock lock(m_csLock);
  m_content.pAudio = std::move(spAudio);
  m_content.props.audProps = aud;
  SyncAudioProps(&m_content);
  _RefreshChannelsLocked();
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Channels

HRESULT CFFFrame::VCAudioChannelGetBytes(LONG _nChannel, BOOL _bCreateNewChannels, LONG* _pcbSize,
                                         LONGLONG* _ppbAudio) {
  VC_GUARD_BEGIN
  if (_pcbSize) *_pcbSize = 0;
  if (_ppbAudio) *_ppbAudio = 0;
  if (!_pcbSize && !_ppbAudio) return E_POINTER;
  Lock lock(m_csLock);
  const AVFrame* pAudio = m_content.pAudio.get();
  if (!pAudio) return kHrEmpty;
  const int nChannels = pAudio->ch_layout.nb_channels;
  if (_nChannel < 0 || _nChannel >= kMaxAudioChannels || (_nChannel >= nChannels && !_bCreateNewChannels)) {
    VC_LOG(eVCLL_Error, "channel %d of %d FAILED hr=%08X\n", _nChannel, nChannels, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (_nChannel >= nChannels) {
    // New channels are silent; the ones there keep their samples.
    AvFramePtr spGrown;
    const HRESULT hr = RemapPcm(pAudio, BitsOf(pAudio), _nChannel + 1, IdentityRoutes(nChannels), &spGrown);
    if (FAILED(hr)) return hr;
    m_content.pAudio = std::move(spGrown);
    SyncAudioProps(&m_content);
  }
  if (m_vecChannels.empty()) m_vecChannels.resize(1);  // asks the refresh for every channel
  _RefreshChannelsLocked();
  const std::vector<uint8_t>& vecChannel = m_vecChannels[static_cast<size_t>(_nChannel)];
  if (_pcbSize) *_pcbSize = static_cast<LONG>(vecChannel.size());
  if (_ppbAudio) *_ppbAudio = ToAddress(vecChannel.data());
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAudioChannelsUpdate() {
  VC_GUARD_BEGIN
  Lock lock(m_csLock);
  if (m_vecChannels.empty() || !m_content.pAudio) return S_FALSE;
  if (!_AudioWritableLocked()) return E_OUTOFMEMORY;
  AVFrame* pAudio = m_content.pAudio.get();
  const int nChannels = pAudio->ch_layout.nb_channels;
  const int nBytes = PcmBytes(BitsOf(pAudio));
  const size_t cbChannel = static_cast<size_t>(pAudio->nb_samples) * static_cast<size_t>(nBytes);
  for (int c = 0; c < nChannels && c < static_cast<int>(m_vecChannels.size()); ++c) {
    const std::vector<uint8_t>& vecChannel = m_vecChannels[static_cast<size_t>(c)];
    if (vecChannel.size() != cbChannel) continue;
    uint8_t* pTo = pAudio->data[0] + c * nBytes;
    for (int s = 0; s < pAudio->nb_samples; ++s, pTo += nBytes * nChannels) {
      std::memcpy(pTo, &vecChannel[static_cast<size_t>(s) * nBytes], static_cast<size_t>(nBytes));
    }
  }
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Gain and mixing

HRESULT CFFFrame::VCAudioGain(BSTR _bsChannelsList, double _dblGainStartDb, double _dblGainEndDb) {
  VC_GUARD_BEGIN
  if (!abuf::IsGainDb(_dblGainStartDb) || !abuf::IsGainDb(_dblGainEndDb)) {
    VC_LOG(eVCLL_Error, "gain '%ws' %f..%f dB FAILED hr=%08X\n", _bsChannelsList, _dblGainStartDb, _dblGainEndDb,
           E_INVALIDARG);
    return E_INVALIDARG;
  }
  Lock lock(m_csLock);
  if (!m_content.pAudio || m_content.pAudio->nb_samples == 0) return S_FALSE;
  std::vector<ChannelRoute> routes;
  if (!ParseChannelList(InString(_bsChannelsList), m_content.props.audProps, &routes)) return E_INVALIDARG;
  const int nChannels = m_content.pAudio->ch_layout.nb_channels;
  std::vector<bool> vecOn(static_cast<size_t>(nChannels), routes.empty());
  for (const ChannelRoute& route : routes) vecOn[static_cast<size_t>(route.nSrc)] = true;
  if (!_AudioWritableLocked()) return E_OUTOFMEMORY;
  AVFrame* pAudio = m_content.pAudio.get();
  const int nBits = BitsOf(pAudio);
  const int nBytes = PcmBytes(nBits);
  const int nSamples = pAudio->nb_samples;
  uint8_t* p = pAudio->data[0];
  const abuf::CGainRamp ramp(_dblGainStartDb, _dblGainEndDb, static_cast<size_t>(nSamples));
  for (int s = 0; s < nSamples; ++s) {
    const double dblGain = ramp.At(static_cast<size_t>(s));
    for (int c = 0; c < nChannels; ++c, p += nBytes) {
      if (vecOn[static_cast<size_t>(c)]) PcmWrite(p, nBits, std::llround(PcmRead(p, nBits) * dblGain));
    }
  }
  _RefreshChannelsLocked();
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAudioMixDirect(LONG* _plAudioOffsetSrc, IVCFrame* _pFrameMixFrom, LONG* _plAudioOffsetMix,
                                   LONG _lSamplesMixMax, double _dblGainStartDb, double _dblGainEndDb,
                                   BOOL _bSymmetricGain) {
  VC_GUARD_BEGIN
  if (!_pFrameMixFrom) {
    VC_LOG(eVCLL_Error, "no frame to mix from FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  const LONG lOffsetDst = _plAudioOffsetSrc ? *_plAudioOffsetSrc : 0;
  const LONG lOffsetMix = _plAudioOffsetMix ? *_plAudioOffsetMix : 0;
  if (lOffsetDst < 0 || lOffsetMix < 0 || !abuf::IsGainDb(_dblGainStartDb) || !abuf::IsGainDb(_dblGainEndDb)) {
    VC_LOG(eVCLL_Error, "offsets %d/%d gain %f..%f dB FAILED hr=%08X\n", lOffsetDst, lOffsetMix, _dblGainStartDb,
           _dblGainEndDb, E_INVALIDARG);
    return E_INVALIDARG;
  }
  // Read before this frame's lock is taken: the other frame may be this one.
  AvFramePtr spMix;
  HRESULT hr = AudioOf(_pFrameMixFrom, &spMix);
  if (FAILED(hr)) return hr;
  if (!spMix) return S_FALSE;

  Lock lock(m_csLock);
  if (!m_content.pAudio) return kHrEmpty;
  const AVFrame* pMix = spMix.get();
  if (pMix->sample_rate != m_content.pAudio->sample_rate) {
    VC_LOG(eVCLL_Error, "mix of %d Hz into %d Hz FAILED hr=%08X\n", pMix->sample_rate,
           m_content.pAudio->sample_rate, E_INVALIDARG);
    return E_INVALIDARG;
  }
  LONG lCount = std::min(m_content.pAudio->nb_samples - lOffsetDst, pMix->nb_samples - lOffsetMix);
  if (_lSamplesMixMax > 0) lCount = std::min(lCount, _lSamplesMixMax);
  if (lCount <= 0) return S_FALSE;
  if (!_AudioWritableLocked()) return E_OUTOFMEMORY;

  AVFrame* pDst = m_content.pAudio.get();
  const int nDstBits = BitsOf(pDst);
  const int nMixBits = BitsOf(pMix);
  const int nDstChannels = pDst->ch_layout.nb_channels;
  const int nMixChannels = pMix->ch_layout.nb_channels;
  const int nBoth = std::min(nDstChannels, nMixChannels);
  uint8_t* pTo = pDst->data[0] + static_cast<ptrdiff_t>(lOffsetDst) * nDstChannels * PcmBytes(nDstBits);
  const uint8_t* pIn = pMix->data[0] + static_cast<ptrdiff_t>(lOffsetMix) * nMixChannels * PcmBytes(nMixBits);
  const abuf::CGainRamp mixRamp(_dblGainStartDb, _dblGainEndDb, static_cast<size_t>(lCount));
  const abuf::CGainRamp ownRamp(_dblGainEndDb, _dblGainStartDb, static_cast<size_t>(lCount));
  for (LONG s = 0; s < lCount; ++s) {
    const double dblMixGain = mixRamp.At(static_cast<size_t>(s));
    const double dblOwnGain = _bSymmetricGain ? ownRamp.At(static_cast<size_t>(s)) : 1.0;
    for (int c = 0; c < nDstChannels; ++c) {
      uint8_t* pSample = pTo + c * PcmBytes(nDstBits);
      double dblValue = PcmRead(pSample, nDstBits) * dblOwnGain;
      if (c < nBoth) dblValue += PcmRead(pIn + c * PcmBytes(nMixBits), nMixBits) * dblMixGain;
      PcmWrite(pSample, nDstBits, std::llround(std::clamp(dblValue, -4.0e18, 4.0e18)));
    }
    pTo += nDstChannels * PcmBytes(nDstBits);
    pIn += nMixChannels * PcmBytes(nMixBits);
  }
  _RefreshChannelsLocked();
  if (_plAudioOffsetSrc) *_plAudioOffsetSrc = lOffsetDst + lCount;
  if (_plAudioOffsetMix) *_plAudioOffsetMix = lOffsetMix + lCount;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAudioMix(IVCFrame* _pFrameMixFrom, double _dblGainStartDb, double _dblGainEndDb,
                             BOOL _bSymmetricGain, BSTR _bsAudioBufferID) {
  VC_GUARD_BEGIN
  if (!InString(_bsAudioBufferID).empty()) {
    // Mixing from a line of an audio buffer object needs that object; the
    // frame has none to ask.
    VC_LOG(eVCLL_Error, "mix from audio buffer '%ws' not available FAILED hr=%08X\n", _bsAudioBufferID, E_NOTIMPL);
    return E_NOTIMPL;
  }
  if (!_pFrameMixFrom) {
    VC_LOG(eVCLL_Error, "no frame to mix from FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  {
    // Mixing into a frame without audio mixes into silence of the other's shape.
    AvFramePtr spMix;
    const HRESULT hr = AudioOf(_pFrameMixFrom, &spMix);
    if (FAILED(hr)) return hr;
    if (!spMix) return S_FALSE;
    Lock lock(m_csLock);
    if (!m_content.pAudio) {
      AvFramePtr spSilence;
      const HRESULT hrAlloc = AllocAudio(static_cast<AVSampleFormat>(spMix->format), spMix->ch_layout.nb_channels,
                                         spMix->sample_rate, spMix->nb_samples, &spSilence);
      if (FAILED(hrAlloc)) return hrAlloc;
      m_content.pAudio = std::move(spSilence);
      SyncAudioProps(&m_content);
    }
  }
  LONG lOffsetDst = 0;
  LONG lOffsetMix = 0;
  return VCAudioMixDirect(&lOffsetDst, _pFrameMixFrom, &lOffsetMix, 0, _dblGainStartDb, _dblGainEndDb,
                          _bSymmetricGain);
  VC_GUARD_END
}

HRESULT CFFFrame::VCAudioCopyTo(BSTR _bsChannelsList, IVCFrame* _pFrameTo) {
  VC_GUARD_BEGIN
  if (!_pFrameTo) {
    VC_LOG(eVCLL_Error, "no frame to copy to FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  AvFramePtr spOwn;
  K_AUD_PROPS ownProps{};
  {
    Lock lock(m_csLock);
    if (m_content.pAudio) spOwn.reset(av_frame_clone(m_content.pAudio.get()));
    ownProps = m_content.props.audProps;
  }
  if (!spOwn) return kHrEmpty;
  std::vector<ChannelRoute> routes;
  if (!ParseChannelList(InString(_bsChannelsList), ownProps, &routes)) return E_INVALIDARG;
  if (routes.empty()) routes = IdentityRoutes(spOwn->ch_layout.nb_channels);
  int nTargetChannels = 0;
  for (const ChannelRoute& route : routes) nTargetChannels = std::max(nTargetChannels, route.nDst + 1);
  // The target keeps its other channels when its audio lines up with ours.
  AvFramePtr spTarget;
  HRESULT hr = AudioOf(_pFrameTo, &spTarget);
  if (FAILED(hr)) return hr;
  AvFramePtr spResult;
  if (spTarget && spTarget->sample_rate == spOwn->sample_rate && BitsOf(spTarget.get()) == BitsOf(spOwn.get()) &&
      spTarget->nb_samples == spOwn->nb_samples) {
    const int nKeep = spTarget->ch_layout.nb_channels;
    hr = RemapPcm(spTarget.get(), BitsOf(spOwn.get()), std::max(nKeep, nTargetChannels), IdentityRoutes(nKeep),
                  &spResult);
  } else {
    hr = AllocAudio(static_cast<AVSampleFormat>(spOwn->format), nTargetChannels, spOwn->sample_rate,
                    spOwn->nb_samples, &spResult);
  }
  if (FAILED(hr)) return hr;
  for (const ChannelRoute& route : routes) CopyChannel(spOwn.get(), route.nSrc, spResult.get(), route.nDst);

  K_AUD_PROPS aud{};
  aud.nChannels = spResult->ch_layout.nb_channels;
  aud.nSamplesPerSec = spResult->sample_rate;
  aud.nBitsPerSample = BitsOf(spResult.get());
  const size_t cb = AudioBytes(spResult.get());
  if (cb > static_cast<size_t>(INT32_MAX)) return kHrTooLarge;
  hr = _pFrameTo->VCAudioSet(&aud, static_cast<LONG>(cb), ToAddress(spResult->data[0]));
  if (FAILED(hr)) VC_LOG(eVCLL_Error, "pFrameTo->VCAudioSet(%ws) FAILED hr=%08X\n", _bsChannelsList, hr);
  return hr;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Files

HRESULT CFFFrame::VCAudioSaveToFile(BSTR _bsFileName, BOOL _bAppend) {
  VC_GUARD_BEGIN
  if (InString(_bsFileName).empty()) {
    VC_LOG(eVCLL_Error, "no file name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  AvFramePtr spAudio = AudioSnapshot();  // written outside the lock
  if (!spAudio) {
    VC_LOG(eVCLL_Error, "no audio to save in '%ws' FAILED hr=%08X\n", _bsFileName, kHrEmpty);
    return kHrEmpty;
  }
  WavFormat fmt;
  fmt.nChannels = spAudio->ch_layout.nb_channels;
  fmt.nRate = spAudio->sample_rate;
  fmt.nBits = BitsOf(spAudio.get());
  return WavWrite(ToUtf8(InString(_bsFileName)), fmt, spAudio->data[0], AudioBytes(spAudio.get()), _bAppend != FALSE);
  VC_GUARD_END
}

HRESULT CFFFrame::VCAudioLoadFromFile(BSTR _bsFileName, LONGLONG _llSamplesOffset, LONG _lSamplesLoad) {
  VC_GUARD_BEGIN
  if (InString(_bsFileName).empty() || _llSamplesOffset < 0) {
    VC_LOG(eVCLL_Error, "file '%ws' from sample %lld FAILED hr=%08X\n", _bsFileName,
           static_cast<long long>(_llSamplesOffset), E_INVALIDARG);
    return E_INVALIDARG;
  }
  AvFramePtr spAudio;
  const HRESULT hr = WavRead(ToUtf8(InString(_bsFileName)), _llSamplesOffset, _lSamplesLoad, &spAudio);
  if (hr != S_OK) return hr;
  Lock lock(m_csLock);
  m_content.pAudio = std::move(spAudio);
  m_content.props.audProps.nTrackSplitBits = 0;
  SyncAudioProps(&m_content);
  _RefreshChannelsLocked();
  return S_OK;
  VC_GUARD_END
}

}  // namespace vc::ff
