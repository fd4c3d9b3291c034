#include "FFDecoderTestSource.h"

#include <algorithm>

#include "FFCommon.h"
#include "FFPacket.h"

namespace vc::fftest {

namespace {

struct CPacketFree {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct CFrameFree {
  void operator()(AVFrame* p) const { av_frame_free(&p); }
};
struct CContextFree {
  void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
};
struct CFormatFree {
  void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
};

// The nNth stream of eType, or -1.
int FindStream(const AVFormatContext& format, AVMediaType eType, int nNth) {
  for (unsigned i = 0; i < format.nb_streams; ++i)
    if (format.streams[i]->codecpar->codec_type == eType && nNth-- == 0) return static_cast<int>(i);
  return -1;
}

AVFormatContext* OpenFormat(const std::string& strPath) {
  AVFormatContext* pFormat = nullptr;
  if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0) return nullptr;
  if (avformat_find_stream_info(pFormat, nullptr) < 0) {
    avformat_close_input(&pFormat);
    return nullptr;
  }
  return pFormat;
}

}  // namespace

CTestPacketSource::CTestPacketSource() = default;
CTestPacketSource::~CTestPacketSource() = default;

bool CTestPacketSource::Open(const std::string& strPath, AVMediaType eType, int nNth) {
  m_spFormat.reset(OpenFormat(strPath));
  if (!m_spFormat) return false;
  m_nStream = FindStream(*m_spFormat, eType, nNth);
  if (m_nStream < 0) return false;
  const AVStream* pStream = m_spFormat->streams[m_nStream];
  const AVCodecParameters* pPar = pStream->codecpar;
  m_bsCodecName = CBstr(std::string_view(avcodec_get_name(pPar->codec_id)));
  m_streamInfo = K_STREAM_INFO{};
  m_streamInfo.eMediaType = eType == AVMEDIA_TYPE_VIDEO ? eVCMT_Video : eVCMT_Audio;
  m_streamInfo.cbCodecData = pPar->extradata_size;
  m_streamInfo.lpCodecData = reinterpret_cast<LONGLONG>(pPar->extradata);
  m_streamInfo.raTimeBase = {pStream->time_base.num, pStream->time_base.den};
  m_streamInfo.nWidth = pPar->width;
  m_streamInfo.nHeight = pPar->height;
  if (pPar->width > 0 && pPar->height > 0) {
    AVRational sar = pPar->sample_aspect_ratio;
    if (sar.num <= 0 || sar.den <= 0) sar = {1, 1};
    int nNum = 0, nDen = 0;
    av_reduce(&nNum, &nDen, static_cast<int64_t>(pPar->width) * sar.num, static_cast<int64_t>(pPar->height) * sar.den,
              1 << 16);
    m_streamInfo.nAspectX = nNum;
    m_streamInfo.nAspectY = nDen;
  }
  const AVRational rate = pStream->avg_frame_rate.num > 0 ? pStream->avg_frame_rate : pStream->r_frame_rate;
  m_streamInfo.dblRate = eType == AVMEDIA_TYPE_VIDEO && rate.den > 0 ? av_q2d(rate) : 0.0;
  m_streamInfo.nSampleRate = pPar->sample_rate;
  m_streamInfo.nChannels = pPar->ch_layout.nb_channels;
  m_streamInfo.nBlockAlign = pPar->block_align;
  m_streamInfo.nBitsPerCodedSample = pPar->bits_per_coded_sample;
  m_streamInfo.nBitrate = static_cast<LONG>(pPar->bit_rate);
  m_streamInfo.bsCodecNameOrTag = m_bsCodecName.Get();
  return true;
}

const AVCodecParameters* CTestPacketSource::CodecParameters() const {
  return m_spFormat && m_nStream >= 0 ? m_spFormat->streams[m_nStream]->codecpar : nullptr;
}

ComPtr<IVCPacket> CTestPacketSource::Next() {
  if (!m_spFormat) return nullptr;
  std::unique_ptr<AVPacket, CPacketFree> spPacket(av_packet_alloc());
  while (spPacket && av_read_frame(m_spFormat.get(), spPacket.get()) >= 0) {
    if (spPacket->stream_index != m_nStream) {
      av_packet_unref(spPacket.get());
      continue;
    }
    const AVRational tb = m_spFormat->streams[m_nStream]->time_base;
    K_PACKET_INFO info{};
    // The flags a splitter passes on: a packet FFmpeg marks for discarding
    // (before an edit list's start) must not give a frame.
    int nFlags = eVCPF_None;
    if (spPacket->flags & AV_PKT_FLAG_KEY) nFlags |= eVCPF_KeyFrame;
    if (spPacket->flags & AV_PKT_FLAG_CORRUPT) nFlags |= eVCPF_AvCorrupt;
    if (spPacket->flags & AV_PKT_FLAG_DISCARD) nFlags |= eVCPF_AvDiscard;
    if (spPacket->flags & AV_PKT_FLAG_DISPOSABLE) nFlags |= eVCPF_AvDisposable;
    info.eFlags = static_cast<eVCPacketFlags>(nFlags);
    info.llDts = spPacket->dts;
    info.llPts = spPacket->pts;
    info.llDuration = spPacket->duration;
    info.nStreamIndex = m_nStream;
    info.llFilePos = spPacket->pos;
    K_TIME time{};
    const int64_t llStart = spPacket->pts != AV_NOPTS_VALUE ? spPacket->pts : spPacket->dts;
    time.rtStartTime = ff::ToRefTime(llStart, tb);
    time.rtEndTime = time.rtStartTime == VC_TIME_UNSET ? VC_TIME_UNSET
                                                        : time.rtStartTime + ff::ToRefTime(spPacket->duration, tb);
    ComPtr<IVCPacket> cpPacket;
    if (FAILED(ff::PacketFromAVPacket(spPacket.get(), info, &m_streamInfo, time, cpPacket.AddressOf()))) return nullptr;
    return cpPacket;
  }
  return nullptr;
}

std::vector<ComPtr<IVCPacket>> CTestPacketSource::ReadAll() {
  std::vector<ComPtr<IVCPacket>> vecPackets;
  while (ComPtr<IVCPacket> cpPacket = Next()) vecPackets.push_back(std::move(cpPacket));
  return vecPackets;
}

CReferenceDecode DecodeWithPlainLoop(const std::string& strPath, AVMediaType eType, int nNth) {
  CReferenceDecode result;
  std::unique_ptr<AVFormatContext, CFormatFree> spFormat(OpenFormat(strPath));
  if (!spFormat) return result;
  const int nStream = FindStream(*spFormat, eType, nNth);
  if (nStream < 0) return result;
  const AVStream* pStream = spFormat->streams[nStream];
  const AVCodec* pCodec = avcodec_find_decoder(pStream->codecpar->codec_id);
  std::unique_ptr<AVCodecContext, CContextFree> spContext(avcodec_alloc_context3(pCodec));
  if (!pCodec || !spContext || avcodec_parameters_to_context(spContext.get(), pStream->codecpar) < 0) return result;
  spContext->pkt_timebase = pStream->time_base;
  if (avcodec_open2(spContext.get(), pCodec, nullptr) < 0) return result;
  result.bOpened = true;
  result.llTickRefTime = std::max<int64_t>(1, ff::ToRefTime(1, pStream->time_base));

  std::unique_ptr<AVPacket, CPacketFree> spPacket(av_packet_alloc());
  std::unique_ptr<AVFrame, CFrameFree> spFrame(av_frame_alloc());
  auto receive = [&] {
    while (avcodec_receive_frame(spContext.get(), spFrame.get()) >= 0) {
      ++result.nFrames;
      result.llSamples += spFrame->nb_samples;
      result.vecStartTimes.push_back(ff::ToRefTime(spFrame->best_effort_timestamp, pStream->time_base));
      av_frame_unref(spFrame.get());
    }
  };
  while (av_read_frame(spFormat.get(), spPacket.get()) >= 0) {
    if (spPacket->stream_index == nStream) {
      // Side data does not travel through our packets; the yardstick gets
      // none either.
      av_packet_free_side_data(spPacket.get());
      if (avcodec_send_packet(spContext.get(), spPacket.get()) == AVERROR(EAGAIN)) {
        receive();
        avcodec_send_packet(spContext.get(), spPacket.get());
      }
      receive();
    }
    av_packet_unref(spPacket.get());
  }
  avcodec_send_packet(spContext.get(), nullptr);
  receive();
  return result;
}

CDecoderRun RunDecoder(IVCDecoder* pDecoder, const std::vector<ComPtr<IVCPacket>>& vecPackets, K_AV_PROPS* pWanted,
                       int nMaxDrain) {
  CDecoderRun run;
  for (const ComPtr<IVCPacket>& cpPacket : vecPackets) {
    ComPtr<IVCFrame> cpFrame;
    const HRESULT hr = pDecoder->DecodePacket(cpPacket.Get(), -1, pWanted, cpFrame.AddressOf(), nullptr);
    if (FAILED(hr)) ++run.nPacketFailures;
    if (hr == S_OK && cpFrame) run.vecFrames.push_back(std::move(cpFrame));
  }
  run.nFramesBeforeDrain = run.vecFrames.size();
  for (int i = 0; i < nMaxDrain; ++i) {
    ComPtr<IVCFrame> cpFrame;
    run.hrEnd = pDecoder->DecodePacket(nullptr, -1, pWanted, cpFrame.AddressOf(), nullptr);
    if (run.hrEnd != S_OK || !cpFrame) break;
    run.vecFrames.push_back(std::move(cpFrame));
  }
  return run;
}

K_TIME FrameTime(IVCFrame* pFrame) {
  K_TIME time{};
  if (!pFrame || FAILED(pFrame->VCTimeGet(&time))) return K_TIME{};
  return time;
}

K_AV_PROPS FrameProps(IVCFrame* pFrame, LONG* plAudioSamples) {
  K_AV_PROPS props{};
  LONG lSamples = 0;
  if (!pFrame || FAILED(pFrame->VCAVPropsGet(&props, &lSamples))) props = K_AV_PROPS{}, lSamples = 0;
  if (plAudioSamples) *plAudioSamples = lSamples;
  return props;
}

std::string PropText(IUnknown* pObject, const char* szName) {
  ComPtr<IVCProps> cpProps;
  if (!pObject || FAILED(pObject->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))))
    return {};
  CBstr bsName{std::string_view(szName)};
  CBstr bsValue;
  if (cpProps->PropsGet(bsName, &bsValue) != S_OK) return {};
  return bsValue.Utf8();
}

bool SetProp(IUnknown* pObject, const char* szName, const char* szValue) {
  ComPtr<IVCProps> cpProps;
  if (!pObject || FAILED(pObject->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))))
    return false;
  CBstr bsName{std::string_view(szName)};
  CBstr bsValue{std::string_view(szValue)};
  return SUCCEEDED(cpProps->PropsSet(bsName, bsValue));
}

bool DevicePresent(AVHWDeviceType eType) {
  AVBufferRef* pDevice = nullptr;
  const int nErr = av_hwdevice_ctx_create(&pDevice, eType, nullptr, nullptr, 0);
  av_buffer_unref(&pDevice);
  return nErr >= 0;
}

}  // namespace vc::fftest
