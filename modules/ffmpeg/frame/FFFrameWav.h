// WAV files for the frame's audio (VCAudioSaveToFile, VCAudioLoadFromFile):
// RIFF/WAVE with one "fmt " and one "data" chunk. Written as PCM (format
// tag 1) of the frame's sample size; read as PCM of 8, 16, 24 or 32 bits or
// 32-bit float, plain or in the extensible form, 24-bit and float coming in
// as 32-bit samples. Appending needs a file this module can extend: the same
// format, and the data chunk last. Any thread; the caller serialises use of
// one file.
#pragma once

#include <cstdint>
#include <string>

#include "FFFrameContent.h"

namespace vc::ff {

struct WavFormat {
  int nChannels = 0;
  int nRate = 0;
  int nBits = 0;  // 8, 16 or 32 when writing
};

// Writes cbData bytes of interleaved samples in fmt to a new file (or, with
// bAppend, at the end of an existing file of the same format).
HRESULT WavWrite(const std::string& strPath, const WavFormat& fmt, const uint8_t* pData, size_t cbData, bool bAppend);

// Reads up to nSamples samples (all that are left when nSamples <= 0) from
// sample llOffset on into a new interleaved audio frame. S_FALSE and no frame
// when the offset lies at or past the end.
HRESULT WavRead(const std::string& strPath, int64_t llOffset, int nSamples, AvFramePtr* pOut);

}  // namespace vc::ff
