#include "FFConverter.h"

#include <cstring>

#include "FFClasses.h"
#include "FFCommon.h"
#include "FFFormats.h"
#include "FFFrame.h"
#include "FFPointers.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCGuard.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

bool HasVideo(const K_AV_PROPS& props) { return props.vidProps.nWidth > 0 && props.vidProps.nHeight > 0; }

// Whether the picture must change for target (0 and eVCCC_Default keep).
bool VideoDiffers(const K_VID_PROPS& in, const K_VID_PROPS& target) {
  return (target.fccType != eVCCC_Default && target.fccType != in.fccType) ||
         (target.nWidth > 0 && target.nWidth != in.nWidth) || (target.nHeight > 0 && target.nHeight != in.nHeight);
}

}  // namespace

HRESULT MakeLocalFrame(IVCFrame* pFrame, ComPtr<IVCFrame>* pcpLocal) {
  if (!pFrame || !pcpLocal) return E_POINTER;
  if (FrameAVFrame(pFrame) || FrameAudioAVFrame(pFrame)) {
    *pcpLocal = ComPtr<IVCFrame>(pFrame);
    return S_OK;
  }
  K_AV_PROPS props{};
  LONG lSamples = 0;
  HRESULT hr = pFrame->VCAVPropsGet(&props, &lSamples);
  if (FAILED(hr)) return hr;
  ComPtr<IVCFrame> cpLocal;
  hr = CreateFFFrame(nullptr, IidOf<IVCFrame>(), reinterpret_cast<void**>(cpLocal.AddressOf()));
  if (FAILED(hr)) return hr;
  if (HasVideo(props)) {
    K_AV_PROPS video = props;
    video.audProps = K_AUD_PROPS{};
    video.vidProps.nRowBytes = 0;  // ours; the bytes are copied row by row below when they differ
    hr = cpLocal->VCAVPropsSet(&video, nullptr);
    if (FAILED(hr)) return hr;
    VC_VID_PTR src{};
    VC_VID_PTR dst{};
    hr = pFrame->VCVideoGetBytesEx(&src);
    if (SUCCEEDED(hr)) hr = cpLocal->VCVideoGetBytesEx(&dst);
    if (FAILED(hr)) return hr;
    for (int n = 0; n < 4; ++n) {
      const uint8_t* pSrc = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(src.lpVideoPlanes[n]));
      uint8_t* pDst = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(dst.lpVideoPlanes[n]));
      if (!pSrc || !pDst) continue;
      const LONG cbRow = std::min(src.cbVideoRowBytes[n], dst.cbVideoRowBytes[n]);
      const LONG nRows = std::min(src.szVideoPlanes[n].cy, dst.szVideoPlanes[n].cy);
      for (LONG y = 0; y < nRows; ++y)
        std::memcpy(pDst + static_cast<ptrdiff_t>(y) * dst.cbVideoRowBytes[n],
                    pSrc + static_cast<ptrdiff_t>(y) * src.cbVideoRowBytes[n], static_cast<size_t>(cbRow));
    }
  }
  if (lSamples > 0 && props.audProps.nChannels > 0) {
    LONG cbAudio = 0;
    LONGLONG lpAudio = 0;
    hr = pFrame->VCAudioGetBytes(&cbAudio, &lpAudio);
    if (SUCCEEDED(hr)) hr = cpLocal->VCAudioSet(&props.audProps, cbAudio, lpAudio);
    if (FAILED(hr)) return hr;
  }
  K_TIME time{};
  if (SUCCEEDED(pFrame->VCTimeGet(&time))) cpLocal->VCTimeSet(&time);
  *pcpLocal = std::move(cpLocal);
  return S_OK;
}

std::shared_ptr<CFFConverter::CChannel> CFFConverter::_Channel(const String& strName, bool bCreate) {
  std::lock_guard<std::mutex> lock(m_mtxChannels);
  auto it = m_mapChannels.find(strName);
  if (it != m_mapChannels.end()) return it->second;
  if (!bCreate) return nullptr;
  return m_mapChannels.emplace(strName, std::make_shared<CChannel>()).first->second;
}

