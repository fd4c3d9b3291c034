#include "FFEncoderInput.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include "FFFormats.h"
#include "FFFrame.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

HRESULT ReadForeignVideo(IVCFrame* pFrame, const K_VID_PROPS& vid, AVFrame* pOut) {
  const AVPixelFormat eFmt = PixelFormatFromFourcc(vid.fccType);
  if (eFmt == AV_PIX_FMT_NONE) {
    VC_LOG(eVCLL_Error, "encoder input: pixel format %08X has no FFmpeg counterpart (hr=%08X)\n",
           static_cast<unsigned>(vid.fccType), E_INVALIDARG);
    return E_INVALIDARG;
  }
  VC_VID_PTR planes{};
  const HRESULT hr = pFrame->VCVideoGetBytesEx(&planes);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "encoder input: VCVideoGetBytesEx FAILED hr=%08X\n", hr);
    return hr;
  }
  pOut->format = eFmt;
  pOut->width = vid.nWidth;
  pOut->height = vid.nHeight;
  pOut->colorspace = ColourSpaceFromFourcc(vid.fccType);
  if (vid.nAspectX > 0 && vid.nAspectY > 0) pOut->sample_aspect_ratio = AVRational{vid.nAspectX, vid.nAspectY};
  for (int k = 0; k < 4; ++k) {
    if (!planes.lpVideoPlanes[k]) continue;
    const int nAv = AvPlaneOfPublicPlane(vid.fccType, k);
    pOut->data[nAv] = reinterpret_cast<uint8_t*>(planes.lpVideoPlanes[k]);
    pOut->linesize[nAv] = planes.cbVideoRowBytes[k];
  }
  pOut->extended_data = pOut->data;
  return pOut->data[0] ? S_OK : E_INVALIDARG;
}

HRESULT ReadForeignAudio(IVCFrame* pFrame, const K_AUD_PROPS& aud, LONG lSamples, AVFrame* pOut) {
  LONG cbAudio = 0;
  LONGLONG pbAudio = 0;
  const HRESULT hr = pFrame->VCAudioGetBytes(&cbAudio, &pbAudio);
  if (FAILED(hr) || !pbAudio) {
    VC_LOG(eVCLL_Error, "encoder input: VCAudioGetBytes FAILED hr=%08X\n", hr);
    return FAILED(hr) ? hr : E_INVALIDARG;
  }
  pOut->format = SampleFormatFromBits(aud.nBitsPerSample);
  pOut->sample_rate = aud.nSamplesPerSec;
  av_channel_layout_default(&pOut->ch_layout, aud.nChannels);
  pOut->nb_samples = lSamples;
  pOut->data[0] = reinterpret_cast<uint8_t*>(pbAudio);
  pOut->linesize[0] = cbAudio;
  pOut->extended_data = pOut->data;
  return pOut->format == AV_SAMPLE_FMT_NONE ? E_INVALIDARG : S_OK;
}

}  // namespace

HRESULT ReadEncoderInput(IVCFrame* pFrame, eVCMediaType eType, CFFEncoderInput* pInput) {
  if (!pFrame) return E_POINTER;
  K_AV_PROPS props{};
  LONG lSamples = 0;
  HRESULT hr = pFrame->VCAVPropsGet(&props, &lSamples);
  if (FAILED(hr)) return hr;
  pFrame->VCTimeGet(&pInput->time);
  pInput->dblRate = props.vidProps.dblRate;
  const bool bVideo = eType == eVCMT_Video;
  const bool bHas = bVideo ? props.vidProps.nWidth > 0 && props.vidProps.nHeight > 0 &&
                                 props.vidProps.fccType != eVCCC_Default
                           : lSamples > 0 && props.audProps.nChannels > 0 && props.audProps.nSamplesPerSec > 0;
  if (!bHas) {
    VC_LOG(eVCLL_Error, "encoder input: the frame has no %s to encode (hr=%08X)\n", bVideo ? "picture" : "samples",
           E_INVALIDARG);
    return E_INVALIDARG;
  }
  pInput->spFrame.reset(av_frame_alloc());
  if (!pInput->spFrame) return E_OUTOFMEMORY;
  // Our own frames: the AVFrame itself, referenced.
  const AVFrame* pOwn = bVideo ? FrameAVFrame(pFrame) : FrameAudioAVFrame(pFrame);
  if (pOwn && (bVideo ? pOwn->width > 0 : pOwn->nb_samples > 0))
    return av_frame_ref(pInput->spFrame.get(), pOwn) < 0 ? E_OUTOFMEMORY : S_OK;
  hr = bVideo ? ReadForeignVideo(pFrame, props.vidProps, pInput->spFrame.get())
              : ReadForeignAudio(pFrame, props.audProps, lSamples, pInput->spFrame.get());
  return hr;
}

}  // namespace vc::ff
