#include "FFDecoderSession.h"

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/pixdesc.h>
}

#include <cmath>
#include <cstring>

#include "FFCommon.h"
#include "FFDecoderCodecs.h"
#include "FFHwDecoder.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

constexpr LONGLONG kDefaultFrameDuration = 400000;  // 25 frames per second
// Frame errors in a row that one call skips before it gives up: a decoder
// that fails every frame is not decoding.
constexpr int kMaxFrameErrors = 64;


int PacketFlagsToAv(LONG eFlags) {
  int nFlags = 0;
  if (eFlags & eVCPF_KeyFrame) nFlags |= AV_PKT_FLAG_KEY;
  if (eFlags & eVCPF_AvCorrupt) nFlags |= AV_PKT_FLAG_CORRUPT;
  if (eFlags & eVCPF_AvDiscard) nFlags |= AV_PKT_FLAG_DISCARD;
  if (eFlags & eVCPF_AvTrusted) nFlags |= AV_PKT_FLAG_TRUSTED;
  if (eFlags & eVCPF_AvDisposable) nFlags |= AV_PKT_FLAG_DISPOSABLE;
  return nFlags;
}

// The packet's payload copied into pAv (blank on entry), which FFmpeg's
// readers may overrun by the padding; the packet stays the caller's. Times
// are reference time, as the codec context's packet time base says.
int ReadPacket(IVCPacket* pPacket, AVPacket* pAv, bool* pbSegmentStart) {
  K_PACKET_INFO info{};
  if (FAILED(pPacket->PacketInfoGet(&info))) return AVERROR(EINVAL);
  if (info.cbPacketData < 0 || (info.cbPacketData > 0 && !info.lpPacketData)) return AVERROR(EINVAL);
  *pbSegmentStart = (info.eFlags & eVCPF_SegmentStart) != 0;
  const int nErr = av_new_packet(pAv, info.cbPacketData);
  if (nErr < 0) return nErr;
  if (info.cbPacketData > 0)
    std::memcpy(pAv->data, reinterpret_cast<const void*>(info.lpPacketData), static_cast<size_t>(info.cbPacketData));
  pAv->flags = PacketFlagsToAv(info.eFlags);
  K_TIME time{};
  if (SUCCEEDED(pPacket->PacketTimeGet(&time))) {
    pAv->pts = time.rtStartTime;  // VC_TIME_UNSET is AV_NOPTS_VALUE
    if (time.rtStartTime != VC_TIME_UNSET && time.rtEndTime != VC_TIME_UNSET && time.rtEndTime > time.rtStartTime)
      pAv->duration = time.rtEndTime - time.rtStartTime;
  }
  return 0;
}

eKFrameFlags PictureTypeFlags(const AVFrame& frame) {
  switch (frame.pict_type) {
    case AV_PICTURE_TYPE_I:
      return eKFF_Intra;
    case AV_PICTURE_TYPE_P:
      return eKFF_Predicted;
    case AV_PICTURE_TYPE_B:
      return eKFF_Bidir_Predicted;
    case AV_PICTURE_TYPE_S:
      return eKFF_S_GMC_VOP_MPEG4;
    case AV_PICTURE_TYPE_SI:
      return eKFF_Switching_Intra;
    case AV_PICTURE_TYPE_SP:
      return eKFF_Switching_Predicted;
    case AV_PICTURE_TYPE_BI:
      return eKFF_BI;
    default:
      return frame.key_frame ? eKFF_Intra : eKFF_None;
  }
}

}  // namespace

CFFDecodeSession::CFFDecodeSession() : m_spPacket(av_packet_alloc()), m_rtNext(VC_TIME_UNSET) {}

CFFDecodeSession::~CFFDecodeSession() = default;

int CFFDecodeSession::Open(const K_STREAM_INFO& info, const AVCodec* pCodec, const CFFSessionOptions& options) {
  Close();
  if (!pCodec) return AVERROR_DECODER_NOT_FOUND;
  if (!m_spPacket) return AVERROR(ENOMEM);
  DecoderContextPtr spContext(avcodec_alloc_context3(pCodec));
  if (!spContext) return AVERROR(ENOMEM);
  int nErr = FillCodecContext(info, spContext.get());
  if (nErr < 0) return nErr;
  spContext->thread_count = options.nThreads > 0 ? options.nThreads : 0;
  if (pCodec->type == AVMEDIA_TYPE_VIDEO) spContext->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
  m_eHwPixFmt = AV_PIX_FMT_NONE;
  m_bHwFallback = false;
  if (options.pHwDevice) {
    spContext->hw_device_ctx = av_buffer_ref(options.pHwDevice);
    if (!spContext->hw_device_ctx) return AVERROR(ENOMEM);
    m_eHwPixFmt = options.eHwPixFmt;
    spContext->opaque = this;
    spContext->get_format = &_GetFormat;
  }
  nErr = avcodec_open2(spContext.get(), pCodec, nullptr);
  if (nErr < 0) return nErr;
  m_spContext = std::move(spContext);
  if (std::isfinite(info.dblRate) && info.dblRate > 0) m_dblRate = info.dblRate;
  else if (m_spContext->framerate.num > 0 && m_spContext->framerate.den > 0) m_dblRate = av_q2d(m_spContext->framerate);
  else m_dblRate = 0;
  return 0;
}

