#include "FFDecoderCodecs.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <cmath>
#include <cstring>

namespace vc::ff {

namespace {

std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

// Names that hosts and other splitters use for codecs FFmpeg calls otherwise.
AVCodecID AliasToId(const std::string& lower) {
  struct CAlias {
    const char* szName;
    AVCodecID id;
  };
  static constexpr CAlias kAliases[] = {
      {"h265", AV_CODEC_ID_HEVC},         {"avc", AV_CODEC_ID_H264},         {"x264", AV_CODEC_ID_H264},
      {"mpeg2", AV_CODEC_ID_MPEG2VIDEO},  {"mpeg1", AV_CODEC_ID_MPEG1VIDEO}, {"m2v", AV_CODEC_ID_MPEG2VIDEO},
      {"mp4v", AV_CODEC_ID_MPEG4},        {"xvid", AV_CODEC_ID_MPEG4},       {"ac-3", AV_CODEC_ID_AC3},
      {"e-ac-3", AV_CODEC_ID_EAC3},       {"mpeg4aac", AV_CODEC_ID_AAC},     {"mpga", AV_CODEC_ID_MP2},
      {"mpeg2audio", AV_CODEC_ID_MP2},    {"mpeg1audio", AV_CODEC_ID_MP2},   {"prores", AV_CODEC_ID_PRORES},
  };
  for (const CAlias& alias : kAliases)
    if (lower == alias.szName) return alias.id;
  return AV_CODEC_ID_NONE;
}

AVCodecID FourccToId(std::string_view tag, eVCMediaType eType) {
  if (tag.empty() || tag.size() > 4) return AV_CODEC_ID_NONE;
  // Tags shorter than four characters are padded with blanks, as in files.
  char sz[4] = {' ', ' ', ' ', ' '};
  std::memcpy(sz, tag.data(), tag.size());
  const unsigned int nTag = MKTAG(sz[0], sz[1], sz[2], sz[3]);
  const AVCodecTag* const videoTags[] = {avformat_get_riff_video_tags(), avformat_get_mov_video_tags(), nullptr};
  const AVCodecTag* const audioTags[] = {avformat_get_riff_audio_tags(), avformat_get_mov_audio_tags(), nullptr};
  const bool bAudioFirst = eType == eVCMT_Audio;
  AVCodecID id = av_codec_get_id(bAudioFirst ? audioTags : videoTags, nTag);
  if (id == AV_CODEC_ID_NONE) id = av_codec_get_id(bAudioFirst ? videoTags : audioTags, nTag);
  return id;
}

AVCodecID WaveTagToId(const std::string& lower) {
  if (lower.empty() || lower.size() > 10) return AV_CODEC_ID_NONE;
  unsigned long nTag = 0;
  char* pEnd = nullptr;
  const bool bHex = lower.size() > 2 && lower[0] == '0' && lower[1] == 'x';
  for (char c : bHex ? lower.substr(2) : lower)
    if (!(c >= '0' && c <= '9') && !(bHex && c >= 'a' && c <= 'f')) return AV_CODEC_ID_NONE;
  nTag = std::strtoul(lower.c_str(), &pEnd, bHex ? 16 : 10);
  if (nTag == 0 || nTag > 0xFFFF) return AV_CODEC_ID_NONE;
  const AVCodecTag* const audioTags[] = {avformat_get_riff_audio_tags(), nullptr};
  return av_codec_get_id(audioTags, static_cast<unsigned int>(nTag));
}

// A decoder that cannot work on the CPU alone: the hardware wrappers, and
// FFmpeg's own AV1 decoder, which decodes only through a hardware
// accelerator (libdav1d or libaom decode AV1 in software).
bool IsHardwareDecoder(const AVCodec* pCodec) {
  if (pCodec->id == AV_CODEC_ID_AV1 && std::string_view(pCodec->name) == "av1") return true;
  return (pCodec->capabilities & (AV_CODEC_CAP_HARDWARE | AV_CODEC_CAP_HYBRID)) != 0;
}

// H.264 sequence parameter set: profile_idc, constraint flags, level_idc.
bool ReadSps(const uint8_t* p, int cb, int* pnProfile, int* pnLevel) {
  if (cb < 4 || (p[0] & 0x1F) != 7) return false;
  const int nProfileIdc = p[1];
  const int nConstraints = p[2];
  int nProfile = nProfileIdc;
  // FFmpeg folds the constraint flags into the profile number.
  if (nProfileIdc == 66 && (nConstraints & 0x40)) nProfile |= FF_PROFILE_H264_CONSTRAINED;
  if ((nProfileIdc == 110 || nProfileIdc == 122 || nProfileIdc == 244) && (nConstraints & 0x10))
    nProfile |= FF_PROFILE_H264_INTRA;
  *pnProfile = nProfile;
  *pnLevel = p[3];
  return true;
}

}  // namespace

AVCodecID CodecIdFromNameOrTag(std::string_view nameOrTag, eVCMediaType eType) {
  while (!nameOrTag.empty() && nameOrTag.back() == ' ') nameOrTag.remove_suffix(1);
  if (nameOrTag.empty()) return AV_CODEC_ID_NONE;
  const std::string exact(nameOrTag);
  if (const AVCodec* pCodec = avcodec_find_decoder_by_name(exact.c_str())) return pCodec->id;
  const std::string lower = Lower(nameOrTag);
  if (const AVCodecDescriptor* pDesc = avcodec_descriptor_get_by_name(lower.c_str())) return pDesc->id;
  if (const AVCodec* pCodec = avcodec_find_decoder_by_name(lower.c_str())) return pCodec->id;
  AVCodecID id = AliasToId(lower);
  if (id == AV_CODEC_ID_NONE) id = FourccToId(nameOrTag, eType);
  if (id == AV_CODEC_ID_NONE && eType == eVCMT_Audio) id = WaveTagToId(lower);
  return id;
}

const AVCodec* FindSoftwareDecoder(std::string_view nameOrTag, AVCodecID id) {
  if (id == AV_CODEC_ID_NONE) return nullptr;
  const std::string exact(nameOrTag);
  const AVCodec* pNamed = avcodec_find_decoder_by_name(exact.c_str());
  if (pNamed && pNamed->id == id && !IsHardwareDecoder(pNamed)) return pNamed;
  // FFmpeg's default for an id can be a hardware wrapper only where no
  // software decoder exists; walk the list for a software one then.
  const AVCodec* pDefault = avcodec_find_decoder(id);
  if (pDefault && !IsHardwareDecoder(pDefault)) return pDefault;
  void* pIter = nullptr;
  while (const AVCodec* pCodec = av_codec_iterate(&pIter))
    if (av_codec_is_decoder(pCodec) && pCodec->id == id && !IsHardwareDecoder(pCodec)) return pCodec;
  return nullptr;
}

int FillCodecContext(const K_STREAM_INFO& info, AVCodecContext* pContext) {
  pContext->pkt_timebase = AVRational{1, static_cast<int>(VC_TIME_SECOND)};
  if (info.eMediaType == eVCMT_Video) {
    pContext->codec_type = AVMEDIA_TYPE_VIDEO;
    pContext->width = info.nWidth > 0 ? info.nWidth : 0;
    pContext->height = info.nHeight > 0 ? info.nHeight : 0;
    if (std::isfinite(info.dblRate) && info.dblRate > 0) pContext->framerate = av_d2q(info.dblRate, 1000000);
    // The description carries the display aspect; the codec wants the
    // sample aspect: DAR * height / width.
    if (info.nAspectX > 0 && info.nAspectY > 0 && info.nWidth > 0 && info.nHeight > 0)
      av_reduce(&pContext->sample_aspect_ratio.num, &pContext->sample_aspect_ratio.den,
                static_cast<int64_t>(info.nAspectX) * info.nHeight, static_cast<int64_t>(info.nAspectY) * info.nWidth,
                1 << 30);
  } else if (info.eMediaType == eVCMT_Audio) {
    pContext->codec_type = AVMEDIA_TYPE_AUDIO;
    pContext->sample_rate = info.nSampleRate > 0 ? info.nSampleRate : 0;
    if (info.nChannels > 0) av_channel_layout_default(&pContext->ch_layout, info.nChannels);
    pContext->block_align = info.nBlockAlign > 0 ? info.nBlockAlign : 0;
  } else if (info.eMediaType == eVCMT_Subtitles) {
    pContext->codec_type = AVMEDIA_TYPE_SUBTITLE;
  }
  pContext->bits_per_coded_sample = info.nBitsPerCodedSample > 0 ? info.nBitsPerCodedSample : 0;
  pContext->bit_rate = info.nBitrate > 0 ? info.nBitrate : 0;
  if (info.cbCodecData > 0 && info.lpCodecData) {
    av_freep(&pContext->extradata);
    pContext->extradata_size = 0;
    // FFmpeg's parsers may read past the end of the codec data: pad it.
    auto* pExtra = static_cast<uint8_t*>(av_mallocz(static_cast<size_t>(info.cbCodecData) + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!pExtra) return AVERROR(ENOMEM);
    std::memcpy(pExtra, reinterpret_cast<const void*>(info.lpCodecData), static_cast<size_t>(info.cbCodecData));
    pContext->extradata = pExtra;
    pContext->extradata_size = info.cbCodecData;
  }
  return 0;
}

namespace {

bool ProbeH264(const uint8_t* pData, int cbData, int* pnProfile, int* pnLevel) {
  if (cbData < 4) return false;
  if (pData[0] == 1 && cbData >= 8) {
    // avcC: version, profile, compatibility, level, length size, SPS count,
    // then each SPS with a 16-bit length.
    const int nSps = pData[5] & 0x1F;
    if (nSps == 0) return false;
    const int cbSps = (pData[6] << 8) | pData[7];
    if (cbSps > cbData - 8) return false;
    return ReadSps(pData + 8, cbSps, pnProfile, pnLevel);
  }
  // Annex B: look for a start code followed by an SPS unit.
  for (int i = 0; i + 3 < cbData; ++i) {
    if (pData[i] == 0 && pData[i + 1] == 0 && pData[i + 2] == 1) {
      if (ReadSps(pData + i + 3, cbData - i - 3, pnProfile, pnLevel)) return true;
      i += 2;
    }
  }
  return false;
}

}  // namespace

bool ProbeProfileLevel(AVCodecID id, const uint8_t* pData, int cbData, int* pnProfile, int* pnLevel) {
  if (!pData || cbData <= 0) return false;
  if (id == AV_CODEC_ID_H264) return ProbeH264(pData, cbData, pnProfile, pnLevel);
  if (id == AV_CODEC_ID_AAC && cbData >= 1) {
    // AudioSpecificConfig: a 5-bit object type, 31 escaping to 32 + 6 bits.
    // FFmpeg's AAC profiles are the object type minus one.
    int nObjectType = pData[0] >> 3;
    if (nObjectType == 31) {
      if (cbData < 2) return false;
      nObjectType = 32 + (((pData[0] & 0x07) << 3) | (pData[1] >> 5));
    }
    if (nObjectType == 0) return false;
    *pnProfile = nObjectType - 1;
    return true;
  }
  return false;
}

std::string CodecName(AVCodecID id) { return avcodec_get_name(id); }

}  // namespace vc::ff
