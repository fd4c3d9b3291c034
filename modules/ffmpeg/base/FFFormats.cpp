#include "FFFormats.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <cstdlib>
#include <cstring>

#include "FFFrame.h"

namespace vc::ff {

namespace {

struct FormatPair {
  uint32_t uFcc;
  AVPixelFormat eFmt;
};

// Public code -> FFmpeg. Composed codes are looked up with their colour bits
// cleared. Premultiplied alpha has no FFmpeg counterpart (swscale would treat
// it as straight alpha), v210 and MJPG are codecs in FFmpeg, RGB8 needs a
// palette: those stay unmapped.
constexpr FormatPair kToAv[] = {
    {eVCCC_I420, AV_PIX_FMT_YUV420P},
    {eVCCC_YV12, AV_PIX_FMT_YUV420P},
    {eVCCC_NV12, AV_PIX_FMT_NV12},
    {eVCCC_YUY2, AV_PIX_FMT_YUYV422},
    {eVCCC_HDYC, AV_PIX_FMT_UYVY422},
    {eVCCC_YVYU, AV_PIX_FMT_YVYU422},
    {eVCCC_UYVY, AV_PIX_FMT_UYVY422},
    {eVCCC_RGB24, AV_PIX_FMT_BGR24},
    {eVCCC_RGB32, AV_PIX_FMT_BGR0},
    {eVCCC_ARGB32, AV_PIX_FMT_BGRA},
    {eVCCC_r210, AV_PIX_FMT_X2RGB10BE},
    {ePX_BGRX32, AV_PIX_FMT_BGR0},
    {ePX_RGBX32, AV_PIX_FMT_RGB0},
    {ePX_BGRA32_FULL, AV_PIX_FMT_BGRA},
    {ePX_RGBA32_FULL, AV_PIX_FMT_RGBA},
    {ePX_RGBA64_FULL, AV_PIX_FMT_RGBA64LE},
    {ePX_1Channel8bit, AV_PIX_FMT_GRAY8},
    {ePX_1Channel10bit, AV_PIX_FMT_GRAY10LE},
    {ePX_1Channel16bit, AV_PIX_FMT_GRAY16LE},
    {ePX_1Channel32bit, AV_PIX_FMT_GRAYF32LE},
    {ePX_NV12, AV_PIX_FMT_NV12},
    {ePX_NV12 | ePX_10bit, AV_PIX_FMT_P010LE},
    {ePX_NV12 | ePX_16bit, AV_PIX_FMT_P016LE},
    {ePX_YUY2, AV_PIX_FMT_YUYV422},
    {ePX_UYVY, AV_PIX_FMT_UYVY422},
    {ePX_YUV_PLANE, AV_PIX_FMT_YUV444P},
    {ePX_YUV10_PLANE, AV_PIX_FMT_YUV444P10LE},
    {ePX_YUV_PLANE | ePX_12bit, AV_PIX_FMT_YUV444P12LE},
    {ePX_YUV16_PLANE, AV_PIX_FMT_YUV444P16LE},
    {ePX_Plane | ePX_444, AV_PIX_FMT_YUV444P},
    {ePX_Plane | ePX_444 | ePX_10bit, AV_PIX_FMT_YUV444P10LE},
    {ePX_YUV8_420_PLANE, AV_PIX_FMT_YUV420P},
    {ePX_YUV10_420_PLANE, AV_PIX_FMT_YUV420P10LE},
    {ePX_YUV8_420_PLANE | ePX_12bit, AV_PIX_FMT_YUV420P12LE},
    {ePX_YUV16_420_PLANE, AV_PIX_FMT_YUV420P16LE},
    {ePX_YUV8_422_PLANE, AV_PIX_FMT_YUV422P},
    {ePX_YUV10_422_PLANE, AV_PIX_FMT_YUV422P10LE},
    {ePX_YUV8_422_PLANE | ePX_12bit, AV_PIX_FMT_YUV422P12LE},
    {ePX_YUV16_422_PLANE, AV_PIX_FMT_YUV422P16LE},
    {ePX_YUV8_420_PLANE | ePX_Alpha_Full, AV_PIX_FMT_YUVA420P},
    {ePX_YUV8_422_PLANE | ePX_Alpha_Full, AV_PIX_FMT_YUVA422P},
    {ePX_YUV_PLANE | ePX_Alpha_Full, AV_PIX_FMT_YUVA444P},
    {ePX_Plane | ePX_444 | ePX_Alpha_Full, AV_PIX_FMT_YUVA444P},
    {ePX_YUV_PLANE | ePX_16bit | ePX_Alpha_Full, AV_PIX_FMT_YUVA444P16LE},
};

// FFmpeg -> public code: the FourCC where the platform has one, the composed
// code otherwise. Full-range (J) variants share their limited-range code; the
// range travels in the AVFrame.
constexpr FormatPair kFromAv[] = {
    {eVCCC_I420, AV_PIX_FMT_YUV420P},
    {eVCCC_I420, AV_PIX_FMT_YUVJ420P},
    {eVCCC_NV12, AV_PIX_FMT_NV12},
    {eVCCC_YUY2, AV_PIX_FMT_YUYV422},
    {eVCCC_UYVY, AV_PIX_FMT_UYVY422},
    {eVCCC_YVYU, AV_PIX_FMT_YVYU422},
    {eVCCC_RGB24, AV_PIX_FMT_BGR24},
    {eVCCC_RGB32, AV_PIX_FMT_BGR0},
    {eVCCC_ARGB32, AV_PIX_FMT_BGRA},
    {eVCCC_r210, AV_PIX_FMT_X2RGB10BE},
    {ePX_RGBX32, AV_PIX_FMT_RGB0},
    {ePX_RGBA32_FULL, AV_PIX_FMT_RGBA},
    {ePX_RGBA64_FULL, AV_PIX_FMT_RGBA64LE},
    {ePX_1Channel8bit, AV_PIX_FMT_GRAY8},
    {ePX_1Channel10bit, AV_PIX_FMT_GRAY10LE},
    {ePX_1Channel16bit, AV_PIX_FMT_GRAY16LE},
    {ePX_1Channel32bit, AV_PIX_FMT_GRAYF32LE},
    {ePX_NV12 | ePX_10bit, AV_PIX_FMT_P010LE},
    {ePX_NV12 | ePX_16bit, AV_PIX_FMT_P016LE},
    {ePX_YUV_PLANE, AV_PIX_FMT_YUV444P},
    {ePX_YUV_PLANE, AV_PIX_FMT_YUVJ444P},
    {ePX_YUV10_PLANE, AV_PIX_FMT_YUV444P10LE},
    {ePX_YUV_PLANE | ePX_12bit, AV_PIX_FMT_YUV444P12LE},
    {ePX_YUV16_PLANE, AV_PIX_FMT_YUV444P16LE},
    {ePX_YUV10_420_PLANE, AV_PIX_FMT_YUV420P10LE},
    {ePX_YUV8_420_PLANE | ePX_12bit, AV_PIX_FMT_YUV420P12LE},
    {ePX_YUV16_420_PLANE, AV_PIX_FMT_YUV420P16LE},
    {ePX_YUV8_422_PLANE, AV_PIX_FMT_YUV422P},
    {ePX_YUV8_422_PLANE, AV_PIX_FMT_YUVJ422P},
    {ePX_YUV10_422_PLANE, AV_PIX_FMT_YUV422P10LE},
    {ePX_YUV8_422_PLANE | ePX_12bit, AV_PIX_FMT_YUV422P12LE},
    {ePX_YUV16_422_PLANE, AV_PIX_FMT_YUV422P16LE},
    {ePX_YUV8_420_PLANE | ePX_Alpha_Full, AV_PIX_FMT_YUVA420P},
    {ePX_YUV8_422_PLANE | ePX_Alpha_Full, AV_PIX_FMT_YUVA422P},
    {ePX_YUV_PLANE | ePX_Alpha_Full, AV_PIX_FMT_YUVA444P},
    {ePX_YUV_PLANE | ePX_16bit | ePX_Alpha_Full, AV_PIX_FMT_YUVA444P16LE},
};

bool IsComposed(uint32_t uFcc) { return (uFcc & ePX_FormatFlag) == ePX_FormatFlag; }

// Row alignment of every plane of new frames.
constexpr int kRowAlign = 32;
// Zero bytes after the last row of new frames.
constexpr size_t kPadding = 64;

}  // namespace

AVPixelFormat PixelFormatFromFourcc(eVCCC fcc) {
  uint32_t uKey = static_cast<uint32_t>(fcc);
  if (IsComposed(uKey)) uKey &= ~kPxColourBits;
  for (const FormatPair& pair : kToAv) {
    if (pair.uFcc == uKey) return pair.eFmt;
  }
  return AV_PIX_FMT_NONE;
}

eVCCC FourccFromPixelFormat(AVPixelFormat fmt) {
  if (fmt == AV_PIX_FMT_NONE) return eVCCC_Default;
  for (const FormatPair& pair : kFromAv) {
    if (pair.eFmt == fmt) return static_cast<eVCCC>(pair.uFcc);
  }
  return eVCCC_Default;
}

AVColorSpace ColourSpaceFromFourcc(eVCCC fcc) {
  const uint32_t uFcc = static_cast<uint32_t>(fcc);
  if (uFcc == eVCCC_HDYC) return AVCOL_SPC_BT709;
  if (!IsComposed(uFcc)) return AVCOL_SPC_UNSPECIFIED;
  switch (uFcc & kPxColourBits) {
    case ePX_BT601 & kPxColourBits: return AVCOL_SPC_BT470BG;
    case ePX_BT709 & kPxColourBits: return AVCOL_SPC_BT709;
    case ePX_BT2020 & kPxColourBits: return AVCOL_SPC_BT2020_NCL;
    default: return AVCOL_SPC_UNSPECIFIED;
  }
}

int AvPlaneOfPublicPlane(eVCCC fcc, int nPublicPlane) {
  if (fcc == eVCCC_YV12 && (nPublicPlane == 1 || nPublicPlane == 2)) return 3 - nPublicPlane;
  return nPublicPlane;
}

bool LayoutFor(AVPixelFormat fmt, eVCCC fcc, int nWidth, int nHeight, int nRowBytes, PlaneLayout* pLayout) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(fmt);
  if (!pDesc || !pLayout || nWidth <= 0 || nHeight <= 0 || nRowBytes <= 0) return false;
  if (pDesc->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL)) return false;
  const int nPlanes = av_pix_fmt_count_planes(fmt);
  if (nPlanes <= 0 || nPlanes > 4) return false;
  const int nMinRow = av_image_get_linesize(fmt, nWidth, 0);
  if (nMinRow <= 0 || nRowBytes < nMinRow) return false;

  // Other planes derive their stride from plane 0's: the padded width that
  // gives plane 0 exactly nRowBytes.
  int nPaddedWidth = nWidth;
  if (nPlanes > 1) {
    int nStep0 = 0;
    for (int i = 0; i < pDesc->nb_components; ++i) {
      if (pDesc->comp[i].plane == 0) nStep0 = pDesc->comp[i].step;
    }
    if (nStep0 <= 0 || nRowBytes % nStep0 != 0) return false;
    nPaddedWidth = nRowBytes / nStep0;
    if (av_image_get_linesize(fmt, nPaddedWidth, 0) != nRowBytes) return false;
  }

  PlaneLayout layout;
  layout.nPlanes = nPlanes;
  size_t cbOffset = 0;
  for (int k = 0; k < nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, k);
    const bool bChroma = nAv == 1 || nAv == 2;
    const int nStride = k == 0 ? nRowBytes : av_image_get_linesize(fmt, nPaddedWidth, nAv);
    if (nStride <= 0) return false;
    layout.arrStride[k] = nStride;
    layout.arrRows[k] = bChroma ? AV_CEIL_RSHIFT(nHeight, pDesc->log2_chroma_h) : nHeight;
    layout.arrSamples[k] = bChroma ? AV_CEIL_RSHIFT(nWidth, pDesc->log2_chroma_w) : nWidth;
    layout.arrOffset[k] = cbOffset;
    cbOffset += static_cast<size_t>(nStride) * static_cast<size_t>(layout.arrRows[k]);
  }
  layout.cbTotal = cbOffset;
  *pLayout = layout;
  return true;
}