void CFFDecodeSession::Close() {
  m_deqFrames.clear();
  m_spContext.reset();
  m_audioConverter.Reset();
  m_rtNext = VC_TIME_UNSET;
  m_bDraining = false;
  m_bEof = false;
  m_bHwFallback = false;
}

void CFFDecodeSession::Flush() {
  m_deqFrames.clear();
  if (m_spContext) avcodec_flush_buffers(m_spContext.get());
  m_audioConverter.Reset();
  m_rtNext = VC_TIME_UNSET;
  m_bDraining = false;
  m_bEof = false;
}

AVPixelFormat CFFDecodeSession::_GetFormat(AVCodecContext* pContext, const AVPixelFormat* pFormats) {
  auto* pSelf = static_cast<CFFDecodeSession*>(pContext->opaque);
  for (const AVPixelFormat* p = pFormats; *p != AV_PIX_FMT_NONE; ++p)
    if (*p == pSelf->m_eHwPixFmt) return *p;
  // FFmpeg offers the device format only for streams the device can decode;
  // decoding on in software beats failing the stream half-way.
  pSelf->m_bHwFallback = true;
  for (const AVPixelFormat* p = pFormats; *p != AV_PIX_FMT_NONE; ++p) {
    const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(*p);
    if (pDesc && !(pDesc->flags & AV_PIX_FMT_FLAG_HWACCEL)) return *p;
  }
  return AV_PIX_FMT_NONE;
}

int CFFDecodeSession::_Receive() {
  int nErrors = 0;
  for (;;) {
    DecodedFramePtr spFrame(av_frame_alloc());
    if (!spFrame) return AVERROR(ENOMEM);
    const int nErr = avcodec_receive_frame(m_spContext.get(), spFrame.get());
    if (nErr == AVERROR(EAGAIN)) return 0;
    if (nErr == AVERROR_EOF) {
      m_bEof = true;
      return 0;
    }
    if (nErr < 0) {
      // One broken picture or block: FFmpeg goes on with the next one, and
      // so does the stream (with frame threads the error belongs to an
      // earlier packet, not to the one being fed).
      if (nErr == AVERROR(ENOMEM) || ++nErrors > kMaxFrameErrors) return nErr;
      VC_LOG(eVCLL_Retry, "decoder '%s': a frame is lost: %s (AVERROR %d)\n", m_spContext->codec->name,
             AvErrorText(nErr).c_str(), nErr);
      continue;
    }
    m_deqFrames.push_back(std::move(spFrame));
  }
}

int CFFDecodeSession::Feed(IVCPacket* pPacket) {
  if (!m_spContext) return AVERROR(EINVAL);
  if (!pPacket) {
    if (!m_bDraining && !m_bEof) {
      // FFmpeg is draining once it has the null packet, even when decoding
      // what it still held failed on the way: that frame is lost, the rest
      // comes out.
      const int nErr = avcodec_send_packet(m_spContext.get(), nullptr);
      if (nErr == AVERROR(ENOMEM)) return nErr;
      if (nErr < 0 && nErr != AVERROR_EOF)
        VC_LOG(eVCLL_Retry, "decoder '%s': a frame is lost at the drain: %s (AVERROR %d)\n",
               m_spContext->codec->name, AvErrorText(nErr).c_str(), nErr);
      m_bDraining = true;
    }
    return _Receive();
  }

  AVPacket* pAv = m_spPacket.get();
  bool bSegmentStart = false;
  int nErr = ReadPacket(pPacket, pAv, &bSegmentStart);
  if (nErr < 0) {
    av_packet_unref(pAv);
    return nErr;
  }
  // A seek, or new packets after a drain: the decoder must forget what it
  // holds (a drained FFmpeg decoder accepts nothing until flushed).
  if (bSegmentStart || m_bDraining || m_bEof) Flush();
  if (pAv->size == 0) {
    // An empty packet would start FFmpeg's drain; there is nothing to decode.
    av_packet_unref(pAv);
    return 0;
  }
  nErr = avcodec_send_packet(m_spContext.get(), pAv);
  if (nErr == AVERROR(EAGAIN)) {
    // Frames must be taken out before FFmpeg takes the packet.
    const int nReceived = _Receive();
    nErr = nReceived < 0 ? nReceived : avcodec_send_packet(m_spContext.get(), pAv);
  }
  av_packet_unref(pAv);
  const int nReceived = _Receive();
  return nErr < 0 ? nErr : nReceived;
}

