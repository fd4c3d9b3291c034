#include "FFAudioBufferFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
}

#include <algorithm>
#include <memory>

#include "FFAudioBufferFormat.h"
#include "FFCommon.h"
#include "FFConvert.h"
#include "FFPointers.h"
#include "VCLog.h"

namespace vc::ff::abuf {

namespace {

HRESULT Failed(const std::string& strPath, const char* pszWhat, int nErr) {
  VC_LOG(eVCLL_Error, "%s(%s): %s\n", pszWhat, strPath.c_str(), AvErrorText(nErr).c_str());
  return AvErrorToHr(nErr);
}

const char* RawFormatName(LONG nBits) {
  switch (nBits) {
    case 8:
      return "u8";
    case 16:
      return "s16le";
    default:
      return "s32le";
  }
}

// Collects converted samples, skipping the first llOffset and stopping after
// llCount (when positive).
class CCollector {
 public:
  CCollector(int64_t llOffset, int64_t llCount, CDecodedAudio* pOut)
      : m_llSkip(llOffset), m_llLeft(llCount > 0 ? llCount : INT64_MAX), m_pOut(pOut) {}
  bool Full() const { return m_llLeft == 0; }
  void Add(const uint8_t* pb, int64_t n) {
    const size_t cbBlock = BlockAlign(m_pOut->props);
    const int64_t nSkip = std::min(n, m_llSkip);
    m_llSkip -= nSkip;
    const int64_t nTake = std::min(n - nSkip, m_llLeft);
    m_llLeft -= nTake;
    const uint8_t* pbFrom = pb + static_cast<size_t>(nSkip) * cbBlock;
    m_pOut->vecData.insert(m_pOut->vecData.end(), pbFrom, pbFrom + static_cast<size_t>(nTake) * cbBlock);
    m_pOut->nSamples += static_cast<size_t>(nTake);
  }

 private:
  int64_t m_llSkip;
  int64_t m_llLeft;
  CDecodedAudio* m_pOut;
};

}  // namespace

bool IsRawPcmName(StringView fileName) {
  const size_t nDot = fileName.rfind(u'.');
  if (nDot == StringView::npos) return false;
  const StringView ext = fileName.substr(nDot);
  return StrIEquals(ext, u".pcm") || StrIEquals(ext, u".raw");
}

HRESULT DecodeAudioFile(const std::string& strPath, const K_AUD_PROPS* pRawProps, int64_t llOffset, int64_t llCount,
                        CDecodedAudio* pOut) {
  InstallAvLogBridge();
  *pOut = CDecodedAudio{};

  const AVInputFormat* pInputFormat = nullptr;
  AVDictionary* pOptions = nullptr;
  if (pRawProps) {
    pInputFormat = av_find_input_format(RawFormatName(pRawProps->nBitsPerSample));
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, pRawProps->nChannels);
    char szLayout[64] = {};
    av_channel_layout_describe(&layout, szLayout, sizeof szLayout);
    av_channel_layout_uninit(&layout);
    av_dict_set_int(&pOptions, "sample_rate", pRawProps->nSamplesPerSec, 0);
    av_dict_set(&pOptions, "ch_layout", szLayout, 0);
  }
  AvDictionaryPtr spOptions(pOptions);

  AVFormatContext* pFormat = nullptr;
  int nErr = avformat_open_input(&pFormat, strPath.c_str(), pInputFormat, &pOptions);
  spOptions.release();
  spOptions.reset(pOptions);  // what the demuxer did not take
  if (nErr < 0) return Failed(strPath, "avformat_open_input", nErr);
  AvInputPtr spFormat(pFormat);
  if ((nErr = avformat_find_stream_info(pFormat, nullptr)) < 0) return Failed(strPath, "avformat_find_stream_info", nErr);
  const AVCodec* pCodec = nullptr;
  const int nStream = av_find_best_stream(pFormat, AVMEDIA_TYPE_AUDIO, -1, -1, &pCodec, 0);
  if (nStream < 0) return Failed(strPath, "av_find_best_stream", nStream);

