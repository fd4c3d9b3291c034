// The command line of "vccodecs transcode" read into settings, and the few
// rules that follow from the output alone: the codecs a container usually
// carries and the names of the parts of a split output. Main thread.
#pragma once

#include <string>
#include <vector>

#include "VCCodecsCore.h"

namespace vctool {

// The codec name that keeps a stream's packets as they are.
inline constexpr const char* kCopyCodec = "copy";

struct TranscodeOptions {
  std::string strInput;
  std::string strOutput;
  std::string strVideoCodec;  // empty: the container's usual one
  std::string strAudioCodec;
  long long llVideoBitrate = 0;  // bits per second; 0: the encoder's choice
  long long llAudioBitrate = 0;
  std::string strPreset;
  int nWidth = 0, nHeight = 0;  // 0: the source's size
  double dblRate = 0.0;         // 0: the source's frame rate
  std::vector<LONG> vecStreams;  // empty: every video and audio stream
  std::string strProps;          // name=value pairs for the encoders
  double dblSplit = 0.0;         // seconds per output file; 0: one file
  std::string strReport;         // the report page, when asked for
  bool bJson = false;
  std::string strCommand;        // the command line as given, for the report
};

// Prints why and returns false on a bad command line.
bool ParseTranscodeArgs(const std::vector<std::string>& args, TranscodeOptions* pOpts);

// "6000000", "6000k", "6M", "128k" in bits per second; false for anything
// else (zero and negative included).
bool ParseRate(const std::string& strText, long long* pllBitsPerSecond);

// The codecs a container usually carries, by the output's extension (case
// ignored): H.264 and AAC for mp4, mov, mkv, ts and flv, VP9 and Opus for
// webm, MPEG-2 and 16-bit PCM for mxf, MPEG-4 and MP3 for avi.
struct DefaultCodecs {
  const char* szVideo;
  const char* szAudio;
};
DefaultCodecs DefaultCodecsFor(const std::string& strOutput);

// The extension of a path, lower case, without the point ("" when none).
std::string Extension(const std::string& strPath);

// Part nPart (1, 2, ...) of a split output: the number, three digits at
// least, before the extension ("out.mp4" gives "out-001.mp4").
std::string SplitPartPath(const std::string& strOutput, int nPart);

}  // namespace vctool