LONGLONG CFFDecodeSession::_Duration(const AVFrame& frame) const {
  if (m_spContext->codec_type == AVMEDIA_TYPE_AUDIO) {
    if (frame.sample_rate <= 0) return 0;
    return av_rescale(frame.nb_samples, VC_TIME_SECOND, frame.sample_rate);
  }
  LONGLONG rtDuration = frame.pkt_duration > 0 ? frame.pkt_duration : 0;
  if (rtDuration == 0) rtDuration = m_dblRate > 0 ? std::llround(1e7 / m_dblRate) : kDefaultFrameDuration;
  // A picture shown for extra fields (soft telecine) lasts longer.
  if (frame.repeat_pict > 0) rtDuration += rtDuration * frame.repeat_pict / 2;
  return rtDuration;
}

void CFFDecodeSession::_TimeFrame(const AVFrame& frame, K_TIME* pTime) {
  *pTime = K_TIME{};
  LONGLONG rtStart = frame.best_effort_timestamp;
  if (rtStart == AV_NOPTS_VALUE) rtStart = frame.pts;
  if (rtStart == AV_NOPTS_VALUE) rtStart = m_rtNext != VC_TIME_UNSET ? m_rtNext : 0;
  pTime->rtStartTime = rtStart;
  pTime->rtEndTime = rtStart + _Duration(frame);
  if (m_spContext->codec_type == AVMEDIA_TYPE_VIDEO) pTime->eFFlags = PictureTypeFlags(frame);
  m_rtNext = pTime->rtEndTime;
}

int CFFDecodeSession::_Convert(DecodedFramePtr spDecoded, const CFFOutputForm& form, AVFrame* pDst) {
  if (m_spContext->codec_type == AVMEDIA_TYPE_AUDIO) return m_audioConverter.Convert(*spDecoded, form.audio, pDst);
  DecodedFramePtr spSystem(av_frame_alloc());
  if (!spSystem) return AVERROR(ENOMEM);
  int nErr = DownloadFrame(*spDecoded, spSystem.get());
  if (nErr < 0) return nErr;
  if (!form.video.Converts(*spSystem)) {
    av_frame_move_ref(pDst, spSystem.get());
    return 0;
  }
  nErr = m_videoConverter.Convert(*spSystem, form.video, pDst);
  if (nErr < 0) av_frame_unref(pDst);
  return nErr;
}

int CFFDecodeSession::TakeFrame(const CFFOutputForm& form, AVFrame* pDst, K_TIME* pTime) {
  if (!m_spContext) return AVERROR(EINVAL);
  while (!m_deqFrames.empty()) {
    DecodedFramePtr spDecoded = std::move(m_deqFrames.front());
    m_deqFrames.pop_front();
    _TimeFrame(*spDecoded, pTime);
    const int nErr = _Convert(std::move(spDecoded), form, pDst);
    if (nErr < 0) return nErr;
    // A rate change may hold back a whole block; its samples come with the
    // next one.
    if (m_spContext->codec_type == AVMEDIA_TYPE_AUDIO && pDst->nb_samples == 0) {
      av_frame_unref(pDst);
      continue;
    }
    if (m_spContext->codec_type == AVMEDIA_TYPE_AUDIO && pDst->sample_rate > 0)
      pTime->rtEndTime = pTime->rtStartTime + av_rescale(pDst->nb_samples, VC_TIME_SECOND, pDst->sample_rate);
    return 0;
  }
  if (!m_bEof) return AVERROR(EAGAIN);
  if (m_spContext->codec_type == AVMEDIA_TYPE_AUDIO && m_audioConverter.Flush(pDst) == 0) {
    *pTime = K_TIME{};
    pTime->rtStartTime = m_rtNext != VC_TIME_UNSET ? m_rtNext : 0;
    pTime->rtEndTime = pTime->rtStartTime + av_rescale(pDst->nb_samples, VC_TIME_SECOND, pDst->sample_rate);
    m_rtNext = pTime->rtEndTime;
    return 0;
  }
  return AVERROR_EOF;
}

}  // namespace vc::ff
