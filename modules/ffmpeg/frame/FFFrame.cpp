// The frame object: creation, wrapping of decoded FFmpeg frames, properties,
// time, flags and access to the video and audio bytes.
#include "FFFrame.h"

extern "C" {
#include <libavutil/hwcontext.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <atomic>
#include <climits>

#include "FFClasses.h"
#include "FFCommon.h"
#include "FFFormats.h"
#include "FFFrameChannels.h"
#include "FFFrameImpl.h"
#include "FFFrameScale.h"
#include "VCLog.h"

namespace vc::ff {

LONGLONG NewVideoID() {
  static std::atomic<LONGLONG> s_llNext{0};
  return ++s_llNext;
}

namespace {

LONGLONG ToAddress(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }

eKInterlace InterlaceOf(const AVFrame* pFrame) {
  if (!pFrame->interlaced_frame) return eKI_Progressive;
  return pFrame->top_field_first ? eKI_Field1First : eKI_Field2First;
}

uint32_t PictureTypeFlags(AVPictureType eType) {
  switch (eType) {
    case AV_PICTURE_TYPE_I: return eKFF_Intra;
    case AV_PICTURE_TYPE_P: return eKFF_Predicted;
    case AV_PICTURE_TYPE_B: return eKFF_Bidir_Predicted;
    case AV_PICTURE_TYPE_S: return eKFF_S_GMC_VOP_MPEG4;
    case AV_PICTURE_TYPE_SI: return eKFF_Switching_Intra;
    case AV_PICTURE_TYPE_SP: return eKFF_Switching_Predicted;
    case AV_PICTURE_TYPE_BI: return eKFF_BI;
    default: return 0;
  }
}

// The public format closest to a decoded picture's format that has none.
AVPixelFormat NearestPublicFormat(AVPixelFormat eSrc) {
  static constexpr AVPixelFormat kCandidates[] = {
      AV_PIX_FMT_YUV420P,     AV_PIX_FMT_YUV422P,     AV_PIX_FMT_YUV444P,     AV_PIX_FMT_YUV420P10LE,
      AV_PIX_FMT_YUV422P10LE, AV_PIX_FMT_YUV444P10LE, AV_PIX_FMT_YUV420P12LE, AV_PIX_FMT_YUV422P12LE,
      AV_PIX_FMT_YUV444P12LE, AV_PIX_FMT_YUV420P16LE, AV_PIX_FMT_YUV444P16LE, AV_PIX_FMT_NV12,
      AV_PIX_FMT_P010LE,      AV_PIX_FMT_BGRA,        AV_PIX_FMT_BGR0,        AV_PIX_FMT_RGBA64LE,
      AV_PIX_FMT_GRAY8,       AV_PIX_FMT_GRAY16LE,    AV_PIX_FMT_YUVA420P,    AV_PIX_FMT_YUVA444P,
  };
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(eSrc);
  const int bAlpha = pDesc && (pDesc->flags & AV_PIX_FMT_FLAG_ALPHA) ? 1 : 0;
  AVPixelFormat eBest = AV_PIX_FMT_NONE;
  for (AVPixelFormat eCandidate : kCandidates) {
    eBest = eBest == AV_PIX_FMT_NONE ? eCandidate : av_find_best_pix_fmt_of_2(eBest, eCandidate, eSrc, bAlpha, nullptr);
  }
  return eBest;
}

void CopyPictureProps(AVFrame* pDst, const AVFrame* pSrc) {
  pDst->pts = pSrc->pts;
  pDst->pict_type = pSrc->pict_type;
  pDst->key_frame = pSrc->key_frame;
  pDst->sample_aspect_ratio = pSrc->sample_aspect_ratio;
  pDst->interlaced_frame = pSrc->interlaced_frame;
  pDst->top_field_first = pSrc->top_field_first;
}

HRESULT WrapVideo(AvFramePtr spFrame, double dblRate, FrameContent* pContent) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(spFrame->format));
  if (!pDesc) return E_INVALIDARG;
  if (pDesc->flags & AV_PIX_FMT_FLAG_HWACCEL) {
    // Frames of this class live in system memory: bring the pixels down.
    AvFramePtr spSoft(av_frame_alloc());
    if (!spSoft) return E_OUTOFMEMORY;
    int nErr = av_hwframe_transfer_data(spSoft.get(), spFrame.get(), 0);
    if (nErr >= 0) nErr = av_frame_copy_props(spSoft.get(), spFrame.get());
    if (nErr < 0) {
      const HRESULT hr = AvErrorToHr(nErr);
      VC_LOG(eVCLL_Error, "av_hwframe_transfer_data(%s) FAILED %s hr=%08X\n", pDesc->name, AvErrorText(nErr).c_str(),
             hr);
      return hr;
    }
    spFrame = std::move(spSoft);
  }
  auto eFmt = static_cast<AVPixelFormat>(spFrame->format);
  eVCCC fcc = FourccFromPixelFormat(eFmt);
  if (fcc == eVCCC_Default) {
    // No public code for this layout (planar RGB, big-endian, ...): one
    // conversion now, so that hosts can read the frame at all.
    const AVPixelFormat eTarget = NearestPublicFormat(eFmt);
    AvFramePtr spConverted;
    const HRESULT hr = ScaleToNew(ViewOf(spFrame.get()), eTarget, FourccFromPixelFormat(eTarget), spFrame->width,
                                  spFrame->height, AVCOL_SPC_UNSPECIFIED, &spConverted);
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "no public pixel format for %s FAILED hr=%08X\n", av_get_pix_fmt_name(eFmt), hr);
      return hr;
    }
    CopyPictureProps(spConverted.get(), spFrame.get());
    spFrame = std::move(spConverted);
    eFmt = eTarget;
    fcc = FourccFromPixelFormat(eTarget);
  }
  K_VID_PROPS& vid = pContent->props.vidProps;
  vid.eVideoFormat = eKVF_Custom;
  vid.eInterlace = InterlaceOf(spFrame.get());
  DisplayAspect(spFrame->width, spFrame->height, spFrame->sample_aspect_ratio, &vid.nAspectX, &vid.nAspectY);
  vid.dblRate = dblRate;
  vid.eScaleType = eKST_Default;
  vid.eGPUFlags = eGTF_CPU_Frame;
  if ((pContent->time.eFFlags & eKFF_Type_Mask) == 0) {
    pContent->time.eFFlags =
        static_cast<eKFrameFlags>(pContent->time.eFFlags | PictureTypeFlags(spFrame->pict_type));
  }
  pContent->fccVideo = fcc;
  pContent->llVideoID = NewVideoID();
  pContent->pVideo = std::move(spFrame);
  SyncVideoProps(pContent);
  return S_OK;
}

