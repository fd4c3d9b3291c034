#include "FFEncodeSession.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstring>

#include "FFCommon.h"
#include "FFFrameScale.h"
#include "FFPacket.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

// Sets a codec option: the codec's own (private) option of that name first,
// else the generic one. Unknown options and bad values are logged and left.
void SetCodecOption(AVCodecContext* pContext, const char* szName, const std::string& strValue) {
  if (strValue.empty()) return;
  int nErr = AVERROR_OPTION_NOT_FOUND;
  if (pContext->priv_data) nErr = av_opt_set(pContext->priv_data, szName, strValue.c_str(), 0);
  if (nErr == AVERROR_OPTION_NOT_FOUND) nErr = av_opt_set(pContext, szName, strValue.c_str(), 0);
  if (nErr < 0)
    VC_LOG(eVCLL_Retry, "encoder '%s': option %s=%s not taken: %s\n", pContext->codec->name, szName,
           strValue.c_str(), AvErrorText(nErr).c_str());
}

bool HasPrivateOption(const AVCodecContext* pContext, const char* szName) {
  return pContext->priv_data &&
         av_opt_find(pContext->priv_data, szName, nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
}

// The codec's pixel format nearest to the input's, unless one is asked for.
AVPixelFormat ChoosePixFmt(const AVCodec* pCodec, AVPixelFormat eInput, const std::string& strWanted) {
  if (!strWanted.empty()) {
    const AVPixelFormat eWanted = av_get_pix_fmt(strWanted.c_str());
    if (eWanted != AV_PIX_FMT_NONE) return eWanted;
    VC_LOG(eVCLL_Retry, "encoder '%s': unknown pix_fmt '%s', choosing one\n", pCodec->name, strWanted.c_str());
  }
  if (!pCodec->pix_fmts) return eInput;
  if (pCodec->id == AV_CODEC_ID_MJPEG) {
    // JPEG is full range: limited-range input is scaled into the full-range
    // formats rather than written with a non-standard range.
    std::vector<AVPixelFormat> vecFull;
    for (const AVPixelFormat* p = pCodec->pix_fmts; *p != AV_PIX_FMT_NONE; ++p) {
      const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(*p);
      if (pDesc && std::strncmp(pDesc->name, "yuvj", 4) == 0) vecFull.push_back(*p);
    }
    if (!vecFull.empty()) {
      vecFull.push_back(AV_PIX_FMT_NONE);
      return avcodec_find_best_pix_fmt_of_list(vecFull.data(), eInput, 0, nullptr);
    }
  }
  return avcodec_find_best_pix_fmt_of_list(pCodec->pix_fmts, eInput, 0, nullptr);
}

// The codec's sample format for interleaved input: the same type, planar if
// the codec wants planar; else the codec's first.
AVSampleFormat ChooseSampleFmt(const AVCodec* pCodec, AVSampleFormat eInput) {
  if (!pCodec->sample_fmts) return eInput;
  for (const AVSampleFormat* p = pCodec->sample_fmts; *p != AV_SAMPLE_FMT_NONE; ++p)
    if (av_get_packed_sample_fmt(*p) == av_get_packed_sample_fmt(eInput)) return *p;
  return pCodec->sample_fmts[0];
}

// The codec's sample rate nearest to nRate (nRate itself when it takes any).
int ChooseSampleRate(const AVCodec* pCodec, int nRate) {
  if (!pCodec->supported_samplerates) return nRate;
  int nBest = 0;
  for (const int* p = pCodec->supported_samplerates; *p; ++p)
    if (!nBest || std::abs(*p - nRate) < std::abs(nBest - nRate)) nBest = *p;
  return nBest ? nBest : nRate;
}

}  // namespace

CFFEncodeSession::CFFEncodeSession() = default;
CFFEncodeSession::~CFFEncodeSession() { Close(); }

