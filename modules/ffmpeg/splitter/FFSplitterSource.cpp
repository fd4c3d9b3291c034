#include "FFSplitterSource.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <climits>

#include "FFCommon.h"
#include "KPropsRead.h"
#include "VCFormat.h"
#include "XMLEntities.h"

namespace vc::ff {

namespace {

// --- Small text helpers -----------------------------------------------------

// Appends the start of an element and its attributes; values are encoded
// for attributes, so any tag text a file carries stays well-formed.
class CXmlWriter {
 public:
  explicit CXmlWriter(String& out) : m_out(out) {}

  void Open(const char* szTag) {
    m_out += u'<';
    XMLParse::AppendAscii(m_out, szTag);
  }
  void Attr(const char* szName, StringView value) {
    m_out += u' ';
    XMLParse::AppendAscii(m_out, szName);
    m_out += u"=\"";
    XMLParse::AppendEncoded(m_out, value, XMLParse::eXVC_Attribute, false);
    m_out += u'"';
  }
  void Attr(const char* szName, const char* szUtf8) {
    if (szUtf8 && *szUtf8) Attr(szName, StringView(FromUtf8(szUtf8)));
  }
  void Attr(const char* szName, const std::string& strUtf8) { Attr(szName, strUtf8.c_str()); }
  void AttrInt(const char* szName, int64_t llValue) { Attr(szName, Format("%lld", static_cast<long long>(llValue))); }
  void AttrSeconds(const char* szName, int64_t llTime, AVRational tb) {
    if (llTime == AV_NOPTS_VALUE || tb.num <= 0 || tb.den <= 0) return;
    Attr(szName, Format("%.6f", static_cast<double>(llTime) * av_q2d(tb)));
  }
  void EndEmpty() { m_out += u"/>"; }
  void EndStart() { m_out += u'>'; }
  void Close(const char* szTag) {
    m_out += u"</";
    XMLParse::AppendAscii(m_out, szTag);
    m_out += u'>';
  }

