#include "FFMuxerOutput.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "FFCommon.h"
#include "FFDecoderCodecs.h"
#include "VCLog.h"

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
  m_vecTimes.assign(vecStreams.size(), CTimes());
  m_bStarted = true;
  return 0;
}

CFFMuxerOutput::CTimes::CTimes() : llLastDts(AV_NOPTS_VALUE) {
  for (int64_t& llPts : aPts) llPts = AV_NOPTS_VALUE;
}

void CFFMuxerOutput::_RepairTimes(int nStream, AVPacket* pPacket) {
  CTimes& times = m_vecTimes[static_cast<size_t>(nStream)];
  const AVCodecParameters* pPar = m_spFormat->streams[nStream]->codecpar;
  const int64_t llDtsIn = pPacket->dts;
  const char* szWhat = nullptr;
  if (pPacket->dts == AV_NOPTS_VALUE && pPacket->pts != AV_NOPTS_VALUE) {
    if (pPar->codec_type == AVMEDIA_TYPE_VIDEO) {
      // The smallest of the latest presentation times: a packet decodes no
      // later than any of the reordered ones that follow it. Before the
      // first few, the gaps are guessed from the packet's duration.
      times.aPts[0] = pPacket->pts;
      for (int i = 1; i <= kReorderDepth && times.aPts[i] == AV_NOPTS_VALUE; ++i)
        times.aPts[i] = pPacket->pts + (i - kReorderDepth - 1) * std::max<int64_t>(pPacket->duration, 1);
      for (int i = 0; i < kReorderDepth && times.aPts[i] > times.aPts[i + 1]; ++i)
        std::swap(times.aPts[i], times.aPts[i + 1]);
      pPacket->dts = times.aPts[0];
    } else {
      pPacket->dts = pPacket->pts;
    }
  }
  const int64_t llNext = times.llLastDts == AV_NOPTS_VALUE
                             ? AV_NOPTS_VALUE
                             : times.llLastDts + ((m_spFormat->oformat->flags & AVFMT_TS_NONSTRICT) ? 0 : 1);
  if (pPacket->dts != AV_NOPTS_VALUE && pPacket->pts != AV_NOPTS_VALUE && pPacket->dts > pPacket->pts) {
    // Neither can be trusted: take the median of the two and the next
    // allowed decoding time for both.
    const int64_t a = pPacket->pts, b = pPacket->dts, c = llNext == AV_NOPTS_VALUE ? pPacket->pts : llNext;
    pPacket->pts = pPacket->dts = std::max(std::min(a, b), std::min(std::max(a, b), c));
    szWhat = "decoding time after presentation time";
  }
  if (pPacket->dts != AV_NOPTS_VALUE && llNext != AV_NOPTS_VALUE && pPacket->dts < llNext) {
    if (pPacket->pts != AV_NOPTS_VALUE && pPacket->pts >= pPacket->dts) pPacket->pts = std::max(pPacket->pts, llNext);
    pPacket->dts = llNext;
    szWhat = "decoding times that do not increase";
  }
  if (pPacket->dts != AV_NOPTS_VALUE) times.llLastDts = pPacket->dts;
  if (szWhat && !times.bLogged) {
    times.bLogged = true;
    VC_LOG(eVCLL_Info, "MuxerPacketPut(%d): %ws: %hs (dts %lld), repaired to dts %lld pts %lld; later repairs of this "
           "stream are not logged\n", nStream, m_strPath.c_str(), szWhat, static_cast<long long>(llDtsIn),
           static_cast<long long>(pPacket->dts), static_cast<long long>(pPacket->pts));
  }
}

int CFFMuxerOutput::Write(int nStream, AVPacket* pPacket) {
  AVStream* pStream = m_spFormat->streams[nStream];
  av_packet_rescale_ts(pPacket, m_vecTimeBases[static_cast<size_t>(nStream)], pStream->time_base);
  _RepairTimes(nStream, pPacket);
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
