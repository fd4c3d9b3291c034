#include "FFDecoderConvert.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace vc::ff {

// ---- pictures ----


CFFVideoConverter::CFFVideoConverter() = default;
CFFVideoConverter::~CFFVideoConverter() = default;

int CFFVideoConverter::Convert(const AVFrame& src, const CVideoTarget& target, AVFrame* pDst) {
  const auto eSrcFmt = static_cast<AVPixelFormat>(src.format);
  const AVPixelFormat eDstFmt = target.ePixFmt != AV_PIX_FMT_NONE ? target.ePixFmt : eSrcFmt;
  const bool bResize = target.nWidth > 0 && target.nHeight > 0;
  const int nDstWidth = bResize ? target.nWidth : src.width;
  const int nDstHeight = bResize ? target.nHeight : src.height;
  if (src.width <= 0 || src.height <= 0) return AVERROR(EINVAL);
  if (!sws_isSupportedInput(eSrcFmt) || !sws_isSupportedOutput(eDstFmt)) return AVERROR(EINVAL);

  SwsContext* pSws = sws_getCachedContext(m_spSws.release(), src.width, src.height, eSrcFmt, nDstWidth, nDstHeight,
                                          eDstFmt, SWS_BICUBIC, nullptr, nullptr, nullptr);
  m_spSws.reset(pSws);
  if (!pSws) return AVERROR(EINVAL);
  // Without this libswscale assumes BT.601 limited range for every source.
  const int nColorspace = src.colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : src.colorspace;
  const int* pCoefficients = sws_getCoefficients(nColorspace);
  const int nSrcFull = src.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
  sws_setColorspaceDetails(pSws, pCoefficients, nSrcFull, pCoefficients, nSrcFull, 0, 1 << 16, 1 << 16);

  pDst->format = eDstFmt;
  pDst->width = nDstWidth;
  pDst->height = nDstHeight;
  int nErr = av_frame_get_buffer(pDst, 0);
  if (nErr < 0) return nErr;
  nErr = av_frame_copy_props(pDst, &src);
  if (nErr < 0) return nErr;
  nErr = sws_scale(pSws, src.data, src.linesize, 0, src.height, pDst->data, pDst->linesize);
  return nErr < 0 ? nErr : 0;
}

// ---- sample blocks ----


CFFAudioConverter::CFFAudioConverter() = default;

CFFAudioConverter::~CFFAudioConverter() {
  av_channel_layout_uninit(&m_inLayout);
  av_channel_layout_uninit(&m_outLayout);
}

namespace {

// A layout libswresample can mix: an unspecified order becomes the default
// layout of the same channel count.
int UsableLayout(const AVChannelLayout& in, int nChannels, AVChannelLayout* pOut) {
  if (nChannels > 0 && nChannels != in.nb_channels) {
    av_channel_layout_default(pOut, nChannels);
    return 0;
  }
  if (in.order == AV_CHANNEL_ORDER_UNSPEC || in.nb_channels <= 0) {
    av_channel_layout_default(pOut, in.nb_channels > 0 ? in.nb_channels : 1);
    return 0;
  }
  return av_channel_layout_copy(pOut, &in);
}

}  // namespace