void CFFEncodeSession::Close() {
  m_spContext.reset();
  m_spPacket.reset();
  av_buffer_unref(&m_pHwFrames);
  m_streamInfo = CKStreamInfo();
  m_llLastPts = AV_NOPTS_VALUE;
  m_mapFrameTimes.clear();
  m_audioConverter.Reset();
  m_spPending.reset();
  m_nPendingFill = 0;
  m_spResampled.reset();
  m_llNextSample = AV_NOPTS_VALUE;
}

void CFFEncodeSession::_Configure(const CFFEncodeSettings& settings) {
  AVCodecContext* pContext = m_spContext.get();
  if (settings.llBitrate > 0) pContext->bit_rate = settings.llBitrate;
  if (settings.llMaxRate > 0) pContext->rc_max_rate = settings.llMaxRate;
  if (settings.llBufferSize > 0) pContext->rc_buffer_size = static_cast<int>(settings.llBufferSize);
  if (settings.nGop >= 0) pContext->gop_size = settings.nGop;
  if (settings.nBFrames >= 0) pContext->max_b_frames = settings.nBFrames;
  pContext->thread_count = settings.nThreads;
  if (settings.dblQuality >= 0) {
    if (HasPrivateOption(pContext, "crf")) {
      SetCodecOption(pContext, "crf", std::to_string(settings.dblQuality));
    } else {
      // Codecs without a rate factor take a fixed quantiser.
      pContext->flags |= AV_CODEC_FLAG_QSCALE;
      pContext->global_quality = static_cast<int>(settings.dblQuality * FF_QP2LAMBDA);
    }
  }
  if (settings.bGlobalHeader) pContext->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  SetCodecOption(pContext, "preset", settings.strPreset);
  SetCodecOption(pContext, "profile", settings.strProfile);
  SetCodecOption(pContext, "level", settings.strLevel);
}

int CFFEncodeSession::Open(const AVCodec* pCodec, const CFFEncodeSettings& settings, const AVFrame& first,
                           double dblRate, const CFFEncodeDevice& device) {
  Close();
  m_settings = settings;
  m_spContext.reset(avcodec_alloc_context3(pCodec));
  m_spPacket.reset(av_packet_alloc());
  if (!m_spContext || !m_spPacket) return AVERROR(ENOMEM);
  int nErr = pCodec->type == AVMEDIA_TYPE_VIDEO ? _OpenVideo(first, dblRate, device) : _OpenAudio(first);
  if (nErr >= 0) {
    _Configure(settings);
    nErr = avcodec_open2(m_spContext.get(), pCodec, nullptr);
  }
  if (nErr < 0) {
    Close();
    return nErr;
  }
  _BuildStreamInfo(dblRate);
  return 0;
}

int CFFEncodeSession::_OpenVideo(const AVFrame& first, double dblRate, const CFFEncodeDevice& device) {
  AVCodecContext* pContext = m_spContext.get();
  const AVCodec* pCodec = pContext->codec;
  pContext->width = m_settings.nWidth > 0 ? m_settings.nWidth : first.width;
  pContext->height = m_settings.nHeight > 0 ? m_settings.nHeight : first.height;
  // Codecs count time in frames: a time base of one frame keeps MPEG-4's and
  // MPEG-2's limits on it and gives the rate control its frame rate.
  const AVRational rate = av_d2q(dblRate > 0 ? dblRate : 25.0, 1001000);
  pContext->framerate = rate;
  pContext->time_base = av_inv_q(rate);
  pContext->sample_aspect_ratio = first.sample_aspect_ratio;
  pContext->colorspace = first.colorspace;
  pContext->color_range = first.color_range;
  if (device.eHwPixFmt != AV_PIX_FMT_NONE) {
    // Encoders that read device memory only: pictures are uploaded into a
    // pool of device frames.
    m_pHwFrames = av_hwframe_ctx_alloc(device.pDevice);
    if (!m_pHwFrames) return AVERROR(ENOMEM);
    auto* pFrames = reinterpret_cast<AVHWFramesContext*>(m_pHwFrames->data);
    pFrames->format = device.eHwPixFmt;
    pFrames->sw_format = device.eSwPixFmt;
    pFrames->width = pContext->width;
    pFrames->height = pContext->height;
    pFrames->initial_pool_size = 20;
    const int nErr = av_hwframe_ctx_init(m_pHwFrames);
    if (nErr < 0) return nErr;
    pContext->hw_frames_ctx = av_buffer_ref(m_pHwFrames);
    pContext->pix_fmt = device.eHwPixFmt;
    return pContext->hw_frames_ctx ? 0 : AVERROR(ENOMEM);
  }
  if (device.pDevice) pContext->hw_device_ctx = av_buffer_ref(device.pDevice);
  pContext->pix_fmt = device.eSwPixFmt != AV_PIX_FMT_NONE
                          ? device.eSwPixFmt
                          : ChoosePixFmt(pCodec, static_cast<AVPixelFormat>(first.format), m_settings.strPixFmt);
  return pContext->pix_fmt == AV_PIX_FMT_NONE ? AVERROR(EINVAL) : 0;
}