 private:
  String& m_out;
};

CFFTags TagsOf(const AVDictionary* pDict) {
  CFFTags tags;
  const AVDictionaryEntry* pEntry = nullptr;
  while ((pEntry = av_dict_get(pDict, "", pEntry, AV_DICT_IGNORE_SUFFIX)) != nullptr)
    tags.emplace_back(FromUtf8(pEntry->key), FromUtf8(pEntry->value ? pEntry->value : ""));
  return tags;
}

// <tags><tag name=".." value=".."/>...</tags>; nothing when there are none.
void AppendTags(String& out, const CFFTags& tags) {
  if (tags.empty()) return;
  CXmlWriter xml(out);
  xml.Open("tags");
  xml.EndStart();
  for (const auto& [key, value] : tags) {
    xml.Open("tag");
    xml.Attr("name", StringView(key));
    xml.Attr("value", StringView(value));
    xml.EndEmpty();
  }
  xml.Close("tags");
}

eVCMediaType MediaTypeOf(AVMediaType eType) {
  switch (eType) {
    case AVMEDIA_TYPE_VIDEO:
      return eVCMT_Video;
    case AVMEDIA_TYPE_AUDIO:
      return eVCMT_Audio;
    case AVMEDIA_TYPE_SUBTITLE:
      return eVCMT_Subtitles;
    case AVMEDIA_TYPE_DATA:
      return eVCMT_Data;
    default:
      return eVCMT_Empty;
  }
}

LONG ClampToLong(int64_t llValue) {
  return static_cast<LONG>(std::clamp<int64_t>(llValue, INT32_MIN, INT32_MAX));
}

AVRational SampleAspect(const AVStream* pStream) {
  AVRational sar = pStream->sample_aspect_ratio;
  if (sar.num <= 0 || sar.den <= 0) sar = pStream->codecpar->sample_aspect_ratio;
  if (sar.num <= 0 || sar.den <= 0) sar = AVRational{1, 1};
  return sar;
}

AVRational FrameRate(const AVStream* pStream) {
  AVRational rate = pStream->avg_frame_rate;
  if (rate.num <= 0 || rate.den <= 0) rate = pStream->r_frame_rate;
  if (rate.num <= 0 || rate.den <= 0) rate = AVRational{0, 1};
  return rate;
}

// The codec's name, or its tag as text when FFmpeg does not know the codec.
std::string CodecNameOrTag(const AVCodecParameters* pPar) {
  if (pPar->codec_id != AV_CODEC_ID_NONE) return avcodec_get_name(pPar->codec_id);
  if (pPar->codec_tag == 0) return "none";
  char szTag[AV_FOURCC_MAX_STRING_SIZE] = {};
  return av_fourcc_make_string(szTag, pPar->codec_tag);
}

void FillStreamInfo(const AVStream* pStream, CFFStreamDesc* pDesc) {
  const AVCodecParameters* pPar = pStream->codecpar;
  K_STREAM_INFO& info = pDesc->info;
  info.eMediaType = MediaTypeOf(pPar->codec_type);
  if (pPar->extradata && pPar->extradata_size > 0)
    pDesc->vecCodecData.assign(pPar->extradata, pPar->extradata + pPar->extradata_size);
  info.cbCodecData = static_cast<LONG>(pDesc->vecCodecData.size());
  info.raTimeBase = K_RATIONAL{pStream->time_base.num, pStream->time_base.den};
  if (pPar->codec_type == AVMEDIA_TYPE_VIDEO) {
    info.nWidth = pPar->width;
    info.nHeight = pPar->height;
    if (pPar->width > 0 && pPar->height > 0) {
      const AVRational sar = SampleAspect(pStream);
      int nNum = 0, nDen = 0;
      av_reduce(&nNum, &nDen, static_cast<int64_t>(pPar->width) * sar.num,
                static_cast<int64_t>(pPar->height) * sar.den, 1 << 20);
      info.nAspectX = nNum;
      info.nAspectY = nDen;
    }
    info.dblRate = av_q2d(FrameRate(pStream));
  }
  if (pPar->codec_type == AVMEDIA_TYPE_AUDIO) {
    info.nSampleRate = pPar->sample_rate;
    info.nChannels = pPar->ch_layout.nb_channels;
    info.nBlockAlign = pPar->block_align;
  }
  info.nBitsPerCodedSample = pPar->bits_per_coded_sample;
  info.nBitrate = ClampToLong(pPar->bit_rate);
  pDesc->bsCodecName = CBstr(std::string_view(CodecNameOrTag(pPar)));
  if (!pDesc->bsCodecName.Get()) throw std::bad_alloc();
  pDesc->bAttachedPicture = (pStream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

std::string Disposition(int nDisposition) {
  std::string strOut;
  for (int nBit = 0; nBit < 32; ++nBit) {
    if (!(nDisposition & (1 << nBit))) continue;
    const char* szName = av_disposition_to_string(1 << nBit);
    if (!szName) continue;
    if (!strOut.empty()) strOut += ' ';
    strOut += szName;
  }
  return strOut;
}

void AppendStreamXml(const AVStream* pStream, const CFFStreamDesc& desc, String& out) {
  const AVCodecParameters* pPar = pStream->codecpar;
  CXmlWriter xml(out);
  xml.Open("stream");
  xml.AttrInt("index", pStream->index);
  if (pStream->id != 0) xml.Attr("id", Format("0x%X", pStream->id));
  xml.Attr("type", MediaTypeName(desc.info.eMediaType));
  xml.Attr("codec", CodecNameOrTag(pPar));
  if (const AVCodecDescriptor* pCodec = avcodec_descriptor_get(pPar->codec_id)) xml.Attr("codec_long", pCodec->long_name);
  xml.Attr("profile", avcodec_profile_name(pPar->codec_id, pPar->profile));
  if (pPar->codec_tag != 0) {
    char szTag[AV_FOURCC_MAX_STRING_SIZE] = {};
    xml.Attr("tag", av_fourcc_make_string(szTag, pPar->codec_tag));
  }
  xml.Attr("time_base", Format("%d/%d", pStream->time_base.num, pStream->time_base.den));
  xml.AttrSeconds("start_time", pStream->start_time, pStream->time_base);
  xml.AttrSeconds("duration", pStream->duration, pStream->time_base);
  if (pStream->nb_frames > 0) xml.AttrInt("frames", pStream->nb_frames);
  if (pPar->bit_rate > 0) xml.AttrInt("bitrate", pPar->bit_rate);
  if (!desc.vecCodecData.empty()) xml.AttrInt("codec_data_size", static_cast<int64_t>(desc.vecCodecData.size()));
  if (pPar->codec_type == AVMEDIA_TYPE_VIDEO) {
    xml.AttrInt("width", pPar->width);
    xml.AttrInt("height", pPar->height);
    xml.Attr("pix_fmt", av_get_pix_fmt_name(static_cast<AVPixelFormat>(pPar->format)));
    const AVRational sar = SampleAspect(pStream);
    xml.Attr("sar", Format("%d:%d", sar.num, sar.den));
    if (desc.info.nAspectY > 0) xml.Attr("dar", Format("%d:%d", desc.info.nAspectX, desc.info.nAspectY));
    const AVRational rate = FrameRate(pStream);
    if (rate.num > 0) xml.Attr("frame_rate", Format("%d/%d", rate.num, rate.den));
    xml.Attr("field_order", pPar->field_order == AV_FIELD_PROGRESSIVE ? "progressive"
                            : pPar->field_order == AV_FIELD_UNKNOWN   ? ""
                                                                      : "interlaced");
  } else if (pPar->codec_type == AVMEDIA_TYPE_AUDIO) {
    xml.AttrInt("sample_rate", pPar->sample_rate);
    xml.AttrInt("channels", pPar->ch_layout.nb_channels);
    char szLayout[128] = {};
    if (av_channel_layout_describe(&pPar->ch_layout, szLayout, sizeof(szLayout)) > 0)
      xml.Attr("channel_layout", szLayout);
    xml.Attr("sample_fmt", av_get_sample_fmt_name(static_cast<AVSampleFormat>(pPar->format)));
    if (pPar->block_align > 0) xml.AttrInt("block_align", pPar->block_align);
  }
  if (pPar->bits_per_coded_sample > 0) xml.AttrInt("bits_per_coded_sample", pPar->bits_per_coded_sample);
  xml.Attr("disposition", Disposition(pStream->disposition));
  for (const auto& [key, value] : desc.tags) {
    if (key == u"language") xml.Attr("language", StringView(value));
    if (key == u"title") xml.Attr("title", StringView(value));
  }
  if (desc.tags.empty() && desc.vecSideData.empty()) {
    xml.EndEmpty();
    return;
  }
  xml.EndStart();
  AppendTags(out, desc.tags);
  for (const auto& [name, bytes] : desc.vecSideData) {
    xml.Open("side_data");
    xml.Attr("type", StringView(name));
    xml.AttrInt("size", static_cast<int64_t>(bytes.size()));
    xml.EndEmpty();
  }
  xml.Close("stream");
}

void AppendProgramXml(const AVProgram* pProgram, int nIndex, String& out) {
  CXmlWriter xml(out);
  xml.Open("program");
  xml.AttrInt("index", nIndex);
  xml.AttrInt("id", pProgram->id);
  if (pProgram->pmt_pid > 0) xml.AttrInt("pmt_pid", pProgram->pmt_pid);
  if (pProgram->pcr_pid > 0) xml.AttrInt("pcr_pid", pProgram->pcr_pid);
  std::string strStreams;
  for (unsigned n = 0; n < pProgram->nb_stream_indexes; ++n)
    AppendFormat(strStreams, n ? " %u" : "%u", pProgram->stream_index[n]);
  xml.Attr("streams", strStreams);
  const CFFTags tags = TagsOf(pProgram->metadata);
  if (tags.empty()) {
    xml.EndEmpty();
    return;
  }
  xml.EndStart();
  AppendTags(out, tags);
  xml.Close("program");
}

String SourceXml(const AVFormatContext* pFormat, const CFFSourceDesc& desc) {
  String out;
  CXmlWriter xml(out);
  xml.Open("source");
  xml.Attr("path", StringView(desc.strPath));
  xml.Attr("format", pFormat->iformat->name);
  xml.Attr("format_long", pFormat->iformat->long_name);
  xml.AttrSeconds("start_time", pFormat->start_time, AV_TIME_BASE_Q);
  xml.AttrSeconds("duration", pFormat->duration, AV_TIME_BASE_Q);
  if (pFormat->bit_rate > 0) xml.AttrInt("bitrate", pFormat->bit_rate);
  if (pFormat->pb && !(pFormat->iformat->flags & AVFMT_NOFILE)) {
    const int64_t llSize = avio_size(pFormat->pb);
    if (llSize > 0) xml.AttrInt("size", llSize);
  }
  xml.AttrInt("streams", pFormat->nb_streams);
  xml.AttrInt("programs", pFormat->nb_programs);
  xml.EndStart();
  AppendTags(out, desc.tags);
  for (unsigned n = 0; n < pFormat->nb_programs; ++n) AppendProgramXml(pFormat->programs[n], static_cast<int>(n), out);
  for (const CFFStreamDesc& stream : desc.vecStreams) out += stream.strXml;
  xml.Close("source");
  return out;
}

// --- Track selection --------------------------------------------------------

struct CTrackRule {
  bool bAll = true;
  std::vector<int64_t> vecIndices;  // when !bAll; may be empty (none)

  bool Takes(int64_t llIndex) const {
    return bAll || std::find(vecIndices.begin(), vecIndices.end(), llIndex) != vecIndices.end();
  }
};

bool IsListSeparator(OLECHAR c) { return c == u',' || c == u';' || c == u' ' || c == u'\t'; }

bool ParseTrackRule(StringView text, CTrackRule* pRule) {
  while (!text.empty() && IsListSeparator(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsListSeparator(text.back())) text.remove_suffix(1);
  *pRule = CTrackRule{};
  if (text.empty() || StrIEquals(text, u"all") || text == u"*") return true;
  pRule->bAll = false;
  while (!text.empty()) {
    size_t nEnd = 0;
    while (nEnd < text.size() && !IsListSeparator(text[nEnd])) ++nEnd;
    if (nEnd > 0) {
      int64_t llIndex = 0;
      if (!ParsePropInt(text.substr(0, nEnd), &llIndex)) return false;
      if (llIndex >= 0) pRule->vecIndices.push_back(llIndex);
    }
    text.remove_prefix(std::min(nEnd + 1, text.size()));
  }
  return true;
}

// The program that llProgram names: by id first, then by index; null when
// none matches.
const AVProgram* FindProgram(const AVFormatContext* pFormat, int64_t llProgram) {
  for (unsigned n = 0; n < pFormat->nb_programs; ++n)
    if (pFormat->programs[n]->id == llProgram) return pFormat->programs[n];
  if (llProgram >= 0 && llProgram < pFormat->nb_programs) return pFormat->programs[llProgram];
  return nullptr;
}

}  // namespace

const char* MediaTypeName(eVCMediaType eType) {
  switch (eType) {
    case eVCMT_Video:
      return "video";
    case eVCMT_Audio:
      return "audio";
    case eVCMT_Subtitles:
      return "subtitles";
    case eVCMT_Data:
      return "data";
    default:
      return "other";
  }
}

std::shared_ptr<const CFFSourceDesc> DescribeSource(const AVFormatContext* pFormat, StringView path) {
  auto spDesc = std::make_shared<CFFSourceDesc>();
  spDesc->strPath = String(path);
  spDesc->strFormatName = FromUtf8(pFormat->iformat->name);
  if (pFormat->duration != AV_NOPTS_VALUE && pFormat->duration >= 0)
    spDesc->rtDuration = ToRefTime(pFormat->duration, AV_TIME_BASE_Q);
  if (pFormat->start_time != AV_NOPTS_VALUE) spDesc->rtStartTime = ToRefTime(pFormat->start_time, AV_TIME_BASE_Q);
  spDesc->tags = TagsOf(pFormat->metadata);
  spDesc->vecStreams.resize(pFormat->nb_streams);
  for (unsigned n = 0; n < pFormat->nb_streams; ++n) {
    const AVStream* pStream = pFormat->streams[n];
    CFFStreamDesc& stream = spDesc->vecStreams[n];
    FillStreamInfo(pStream, &stream);
    stream.tags = TagsOf(pStream->metadata);
    for (int i = 0; i < pStream->nb_side_data; ++i) {
      const AVPacketSideData& side = pStream->side_data[i];
      const char* szName = av_packet_side_data_name(side.type);
      stream.vecSideData.emplace_back(FromUtf8(szName ? szName : Format("side_data_%d", side.type)),
                                      std::vector<uint8_t>(side.data, side.data + side.size));
    }
    AppendStreamXml(pStream, stream, stream.strXml);
  }
  // The records point into their own storage only now that the vector no
  // longer moves.
  for (CFFStreamDesc& stream : spDesc->vecStreams) {
    stream.info.lpCodecData =
        stream.vecCodecData.empty() ? 0 : static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(stream.vecCodecData.data()));
    stream.info.bsCodecNameOrTag = stream.bsCodecName.Get();
    spDesc->vecPacketStreams.emplace_back(stream.info);
  }
  spDesc->strXml = SourceXml(pFormat, *spDesc);
  return spDesc;
}

bool SelectStreams(const AVFormatContext* pFormat, const CFFTrackSettings& settings, std::vector<bool>* pvecSelected,
                   std::string* pstrError) {
  CTrackRule video, audio, subtitle;
  const std::pair<const String*, CTrackRule*> rules[] = {
      {&settings.strVideo, &video}, {&settings.strAudio, &audio}, {&settings.strSubtitle, &subtitle}};
  const char* const szNames[] = {"video_track", "audio_track", "subtitle_track"};
  for (size_t n = 0; n < std::size(rules); ++n) {
    if (!ParseTrackRule(*rules[n].first, rules[n].second)) {
      *pstrError = Format("%s '%ws' is not a list of track indices", szNames[n], rules[n].first->c_str());
      return false;
    }
  }

  const AVProgram* pProgram = nullptr;
  if (settings.llProgram >= 0 && pFormat->nb_programs > 0) {
    pProgram = FindProgram(pFormat, settings.llProgram);
    if (!pProgram) {
      *pstrError = Format("ts_program %lld: no such program (the source has %u)",
                          static_cast<long long>(settings.llProgram), pFormat->nb_programs);
      return false;
    }
  }
  auto inProgram = [&](unsigned nStream) {
    if (!pProgram) return true;
    for (unsigned n = 0; n < pProgram->nb_stream_indexes; ++n)
      if (pProgram->stream_index[n] == nStream) return true;
    return false;
  };

  pvecSelected->assign(pFormat->nb_streams, false);
  int64_t llVideo = 0, llAudio = 0, llSubtitle = 0;
  for (unsigned n = 0; n < pFormat->nb_streams; ++n) {
    if (!inProgram(n)) continue;
    const AVStream* pStream = pFormat->streams[n];
    bool bTake = false;
    switch (pStream->codecpar->codec_type) {
      case AVMEDIA_TYPE_VIDEO:
        if (pStream->disposition & AV_DISPOSITION_ATTACHED_PIC) bTake = video.bAll;
        else bTake = video.Takes(llVideo++);
        break;
      case AVMEDIA_TYPE_AUDIO:
        bTake = audio.Takes(llAudio++);
        break;
      case AVMEDIA_TYPE_SUBTITLE:
        bTake = subtitle.Takes(llSubtitle++);
        break;
      case AVMEDIA_TYPE_DATA:
        bTake = true;
        break;
      default:
        break;
    }
    (*pvecSelected)[n] = bTake;
  }
  return true;
}

}  // namespace vc::ff
