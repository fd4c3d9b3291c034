#include "FFConvert.h"

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

  pDst->format = eDstFmt;
  pDst->width = nDstWidth;
  pDst->height = nDstHeight;
  int nErr = av_frame_get_buffer(pDst, 0);
  if (nErr < 0) return nErr;
  nErr = av_frame_copy_props(pDst, &src);
  if (nErr < 0) return nErr;
  // Without the colour details libswscale assumes BT.601 limited range for
  // every source; the decoder keeps the source's matrix and range.
  CPlanes planes;
  planes.ppData = src.data;
  planes.pLinesize = src.linesize;
  planes.nWidth = src.width;
  planes.nHeight = src.height;
  planes.eFmt = eSrcFmt;
  planes.eSpace = src.colorspace;
  planes.bFullRange = src.color_range == AVCOL_RANGE_JPEG;
  return Scale(planes, pDst->data, pDst->linesize, nDstWidth, nDstHeight, eDstFmt, src.colorspace, planes.bFullRange,
               SWS_BICUBIC);
}

int CFFVideoConverter::Scale(const CPlanes& src, uint8_t* const* ppDst, const int* pDstLinesize, int nDstWidth,
                             int nDstHeight, AVPixelFormat eDstFmt, AVColorSpace eDstSpace, bool bDstFullRange,
                             int nFlags) {
  SwsContext* pSws = sws_getCachedContext(m_spSws.release(), src.nWidth, src.nHeight, src.eFmt, nDstWidth,
                                          nDstHeight, eDstFmt, nFlags, nullptr, nullptr, nullptr);
  m_spSws.reset(pSws);
  if (!pSws) return AVERROR(EINVAL);
  const int nSrcSpace = src.eSpace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : src.eSpace;
  const int nDstSpace = eDstSpace == AVCOL_SPC_UNSPECIFIED ? nSrcSpace : eDstSpace;
  sws_setColorspaceDetails(pSws, sws_getCoefficients(nSrcSpace), src.bFullRange ? 1 : 0,
                           sws_getCoefficients(nDstSpace), bDstFullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
  const int nRows = sws_scale(pSws, src.ppData, src.pLinesize, 0, src.nHeight, ppDst, pDstLinesize);
  return nRows < 0 ? nRows : nRows == 0 ? AVERROR(EINVAL) : 0;
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
  if (nErr >= 0 && !bSame) nErr = Setup(eInFmt, inLayout, src.sample_rate, target.eSampleFmt, outLayout, nOutRate);
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

int CFFAudioConverter::Setup(AVSampleFormat eInFmt, const AVChannelLayout& inLayout, int nInRate,
                             AVSampleFormat eOutFmt, const AVChannelLayout& outLayout, int nOutRate) {
  if (m_spSwr && eInFmt == m_eInFmt && nInRate == m_nInRate && eOutFmt == m_eOutFmt && nOutRate == m_nOutRate &&
      !av_channel_layout_compare(&inLayout, &m_inLayout) && !av_channel_layout_compare(&outLayout, &m_outLayout))
    return 0;
  m_spSwr.reset();
  SwrContext* pSwr = nullptr;
  int nErr = swr_alloc_set_opts2(&pSwr, const_cast<AVChannelLayout*>(&outLayout), eOutFmt, nOutRate,
                                 const_cast<AVChannelLayout*>(&inLayout), eInFmt, nInRate, 0, nullptr);
  if (nErr >= 0) nErr = swr_init(pSwr);
  if (nErr < 0) {
    swr_free(&pSwr);
    return nErr;
  }
  m_spSwr.reset(pSwr);
  m_eInFmt = eInFmt;
  m_nInRate = nInRate;
  m_eOutFmt = eOutFmt;
  m_nOutRate = nOutRate;
  av_channel_layout_uninit(&m_inLayout);
  av_channel_layout_uninit(&m_outLayout);
  nErr = av_channel_layout_copy(&m_inLayout, &inLayout);
  if (nErr >= 0) nErr = av_channel_layout_copy(&m_outLayout, &outLayout);
  if (nErr < 0) m_spSwr.reset();
  return nErr;
}

int CFFAudioConverter::MaxOutput(int nInSamples) const {
  return m_spSwr ? swr_get_out_samples(m_spSwr.get(), nInSamples) : AVERROR(EINVAL);
}

int CFFAudioConverter::ConvertRaw(const uint8_t* const* ppIn, int nInSamples, uint8_t* const* ppOut, int nOutMax) {
  if (!m_spSwr) return AVERROR(EINVAL);
  return swr_convert(m_spSwr.get(), const_cast<uint8_t**>(ppOut), nOutMax, const_cast<const uint8_t**>(ppIn),
                     nInSamples);
}

void CFFAudioConverter::Reset() {
  // A new context starts without held samples; rebuilding is cheap next to
  // a seek.
  m_spSwr.reset();
  m_eInFmt = AV_SAMPLE_FMT_NONE;
}

}  // namespace vc::ff