int CFFAudioConverter::_Prepare(const AVFrame& src, const CAudioTarget& target) {
  AVChannelLayout inLayout{}, outLayout{};
  int nErr = UsableLayout(src.ch_layout, 0, &inLayout);
  if (nErr >= 0) nErr = UsableLayout(src.ch_layout, target.nChannels, &outLayout);
  const int nOutRate = target.nSampleRate > 0 ? target.nSampleRate : src.sample_rate;
  const auto eInFmt = static_cast<AVSampleFormat>(src.format);
  const bool bSame = m_spSwr && nErr >= 0 && eInFmt == m_eInFmt && src.sample_rate == m_nInRate &&
                     target.eSampleFmt == m_eOutFmt && nOutRate == m_nOutRate &&
                     !av_channel_layout_compare(&inLayout, &m_inLayout) &&
                     !av_channel_layout_compare(&outLayout, &m_outLayout);
  if (nErr >= 0 && !bSame) {
    m_spSwr.reset();
    SwrContext* pSwr = nullptr;
    nErr = swr_alloc_set_opts2(&pSwr, &outLayout, target.eSampleFmt, nOutRate, &inLayout, eInFmt, src.sample_rate, 0,
                               nullptr);
    if (nErr >= 0) nErr = swr_init(pSwr);
    if (nErr < 0) {
      swr_free(&pSwr);
    } else {
      m_spSwr.reset(pSwr);
      m_eInFmt = eInFmt;
      m_nInRate = src.sample_rate;
      m_eOutFmt = target.eSampleFmt;
      m_nOutRate = nOutRate;
      av_channel_layout_uninit(&m_inLayout);
      av_channel_layout_uninit(&m_outLayout);
      std::swap(m_inLayout, inLayout);
      std::swap(m_outLayout, outLayout);
    }
  }
  av_channel_layout_uninit(&inLayout);
  av_channel_layout_uninit(&outLayout);
  return nErr;
}

int CFFAudioConverter::_AllocOutput(int nSamples, AVFrame* pDst) const {
  pDst->format = m_eOutFmt;
  pDst->sample_rate = m_nOutRate;
  pDst->nb_samples = nSamples;
  const int nErr = av_channel_layout_copy(&pDst->ch_layout, &m_outLayout);
  if (nErr < 0) return nErr;
  return av_frame_get_buffer(pDst, 0);
}

int CFFAudioConverter::Convert(const AVFrame& src, const CAudioTarget& target, AVFrame* pDst) {
  if (src.sample_rate <= 0 || src.ch_layout.nb_channels <= 0) return AVERROR(EINVAL);
  const bool bPassThrough = !m_spSwr && src.format == target.eSampleFmt &&
                            (target.nSampleRate <= 0 || target.nSampleRate == src.sample_rate) &&
                            (target.nChannels <= 0 || target.nChannels == src.ch_layout.nb_channels);
  if (bPassThrough) return av_frame_ref(pDst, &src);

  int nErr = _Prepare(src, target);
  if (nErr < 0) return nErr;
  const int nMax = swr_get_out_samples(m_spSwr.get(), src.nb_samples);
  if (nMax < 0) return nMax;
  nErr = av_frame_copy_props(pDst, &src);
  if (nErr < 0) return nErr;
  if (nMax == 0) {
    pDst->nb_samples = 0;
    return 0;
  }
  nErr = _AllocOutput(nMax, pDst);
  if (nErr < 0) return nErr;
  const int nOut = swr_convert(m_spSwr.get(), pDst->data, nMax, const_cast<const uint8_t**>(src.extended_data),
                               src.nb_samples);
  if (nOut < 0) return nOut;
  pDst->nb_samples = nOut;
  return 0;
}

int CFFAudioConverter::Flush(AVFrame* pDst) {
  if (!m_spSwr) return AVERROR_EOF;
  const int nMax = swr_get_out_samples(m_spSwr.get(), 0);
  if (nMax <= 0) return AVERROR_EOF;
  int nErr = _AllocOutput(nMax, pDst);
  if (nErr < 0) return nErr;
  const int nOut = swr_convert(m_spSwr.get(), pDst->data, nMax, nullptr, 0);
  if (nOut <= 0) {
    av_frame_unref(pDst);
    return nOut < 0 ? nOut : AVERROR_EOF;
  }
  pDst->nb_samples = nOut;
  return 0;
}

void CFFAudioConverter::Reset() {
  // A new context starts without held samples; rebuilding is cheap next to
  // a seek.
  m_spSwr.reset();
  m_eInFmt = AV_SAMPLE_FMT_NONE;
}

}  // namespace vc::ff