  AvCodecContextPtr spCodec(avcodec_alloc_context3(pCodec));
  if (!spCodec) return E_OUTOFMEMORY;
  if ((nErr = avcodec_parameters_to_context(spCodec.get(), pFormat->streams[nStream]->codecpar)) < 0 ||
      (nErr = avcodec_open2(spCodec.get(), pCodec, nullptr)) < 0)
    return Failed(strPath, "avcodec_open2", nErr);

  const int nChannels = spCodec->ch_layout.nb_channels;
  if (nChannels < 1 || nChannels > kMaxChannels || spCodec->sample_rate < 1) {
    VC_LOG(eVCLL_Error, "(%s) %d channel(s) at %d Hz\n", strPath.c_str(), nChannels, spCodec->sample_rate);
    return E_INVALIDARG;
  }
  // More than 16 bits (32-bit integers, floats) stays 32-bit; the rest 16.
  const AVSampleFormat eDecoded = spCodec->sample_fmt;
  const bool bWide = av_get_bytes_per_sample(eDecoded) > 2;
  const AVSampleFormat eOut = bWide ? AV_SAMPLE_FMT_S32 : AV_SAMPLE_FMT_S16;
  pOut->props = K_AUD_PROPS{nChannels, spCodec->sample_rate, bWide ? 32 : 16, 0};

  AvFramePtr spFrame(av_frame_alloc());
  AvPacketPtr spPacket(av_packet_alloc());
  if (!spFrame || !spPacket) return E_OUTOFMEMORY;
  CFFAudioConverter converter;
  std::vector<uint8_t> vecConverted;
  CCollector collector(llOffset, llCount, pOut);

  // Converts one decoded frame; the converter is set up for the first
  // frame, whose layout and format are the ones that count.
  auto convert = [&](const AVFrame* pFrame) -> int {
    if (!converter.IsSetUp()) {
      // The same layout on both sides: the converter only changes the
      // sample format and interleaves.
      const int nRet = converter.Setup(static_cast<AVSampleFormat>(pFrame->format), pFrame->ch_layout,
                                       pFrame->sample_rate, eOut, pFrame->ch_layout, pFrame->sample_rate);
      if (nRet < 0) return nRet;
    }
    const int nMax = converter.MaxOutput(pFrame->nb_samples);
    if (nMax < 0) return nMax;
    vecConverted.resize(static_cast<size_t>(nMax) * BlockAlign(pOut->props));
    uint8_t* pbOut = vecConverted.data();
    const int nGot = converter.ConvertRaw(pFrame->extended_data, pFrame->nb_samples, &pbOut, nMax);
    if (nGot > 0) collector.Add(vecConverted.data(), nGot);
    return nGot < 0 ? nGot : 0;
  };
  auto drain = [&]() -> int {
    int nRet = 0;
    while ((nRet = avcodec_receive_frame(spCodec.get(), spFrame.get())) >= 0) {
      nRet = convert(spFrame.get());
      av_frame_unref(spFrame.get());
      if (nRet < 0) return nRet;
    }
    return nRet == AVERROR(EAGAIN) || nRet == AVERROR_EOF ? 0 : nRet;
  };

  while (!collector.Full()) {
    nErr = av_read_frame(pFormat, spPacket.get());
    if (nErr == AVERROR_EOF) break;
    if (nErr < 0) return Failed(strPath, "av_read_frame", nErr);
    if (spPacket->stream_index == nStream) nErr = avcodec_send_packet(spCodec.get(), spPacket.get());
    av_packet_unref(spPacket.get());
    if (nErr < 0) return Failed(strPath, "avcodec_send_packet", nErr);
    if ((nErr = drain()) < 0) return Failed(strPath, "decoding", nErr);
  }
  if (!collector.Full()) {
    avcodec_send_packet(spCodec.get(), nullptr);
    if ((nErr = drain()) < 0) return Failed(strPath, "decoding", nErr);
  }
  return S_OK;
}

}  // namespace vc::ff::abuf
