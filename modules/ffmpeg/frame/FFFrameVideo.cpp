// The frame's picture work: cutting a rectangle or a field, clones in every
// system-memory mode, conversion of format, size and audio, resizing, saving
// a picture to a file, and the renderer calls this frame cannot answer.
#include <algorithm>
#include <cstdio>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

#include "FFCommon.h"
#include "FFFormats.h"
#include "FFFrame.h"
#include "FFFrameChannels.h"
#include "FFFrameImpl.h"
#include "FFFrameScale.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

constexpr int kCloneKnownBits = eKFC_Video | eKFC_VideoRef | eKFC_Audio | eKFC_Data | eKFC_Obj | eKFC_ForceCPU |
                                eKFC_ForceGPU | eKFC_BottomTop_ARGB;

// A new frame of this module holding content; one reference.
HRESULT HandOut(FrameContent&& content, IVCFrame** ppFrame) {
  ComPtr<IVCFrame> cpFrame;
  CFFFrame* pObject = CFFFrame::Create(&cpFrame);
  if (!pObject) return E_OUTOFMEMORY;
  pObject->SetContent(std::move(content));
  *ppFrame = cpFrame.Detach();
  return S_OK;
}

int Grid(int n, int nGrid) { return n - n % nGrid; }

void FormatGrid(AVPixelFormat eFmt, int* pnX, int* pnY) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(eFmt);
  *pnX = pDesc ? 1 << pDesc->log2_chroma_w : 1;
  *pnY = pDesc ? 1 << pDesc->log2_chroma_h : 1;
  if (eFmt == AV_PIX_FMT_YUYV422 || eFmt == AV_PIX_FMT_UYVY422 || eFmt == AV_PIX_FMT_YVYU422) *pnX = 2;
}

// Replaces the content's picture by pNew (a new block of pixels).
void ReplaceVideo(FrameContent* pContent, AvFramePtr spNew, eVCCC fcc, AVRational sar) {
  spNew->sample_aspect_ratio = sar;
  pContent->pVideo = std::move(spNew);
  pContent->fccVideo = fcc;
  pContent->llVideoID = NewVideoID();
  K_VID_PROPS& vid = pContent->props.vidProps;
  DisplayAspect(pContent->pVideo->width, pContent->pVideo->height, sar, &vid.nAspectX, &vid.nAspectY);
  SyncVideoProps(pContent);
}

// Where the source picture goes in a target of nDstW x nDstH for a scale
// type: the source rectangle read and the target rectangle written.
struct Placement {
  int nSrcX = 0, nSrcY = 0, nSrcW = 0, nSrcH = 0;
  int nDstX = 0, nDstY = 0, nDstW = 0, nDstH = 0;
};

Placement Place(const AVFrame* pSrc, AVPixelFormat eDstFmt, int nDstW, int nDstH, eKScaleType eType) {
  Placement place{0, 0, pSrc->width, pSrc->height, 0, 0, nDstW, nDstH};
  const AVRational sar = pSrc->sample_aspect_ratio.num > 0 && pSrc->sample_aspect_ratio.den > 0
                             ? pSrc->sample_aspect_ratio
                             : AVRational{1, 1};
  const double dblSrcAspect = static_cast<double>(pSrc->width) * sar.num / sar.den / pSrc->height;
  const double dblDstAspect = static_cast<double>(nDstW) / nDstH;
  int nGridX = 1;
  int nGridY = 1;
  FormatGrid(eDstFmt, &nGridX, &nGridY);
  switch (eType) {
    case eKST_LetterBox:
      if (dblSrcAspect > dblDstAspect) place.nDstH = Grid(static_cast<int>(nDstW / dblSrcAspect + 0.5), nGridY);
      else place.nDstW = Grid(static_cast<int>(nDstH * dblSrcAspect + 0.5), nGridX);
      break;
    case eKST_Crop:
      if (dblSrcAspect > dblDstAspect) place.nSrcW = static_cast<int>(pSrc->width * dblDstAspect / dblSrcAspect + 0.5);
      else place.nSrcH = static_cast<int>(pSrc->height * dblSrcAspect / dblDstAspect + 0.5);
      break;
    case eKST_NoScale:
      place.nSrcW = place.nDstW = Grid(std::min(pSrc->width, nDstW), nGridX);
      place.nSrcH = place.nDstH = Grid(std::min(pSrc->height, nDstH), nGridY);
      break;
    default: break;
  }
  place.nDstW = std::max(place.nDstW, nGridX);
  place.nDstH = std::max(place.nDstH, nGridY);
  place.nSrcX = (pSrc->width - place.nSrcW) / 2;
  place.nSrcY = (pSrc->height - place.nSrcH) / 2;
  place.nDstX = Grid((nDstW - place.nDstW) / 2, nGridX);
  place.nDstY = Grid((nDstH - place.nDstH) / 2, nGridY);
  return place;
}