HRESULT WrapAudio(AvFramePtr spFrame, int nBitsWanted, FrameContent* pContent) {
  const auto eFmt = static_cast<AVSampleFormat>(spFrame->format);
  const int nBits = BitsFromSampleFormat(eFmt);
  if (SampleFormatFromBits(nBitsWanted) == AV_SAMPLE_FMT_NONE) {
    if (nBits != 0) nBitsWanted = nBits;
    else if (eFmt == AV_SAMPLE_FMT_S32P) nBitsWanted = 32;
    else if (eFmt == AV_SAMPLE_FMT_U8P) nBitsWanted = 8;
    else nBitsWanted = 16;
  }
  if (nBits != nBitsWanted) {
    AVChannelLayout layout{};
    if (spFrame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
      av_channel_layout_default(&layout, spFrame->ch_layout.nb_channels);
    } else if (av_channel_layout_copy(&layout, &spFrame->ch_layout) < 0) {
      return E_OUTOFMEMORY;
    }
    AvFramePtr spConverted;
    const HRESULT hr =
        ResampleAudio(spFrame.get(), SampleFormatFromBits(nBitsWanted), spFrame->sample_rate, layout, &spConverted);
    av_channel_layout_uninit(&layout);
    if (FAILED(hr)) return hr;
    spFrame = std::move(spConverted);
  }
  pContent->pAudio = std::move(spFrame);
  pContent->props.audProps.nTrackSplitBits = 0;
  SyncAudioProps(pContent);
  return S_OK;
}

// Plane 0's stride in the public layout of a frame's video: its own when the
// planes already follow from it, otherwise the one a new layout would get.
int PublicRowBytes(const AVFrame* pVideo, eVCCC fcc) {
  PlaneLayout layout;
  const auto eFmt = static_cast<AVPixelFormat>(pVideo->format);
  if (LayoutFor(eFmt, fcc, pVideo->width, pVideo->height, pVideo->linesize[0], &layout)) return pVideo->linesize[0];
  return DefaultRowBytes(eFmt, pVideo->width);
}

}  // namespace

