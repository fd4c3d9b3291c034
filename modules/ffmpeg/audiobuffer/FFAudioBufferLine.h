// One named line of the audio buffer object: its format, its samples
// (interleaved, in its own format, oldest first) and the time of its first
// sample. Not synchronised: the buffer object's lock guards every line.
//
// Puts convert to the line's format: the chosen source channels are paired
// with the line's channels (PairChannels), samples change bit depth on the
// 32-bit scale, and a different sample rate goes through a libswresample
// context that the line keeps between puts, so consecutive puts resample as
// one stream. A put at the line's own rate first flushes what that context
// still holds.
//
// Times (reference time, 100 ns): the line knows the time of its first
// sample once a timed put or SetStartTime gave one; taking samples from the
// front moves it on by their duration, computed from the sample count so
// that no rounding accumulates. A timed put into a line with no time, or
// into an empty line while correction is off, sets the time of the put's
// first sample. With correction on, a timed put is compared with the line's
// end time (diff = put time - end):
//   minDiff <= diff <= maxDiff   appended as it is (small jitter is kept);
//   diff > maxDiff               a gap: silence fills it, then the put;
//   diff < minDiff               an overlap: the put's first -diff worth of
//                                samples are dropped (all of them when the
//                                overlap covers the whole put);
//   |diff| > kMaxTimeCorrection  a jump, not a gap: the put is appended and
//                                the line's times are moved so that the put
//                                starts at its own time.
// With correction off, put times do not move a line that holds samples.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "FFAudioBufferFormat.h"
#include "FFConvert.h"

namespace vc::ff::abuf {

// Gaps and overlaps up to this are filled or trimmed; larger jumps move the
// line's times instead (ten seconds of silence is already a lot of memory to
// invent, and a jump that large is a cut, not jitter).
inline constexpr LONGLONG kMaxTimeCorrection = 10 * kRefTimePerSecond;

// Samples at some address: interleaved (cbPlane 0) or one plane per channel
// cbPlane bytes apart.
struct CSourceAudio {
  const uint8_t* pb = nullptr;
  K_AUD_PROPS props{};
  size_t nSamples = 0;
  size_t cbPlane = 0;
  const uint8_t* At(size_t nSample, int nChannel) const {
    const auto cbSample = static_cast<size_t>(BytesPerSample(props.nBitsPerSample));
    if (cbPlane) return pb + static_cast<size_t>(nChannel) * cbPlane + nSample * cbSample;
    return pb + (nSample * static_cast<size_t>(props.nChannels) + static_cast<size_t>(nChannel)) * cbSample;
  }
};

class CAudioLine {
 public:
  CAudioLine();
  ~CAudioLine();
  CAudioLine(const CAudioLine&) = delete;
  CAudioLine& operator=(const CAudioLine&) = delete;

  bool HasProps() const { return m_bHasProps; }
  const K_AUD_PROPS& Props() const { return m_props; }
  size_t Samples() const;
  size_t BlockAlign() const { return abuf::BlockAlign(m_props); }
  // The oldest sample; the samples are contiguous. Valid until the next change.
  uint8_t* Data() { return m_vecData.data() + m_cbFront; }
  CAudioRef Ref() { return CAudioRef{Data(), m_props.nChannels, m_props.nBitsPerSample}; }

  // Gives the line a format (props must pass CheckProps). bReset drops the
  // samples and the time; otherwise held samples are converted.
  HRESULT SetProps(const K_AUD_PROPS& props, bool bReset);

  // Appends the source channels vecChannels of src, converted to the line's
  // format; a line without a format takes the source's with
  // vecChannels.size() channels and nTrackSplitBits. rtTime is the time of
  // the source's first sample or VC_TIME_UNSET. *pnAdded gets the samples
  // added (silence for a gap included). S_FALSE when nothing was added.
  HRESULT Put(const CSourceAudio& src, const std::vector<int>& vecChannels, LONG nTrackSplitBits, LONGLONG rtTime,
              size_t* pnAdded);

  // Appends what the resampler still holds (the end of a stream at another
  // rate, such as a file); the next put at that rate starts afresh.
  HRESULT Flush() { return _FlushResampler(); }

  // Extends the line with silence to at least nSamples.
  void PadTo(size_t nSamples);
  // Drops up to n samples from the front; the start time moves on.
  size_t Drop(size_t n);

  void TimesEnable(bool bEnable, LONGLONG rtMinDiff, LONGLONG rtMaxDiff);
  bool TimesEnabled() const { return m_bTimes; }
  LONGLONG MinDiff() const { return m_rtMinDiff; }
  LONGLONG MaxDiff() const { return m_rtMaxDiff; }
  // VC_TIME_UNSET while the line has no time.
  LONGLONG StartTime() const;
  LONGLONG EndTime() const;
  void SetStartTime(LONGLONG rtStart);

 private:

  uint8_t* _Grow(size_t nSamples);
  void _Append(const int32_t* pWork, size_t nSamples);
  HRESULT _Resample(const std::vector<int32_t>& vecIn, size_t nIn, LONG nInRate, bool bFlush,
                    std::vector<int32_t>* pvecOut, size_t* pnOut);
  HRESULT _FlushResampler();
  size_t _ApplyTime(LONGLONG rtTime, size_t nNew, size_t* pnSkip);

  bool m_bHasProps = false;
  K_AUD_PROPS m_props{};
  std::vector<uint8_t> m_vecData;
  size_t m_cbFront = 0;  // bytes already taken from the front of m_vecData

  // Time of sample number m_llAnchorPos, counted from the first sample the
  // line ever held; m_llFrontPos is the number of the oldest sample held.
  LONGLONG m_rtAnchor = VC_TIME_UNSET;
  int64_t m_llAnchorPos = 0;
  int64_t m_llFrontPos = 0;
  bool m_bTimes = false;
  LONGLONG m_rtMinDiff = 0;
  LONGLONG m_rtMaxDiff = 0;

  CFFAudioConverter m_resampler;  // set up for the rate of the input being resampled
};

}  // namespace vc::ff::abuf