int DefaultRowBytes(AVPixelFormat fmt, int nWidth) {
  const int nPlanes = av_pix_fmt_count_planes(fmt);
  if (nPlanes <= 0 || nWidth <= 0) return 0;
  if (nPlanes == 1) return FFALIGN(av_image_get_linesize(fmt, nWidth, 0), kRowAlign);
  // Widen until every plane's stride is aligned; a few steps at most.
  for (int nPadded = nWidth; nPadded < nWidth + 64 * kRowAlign; ++nPadded) {
    bool bAligned = true;
    for (int i = 0; i < nPlanes && bAligned; ++i) {
      const int nLine = av_image_get_linesize(fmt, nPadded, i);
      bAligned = nLine > 0 && nLine % kRowAlign == 0;
    }
    if (bAligned) return av_image_get_linesize(fmt, nPadded, 0);
  }
  return av_image_get_linesize(fmt, nWidth, 0);
}

bool IsPublicLayout(const AVFrame* pFrame, eVCCC fcc) {
  if (!pFrame || !pFrame->buf[0] || pFrame->buf[1]) return false;
  PlaneLayout layout;
  const auto fmt = static_cast<AVPixelFormat>(pFrame->format);
  if (!LayoutFor(fmt, fcc, pFrame->width, pFrame->height, pFrame->linesize[0], &layout)) return false;
  const uint8_t* pBase = pFrame->data[0];
  const uint8_t* pBufStart = pFrame->buf[0]->data;
  if (pBase < pBufStart || pBase + layout.cbTotal > pBufStart + pFrame->buf[0]->size) return false;
  for (int k = 0; k < layout.nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, k);
    if (pFrame->data[nAv] != pBase + layout.arrOffset[k] || pFrame->linesize[nAv] != layout.arrStride[k]) return false;
  }
  return true;
}