void DisplayAspect(int nWidth, int nHeight, AVRational sar, SHORT* pnX, SHORT* pnY) {
  if (sar.num <= 0 || sar.den <= 0) sar = AVRational{1, 1};
  int nNum = 0;
  int nDen = 0;
  av_reduce(&nNum, &nDen, static_cast<int64_t>(nWidth) * sar.num, static_cast<int64_t>(nHeight) * sar.den, SHRT_MAX);
  *pnX = static_cast<SHORT>(nNum);
  *pnY = static_cast<SHORT>(nDen);
}

void SyncVideoProps(FrameContent* pContent) {
  const AVFrame* pVideo = pContent->pVideo.get();
  if (!pVideo) return;
  K_VID_PROPS& vid = pContent->props.vidProps;
  vid.fccType = pContent->fccVideo;
  vid.nWidth = pVideo->width;
  vid.nHeight = pVideo->height;
  vid.nRowBytes = PublicRowBytes(pVideo, pContent->fccVideo);
  vid.eGPUFlags = eGTF_CPU_Frame;
}

void SyncAudioProps(FrameContent* pContent) {
  const AVFrame* pAudio = pContent->pAudio.get();
  if (!pAudio) return;
  K_AUD_PROPS& aud = pContent->props.audProps;
  aud.nChannels = pAudio->ch_layout.nb_channels;
  aud.nSamplesPerSec = pAudio->sample_rate;
  aud.nBitsPerSample = BitsFromSampleFormat(static_cast<AVSampleFormat>(pAudio->format));
}

// ---------------------------------------------------------------------------
// Creation and the module's own access

HRESULT CFFFrame::_InternalQueryInterface(REFIID riid, void** ppv) {
  if (ppv && IsEqualIID(riid, IID_FFFrameSelf)) {
    *ppv = static_cast<IVCFrame*>(this);
    return S_OK;
  }
  return QueryInterfaceTable<IVCFrame>(this, riid, ppv);
}

CFFFrame* CFFFrame::FromInterface(IUnknown* pUnk) {
  if (!pUnk) return nullptr;
  void* pv = nullptr;
  if (FAILED(pUnk->QueryInterface(IID_FFFrameSelf, &pv)) || !pv) return nullptr;
  auto* pFrame = static_cast<IVCFrame*>(pv);
  pFrame->Release();  // borrowed: the caller's reference keeps it alive
  return static_cast<CFFFrame*>(pFrame);
}

CFFFrame* CFFFrame::Create(ComPtr<IVCFrame>* pcpFrame) {
  ComPtr<IVCFrame> cpFrame;
  if (FAILED(CreateObject<CFFFrame>(nullptr, IidOf<IVCFrame>(), reinterpret_cast<void**>(cpFrame.AddressOf()))))
    return nullptr;
  auto* pObject = static_cast<CFFFrame*>(cpFrame.Get());
  *pcpFrame = std::move(cpFrame);
  return pObject;
}

void CFFFrame::SetContent(FrameContent&& content) {
  FrameContent old;  // released after the lock: its objects may call back
  Lock lock(m_csLock);
  old = std::move(m_content);
  m_content = std::move(content);
  m_vecChannels.clear();
}

const AVFrame* CFFFrame::VideoAVFrame() {
  Lock lock(m_csLock);
  return m_content.pVideo.get();
}

const AVFrame* CFFFrame::AudioAVFrame() {
  Lock lock(m_csLock);
  return m_content.pAudio.get();
}

