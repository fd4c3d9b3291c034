#include "FFFrameScale.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>  // the SWS_ flags
}

#include <algorithm>
#include <memory>

#include "FFCommon.h"
#include "FFConvert.h"
#include "FFFormats.h"
#include "FFPointers.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

bool IsRgbLike(AVPixelFormat fmt) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(fmt);
  return pDesc && (pDesc->flags & AV_PIX_FMT_FLAG_RGB || pDesc->nb_components <= 2);
}

// Plane i's rows and byte offset of pixel (x, y), for x and y on the chroma grid.
size_t PlaneOffset(AVPixelFormat fmt, int nPlane, int nLinesize, int x, int y) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(fmt);
  const bool bChroma = nPlane == 1 || nPlane == 2;
  const int nRow = bChroma ? (y >> pDesc->log2_chroma_h) : y;
  const int nBytes = x > 0 ? av_image_get_linesize(fmt, x, nPlane) : 0;
  return static_cast<size_t>(static_cast<ptrdiff_t>(nRow) * nLinesize + nBytes);
}

// Horizontal and vertical grid of a format: chroma subsampling, and 2 across
// for packed 4:2:2 (one sample pair per two pixels).
void ChromaGrid(AVPixelFormat fmt, int* pnGridX, int* pnGridY) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(fmt);
  *pnGridX = pDesc ? 1 << pDesc->log2_chroma_w : 1;
  *pnGridY = pDesc ? 1 << pDesc->log2_chroma_h : 1;
}

int PlaneCount(AVPixelFormat fmt) { return std::max(av_pix_fmt_count_planes(fmt), 0); }

}  // namespace

VideoView ViewOf(const AVFrame* pFrame) {
  VideoView view;
  if (!pFrame) return view;
  for (int i = 0; i < 4; ++i) {
    view.arrData[i] = pFrame->data[i];
    view.arrLinesize[i] = pFrame->linesize[i];
  }
  view.nWidth = pFrame->width;
  view.nHeight = pFrame->height;
  view.eFmt = static_cast<AVPixelFormat>(pFrame->format);
  view.eSpace = pFrame->colorspace;
  view.eRange = pFrame->color_range;
  return view;
}

bool FieldOf(const VideoView& src, int nField, VideoView* pOut) {
  if (nField == 0) {
    *pOut = src;
    return true;
  }
  if ((nField != 1 && nField != 2) || src.nHeight < 2) return false;
  VideoView view = src;
  const int nPlanes = PlaneCount(src.eFmt);
  for (int i = 0; i < nPlanes; ++i) {
    // Chroma lines of interlaced 4:2:0 alternate between the fields too.
    if (nField == 2) view.arrData[i] = src.arrData[i] + src.arrLinesize[i];
    view.arrLinesize[i] = src.arrLinesize[i] * 2;
  }
  view.nHeight = nField == 1 ? (src.nHeight + 1) / 2 : src.nHeight / 2;
  *pOut = view;
  return true;
}

bool CropOf(const VideoView& src, int nLeft, int nTop, int nRight, int nBottom, VideoView* pOut) {
  int nGridX = 1;
  int nGridY = 1;
  ChromaGrid(src.eFmt, &nGridX, &nGridY);
  if (src.eFmt == AV_PIX_FMT_YUYV422 || src.eFmt == AV_PIX_FMT_UYVY422 || src.eFmt == AV_PIX_FMT_YVYU422) nGridX = 2;
  nLeft = std::max(nLeft, 0);
  nTop = std::max(nTop, 0);
  nRight = std::min(nRight, src.nWidth);
  nBottom = std::min(nBottom, src.nHeight);
  nLeft -= nLeft % nGridX;
  nTop -= nTop % nGridY;
  if (nRight % nGridX && nRight < src.nWidth) nRight = std::min(nRight + nGridX - nRight % nGridX, src.nWidth);
  if (nBottom % nGridY && nBottom < src.nHeight) nBottom = std::min(nBottom + nGridY - nBottom % nGridY, src.nHeight);
  if (nRight <= nLeft || nBottom <= nTop) return false;
  VideoView view = src;
  const int nPlanes = PlaneCount(src.eFmt);
  for (int i = 0; i < nPlanes; ++i) {
    view.arrData[i] = src.arrData[i] + PlaneOffset(src.eFmt, i, src.arrLinesize[i], nLeft, nTop);
  }
  view.nWidth = nRight - nLeft;
  view.nHeight = nBottom - nTop;
  *pOut = view;
  return true;
}