AVFrame* AllocPublicVideo(AVPixelFormat fmt, eVCCC fcc, int nWidth, int nHeight, int nRowBytes) {
  if (nRowBytes == 0) nRowBytes = DefaultRowBytes(fmt, nWidth);
  PlaneLayout layout;
  if (!LayoutFor(fmt, fcc, nWidth, nHeight, nRowBytes, &layout)) return nullptr;
  AVFrame* pFrame = av_frame_alloc();
  if (!pFrame) return nullptr;
  // Readers with wide loads may look a little past the last row.
  pFrame->buf[0] = av_buffer_allocz(layout.cbTotal + kPadding);
  if (!pFrame->buf[0]) {
    av_frame_free(&pFrame);
    return nullptr;
  }
  pFrame->format = fmt;
  pFrame->width = nWidth;
  pFrame->height = nHeight;
  for (int k = 0; k < layout.nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, k);
    pFrame->data[nAv] = pFrame->buf[0]->data + layout.arrOffset[k];
    pFrame->linesize[nAv] = layout.arrStride[k];
  }
  pFrame->extended_data = pFrame->data;
  FillBlack(pFrame);
  return pFrame;
}

void FillBlack(AVFrame* pFrame) {
  if (!pFrame) return;
  ptrdiff_t arrLines[4] = {};
  for (int i = 0; i < 4; ++i) arrLines[i] = pFrame->linesize[i];
  const auto fmt = static_cast<AVPixelFormat>(pFrame->format);
  const AVColorRange eRange = pFrame->color_range == AVCOL_RANGE_JPEG ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  if (av_image_fill_black(pFrame->data, arrLines, fmt, eRange, pFrame->width, pFrame->height) < 0) {
    // Formats FFmpeg cannot blacken (none of ours today) are zeroed.
    const int nPlanes = av_pix_fmt_count_planes(fmt);
    const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(fmt);
    for (int i = 0; i < nPlanes && pDesc; ++i) {
      const int nRows = (i == 1 || i == 2) ? AV_CEIL_RSHIFT(pFrame->height, pDesc->log2_chroma_h) : pFrame->height;
      for (int y = 0; y < nRows; ++y) {
        std::memset(pFrame->data[i] + static_cast<ptrdiff_t>(y) * pFrame->linesize[i], 0,
                    static_cast<size_t>(std::abs(pFrame->linesize[i])));
      }
    }
  }
}