HRESULT CFFConverter::ConverterFramePut(BSTR _bsChannel, IVCFrame* _pFrameIn, K_AV_PROPS* _pPropsOut,
                                        IVCFrame** _ppFrameOut, BSTR _bsOptions) {
  VC_GUARD_BEGIN
  ClearOut(_ppFrameOut);
  const String strChannel(InString(_bsChannel));
  if (!_pFrameIn || !_pPropsOut || !_ppFrameOut) {
    VC_LOG(eVCLL_Error, "ConverterFramePut(%ws) FAILED hr=%08X: no %s\n", strChannel.c_str(), E_POINTER,
           !_pFrameIn ? "frame" : !_pPropsOut ? "target properties" : "out-pointer");
    return E_POINTER;
  }
  const K_AV_PROPS target = *_pPropsOut;
  ComPtr<IVCFrame> cpFrame;
  HRESULT hr = MakeLocalFrame(_pFrameIn, &cpFrame);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "ConverterFramePut(%ws) FAILED hr=%08X: the frame cannot be read\n", strChannel.c_str(), hr);
    return hr;
  }
  K_AV_PROPS in{};
  LONG lSamples = 0;
  cpFrame->VCAVPropsGet(&in, &lSamples);

  // Pictures: the frame converts itself (its audio, if any, rides along).
  if (HasVideo(in) && target.vidProps.eVideoFormat != eKVF_Disabled && VideoDiffers(in.vidProps, target.vidProps)) {
    K_AV_PROPS dest{};
    dest.vidProps = target.vidProps;
    dest.vidProps.dblRate = 0;
    ComPtr<IVCFrame> cpOut;
    hr = cpFrame->VCConvert(&dest, cpOut.AddressOf(), nullptr, _bsOptions, nullptr);
    if (FAILED(hr) || !cpOut) {
      VC_LOG(eVCLL_Error, "ConverterFramePut(%ws) FAILED hr=%08X: video to %08X %dx%d\n", strChannel.c_str(),
             FAILED(hr) ? hr : E_FAIL, static_cast<unsigned>(target.vidProps.fccType),
             static_cast<int>(target.vidProps.nWidth), static_cast<int>(target.vidProps.nHeight));
      return FAILED(hr) ? hr : E_FAIL;
    }
    *_ppFrameOut = cpOut.Detach();
    return S_OK;
  }

  // Audio-only frames: the channel's resampler, which may hold samples.
  const AVFrame* pAudio = FrameAudioAVFrame(cpFrame.Get());
  if (!HasVideo(in) && pAudio && lSamples > 0 && target.audProps.nChannels >= 0) {
    const int nBits = target.audProps.nBitsPerSample > 0 ? target.audProps.nBitsPerSample : in.audProps.nBitsPerSample;
    CAudioTarget audioTarget;
    audioTarget.eSampleFmt = SampleFormatFromBits(nBits);
    audioTarget.nSampleRate = target.audProps.nSamplesPerSec;
    audioTarget.nChannels = target.audProps.nChannels;
    const bool bSame = (audioTarget.nSampleRate == 0 || audioTarget.nSampleRate == in.audProps.nSamplesPerSec) &&
                       (audioTarget.nChannels == 0 || audioTarget.nChannels == in.audProps.nChannels) &&
                       nBits == in.audProps.nBitsPerSample;
    std::shared_ptr<CChannel> spChannel = _Channel(strChannel, !bSame);
    if (!bSame || spChannel) {
      std::lock_guard<std::mutex> lock(spChannel->mtx);
      AvFramePtr spOut(av_frame_alloc());
      if (!spOut) return E_OUTOFMEMORY;
      const int nRet = spChannel->audio.Convert(*pAudio, audioTarget, spOut.get());
      if (nRet < 0) {
        hr = AvErrorToHr(nRet);
        VC_LOG(eVCLL_Error, "ConverterFramePut(%ws) FAILED hr=%08X: audio to %d Hz %d ch %d bit\n",
               strChannel.c_str(), hr, audioTarget.nSampleRate, audioTarget.nChannels, nBits);
        return hr;
      }
      K_TIME time{};
      cpFrame->VCTimeGet(&time);
      if (spChannel->rtNext == VC_TIME_UNSET) spChannel->rtNext = time.rtStartTime;
      spChannel->nBits = nBits;
      if (spOut->nb_samples == 0) {
        VC_LOG(eVCLL_Progress, "ConverterFramePut(%ws): the frame was absorbed\n", strChannel.c_str());
        return S_FALSE;
      }
      time.rtStartTime = spChannel->rtNext;
      time.rtEndTime = time.rtStartTime + av_rescale(spOut->nb_samples, VC_TIME_SECOND, spOut->sample_rate);
      spChannel->rtNext = time.rtEndTime;
      ComPtr<IVCFrame> cpOut;
      hr = FrameFromAVFrameEx(spOut.get(), time, 0.0, nBits, cpOut.AddressOf());
      if (FAILED(hr)) return hr;
      *_ppFrameOut = cpOut.Detach();
      return S_OK;
    }
  }
  // Nothing to change: the frame itself (made local).
  *_ppFrameOut = cpFrame.Detach();
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFConverter::ConverterFlush(BSTR _bsChannel, IVCFrame** _ppFrameOut) {
  VC_GUARD_BEGIN
  ClearOut(_ppFrameOut);
  const String strChannel(InString(_bsChannel));
  std::shared_ptr<CChannel> spChannel;
  {
    std::lock_guard<std::mutex> lock(m_mtxChannels);
    auto it = m_mapChannels.find(strChannel);
    if (it == m_mapChannels.end()) return S_FALSE;
    spChannel = std::move(it->second);
    m_mapChannels.erase(it);
  }
  std::lock_guard<std::mutex> lock(spChannel->mtx);
  AvFramePtr spOut(av_frame_alloc());
  if (!spOut) return E_OUTOFMEMORY;
  if (spChannel->audio.Flush(spOut.get()) != 0 || spOut->nb_samples == 0) return S_FALSE;
  if (!_ppFrameOut) return S_OK;  // dropped
  K_TIME time{};
  time.rtStartTime = spChannel->rtNext;
  time.rtEndTime = time.rtStartTime == VC_TIME_UNSET
                       ? VC_TIME_UNSET
                       : time.rtStartTime + av_rescale(spOut->nb_samples, VC_TIME_SECOND, spOut->sample_rate);
  return FrameFromAVFrameEx(spOut.get(), time, 0.0, spChannel->nBits, _ppFrameOut);
  VC_GUARD_END
}

HRESULT CreateFFConverter(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CFFConverter>(pOuter, riid, ppv);
}

}  // namespace vc::ff