VideoView FlippedOf(const VideoView& src) {
  VideoView view = src;
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(src.eFmt);
  const int nPlanes = PlaneCount(src.eFmt);
  for (int i = 0; i < nPlanes && pDesc; ++i) {
    const bool bChroma = i == 1 || i == 2;
    const int nRows = bChroma ? AV_CEIL_RSHIFT(src.nHeight, pDesc->log2_chroma_h) : src.nHeight;
    view.arrData[i] = src.arrData[i] + static_cast<ptrdiff_t>(nRows - 1) * src.arrLinesize[i];
    view.arrLinesize[i] = -src.arrLinesize[i];
  }
  return view;
}

HRESULT ScaleInto(const VideoView& src, AVFrame* pDst, int nX, int nY, int nWidth, int nHeight) {
  if (!pDst || nWidth <= 0 || nHeight <= 0 || src.nWidth <= 0 || src.nHeight <= 0) return E_INVALIDARG;
  const auto eDstFmt = static_cast<AVPixelFormat>(pDst->format);
  uint8_t* arrDst[4] = {};
  const int nPlanes = PlaneCount(eDstFmt);
  for (int i = 0; i < nPlanes; ++i) arrDst[i] = pDst->data[i] + PlaneOffset(eDstFmt, i, pDst->linesize[i], nX, nY);

  if (src.eFmt == eDstFmt && src.nWidth == nWidth && src.nHeight == nHeight &&
      (IsRgbLike(eDstFmt) || src.eSpace == pDst->colorspace || pDst->colorspace == AVCOL_SPC_UNSPECIFIED)) {
    av_image_copy(arrDst, pDst->linesize, const_cast<const uint8_t**>(src.arrData), src.arrLinesize, eDstFmt,
                  nWidth, nHeight);
    return S_OK;
  }
  // Frame edits are one-offs: quality over speed, and full chroma both ways.
  const int nFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
  CFFVideoConverter converter;
  CFFVideoConverter::CPlanes planes;
  planes.ppData = src.arrData;
  planes.pLinesize = src.arrLinesize;
  planes.nWidth = src.nWidth;
  planes.nHeight = src.nHeight;
  planes.eFmt = src.eFmt;
  planes.eSpace = src.eSpace;
  planes.bFullRange = src.eRange == AVCOL_RANGE_JPEG || IsRgbLike(src.eFmt);
  const AVColorSpace eDstSpace = pDst->colorspace == AVCOL_SPC_UNSPECIFIED ? src.eSpace : pDst->colorspace;
  const bool bDstFull = pDst->color_range == AVCOL_RANGE_JPEG || IsRgbLike(eDstFmt);
  const int nErr = converter.Scale(planes, arrDst, pDst->linesize, nWidth, nHeight, eDstFmt, eDstSpace, bDstFull, nFlags);
  if (nErr < 0) {
    VC_LOG(eVCLL_Error, "scale %s %dx%d -> %s %dx%d FAILED %s\n", av_get_pix_fmt_name(src.eFmt), src.nWidth,
           src.nHeight, av_get_pix_fmt_name(eDstFmt), nWidth, nHeight, AvErrorText(nErr).c_str());
    return nErr == AVERROR(EINVAL) ? E_INVALIDARG : AvErrorToHr(nErr);
  }
  return S_OK;
}

HRESULT ScaleToNew(const VideoView& src, AVPixelFormat eDstFmt, eVCCC fccDst, int nDstWidth, int nDstHeight,
                   AVColorSpace eDstSpace, AvFramePtr* pOut) {
  pOut->reset();
  if (nDstWidth <= 0 || nDstHeight <= 0) return E_INVALIDARG;
  AvFramePtr spDst(AllocPublicVideo(eDstFmt, fccDst, nDstWidth, nDstHeight, 0));
  if (!spDst) {
    VC_LOG(eVCLL_Error, "no frame of %s %dx%d FAILED hr=%08X\n", av_get_pix_fmt_name(eDstFmt), nDstWidth, nDstHeight,
           E_OUTOFMEMORY);
    return E_OUTOFMEMORY;
  }
  if (!IsRgbLike(eDstFmt)) {
    spDst->colorspace = eDstSpace != AVCOL_SPC_UNSPECIFIED ? eDstSpace : src.eSpace;
    spDst->color_range = src.eFmt == eDstFmt ? src.eRange : AVCOL_RANGE_MPEG;
  }
  const HRESULT hr = ScaleInto(src, spDst.get(), 0, 0, nDstWidth, nDstHeight);
  if (FAILED(hr)) return hr;
  *pOut = std::move(spDst);
  return S_OK;
}