// The converted picture of the content for target fcc/size/scale type.
HRESULT ConvertVideo(FrameContent* pContent, eVCCC fccDst, int nDstW, int nDstH, eKScaleType eType) {
  const AVFrame* pSrc = pContent->pVideo.get();
  const AVPixelFormat eDstFmt = PixelFormatFromFourcc(fccDst);
  if (eDstFmt == AV_PIX_FMT_NONE) {
    VC_LOG(eVCLL_Error, "pixel format %08X has no system-memory layout FAILED hr=%08X\n",
           static_cast<uint32_t>(fccDst), E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (fccDst == pContent->fccVideo && nDstW == pSrc->width && nDstH == pSrc->height) return S_FALSE;
  AvFramePtr spDst(AllocPublicVideo(eDstFmt, fccDst, nDstW, nDstH, 0));
  if (!spDst) return E_OUTOFMEMORY;
  spDst->colorspace = ColourSpaceFromFourcc(fccDst);
  if (spDst->colorspace == AVCOL_SPC_UNSPECIFIED && eDstFmt == static_cast<AVPixelFormat>(pSrc->format))
    spDst->colorspace = pSrc->colorspace;
  const Placement place = Place(pSrc, eDstFmt, nDstW, nDstH, eType);
  VideoView view;
  if (!CropOf(ViewOf(pSrc), place.nSrcX, place.nSrcY, place.nSrcX + place.nSrcW, place.nSrcY + place.nSrcH, &view))
    return E_INVALIDARG;
  const HRESULT hr = ScaleInto(view, spDst.get(), place.nDstX, place.nDstY, place.nDstW, place.nDstH);
  if (FAILED(hr)) return hr;
  spDst->interlaced_frame = pSrc->interlaced_frame;
  spDst->top_field_first = pSrc->top_field_first;
  spDst->pts = pSrc->pts;
  ReplaceVideo(pContent, std::move(spDst), fccDst, AVRational{1, 1});
  pContent->props.vidProps.eScaleType = eType;
  return S_OK;
}

HRESULT ConvertAudio(FrameContent* pContent, const K_AUD_PROPS& want) {
  const AVFrame* pSrc = pContent->pAudio.get();
  const int nBits = want.nBitsPerSample ? want.nBitsPerSample : BitsFromSampleFormat(static_cast<AVSampleFormat>(pSrc->format));
  const int nRate = want.nSamplesPerSec ? want.nSamplesPerSec : pSrc->sample_rate;
  const int nChannels = want.nChannels ? want.nChannels : pSrc->ch_layout.nb_channels;
  const AVSampleFormat eFmt = SampleFormatFromBits(nBits);
  if (eFmt == AV_SAMPLE_FMT_NONE || nRate <= 0 || nChannels <= 0) {
    VC_LOG(eVCLL_Error, "audio to %d ch %d Hz %d bits FAILED hr=%08X\n", nChannels, nRate, nBits, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (eFmt == pSrc->format && nRate == pSrc->sample_rate && nChannels == pSrc->ch_layout.nb_channels) return S_FALSE;
  AVChannelLayout layout{};
  if (nChannels == pSrc->ch_layout.nb_channels && pSrc->ch_layout.order != AV_CHANNEL_ORDER_UNSPEC) {
    if (av_channel_layout_copy(&layout, &pSrc->ch_layout) < 0) return E_OUTOFMEMORY;
  } else {
    av_channel_layout_default(&layout, nChannels);
  }
  AvFramePtr spDst;
  const HRESULT hr = ResampleAudio(pSrc, eFmt, nRate, layout, &spDst);
  av_channel_layout_uninit(&layout);
  if (FAILED(hr)) return hr;
  pContent->pAudio = std::move(spDst);
  SyncAudioProps(pContent);
  return S_OK;
}

}  // namespace

// ---------------------------------------------------------------------------
// Copies

HRESULT CFFFrame::_CopyContent(int nCloneType, FrameContent* pOut) {
  FrameContent copy;
  Lock lock(m_csLock);
  copy.time = m_content.time;
  copy.props = m_content.props;
  if (const AVFrame* pVideo = m_content.pVideo.get()) {
    if (nCloneType & eKFC_VideoRef) {
      copy.pVideo.reset(av_frame_clone(pVideo));
      copy.llVideoID = m_content.llVideoID;  // the same pixels
    } else if (nCloneType & eKFC_Video) {
      copy.pVideo.reset(CopyToPublicLayout(pVideo, m_content.fccVideo));
      copy.llVideoID = NewVideoID();
    }
    if ((nCloneType & (eKFC_Video | eKFC_VideoRef)) && !copy.pVideo) return E_OUTOFMEMORY;
    copy.fccVideo = copy.pVideo ? m_content.fccVideo : eVCCC_Default;
  }
  if ((nCloneType & eKFC_Audio) && m_content.pAudio) {
    const AVFrame* pAudio = m_content.pAudio.get();
    AvFramePtr spAudio;
    const HRESULT hr = AllocAudio(static_cast<AVSampleFormat>(pAudio->format), pAudio->ch_layout.nb_channels,
                                  pAudio->sample_rate, pAudio->nb_samples, &spAudio);
    if (FAILED(hr)) return hr;
    if (av_samples_copy(spAudio->extended_data, pAudio->extended_data, 0, 0, pAudio->nb_samples,
                        pAudio->ch_layout.nb_channels, static_cast<AVSampleFormat>(pAudio->format)) < 0)
      return E_FAIL;
    spAudio->pts = pAudio->pts;
    copy.pAudio = std::move(spAudio);
  }
  if (nCloneType & eKFC_Data) {
    copy.vecData = m_content.vecData;
    copy.vecStr = m_content.vecStr;
  }
  if (nCloneType & eKFC_Obj) copy.vecObj = m_content.vecObj;
  SyncVideoProps(&copy);
  *pOut = std::move(copy);
  return S_OK;
}

HRESULT CFFFrame::VCClone(IVCFrame** _ppCloneFrame, eKFrameClone _eCloneType, eVCCC _fccPixelFormat) {
  VC_GUARD_BEGIN
  if (!_ppCloneFrame) return E_POINTER;
  *_ppCloneFrame = nullptr;
  const int nType = _eCloneType;
  if (nType & ~kCloneKnownBits) {
    VC_LOG(eVCLL_Error, "clone type %08X FAILED hr=%08X\n", nType, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (nType & eKFC_ForceGPU) {
    VC_LOG(eVCLL_Error, "clone type %08X: frames of this module live in system memory FAILED hr=%08X\n", nType,
           E_NOTIMPL);
    return E_NOTIMPL;
  }
  FrameContent content;
  HRESULT hr = _CopyContent(nType, &content);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "copy of type %08X FAILED hr=%08X\n", nType, hr);
    return hr;
  }
  const bool bFlip = (nType & eKFC_BottomTop_ARGB) != 0;
  const bool bRecode = _fccPixelFormat != eVCCC_Default && _fccPixelFormat != content.fccVideo;
  if (content.pVideo && (bFlip || bRecode)) {
    // A new picture: in the other format and/or with its rows bottom to top.
    const eVCCC fcc = bRecode ? _fccPixelFormat : content.fccVideo;
    const AVPixelFormat eFmt = PixelFormatFromFourcc(fcc);
    if (eFmt == AV_PIX_FMT_NONE) {
      VC_LOG(eVCLL_Error, "clone to pixel format %08X FAILED hr=%08X\n", static_cast<uint32_t>(fcc), E_INVALIDARG);
      return E_INVALIDARG;
    }
    VideoView view = ViewOf(content.pVideo.get());
    if (bFlip) view = FlippedOf(view);
    AvFramePtr spNew;
    hr = ScaleToNew(view, eFmt, fcc, view.nWidth, view.nHeight, ColourSpaceFromFourcc(fcc), &spNew);
    if (FAILED(hr)) return hr;
    const AVFrame* pOld = content.pVideo.get();
    spNew->interlaced_frame = pOld->interlaced_frame;
    spNew->top_field_first = pOld->top_field_first;
    spNew->pts = pOld->pts;
    const AVRational sar = pOld->sample_aspect_ratio;
    const K_VID_PROPS vidKept = content.props.vidProps;
    ReplaceVideo(&content, std::move(spNew), fcc, sar);
    content.props.vidProps.nAspectX = vidKept.nAspectX;
    content.props.vidProps.nAspectY = vidKept.nAspectY;
  } else if (!content.pVideo && bRecode) {
    content.props.vidProps.fccType = _fccPixelFormat;  // a description of the frame it would be
  }
  return HandOut(std::move(content), _ppCloneFrame);
  VC_GUARD_END
}

HRESULT CFFFrame::VCCut(LONG _nField, RECT* _pRect, IVCFrame** _ppFrameRes) {
  VC_GUARD_BEGIN
  if (!_ppFrameRes) return E_POINTER;
  *_ppFrameRes = nullptr;
  if (_nField < 0 || _nField > 2) {
    VC_LOG(eVCLL_Error, "field %d FAILED hr=%08X\n", _nField, E_INVALIDARG);
    return E_INVALIDARG;
  }
  FrameContent content;
  HRESULT hr = _CopyContent(eKFC_VideoRef, &content);
  if (FAILED(hr)) return hr;
  if (!content.pVideo) {
    VC_LOG(eVCLL_Error, "no picture to cut FAILED hr=%08X\n", kHrEmpty);
    return kHrEmpty;
  }
  const AVFrame* pSrc = content.pVideo.get();
  VideoView field;
  if (!FieldOf(ViewOf(pSrc), _nField, &field)) {
    VC_LOG(eVCLL_Error, "field %d of %d lines FAILED hr=%08X\n", _nField, pSrc->height, E_INVALIDARG);
    return E_INVALIDARG;
  }
  const RECT rect = _pRect ? *_pRect : RECT{0, 0, field.nWidth, field.nHeight};
  VideoView cut;
  if (!CropOf(field, rect.left, rect.top, rect.right, rect.bottom, &cut)) {
    VC_LOG(eVCLL_Error, "rectangle (%d,%d)-(%d,%d) outside %dx%d FAILED hr=%08X\n", rect.left, rect.top, rect.right,
           rect.bottom, field.nWidth, field.nHeight, E_INVALIDARG);
    return E_INVALIDARG;
  }
  AvFramePtr spNew;
  hr = ScaleToNew(cut, field.eFmt, content.fccVideo, cut.nWidth, cut.nHeight, AVCOL_SPC_UNSPECIFIED, &spNew);
  if (FAILED(hr)) return hr;
  AVRational sar = pSrc->sample_aspect_ratio.num > 0 ? pSrc->sample_aspect_ratio : AVRational{1, 1};
  if (_nField != 0) {
    sar.den *= 2;  // a field's lines stand for two lines of the picture
    content.props.vidProps.eInterlace = eKI_OneField;
  }
  ReplaceVideo(&content, std::move(spNew), content.fccVideo, sar);
  return HandOut(std::move(content), _ppFrameRes);
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Conversion

HRESULT CFFFrame::VCConvert(K_AV_PROPS* _pPropsDest, IVCFrame** _ppFrameRes, LONG* _pnFrameRest, BSTR _bsPropsList,
                            BSTR _bsConverterID) {
  VC_GUARD_BEGIN
  if (_pnFrameRest) *_pnFrameRest = 0;  // nothing is held back between calls
  if (!_ppFrameRes || !_pPropsDest) {
    VC_LOG(eVCLL_Error, "no %s FAILED hr=%08X\n", _ppFrameRes ? "target properties" : "out-pointer", E_POINTER);
    return E_POINTER;
  }
  *_ppFrameRes = nullptr;
  if (!InString(_bsConverterID).empty() || !InString(_bsPropsList).empty()) {
    VC_LOG(eVCLL_Progress, "converter '%ws' options '%ws': this frame converts itself\n", _bsConverterID,
           _bsPropsList);
  }
  const K_AV_PROPS dest = *_pPropsDest;
  if (dest.vidProps.nWidth < 0 || dest.vidProps.nHeight < 0 || dest.audProps.nChannels < 0 ||
      dest.audProps.nChannels > kMaxAudioChannels || dest.audProps.nSamplesPerSec < 0) {
    VC_LOG(eVCLL_Error, "target %dx%d, %d ch %d Hz FAILED hr=%08X\n", dest.vidProps.nWidth, dest.vidProps.nHeight,
           dest.audProps.nChannels, dest.audProps.nSamplesPerSec, E_INVALIDARG);
    return E_INVALIDARG;
  }
  FrameContent content;
  HRESULT hr = _CopyContent(eKFC_Reference, &content);
  if (FAILED(hr)) return hr;
  if (content.pVideo) {
    const eVCCC fcc = dest.vidProps.fccType != eVCCC_Default ? dest.vidProps.fccType : content.fccVideo;
    const int nWidth = dest.vidProps.nWidth ? dest.vidProps.nWidth : content.pVideo->width;
    const int nHeight = dest.vidProps.nHeight ? dest.vidProps.nHeight : content.pVideo->height;
    hr = ConvertVideo(&content, fcc, nWidth, nHeight, dest.vidProps.eScaleType);
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "video to %08X %dx%d FAILED hr=%08X\n", static_cast<uint32_t>(fcc), nWidth, nHeight, hr);
      return hr;
    }
    if (dest.vidProps.nAspectX > 0 && dest.vidProps.nAspectY > 0) {
      content.props.vidProps.nAspectX = dest.vidProps.nAspectX;
      content.props.vidProps.nAspectY = dest.vidProps.nAspectY;
    }
  }
  if (content.pAudio) {
    hr = ConvertAudio(&content, dest.audProps);
    if (FAILED(hr)) return hr;
  }
  return HandOut(std::move(content), _ppFrameRes);
  VC_GUARD_END
}

HRESULT CFFFrame::VCResize(eVCCC _fccOutput, LONG _nWidth, LONG _nHeight, LONG _nResizeField, IVCFrame** _ppFrameRes,
                           BSTR _bsPropsList, BSTR _bsConverterID) {
  VC_GUARD_BEGIN
  if (!_ppFrameRes) return E_POINTER;
  *_ppFrameRes = nullptr;
  if (_nWidth < 0 || _nHeight < 0 || _nResizeField < 0 || _nResizeField > 2) {
    VC_LOG(eVCLL_Error, "resize to %dx%d field %d FAILED hr=%08X\n", _nWidth, _nHeight, _nResizeField, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (!InString(_bsConverterID).empty() || !InString(_bsPropsList).empty()) {
    VC_LOG(eVCLL_Progress, "converter '%ws' options '%ws': this frame resizes itself\n", _bsConverterID,
           _bsPropsList);
  }
  FrameContent content;
  HRESULT hr = _CopyContent(eKFC_Reference, &content);
  if (FAILED(hr)) return hr;
  if (!content.pVideo) {
    VC_LOG(eVCLL_Error, "no picture to resize FAILED hr=%08X\n", kHrEmpty);
    return kHrEmpty;
  }
  const eVCCC fcc = _fccOutput != eVCCC_Default ? _fccOutput : content.fccVideo;
  const AVPixelFormat eFmt = PixelFormatFromFourcc(fcc);
  VideoView view;
  if (eFmt == AV_PIX_FMT_NONE || !FieldOf(ViewOf(content.pVideo.get()), _nResizeField, &view)) {
    VC_LOG(eVCLL_Error, "resize to %08X field %d FAILED hr=%08X\n", static_cast<uint32_t>(fcc), _nResizeField,
           E_INVALIDARG);
    return E_INVALIDARG;
  }
  const int nWidth = _nWidth ? _nWidth : view.nWidth;
  const int nHeight = _nHeight ? _nHeight : view.nHeight;
  AvFramePtr spNew;
  hr = ScaleToNew(view, eFmt, fcc, nWidth, nHeight, ColourSpaceFromFourcc(fcc), &spNew);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "resize to %08X %dx%d FAILED hr=%08X\n", static_cast<uint32_t>(fcc), nWidth, nHeight, hr);
    return hr;
  }
  if (_nResizeField == 0) {
    spNew->interlaced_frame = content.pVideo->interlaced_frame;
    spNew->top_field_first = content.pVideo->top_field_first;
  } else {
    content.props.vidProps.eInterlace = eKI_OneField;
  }
  // The picture keeps its display shape: the pixels stretch instead.
  const K_VID_PROPS vidKept = content.props.vidProps;
  ReplaceVideo(&content, std::move(spNew), fcc, AVRational{1, 1});
  content.props.vidProps.nAspectX = vidKept.nAspectX;
  content.props.vidProps.nAspectY = vidKept.nAspectY;
  return HandOut(std::move(content), _ppFrameRes);
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Picture files

HRESULT CFFFrame::VCVideoSaveToFile(BSTR _bsFileName) {
  VC_GUARD_BEGIN
  const std::string strPath = ToUtf8(InString(_bsFileName));
  if (strPath.empty()) {
    VC_LOG(eVCLL_Error, "no file name FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  FrameContent content;
  HRESULT hr = _CopyContent(eKFC_VideoRef, &content);
  if (FAILED(hr)) return hr;
  if (!content.pVideo) {
    VC_LOG(eVCLL_Error, "no picture to save in '%s' FAILED hr=%08X\n", strPath.c_str(), kHrEmpty);
    return kHrEmpty;
  }
  return SavePicture(content.pVideo.get(), content.fccVideo, strPath);
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Renderer calls: drawing text, overlays, transitions and GDI bitmaps need a
// renderer this module does not have.

HRESULT CFFFrame::VCVideoGetHbitmap(LONGLONG* _pllHBitmap) {
  VC_GUARD_BEGIN
  if (_pllHBitmap) *_pllHBitmap = 0;
  VC_LOG(eVCLL_Error, "bitmaps need a renderer FAILED hr=%08X\n", E_NOTIMPL);
  return E_NOTIMPL;
  VC_GUARD_END
}

HRESULT CFFFrame::VCOverlay(IUnknown*, IUnknown*, LONG, LONG, double, BSTR, BSTR) {
  VC_GUARD_BEGIN
  VC_LOG(eVCLL_Error, "overlays need a renderer FAILED hr=%08X\n", E_NOTIMPL);
  return E_NOTIMPL;
  VC_GUARD_END
}

HRESULT CFFFrame::VCTransition(IUnknown*, IVCFrame** _ppFrameRes, double, BSTR _bsTransition, BSTR, BSTR) {
  VC_GUARD_BEGIN
  if (_ppFrameRes) *_ppFrameRes = nullptr;
  VC_LOG(eVCLL_Error, "transition '%ws' needs a renderer FAILED hr=%08X\n", _bsTransition, E_NOTIMPL);
  return E_NOTIMPL;
  VC_GUARD_END
}

HRESULT CFFFrame::VCPrint(BSTR, double, VC_RECT*, eVCTextFlags, BSTR) {
  VC_GUARD_BEGIN
  VC_LOG(eVCLL_Error, "text needs a renderer FAILED hr=%08X\n", E_NOTIMPL);
  return E_NOTIMPL;
  VC_GUARD_END
}

HRESULT CFFFrame::VCOverlayRect(IVCFrame*, IVCFrame*, VC_RECT*, eVCOverlayFlags, double, BSTR, BSTR) {
  VC_GUARD_BEGIN
  VC_LOG(eVCLL_Error, "overlays need a renderer FAILED hr=%08X\n", E_NOTIMPL);
  return E_NOTIMPL;
  VC_GUARD_END
}

HRESULT CFFFrame::VCWaitAsync() {
  VC_GUARD_BEGIN
  return S_OK;  // system-memory frames have no pending GPU work
  VC_GUARD_END
}

}  // namespace vc::ff
