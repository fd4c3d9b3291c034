// Audio files for the audio buffer object: the first audio stream of a file
// decoded with libavformat/libavcodec and turned into interleaved PCM with
// libswresample. Runs on the caller's thread without any lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace vc::ff::abuf {

// A file's audio in its own sample rate and channels: 16-bit, or 32-bit
// where the decoded samples have more than 16 bits (32-bit integers, floats).
struct CDecodedAudio {
  K_AUD_PROPS props{};
  std::vector<uint8_t> vecData;
  size_t nSamples = 0;
};

// Whether a file name asks to be read as raw PCM (*.pcm, *.raw).
bool IsRawPcmName(StringView fileName);

// Decodes llCount samples (0 or less: to the end) from sample llOffset on,
// counted in the file's own samples. pRawProps, when given, is the format of
// a raw PCM file and skips probing.
HRESULT DecodeAudioFile(const std::string& strPath, const K_AUD_PROPS* pRawProps, int64_t llOffset, int64_t llCount,
                        CDecodedAudio* pOut);

}  // namespace vc::ff::abuf
