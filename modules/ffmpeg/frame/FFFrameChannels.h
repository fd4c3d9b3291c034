// Channel lists and interleaved PCM samples, as the frame's audio methods
// (and the audio buffer of this module) read and write them. Pure
// functions; any thread.
//
// Channel lists are the module's one syntax (FFAudioBufferFormat.h has the
// parser and its description: "S", "S:D", "A-B", "track:N", separated by
// commas, semicolons or blanks); here they become routes from a source
// channel to a target channel. An empty list means every channel to itself
// (the caller supplies that default). Where only a set of channels matters
// (gain), the targets are ignored.
#pragma once

#include <cstdint>
#include <vector>

#include "FFFrameContent.h"
#include "VCStrings.h"

namespace vc::ff {

// Highest channel count a frame's audio may have.
inline constexpr int kMaxAudioChannels = 64;

struct ChannelRoute {
  int nSrc = 0;
  int nDst = 0;
};

// The routes of a list read against the source's properties (its channel
// count, and its tracks for "track:N"). False, with a log line, for a
// malformed list or a channel the source does not have; pRoutes is then
// untouched. An empty list gives no routes.
bool ParseChannelList(StringView text, const K_AUD_PROPS& source, std::vector<ChannelRoute>* pRoutes);
// Every channel of n to itself.
std::vector<ChannelRoute> IdentityRoutes(int nChannels);

// Gain ramps are linear in amplitude from the start gain at the first sample
// to the end gain at the last, as the audio buffer's (abuf::CGainRamp); NaN
// and +inf are not gains.

// One sample of nBits (8 unsigned, 16 or 32 signed) as a full-scale signed
// 32-bit value, and back with saturation and rounding.
int32_t PcmRead(const uint8_t* p, int nBits);
void PcmWrite(uint8_t* p, int nBits, int64_t llFullScale);
inline int PcmBytes(int nBits) { return nBits / 8; }

// New interleaved audio with nDstChannels channels of nDstBits: each route
// copies a source channel into a target channel (converting the sample
// size); target channels no route reaches are silent. Routes whose source
// channel does not exist are an error; targets must be below nDstChannels.
HRESULT RemapPcm(const AVFrame* pSrc, int nDstBits, int nDstChannels, const std::vector<ChannelRoute>& routes,
                 AvFramePtr* pOut);

}  // namespace vc::ff