int CFFEncodeSession::_OpenAudio(const AVFrame& first) {
  AVCodecContext* pContext = m_spContext.get();
  const AVCodec* pCodec = pContext->codec;
  pContext->sample_fmt = ChooseSampleFmt(pCodec, static_cast<AVSampleFormat>(first.format));
  pContext->sample_rate =
      ChooseSampleRate(pCodec, m_settings.nSampleRate > 0 ? m_settings.nSampleRate : first.sample_rate);
  const int nChannels = m_settings.nChannels > 0 ? m_settings.nChannels : first.ch_layout.nb_channels;
  av_channel_layout_default(&pContext->ch_layout, nChannels);
  pContext->time_base = AVRational{1, pContext->sample_rate};
  return pContext->sample_rate > 0 && nChannels > 0 ? 0 : AVERROR(EINVAL);
}

void CFFEncodeSession::_BuildStreamInfo(double dblRate) {
  const AVCodecContext* pContext = m_spContext.get();
  const bool bVideo = pContext->codec_type == AVMEDIA_TYPE_VIDEO;
  K_STREAM_INFO info{};
  info.eMediaType = bVideo ? eVCMT_Video : eVCMT_Audio;
  info.cbCodecData = pContext->extradata_size;
  info.lpCodecData = reinterpret_cast<LONGLONG>(pContext->extradata);
  info.raTimeBase = K_RATIONAL{pContext->time_base.num, pContext->time_base.den};
  if (bVideo) {
    info.nWidth = pContext->width;
    info.nHeight = pContext->height;
    info.nAspectX = pContext->sample_aspect_ratio.num;
    info.nAspectY = pContext->sample_aspect_ratio.den;
    info.dblRate = dblRate > 0 ? dblRate : av_q2d(pContext->framerate);
  } else {
    info.nSampleRate = pContext->sample_rate;
    info.nChannels = pContext->ch_layout.nb_channels;
    info.nBlockAlign = pContext->block_align;
    info.nBitsPerCodedSample = pContext->bits_per_coded_sample;
  }
  info.nBitrate = static_cast<LONG>(pContext->bit_rate);
  // The decoders know codecs by FFmpeg's codec name ("h264", "aac").
  CBstr bsName{StringView(FromUtf8(avcodec_get_name(pContext->codec_id)))};
  info.bsCodecNameOrTag = bsName;
  m_streamInfo = CKStreamInfo(info);
}

int CFFEncodeSession::Send(const AVFrame& frame, const K_TIME& time, std::vector<ComPtr<IVCPacket>>* pOut) {
  if (!IsOpen()) return AVERROR(EINVAL);
  return m_spContext->codec_type == AVMEDIA_TYPE_VIDEO ? _SendVideo(frame, time, pOut)
                                                      : _SendAudio(frame, time, pOut);
}

