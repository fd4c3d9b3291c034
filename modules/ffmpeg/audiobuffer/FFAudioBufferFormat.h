// Sample-level pieces of the audio buffer object (FFAudioBuffer.cpp): format
// checks, sample reads and writes between the line formats, channel lists,
// channel pairing, gain ramps, and sample counts as reference time. Pure
// functions and values; callers hold whatever lock guards their data.
//
// Formats: interleaved PCM, nBitsPerSample 8 (unsigned, silence 0x80), 16 or
// 32 (signed). Internally every sample is read onto the signed 32-bit scale
// (a 16-bit value v reads as v * 65536, an 8-bit value u as (u - 128) *
// 2^24), so 8 -> 16 -> 32 bits is exact. Writing back to fewer bits rounds
// to the nearest value (halves upward, as the frame object does) and
// saturates, so mixes clip at the limits instead of wrapping.
//
// Tracks: nTrackSplitBits is a bit mask over channel positions; bit k
// (k >= 1) set means a new track starts at channel k. 0 is one track of all
// channels. Eight channels as four stereo pairs are 0x54 (bits 2, 4, 6).
//
// Channel lists: the frame object's syntax (FFFrameChannels.h) plus tracks.
// Items are separated by commas, semicolons or blanks; channels count from 0.
//   "S"        channel S goes to the next output channel
//   "S:D"      channel S goes to output channel D
//   "A-B"      channels A to B (either order) go to the next outputs
//   "track:N"  the channels of track N go to the next outputs; each track
//              item starts a track in the output
// "The next output" is the number of channels routed before the item, so
// "2,0" gives 2 then 0, and "1:0,0:1" swaps a pair. Outputs no item reaches
// are silent ("0:1" is silence, then channel 0). An empty list is every
// channel in order. A channel past the last one or a missing track is an
// error. Where a list names the target channels of a mix, its outputs are
// those target channels in order; gaps there name nothing.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace vc::ff::abuf {

inline constexpr int kMaxChannels = 64;  // libswresample's limit
inline constexpr int kMaxSampleRate = 1536000;
inline constexpr LONGLONG kRefTimePerSecond = VC_TIME_SECOND;

// Whether props is a format a line can hold; *pstrWhy says why not.
bool CheckProps(const K_AUD_PROPS& props, std::string* pstrWhy);

inline int BytesPerSample(LONG nBits) { return static_cast<int>(nBits / 8); }
// Bytes of one sample of every channel.
inline size_t BlockAlign(const K_AUD_PROPS& props) {
  return static_cast<size_t>(props.nChannels) * static_cast<size_t>(BytesPerSample(props.nBitsPerSample));
}
// The byte value of silence (8-bit audio is unsigned).
inline uint8_t SilenceByte(LONG nBits) { return nBits == 8 ? 0x80 : 0x00; }
void FillSilence(uint8_t* pb, size_t cb, LONG nBits);

// One sample on the signed 32-bit scale.
inline int32_t ReadSample(const uint8_t* pb, LONG nBits) {
  switch (nBits) {
    case 8:
      return (static_cast<int32_t>(*pb) - 128) * (1 << 24);
    case 16: {
      int16_t v;
      std::memcpy(&v, pb, sizeof v);
      return static_cast<int32_t>(v) * 65536;
    }
    default: {
      int32_t v;
      std::memcpy(&v, pb, sizeof v);
      return v;
    }
  }
}

// Writes dValue, given on the signed 32-bit scale and possibly beyond it (a
// mix or a gain), rounded to the target's nearest value and saturated.
void WriteSample(uint8_t* pb, LONG nBits, double dValue);

// The channels of each track of props: first channel and count.
struct CTrack {
  int nFirst = 0;
  int nCount = 0;
};
std::vector<CTrack> Tracks(const K_AUD_PROPS& props);

// A parsed channel list: the source channel of every output channel (-1 for
// silence), and the track starts of the output in the nTrackSplitBits form.
struct CChannelSelection {
  std::vector<int> vecChannels;
  LONG nTrackSplitBits = 0;
};
// Parses a channel list (null or empty: all channels) against props.
bool ParseChannelList(StringView list, const K_AUD_PROPS& props, CChannelSelection* pSel, std::string* pstrWhy);
// The same, logging why a list is refused (with the line's name).
bool ParseChannelListOrLog(BSTR bsLine, BSTR bsList, const K_AUD_PROPS& props, CChannelSelection* pSel);

// Pairs nSelected source channels with nDest destination channels: entry d
// names the selected channel that feeds destination d, or -1 for silence.
// Equal counts pair one to one; a single source channel feeds every
// destination; otherwise channel k feeds destination k, extra destinations
// stay silent and extra sources are left out.
std::vector<int> PairChannels(size_t nSelected, size_t nDest);

// A gain ramp over n samples: the gain goes linearly in amplitude from
// dStartDb at the first sample to dEndDb at the last (one sample takes the
// start gain). -6.0206 dB halves; -inf dB is silence.
class CGainRamp {
 public:
  CGainRamp() = default;
  CGainRamp(double dStartDb, double dEndDb, size_t nSamples);
  double At(size_t i) const {
    return m_nSteps == 0 ? m_dStart : m_dStart + (m_dEnd - m_dStart) * static_cast<double>(i) / m_nSteps;
  }

 private:
  double m_dStart = 1.0;
  double m_dEnd = 1.0;
  double m_nSteps = 0;
};
// NaN and +inf are not gains.
bool IsGainDb(double dDb);

// Interleaved samples somewhere in memory.
struct CAudioRef {
  uint8_t* pb = nullptr;
  LONG nChannels = 0;
  LONG nBits = 16;
  uint8_t* At(size_t nSample, int nChannel) const {
    return pb + (nSample * static_cast<size_t>(nChannels) + static_cast<size_t>(nChannel)) * (nBits / 8);
  }
};

// Writes (pDstGain null) or mixes (pDstGain given) n samples of src into dst.
// Position k of vecDst names a destination channel; it takes the selected
// source channel that PairChannels(vecSrc.size(), vecDst.size()) gives for
// k, scaled by srcGain. When mixing, each named destination channel is first
// scaled by *pDstGain and the sources are added; destination channels not
// named (or named by -1) are left alone either way; a -1 source is silence.
void RenderSamples(const CAudioRef& src, const std::vector<int>& vecSrc, const CGainRamp& srcGain,
                   const CAudioRef& dst, const std::vector<int>& vecDst, const CGainRamp* pDstGain, size_t n);

// Every channel of a format, in order.
std::vector<int> AllChannels(LONG nChannels);

// Sample counts and reference time (100 ns) at a rate, rounded to nearest.
LONGLONG SamplesToRefTime(int64_t llSamples, LONG nRate);
int64_t RefTimeToSamples(LONGLONG rtTime, LONG nRate);

}  // namespace vc::ff::abuf
