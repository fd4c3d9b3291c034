// Channel lists and interleaved PCM samples, as the frame's audio methods
// (and the audio buffer of this module) read and write them. Pure
// functions; any thread.
//
// Channel-list syntax (channel numbers from 0), items separated by commas,
// semicolons or blanks:
//   "S"    source channel S goes to the next target channel;
//   "S:D"  source channel S goes to target channel D;
//   "A-B"  source channels A to B (either order) go to the next targets.
// "The next target" is the number of routes before the item, so "2,0"
// gives 2->0 and 0->1, and "1:0,0:1" swaps a stereo pair. An empty list means
// every channel to itself (the caller supplies that default). Where only a
// set of channels matters (gain), the targets are ignored.
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

// False (and pRoutes untouched) for a malformed list or a channel number
// outside 0..kMaxAudioChannels-1.
bool ParseChannelList(StringView text, std::vector<ChannelRoute>* pRoutes);
// Every channel of n to itself.
std::vector<ChannelRoute> IdentityRoutes(int nChannels);

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