int CFFEncodeSession::_SendVideo(const AVFrame& frame, const K_TIME& time, std::vector<ComPtr<IVCPacket>>* pOut) {
  AVCodecContext* pContext = m_spContext.get();
  AvFramePtr spFrame(av_frame_alloc());
  if (!spFrame) return AVERROR(ENOMEM);
  const AVPixelFormat eSwFmt = m_pHwFrames
                                   ? reinterpret_cast<AVHWFramesContext*>(m_pHwFrames->data)->sw_format
                                   : pContext->pix_fmt;
  CVideoTarget target{eSwFmt, pContext->width, pContext->height};
  int nErr = 0;
  if (target.Converts(frame)) {
    nErr = m_videoConverter.Convert(frame, target, spFrame.get());
  } else if (frame.buf[0]) {
    nErr = av_frame_ref(spFrame.get(), &frame);
  } else {
    // A foreign frame's memory: libavcodec copies what it keeps.
    nErr = av_frame_ref(spFrame.get(), &frame);
  }
  if (nErr < 0) return nErr;
  if (m_pHwFrames) {
    AvFramePtr spHw(av_frame_alloc());
    if (!spHw) return AVERROR(ENOMEM);
    nErr = av_hwframe_get_buffer(m_pHwFrames, spHw.get(), 0);
    if (nErr >= 0) nErr = av_hwframe_transfer_data(spHw.get(), spFrame.get(), 0);
    if (nErr < 0) return nErr;
    spFrame = std::move(spHw);
  }
  int64_t llPts = time.rtStartTime == VC_TIME_UNSET ? AV_NOPTS_VALUE
                                                    : av_rescale_q(time.rtStartTime, kRefTimeBase, pContext->time_base);
  // Times off the frame grid, or missing, must still rise: the codec refuses
  // a picture that does not come after the last one.
  if (llPts == AV_NOPTS_VALUE || (m_llLastPts != AV_NOPTS_VALUE && llPts <= m_llLastPts))
    llPts = m_llLastPts == AV_NOPTS_VALUE ? 0 : m_llLastPts + 1;
  m_llLastPts = llPts;
  spFrame->pts = llPts;
  spFrame->pict_type = AV_PICTURE_TYPE_NONE;
  m_mapFrameTimes[llPts] = time;
  return _Encode(spFrame.get(), pOut);
}

int CFFEncodeSession::_SendAudio(const AVFrame& frame, const K_TIME& time, std::vector<ComPtr<IVCPacket>>* pOut) {
  AVCodecContext* pContext = m_spContext.get();
  int nErr = m_audioConverter.Setup(static_cast<AVSampleFormat>(frame.format), frame.ch_layout, frame.sample_rate,
                                    pContext->sample_fmt, pContext->ch_layout, pContext->sample_rate);
  if (nErr < 0) return nErr;
  if (m_llNextSample == AV_NOPTS_VALUE) {
    m_llNextSample = time.rtStartTime == VC_TIME_UNSET
                         ? 0
                         : av_rescale_q(time.rtStartTime, kRefTimeBase, pContext->time_base);
  }
  if (frame.sample_rate == pContext->sample_rate) return _ConvertInto(frame, 0, frame.nb_samples, pOut);
  // A rate change holds samples back and gives out more or fewer than it
  // takes: one block is converted whole, then cut into codec frames.
  const int nMax = m_audioConverter.MaxOutput(frame.nb_samples);
  if (nMax < 0) return nMax;
  nErr = _ResampledBlock(nMax);
  if (nErr < 0) return nErr;
  const int nGot = m_audioConverter.ConvertRaw(frame.extended_data, frame.nb_samples, m_spResampled->extended_data,
                                               nMax);
  if (nGot < 0) return nGot;
  return _CopyInto(*m_spResampled, nGot, pOut);
}

