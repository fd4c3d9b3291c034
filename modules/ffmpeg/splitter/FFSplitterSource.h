// What the general splitter knows about an open source, built once when the
// source opens and never changed afterwards: one K_STREAM_INFO per stream
// (codec data and codec name owned here), the XML descriptions of the source
// and of each stream, the container and stream tags and the streams' own side
// data. The splitter shares the snapshot as a shared_ptr to const, so an info
// call on any thread reads it without touching the format context that the
// reading thread is using.
//
// Also here: which streams the track settings select. Pure functions of a
// format context that the caller keeps alive; any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VCCodecsCore.h"
#include "VCCodecs/VCPacket.h"
#include "VCStrings.h"

struct AVFormatContext;

namespace vc::ff {

using CFFTags = std::vector<std::pair<String, String>>;  // (key, value), in container order

struct CFFStreamDesc {
  // lpCodecData points into vecCodecData and bsCodecNameOrTag is bsCodecName:
  // both stay valid as long as the description lives.
  K_STREAM_INFO info{};
  std::vector<uint8_t> vecCodecData;
  CBstr bsCodecName;
  String strXml;  // one <stream .../> element
  CFFTags tags;
  // The stream's own side data (display matrix, mastering display, ...), by
  // FFmpeg's name for its type.
  std::vector<std::pair<String, std::vector<uint8_t>>> vecSideData;
  bool bAttachedPicture = false;  // a cover image, not a video track
};

struct CFFSourceDesc {
  String strPath;
  String strFormatName;  // FFmpeg's short demuxer name(s)
  String strXml;         // <source ...> with its programs and streams
  LONGLONG rtDuration = VC_TIME_UNSET;   // unknown for live sources
  LONGLONG rtStartTime = VC_TIME_UNSET;  // first time stamp of the source
  CFFTags tags;
  std::vector<CFFStreamDesc> vecStreams;
  // The same records as packets carry them: one shared copy per stream, so
  // a packet takes a reference instead of copying the description.
  std::vector<CKStreamInfo> vecPacketStreams;
};

// Describes an opened source (avformat_find_stream_info already run). Throws
// std::bad_alloc only.
std::shared_ptr<const CFFSourceDesc> DescribeSource(const AVFormatContext* pFormat, StringView path);

// The track settings as the properties give them. A track text is empty (all
// streams of that kind), "all" or "*" (all), or a list of indices among the
// streams of that kind separated by commas, semicolons or blanks; negative
// numbers select nothing, so "-1" selects none of that kind. Indices count
// the streams of the chosen program only, when one is chosen. Cover images
// are not counted as video tracks and come only with "all".
struct CFFTrackSettings {
  String strVideo;
  String strAudio;
  String strSubtitle;
  // -1: every program. Otherwise the program whose id (in a transport stream
  // the program number) is this value; failing that, the program at this
  // index. Ignored for sources without programs.
  int64_t llProgram = -1;
};

// Which streams are delivered: one flag per stream of the source. Data
// streams follow the program choice only; attachments are never delivered.
// False with *pstrError set when a track text cannot be read or the program
// does not exist.
bool SelectStreams(const AVFormatContext* pFormat, const CFFTrackSettings& settings, std::vector<bool>* pvecSelected,
                   std::string* pstrError);

// "video", "audio", "subtitles", "data" or "other".
const char* MediaTypeName(eVCMediaType eType);

}  // namespace vc::ff
