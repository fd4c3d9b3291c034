#include "FFMuxerOutput.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

#include <cstring>
#include <filesystem>
#include <system_error>

#include "FFCommon.h"
#include "FFDecoderCodecs.h"

namespace vc::ff {

namespace {

AVMediaType AvMediaTypeOf(eVCMediaType eType) {
  switch (eType) {
    case eVCMT_Video:
      return AVMEDIA_TYPE_VIDEO;
    case eVCMT_Audio:
      return AVMEDIA_TYPE_AUDIO;
    case eVCMT_Subtitles:
      return AVMEDIA_TYPE_SUBTITLE;
    case eVCMT_Data:
      return AVMEDIA_TYPE_DATA;
    default:
      return AVMEDIA_TYPE_UNKNOWN;
  }
}

std::string Extension(const std::string& strPath) {
  const size_t nDot = strPath.find_last_of('.');
  const size_t nSlash = strPath.find_last_of("/\\");
  if (nDot == std::string::npos || (nSlash != std::string::npos && nSlash > nDot)) return {};
  return strPath.substr(nDot + 1);
}

}  // namespace

const AVOutputFormat* FindOutputFormat(const std::string& strFormat, const std::string& strPath) {
  if (!strFormat.empty()) {
    if (const AVOutputFormat* pFormat = av_guess_format(strFormat.c_str(), nullptr, nullptr)) return pFormat;
    // Not a muxer name: the common short names ("mkv", "ts") are extensions.
    return av_guess_format(nullptr, ("x." + strFormat).c_str(), nullptr);
  }
  if (Extension(strPath).empty()) return nullptr;
  return av_guess_format(nullptr, strPath.c_str(), nullptr);
}

int FillCodecParameters(const K_STREAM_INFO& info, AVCodecParameters* pPar) {
  const std::string strCodec = ToUtf8(InString(info.bsCodecNameOrTag));
  const AVCodecID eCodec = CodecIdFromNameOrTag(strCodec, info.eMediaType);
  if (eCodec == AV_CODEC_ID_NONE) return AVERROR(EINVAL);
  pPar->codec_type = AvMediaTypeOf(info.eMediaType);
  pPar->codec_id = eCodec;
  pPar->codec_tag = 0;  // each container picks its own
  if (info.eMediaType == eVCMT_Video) {
    pPar->width = info.nWidth;
    pPar->height = info.nHeight;
    // The description carries the display aspect; containers want the
    // sample aspect.
    if (info.nAspectX > 0 && info.nAspectY > 0 && info.nWidth > 0 && info.nHeight > 0)
      av_reduce(&pPar->sample_aspect_ratio.num, &pPar->sample_aspect_ratio.den,
                static_cast<int64_t>(info.nAspectX) * info.nHeight, static_cast<int64_t>(info.nAspectY) * info.nWidth,
                1 << 20);
  }
  if (info.eMediaType == eVCMT_Audio) {
    pPar->sample_rate = info.nSampleRate;
    if (info.nChannels > 0) av_channel_layout_default(&pPar->ch_layout, info.nChannels);
    pPar->block_align = info.nBlockAlign;
  }
  pPar->bits_per_coded_sample = info.nBitsPerCodedSample;
  pPar->bit_rate = info.nBitrate;
  if (info.cbCodecData > 0 && info.lpCodecData) {
    pPar->extradata = static_cast<uint8_t*>(av_mallocz(static_cast<size_t>(info.cbCodecData) +
                                                       AV_INPUT_BUFFER_PADDING_SIZE));
    if (!pPar->extradata) return AVERROR(ENOMEM);
    std::memcpy(pPar->extradata, reinterpret_cast<const void*>(static_cast<uintptr_t>(info.lpCodecData)),
                static_cast<size_t>(info.cbCodecData));
    pPar->extradata_size = info.cbCodecData;
  }
  return 0;
}

int CFFMuxerOutput::Open(const AVOutputFormat* pFormat, const String& strPath, const char** pszStep) {
  const std::string strUtf8 = ToUtf8(strPath);
  AVFormatContext* pContext = nullptr;
  *pszStep = "avformat_alloc_output_context2";
  int nRet = avformat_alloc_output_context2(&pContext, pFormat, nullptr, strUtf8.c_str());
  if (nRet < 0) return nRet;
  AvOutputPtr spFormat(pContext);
  if (!(pFormat->flags & AVFMT_NOFILE)) {
    *pszStep = "avio_open";
    nRet = avio_open(&pContext->pb, strUtf8.c_str(), AVIO_FLAG_WRITE);
    if (nRet < 0) return nRet;
  }
  m_spFormat = std::move(spFormat);
  m_strPath = strPath;
  m_bStarted = false;
  return 0;
}

int CFFMuxerOutput::Start(const std::vector<CKStreamInfo>& vecStreams, const std::vector<AVRational>& vecTimeBases,
                          const CFFTags& containerTags, const std::vector<CFFTags>& vecStreamTags,
                          const char** pszStep) {
  AVFormatContext* pContext = m_spFormat.get();
  const auto setTags = [](const CFFTags& tags, AVDictionary** ppDict) {
    for (const auto& [key, value] : tags)
      if (av_dict_set(ppDict, ToUtf8(key).c_str(), ToUtf8(value).c_str(), 0) < 0) return AVERROR(ENOMEM);
    return 0;
  };
  *pszStep = "av_dict_set";
  if (const int nRet = setTags(containerTags, &pContext->metadata); nRet < 0) return nRet;
  *pszStep = "avformat_new_stream";
  for (const CKStreamInfo& info : vecStreams) {
    AVStream* pStream = avformat_new_stream(pContext, nullptr);
    if (!pStream) return AVERROR(ENOMEM);
    *pszStep = "avformat_new_stream";
    const int nRet = FillCodecParameters(info, pStream->codecpar);
    if (nRet < 0) return nRet;
    const size_t nIndex = static_cast<size_t>(pStream->index);
    if (nIndex < vecStreamTags.size())
      if (const int nTags = setTags(vecStreamTags[nIndex], &pStream->metadata); nTags < 0) return nTags;
    const AVRational tb = vecTimeBases[nIndex];
    pStream->time_base = tb;  // a wish: the muxer may choose another in the header
    if (info.dblRate > 0) {
      pStream->avg_frame_rate = av_d2q(info.dblRate, 1 << 20);
      pStream->r_frame_rate = pStream->avg_frame_rate;
    }
  }
  *pszStep = "avformat_write_header";
  const int nRet = avformat_write_header(pContext, nullptr);
  if (nRet < 0) return nRet;
  m_vecTimeBases = vecTimeBases;
  m_bStarted = true;
  return 0;
}

int CFFMuxerOutput::Write(int nStream, AVPacket* pPacket) {
  AVStream* pStream = m_spFormat->streams[nStream];
  av_packet_rescale_ts(pPacket, m_vecTimeBases[static_cast<size_t>(nStream)], pStream->time_base);
  pPacket->stream_index = nStream;
  pPacket->pos = -1;
  return av_interleaved_write_frame(m_spFormat.get(), pPacket);
}

int CFFMuxerOutput::Finish() {
  if (!m_spFormat) return 0;
  int nRet = 0;
  if (m_bStarted) {
    nRet = av_interleaved_write_frame(m_spFormat.get(), nullptr);
    const int nTrailer = av_write_trailer(m_spFormat.get());
    if (nRet >= 0) nRet = nTrailer;
  }
  if (m_spFormat->pb && !(m_spFormat->oformat->flags & AVFMT_NOFILE)) {
    const int nClose = avio_closep(&m_spFormat->pb);
    if (nRet >= 0 && nClose < 0) nRet = nClose;
  }
  m_spFormat.reset();
  m_bStarted = false;
  return nRet;
}

void CFFMuxerOutput::Discard() {
  if (!m_spFormat) return;
  m_spFormat.reset();
  m_bStarted = false;
  std::error_code ec;
  std::filesystem::remove(std::filesystem::path(ToUtf8(m_strPath)), ec);
}

}  // namespace vc::ff