int CFFEncodeSession::_ResampledBlock(int nSamples) {
  if (m_spResampled && m_spResampled->nb_samples >= nSamples) return 0;
  const AVCodecContext* pContext = m_spContext.get();
  AvFramePtr spBlock;
  if (FAILED(AllocAudio(pContext->sample_fmt, pContext->ch_layout.nb_channels, pContext->sample_rate, nSamples,
                        &spBlock)))
    return AVERROR(ENOMEM);
  m_spResampled = std::move(spBlock);
  return 0;
}

namespace {

// Plane pointers of an audio frame advanced to sample nFirst.
void SamplePlanes(const AVFrame& frame, int nFirst, uint8_t** ppOut) {
  const auto eFmt = static_cast<AVSampleFormat>(frame.format);
  const int nChannels = frame.ch_layout.nb_channels;
  const int nBytes = av_get_bytes_per_sample(eFmt);
  if (av_sample_fmt_is_planar(eFmt)) {
    for (int c = 0; c < nChannels && c < AV_NUM_DATA_POINTERS; ++c)
      ppOut[c] = frame.extended_data[c] + static_cast<size_t>(nFirst) * nBytes;
  } else {
    ppOut[0] = frame.extended_data[0] + static_cast<size_t>(nFirst) * nBytes * nChannels;
  }
}

}  // namespace

int CFFEncodeSession::_NewPending(int nSamples) {
  const AVCodecContext* pContext = m_spContext.get();
  AvFramePtr spFrame;
  if (FAILED(AllocAudio(pContext->sample_fmt, pContext->ch_layout.nb_channels, pContext->sample_rate, nSamples,
                        &spFrame)))
    return AVERROR(ENOMEM);
  if (av_channel_layout_copy(&spFrame->ch_layout, &pContext->ch_layout) < 0) return AVERROR(ENOMEM);
  spFrame->pts = m_llNextSample;
  m_spPending = std::move(spFrame);
  m_nPendingFill = 0;
  return 0;
}

int CFFEncodeSession::_SendPending(std::vector<ComPtr<IVCPacket>>* pOut) {
  if (!m_spPending || m_nPendingFill == 0) return 0;
  AvFramePtr spFrame = std::move(m_spPending);
  spFrame->nb_samples = m_nPendingFill;
  m_nPendingFill = 0;
  return _Encode(spFrame.get(), pOut);
}

int CFFEncodeSession::_Fill(int nSamples, const std::function<int(int nFirst, int nChunk)>& put,
                            std::vector<ComPtr<IVCPacket>>* pOut) {
  // Codecs that take any frame size get the block as it came.
  const int nFrameSize = m_spContext->frame_size > 0 ? m_spContext->frame_size : nSamples;
  int nFirst = 0;
  while (nSamples > 0) {
    if (!m_spPending) {
      const int nErr = _NewPending(nFrameSize);
      if (nErr < 0) return nErr;
    }
    const int nChunk = std::min(nSamples, m_spPending->nb_samples - m_nPendingFill);
    const int nGot = put(nFirst, nChunk);
    if (nGot < 0) return nGot;
    m_nPendingFill += nGot;
    m_llNextSample += nGot;
    nFirst += nChunk;
    nSamples -= nChunk;
    if (m_nPendingFill == m_spPending->nb_samples) {
      const int nErr = _SendPending(pOut);
      if (nErr < 0) return nErr;
    }
  }
  return 0;
}

int CFFEncodeSession::_ConvertInto(const AVFrame& src, int nFirst, int nSamples,
                                   std::vector<ComPtr<IVCPacket>>* pOut) {
  return _Fill(
      nSamples,
      [&](int nAt, int nChunk) {
        uint8_t* arrIn[AV_NUM_DATA_POINTERS] = {};
        uint8_t* arrOut[AV_NUM_DATA_POINTERS] = {};
        SamplePlanes(src, nFirst + nAt, arrIn);
        SamplePlanes(*m_spPending, m_nPendingFill, arrOut);
        return m_audioConverter.ConvertRaw(arrIn, nChunk, arrOut, nChunk);
      },
      pOut);
}

