// Brings decoded FFmpeg frames into the form the decoders hand out: pictures
// into a wanted pixel format and size (libswscale), sample blocks into
// interleaved 16- or 32-bit PCM at a wanted rate and channel count
// (libswresample). Each converter keeps its conversion context between calls
// and rebuilds it when the source changes. Used by one decoder session, on
// the thread that drives it; not synchronised.
#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include <memory>

#include "FFPointers.h"

struct SwsContext;
struct SwrContext;

namespace vc::ff {

// What a caller wants of a picture; a field left at its "same" value keeps
// the source's.
struct CVideoTarget {
  AVPixelFormat ePixFmt = AV_PIX_FMT_NONE;  // NONE: the source's format
  int nWidth = 0;                           // 0: the source's size (both or neither)
  int nHeight = 0;

  bool Converts(const AVFrame& src) const {
    return (ePixFmt != AV_PIX_FMT_NONE && ePixFmt != src.format) ||
           (nWidth > 0 && nHeight > 0 && (nWidth != src.width || nHeight != src.height));
  }
};

class CFFVideoConverter {
 public:
  CFFVideoConverter();
  ~CFFVideoConverter();
  CFFVideoConverter(const CFFVideoConverter&) = delete;
  CFFVideoConverter& operator=(const CFFVideoConverter&) = delete;

  // Fills pDst (blank on entry) with pSrc in the target form, frame
  // properties (times, picture type, colour description) copied. 0 or an
  // AVERROR; AVERROR(EINVAL) for a pixel format libswscale cannot write.
  int Convert(const AVFrame& src, const CVideoTarget& target, AVFrame* pDst);

 private:
  SwsContextPtr m_spSws;
};

// Interleaved PCM as the module's frames and audio buffers hold it.
struct CAudioTarget {
  AVSampleFormat eSampleFmt = AV_SAMPLE_FMT_S16;  // S16 or S32
  int nSampleRate = 0;                            // 0: the source's rate
  int nChannels = 0;                              // 0: the source's channels
};

class CFFAudioConverter {
 public:
  CFFAudioConverter();
  ~CFFAudioConverter();
  CFFAudioConverter(const CFFAudioConverter&) = delete;
  CFFAudioConverter& operator=(const CFFAudioConverter&) = delete;

  // Fills pDst (blank on entry) with src's samples in the target form; a
  // source already in that form is referenced, not copied. A rate change
  // may hold samples back (pDst then has fewer, even none: nb_samples 0).
  // 0 or an AVERROR.
  int Convert(const AVFrame& src, const CAudioTarget& target, AVFrame* pDst);
  // The samples a rate change still holds, at the end of the stream. 0 with
  // samples in pDst, AVERROR_EOF when there are none.
  int Flush(AVFrame* pDst);
  // Drops held samples (a seek).
  void Reset();

 private:
  int _Prepare(const AVFrame& src, const CAudioTarget& target);
  int _AllocOutput(int nSamples, AVFrame* pDst) const;

  SwrContextPtr m_spSwr;
  // What m_spSwr was built for.
  AVSampleFormat m_eInFmt = AV_SAMPLE_FMT_NONE;
  AVChannelLayout m_inLayout{};
  int m_nInRate = 0;
  AVSampleFormat m_eOutFmt = AV_SAMPLE_FMT_NONE;
  AVChannelLayout m_outLayout{};
  int m_nOutRate = 0;
};

}  // namespace vc::ff