bool CFFFrame::_MakePublicLayoutLocked() {
  AVFrame* pVideo = m_content.pVideo.get();
  if (!pVideo || IsPublicLayout(pVideo, m_content.fccVideo)) return true;
  const auto eFmt = static_cast<AVPixelFormat>(pVideo->format);
  AvFramePtr spLaidOut(AllocPublicVideo(eFmt, m_content.fccVideo, pVideo->width, pVideo->height,
                                        PublicRowBytes(pVideo, m_content.fccVideo)));
  if (!spLaidOut || av_frame_copy_props(spLaidOut.get(), pVideo) < 0) return false;
  av_image_copy(spLaidOut->data, spLaidOut->linesize, const_cast<const uint8_t**>(pVideo->data), pVideo->linesize,
                eFmt, pVideo->width, pVideo->height);
  // Pointers into the old planes may be held (FrameAVFrame, VCVideoGetBytesEx).
  m_vecRetired.push_back(std::move(m_content.pVideo));
  m_content.pVideo = std::move(spLaidOut);
  m_content.llVideoID = NewVideoID();
  SyncVideoProps(&m_content);
  return true;
}

HRESULT CreateFFFrame(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CFFFrame>(pOuter, riid, ppv);
}

HRESULT FrameFromAVFrameEx(AVFrame* pAvFrame, const K_TIME& time, double dblRate, int nAudioBits,
                           IVCFrame** ppFrame) {
  if (!ppFrame) return E_POINTER;
  *ppFrame = nullptr;
  if (!pAvFrame) {
    VC_LOG(eVCLL_Error, "no AVFrame FAILED hr=%08X\n", E_INVALIDARG);
    return E_INVALIDARG;
  }
  const bool bVideo = pAvFrame->width > 0 && pAvFrame->height > 0;
  const bool bAudio = !bVideo && pAvFrame->nb_samples > 0 && pAvFrame->ch_layout.nb_channels > 0 &&
                      pAvFrame->sample_rate > 0;
  if (!bVideo && !bAudio) {
    VC_LOG(eVCLL_Error, "AVFrame is neither video nor audio (%dx%d, %d samples) FAILED hr=%08X\n", pAvFrame->width,
           pAvFrame->height, pAvFrame->nb_samples, E_INVALIDARG);
    return E_INVALIDARG;
  }
  AvFramePtr spOwned(av_frame_alloc());
  if (!spOwned) return E_OUTOFMEMORY;
  av_frame_move_ref(spOwned.get(), pAvFrame);

  FrameContent content;
  content.time = time;
  const HRESULT hr = bVideo ? WrapVideo(std::move(spOwned), dblRate, &content)
                            : WrapAudio(std::move(spOwned), nAudioBits, &content);
  if (FAILED(hr)) return hr;
  ComPtr<IVCFrame> cpFrame;
  CFFFrame* pObject = CFFFrame::Create(&cpFrame);
  if (!pObject) return E_OUTOFMEMORY;
  pObject->SetContent(std::move(content));
  *ppFrame = cpFrame.Detach();
  return S_OK;
}

HRESULT FrameFromAVFrame(AVFrame* pAvFrame, const K_TIME& time, double dblRate, IVCFrame** ppFrame) {
  return FrameFromAVFrameEx(pAvFrame, time, dblRate, 0, ppFrame);
}

const AVFrame* FrameAVFrame(IVCFrame* pFrame) {
  CFFFrame* pObject = CFFFrame::FromInterface(pFrame);
  if (!pObject) return nullptr;
  const AVFrame* pVideo = pObject->VideoAVFrame();
  return pVideo ? pVideo : pObject->AudioAVFrame();
}

const AVFrame* FrameAudioAVFrame(IVCFrame* pFrame) {
  CFFFrame* pObject = CFFFrame::FromInterface(pFrame);
  return pObject ? pObject->AudioAVFrame() : nullptr;
}

// ---------------------------------------------------------------------------
// Properties, time, flags