HRESULT AllocAudio(AVSampleFormat eFmt, int nChannels, int nRate, int nSamples, AvFramePtr* pOut) {
  pOut->reset();
  if (eFmt == AV_SAMPLE_FMT_NONE || nChannels <= 0 || nRate <= 0 || nSamples < 0) return E_INVALIDARG;
  AvFramePtr spFrame(av_frame_alloc());
  if (!spFrame) return E_OUTOFMEMORY;
  spFrame->format = eFmt;
  spFrame->sample_rate = nRate;
  av_channel_layout_default(&spFrame->ch_layout, nChannels);
  // An empty frame still gets a buffer, so its address is never null.
  spFrame->nb_samples = std::max(nSamples, 1);
  const int nErr = av_frame_get_buffer(spFrame.get(), 0);
  if (nErr < 0) return AvErrorToHr(nErr);
  av_samples_set_silence(spFrame->extended_data, 0, spFrame->nb_samples, nChannels, eFmt);
  spFrame->nb_samples = nSamples;
  *pOut = std::move(spFrame);
  return S_OK;
}

HRESULT ResampleAudio(const AVFrame* pSrc, AVSampleFormat eDstFmt, int nDstRate, const AVChannelLayout& dstLayout,
                      AvFramePtr* pOut) {
  pOut->reset();
  if (!pSrc || pSrc->sample_rate <= 0 || pSrc->ch_layout.nb_channels <= 0) return E_INVALIDARG;
  AVChannelLayout srcLayout{};
  if (pSrc->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&srcLayout, pSrc->ch_layout.nb_channels);
  } else if (av_channel_layout_copy(&srcLayout, &pSrc->ch_layout) < 0) {
    return E_OUTOFMEMORY;
  }
  CFFAudioConverter converter;
  int nErr = converter.Setup(static_cast<AVSampleFormat>(pSrc->format), srcLayout, pSrc->sample_rate, eDstFmt,
                             dstLayout, nDstRate);
  av_channel_layout_uninit(&srcLayout);
  if (nErr < 0) {
    VC_LOG(eVCLL_Error, "resampler %s %d Hz -> %s %d Hz FAILED %s\n",
           av_get_sample_fmt_name(static_cast<AVSampleFormat>(pSrc->format)), pSrc->sample_rate,
           av_get_sample_fmt_name(eDstFmt), nDstRate, AvErrorText(nErr).c_str());
    return AvErrorToHr(nErr);
  }
  const int nCapacity = converter.MaxOutput(pSrc->nb_samples) + 64;
  AvFramePtr spDst;
  HRESULT hr = AllocAudio(eDstFmt, dstLayout.nb_channels, nDstRate, nCapacity, &spDst);
  if (FAILED(hr)) return hr;
  if (av_channel_layout_copy(&spDst->ch_layout, &dstLayout) < 0) return E_OUTOFMEMORY;
  const int nFrameBytes = av_get_bytes_per_sample(eDstFmt) * dstLayout.nb_channels;
  uint8_t* pOutPtr = spDst->data[0];
  int nDone = converter.ConvertRaw(pSrc->extended_data, pSrc->nb_samples, &pOutPtr, nCapacity);
  if (nDone >= 0) {
    pOutPtr = spDst->data[0] + static_cast<ptrdiff_t>(nDone) * nFrameBytes;
    const int nTail = converter.ConvertRaw(nullptr, 0, &pOutPtr, nCapacity - nDone);
    nDone = nTail < 0 ? nTail : nDone + nTail;
  }
  if (nDone < 0) {
    VC_LOG(eVCLL_Error, "resampling FAILED %s\n", AvErrorText(nDone).c_str());
    return AvErrorToHr(nDone);
  }
  spDst->nb_samples = nDone;
  if (av_frame_copy_props(spDst.get(), pSrc) < 0) return E_OUTOFMEMORY;
  spDst->sample_rate = nDstRate;  // copy_props brings the source's rate along
  *pOut = std::move(spDst);
  return S_OK;
}

}  // namespace vc::ff