int CFFEncodeSession::_CopyInto(const AVFrame& src, int nSamples, std::vector<ComPtr<IVCPacket>>* pOut) {
  const int nChannels = m_spContext->ch_layout.nb_channels;
  return _Fill(
      nSamples,
      [&](int nAt, int nChunk) {
        av_samples_copy(m_spPending->extended_data, src.extended_data, m_nPendingFill, nAt, nChunk, nChannels,
                        m_spContext->sample_fmt);
        return nChunk;
      },
      pOut);
}

K_TIME CFFEncodeSession::_PacketTime(const AVPacket& packet) {
  K_TIME time{};
  const AVCodecContext* pContext = m_spContext.get();
  if (pContext->codec_type == AVMEDIA_TYPE_VIDEO) {
    auto it = m_mapFrameTimes.find(packet.pts);
    if (it != m_mapFrameTimes.end()) {
      time = it->second;
      // Frames reach the codec in order: older entries were either taken or
      // dropped by the codec, and are not kept around.
      m_mapFrameTimes.erase(m_mapFrameTimes.begin(), std::next(it));
      return time;
    }
  }
  time.rtStartTime = ToRefTime(packet.pts, pContext->time_base);
  time.rtEndTime = time.rtStartTime == VC_TIME_UNSET || packet.duration <= 0
                       ? VC_TIME_UNSET
                       : time.rtStartTime + ToRefTime(packet.duration, pContext->time_base);
  return time;
}

int CFFEncodeSession::_Encode(AVFrame* pFrame, std::vector<ComPtr<IVCPacket>>* pOut) {
  AVCodecContext* pContext = m_spContext.get();
  int nErr = avcodec_send_frame(pContext, pFrame);
  if (nErr < 0 && nErr != AVERROR_EOF) return nErr;
  for (;;) {
    nErr = avcodec_receive_packet(pContext, m_spPacket.get());
    if (nErr == AVERROR(EAGAIN) || nErr == AVERROR_EOF) return 0;
    if (nErr < 0) return nErr;
    AVPacket& packet = *m_spPacket;
    K_PACKET_INFO info{};
    int nFlags = eVCPF_None;
    if (packet.flags & AV_PKT_FLAG_KEY) nFlags |= eVCPF_KeyFrame;
    if (packet.flags & AV_PKT_FLAG_DISPOSABLE) nFlags |= eVCPF_AvDisposable;
    info.eFlags = static_cast<eVCPacketFlags>(nFlags);
    info.llPts = packet.pts;
    info.llDts = packet.dts;
    info.llDuration = packet.duration;
    info.llFilePos = -1;
    const K_TIME time = _PacketTime(packet);
    ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = PacketFromAVPacket(m_spPacket.get(), info, m_streamInfo, time, cpPacket.AddressOf());
    if (FAILED(hr)) return AVERROR(ENOMEM);
    pOut->push_back(std::move(cpPacket));
  }
}

int CFFEncodeSession::Drain(std::vector<ComPtr<IVCPacket>>* pOut) {
  if (!IsOpen()) return 0;
  if (m_spContext->codec_type == AVMEDIA_TYPE_AUDIO) {
    // What a rate change still holds, then the last, partial frame.
    if (m_audioConverter.IsSetUp() && m_audioConverter.InRate() != m_spContext->sample_rate) {
      const int nMax = m_audioConverter.MaxOutput(0);
      if (nMax > 0 && _ResampledBlock(nMax) >= 0) {
        const int nGot = m_audioConverter.ConvertRaw(nullptr, 0, m_spResampled->extended_data, nMax);
        if (nGot > 0) {
          const int nErr = _CopyInto(*m_spResampled, nGot, pOut);
          if (nErr < 0) return nErr;
        }
      }
    }
    const int nErr = _SendPending(pOut);
    if (nErr < 0) return nErr;
  }
  return _Encode(nullptr, pOut);
}

}  // namespace vc::ff