AVFrame* CopyToPublicLayout(const AVFrame* pSrc, eVCCC fcc) {
  if (!pSrc) return nullptr;
  const auto fmt = static_cast<AVPixelFormat>(pSrc->format);
  AVFrame* pDst = AllocPublicVideo(fmt, fcc, pSrc->width, pSrc->height, 0);
  if (!pDst) return nullptr;
  av_image_copy(pDst->data, pDst->linesize, const_cast<const uint8_t**>(pSrc->data), pSrc->linesize, fmt,
                pSrc->width, pSrc->height);
  if (av_frame_copy_props(pDst, pSrc) < 0) {
    av_frame_free(&pDst);
    return nullptr;
  }
  return pDst;
}

AVSampleFormat SampleFormatFromBits(int nBitsPerSample) {
  switch (nBitsPerSample) {
    case 8: return AV_SAMPLE_FMT_U8;
    case 16: return AV_SAMPLE_FMT_S16;
    case 32: return AV_SAMPLE_FMT_S32;
    default: return AV_SAMPLE_FMT_NONE;
  }
}

int BitsFromSampleFormat(AVSampleFormat fmt) {
  switch (fmt) {
    case AV_SAMPLE_FMT_U8: return 8;
    case AV_SAMPLE_FMT_S16: return 16;
    case AV_SAMPLE_FMT_S32: return 32;
    default: return 0;
  }
}

}  // namespace vc::ff
