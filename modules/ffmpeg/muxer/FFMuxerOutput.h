// One output file of the general muxer: the libavformat output context, its
// streams made from the muxer's stream descriptions, and the writes into it.
// The muxer keeps one that is writing and, while a seamless switch waits for
// its key packet, a second one already opened on the next path, so that a
// path that cannot be written fails the switch request and not a packet.
//
// Not synchronised: the muxer calls it under its own lock.
#pragma once

#include <string>
#include <vector>

#include "FFPointers.h"
#include "FFSplitterSource.h"
#include "VCCodecs/VCPacket.h"
#include "VCStrings.h"

namespace vc::ff {

// The output format for a "format" text ("mp4", "mkv", "matroska", "ts",
// ...: an FFmpeg muxer name or a file extension) or, when that is empty, for
// the path's extension. Null when neither names a format.
const AVOutputFormat* FindOutputFormat(const std::string& strFormat, const std::string& strPath);

// The FFmpeg codec parameters a stream description gives: media type, codec
// (by name or tag), size and aspect, sample rate and channels, block
// alignment, bits per coded sample, bit rate and a copy of the codec data.
// AVERROR(EINVAL) when the codec is not known, AVERROR(ENOMEM) when the
// codec data cannot be copied.
int FillCodecParameters(const K_STREAM_INFO& info, AVCodecParameters* pPar);

class CFFMuxerOutput {
 public:
  // Makes the output context and opens the file for writing (truncating it).
  // Fails with the FFmpeg error; *pstrStep names the call that failed.
  int Open(const AVOutputFormat* pFormat, const String& strPath, const char** pszStep);

  // Adds one stream per description, with its tags, and writes the header
  // with the container's tags; times of the packets of stream n are in
  // vecTimeBases[n].
  int Start(const std::vector<CKStreamInfo>& vecStreams, const std::vector<AVRational>& vecTimeBases,
            const CFFTags& containerTags, const std::vector<CFFTags>& vecStreamTags, const char** pszStep);

  // Writes one packet (its buffer is taken; times in the stream's input time
  // base). The packet is left blank. Decoding times are repaired first, the
  // way FFmpeg's own command-line tool does before it writes: a missing one
  // is derived from the presentation times, one after its presentation time
  // becomes the median of the two and the next allowed, and one that does
  // not increase (does not decrease, where the container allows equal ones)
  // is moved up to the next allowed value, taking the presentation time
  // with it when that would fall behind. The first repair of each stream is
  // logged at the info level.
  int Write(int nStream, AVPacket* pPacket);

  // Writes what libavformat still holds and the trailer (index, moov,
  // duration) and closes the file. The first failure is returned; the file
  // is closed in any case.
  int Finish();

  // Closes without a trailer and removes the file: an output that never
  // received a packet.
  void Discard();

  bool IsOpen() const { return m_spFormat != nullptr; }
  bool IsStarted() const { return m_bStarted; }
  const String& Path() const { return m_strPath; }

 private:
  // How many packets of reordered video may come before one that presents
  // earlier, when decoding times must be derived (two B-frames in a row).
  static constexpr int kReorderDepth = 2;

  // The time state of one output stream, in the output time base.
  struct CTimes {
    int64_t llLastDts;
    int64_t aPts[kReorderDepth + 1];  // the latest presentation times, smallest first
    bool bLogged = false;
    CTimes();
  };
  void _RepairTimes(int nStream, AVPacket* pPacket);

  AvOutputPtr m_spFormat;
  std::vector<CTimes> m_vecTimes;
  String m_strPath;
  std::vector<AVRational> m_vecTimeBases;
  bool m_bStarted = false;
};

}  // namespace vc::ff
