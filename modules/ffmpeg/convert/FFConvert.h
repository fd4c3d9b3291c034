// The module's one conversion component: every picture scaling and pixel
// format change goes through CFFVideoConverter (libswscale), every sample
// format, channel and rate change through CFFAudioConverter
// (libswresample). The decoders bring decoded frames into the wanted form
// with them, the frame object scales and resamples with them
// (FFFrameScale), the audio buffer resamples its lines and reads files with
// them, and the converter class keeps one per channel. Each converter keeps
// its context between calls and rebuilds it when the source changes. Used
// by one owner at a time; not synchronised.
#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include <cstdint>
#include <memory>

#include "FFPointers.h"

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

  // What every picture conversion of the module comes down to: planes of
  // one format and size scaled into planes of another, with the colour
  // matrices and ranges given (AVCOL_SPC_UNSPECIFIED: BT.601). The context
  // is kept for the next call with the same geometry. nFlags: SWS_* flags.
  // 0 or an AVERROR.
  struct CPlanes {
    const uint8_t* const* ppData = nullptr;
    const int* pLinesize = nullptr;
    int nWidth = 0;
    int nHeight = 0;
    AVPixelFormat eFmt = AV_PIX_FMT_NONE;
    AVColorSpace eSpace = AVCOL_SPC_UNSPECIFIED;
    bool bFullRange = false;
  };
  int Scale(const CPlanes& src, uint8_t* const* ppDst, const int* pDstLinesize, int nDstWidth, int nDstHeight,
            AVPixelFormat eDstFmt, AVColorSpace eDstSpace, bool bDstFullRange, int nFlags);

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

  // Raw use, for callers that keep their samples in their own buffers: set
  // the formats (the context is rebuilt only when they change; held
  // samples of the old one are dropped), then convert blocks of interleaved
  // or planar samples. 0 or an AVERROR.
  int Setup(AVSampleFormat eInFmt, const AVChannelLayout& inLayout, int nInRate, AVSampleFormat eOutFmt,
            const AVChannelLayout& outLayout, int nOutRate);
  bool IsSetUp() const { return m_spSwr != nullptr; }
  int InRate() const { return m_nInRate; }
  // The most samples the next ConvertRaw of nInSamples can give (held ones
  // included), or an AVERROR.
  int MaxOutput(int nInSamples) const;
  // Converts nInSamples at ppIn (null and 0: hands out the held samples)
  // into at most nOutMax at ppOut; the samples written or an AVERROR.
  int ConvertRaw(const uint8_t* const* ppIn, int nInSamples, uint8_t* const* ppOut, int nOutMax);

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