HRESULT CFFFrame::VCGetProcessID(DWORD* _pdwProcessID) {
  VC_GUARD_BEGIN
  if (!_pdwProcessID) return E_POINTER;
  *_pdwProcessID = GetCurrentProcessId();
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAVPropsGet(K_AV_PROPS* _pProps, LONG* _plAudioSamples) {
  VC_GUARD_BEGIN
  if (!_pProps && !_plAudioSamples) {
    VC_LOG(eVCLL_Error, "no out-pointer FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  Lock lock(m_csLock);
  if (_pProps) *_pProps = m_content.props;
  if (_plAudioSamples) *_plAudioSamples = m_content.AudioSamples();
  return S_OK;
  VC_GUARD_END
}

namespace {

bool NoAudioWanted(const K_AUD_PROPS& aud) {
  return aud.nChannels == 0 && aud.nSamplesPerSec == 0 && aud.nBitsPerSample == 0;
}

bool CheckPropsRecord(const K_AV_PROPS& props) {
  const K_VID_PROPS& vid = props.vidProps;
  const K_AUD_PROPS& aud = props.audProps;
  if (vid.nWidth < 0 || vid.nHeight < 0 || vid.nRowBytes < 0 || (vid.eGPUFlags & eGTF_GPU_FormatMask) != 0) {
    VC_LOG(eVCLL_Error, "bad video properties %dx%d row %d gpu %d FAILED hr=%08X\n", vid.nWidth, vid.nHeight,
           vid.nRowBytes, vid.eGPUFlags, E_INVALIDARG);
    return false;
  }
  if (!NoAudioWanted(aud) && (aud.nChannels <= 0 || aud.nChannels > kMaxAudioChannels || aud.nSamplesPerSec <= 0 ||
                              SampleFormatFromBits(aud.nBitsPerSample) == AV_SAMPLE_FMT_NONE)) {
    VC_LOG(eVCLL_Error, "bad audio properties %d ch %d Hz %d bits FAILED hr=%08X\n", aud.nChannels,
           aud.nSamplesPerSec, aud.nBitsPerSample, E_INVALIDARG);
    return false;
  }
  return true;
}

// The picture a record asks for: *pspNew stays null when the current layout
// is the one asked for (its pixels stay); another size or format gets a new
// black picture.
HRESULT PictureFor(const K_VID_PROPS& vid, const FrameContent& content, eVCCC fcc, AvFramePtr* pspNew) {
  const AVFrame* pOld = content.pVideo.get();
  if (pOld && fcc == content.fccVideo && pOld->width == vid.nWidth && pOld->height == vid.nHeight &&
      (vid.nRowBytes == 0 || vid.nRowBytes == PublicRowBytes(pOld, fcc))) {
    return S_OK;
  }
  const AVPixelFormat eFmt = PixelFormatFromFourcc(fcc);
  if (eFmt == AV_PIX_FMT_NONE) {
    VC_LOG(eVCLL_Error, "pixel format %08X has no system-memory layout FAILED hr=%08X\n", static_cast<uint32_t>(fcc),
           E_INVALIDARG);
    return E_INVALIDARG;
  }
  pspNew->reset(AllocPublicVideo(eFmt, fcc, vid.nWidth, vid.nHeight, vid.nRowBytes));
  if (!*pspNew) {
    VC_LOG(eVCLL_Error, "no picture %dx%d row %d of %08X FAILED hr=%08X\n", vid.nWidth, vid.nHeight, vid.nRowBytes,
           static_cast<uint32_t>(fcc), E_INVALIDARG);
    return E_INVALIDARG;
  }
  (*pspNew)->colorspace = ColourSpaceFromFourcc(fcc);
  return S_OK;
}

// The audio a record asks for: another sample size or channel count (or a
// remap list) reshapes the samples into *pspNew; the same shape leaves it
// null. Another rate only relabels (VCConvert resamples).
HRESULT AudioFor(const K_AUD_PROPS& aud, BSTR bsRemap, const FrameContent& content, AvFramePtr* pspNew) {
  const AVFrame* pOld = content.pAudio.get();
  if (!pOld) return S_OK;
  std::vector<ChannelRoute> routes;
  if (!ParseChannelList(InString(bsRemap), content.props.audProps, &routes)) return E_INVALIDARG;
  const int nOldBits = BitsFromSampleFormat(static_cast<AVSampleFormat>(pOld->format));
  if (routes.empty() && nOldBits == aud.nBitsPerSample && pOld->ch_layout.nb_channels == aud.nChannels) return S_OK;
  if (routes.empty()) routes = IdentityRoutes(std::min(pOld->ch_layout.nb_channels, aud.nChannels));
  const HRESULT hr = RemapPcm(pOld, aud.nBitsPerSample, aud.nChannels, routes, pspNew);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "channels '%ws' to %d ch %d bits FAILED hr=%08X\n", bsRemap, aud.nChannels,
           aud.nBitsPerSample, hr);
  }
  return hr;
}

}  // namespace

HRESULT CFFFrame::VCAVPropsSet(K_AV_PROPS* _pProps, BSTR _bsChannelsRemap) {
  VC_GUARD_BEGIN
  if (!_pProps) {
    VC_LOG(eVCLL_Error, "no properties FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  const K_AV_PROPS props = *_pProps;
  if (!CheckPropsRecord(props)) return E_INVALIDARG;
  const bool bNoVideo = props.vidProps.nWidth == 0 || props.vidProps.nHeight == 0;
  const bool bNoAudio = NoAudioWanted(props.audProps);

  Lock lock(m_csLock);
  // Everything new is made before anything changes: a failure leaves the frame.
  const eVCCC fcc = props.vidProps.fccType != eVCCC_Default ? props.vidProps.fccType : m_content.fccVideo;
  AvFramePtr spNewVideo;
  AvFramePtr spNewAudio;
  HRESULT hr = bNoVideo ? S_OK : PictureFor(props.vidProps, m_content, fcc, &spNewVideo);
  if (SUCCEEDED(hr) && !bNoAudio) hr = AudioFor(props.audProps, _bsChannelsRemap, m_content, &spNewAudio);
  if (FAILED(hr)) return hr;

  if (bNoVideo) {
    m_content.pVideo.reset();
    m_content.fccVideo = eVCCC_Default;
  } else if (spNewVideo) {
    m_content.pVideo = std::move(spNewVideo);
    m_content.fccVideo = fcc;
    m_content.llVideoID = NewVideoID();
  }
  if (bNoAudio || spNewAudio) {
    m_content.pAudio = std::move(spNewAudio);
    m_vecChannels.clear();
  }
  if (m_content.pAudio) m_content.pAudio->sample_rate = props.audProps.nSamplesPerSec;
  m_content.props = props;
  SyncVideoProps(&m_content);
  SyncAudioProps(&m_content);
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCTimeGet(K_TIME* _pTime) {
  VC_GUARD_BEGIN
  if (!_pTime) return E_POINTER;
  Lock lock(m_csLock);
  *_pTime = m_content.time;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCTimeSet(K_TIME* _pTime) {
  VC_GUARD_BEGIN
  if (!_pTime) {
    VC_LOG(eVCLL_Error, "no time FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  const K_TIME time = *_pTime;
  Lock lock(m_csLock);
  m_content.time = time;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCFlagCheck(eKFrameFlags _eFlagCheck, LONG* _pnRes) {
  VC_GUARD_BEGIN
  if (!_pnRes) return E_POINTER;
  uint32_t uFlags = 0;
  {
    Lock lock(m_csLock);
    uFlags = static_cast<uint32_t>(m_content.time.eFFlags);
  }
  // The main bits are a set; the picture type and the buffer position are
  // values (a B frame is not "predicted" because its code shares a bit).
  const auto uCheck = static_cast<uint32_t>(_eFlagCheck);
  constexpr uint32_t kMain = eKFF_Main_Mask;
  constexpr uint32_t kType = eKFF_Type_Mask;
  constexpr uint32_t kPos = 0xFF000000u;
  bool bSet = false;
  if (uCheck == 0) {
    bSet = (uFlags & (kMain | kType)) == 0;
  } else {
    bSet = (uFlags & uCheck & kMain) == (uCheck & kMain) &&
           ((uCheck & kType) == 0 || (uFlags & kType) == (uCheck & kType)) &&
           ((uCheck & kPos) == 0 || (uFlags & kPos) == (uCheck & kPos));
  }
  *_pnRes = bSet ? 1 : 0;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAllGet(VC_FRAME_INFO* _pFrameInfo) {
  VC_GUARD_BEGIN
  if (!_pFrameInfo) return E_POINTER;
  Lock lock(m_csLock);
  if (!_MakePublicLayoutLocked()) {
    VC_LOG(eVCLL_Error, "no memory for the picture FAILED hr=%08X\n", E_OUTOFMEMORY);
    return E_OUTOFMEMORY;
  }
  VC_FRAME_INFO info{};
  info.llVideoID = m_content.pVideo ? m_content.llVideoID : 0;
  info.mTime = m_content.time;
  info.avProps = m_content.props;
  if (const AVFrame* pVideo = m_content.pVideo.get()) {
    PlaneLayout layout;
    LayoutFor(static_cast<AVPixelFormat>(pVideo->format), m_content.fccVideo, pVideo->width, pVideo->height,
              pVideo->linesize[0], &layout);
    info.cbVideo = static_cast<DWORD>(layout.cbTotal);
    info.lpVideo = ToAddress(pVideo->data[0]);
  }
  if (const AVFrame* pAudio = m_content.pAudio.get()) {
    info.cbAudio = static_cast<DWORD>(pAudio->nb_samples) * static_cast<DWORD>(pAudio->ch_layout.nb_channels) *
                   static_cast<DWORD>(av_get_bytes_per_sample(static_cast<AVSampleFormat>(pAudio->format)));
    info.lpAudio = ToAddress(pAudio->data[0]);
    info.lAudioSamples = pAudio->nb_samples;
  }
  info.dwProcessID = GetCurrentProcessId();
  info.nDataCount = static_cast<LONG>(m_content.vecData.size());
  info.nObjCount = static_cast<LONG>(m_content.vecObj.size());
  info.nStrCount = static_cast<LONG>(m_content.vecStr.size());
  *_pFrameInfo = info;
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Bytes

HRESULT CFFFrame::VCAudioGetBytes(LONG* _pcbSize, LONGLONG* _ppbAudio) {
  VC_GUARD_BEGIN
  if (!_pcbSize && !_ppbAudio) return E_POINTER;
  Lock lock(m_csLock);
  const AVFrame* pAudio = m_content.pAudio.get();
  const size_t cb = pAudio ? static_cast<size_t>(pAudio->nb_samples) * pAudio->ch_layout.nb_channels *
                                 av_get_bytes_per_sample(static_cast<AVSampleFormat>(pAudio->format))
                           : 0;
  if (cb > static_cast<size_t>(LONG_MAX)) return kHrTooLarge;
  if (_pcbSize) *_pcbSize = static_cast<LONG>(cb);
  if (_ppbAudio) *_ppbAudio = pAudio ? ToAddress(pAudio->data[0]) : 0;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCVideoGetBytes(LONG* _pcbSize, LONGLONG* _ppbVideo) {
  VC_GUARD_BEGIN
  if (!_pcbSize && !_ppbVideo) return E_POINTER;
  Lock lock(m_csLock);
  if (!_MakePublicLayoutLocked()) {
    VC_LOG(eVCLL_Error, "no memory for the picture FAILED hr=%08X\n", E_OUTOFMEMORY);
    return E_OUTOFMEMORY;
  }
  const AVFrame* pVideo = m_content.pVideo.get();
  size_t cb = 0;
  if (pVideo) {
    PlaneLayout layout;
    LayoutFor(static_cast<AVPixelFormat>(pVideo->format), m_content.fccVideo, pVideo->width, pVideo->height,
              pVideo->linesize[0], &layout);
    cb = layout.cbTotal;
  }
  if (cb > static_cast<size_t>(LONG_MAX)) return kHrTooLarge;
  if (_pcbSize) *_pcbSize = static_cast<LONG>(cb);
  if (_ppbVideo) *_ppbVideo = pVideo ? ToAddress(pVideo->data[0]) : 0;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCVideoGetBytesEx(VC_VID_PTR* _pVideoPtr) {
  VC_GUARD_BEGIN
  if (!_pVideoPtr) return E_POINTER;
  VC_VID_PTR ptr{};
  Lock lock(m_csLock);
  if (const AVFrame* pVideo = m_content.pVideo.get()) {
    const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pVideo->format));
    const int nPlanes = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(pVideo->format));
    for (int k = 0; k < nPlanes && k < 4 && pDesc; ++k) {
      const int nAv = AvPlaneOfPublicPlane(m_content.fccVideo, k);
      const bool bChroma = nAv == 1 || nAv == 2;
      ptr.lpVideoPlanes[k] = ToAddress(pVideo->data[nAv]);
      ptr.szVideoPlanes[k].cx = bChroma ? AV_CEIL_RSHIFT(pVideo->width, pDesc->log2_chroma_w) : pVideo->width;
      ptr.szVideoPlanes[k].cy = bChroma ? AV_CEIL_RSHIFT(pVideo->height, pDesc->log2_chroma_h) : pVideo->height;
      ptr.cbVideoRowBytes[k] = pVideo->linesize[nAv];
    }
  }
  *_pVideoPtr = ptr;
  return S_OK;
  VC_GUARD_END
}

}  // namespace vc::ff
