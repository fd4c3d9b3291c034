// Reads the picture or the samples of an IVCFrame of any implementation as
// an AVFrame for the encoders: this module's frames give their own AVFrame
// (a reference, no copy), others are read through IVCFrame (VCAVPropsGet,
// VCVideoGetBytesEx, VCAudioGetBytes) into an AVFrame that points at the
// frame's memory, valid while the caller holds the frame. Any thread.
#pragma once

#include "FFPointers.h"
#include "VCCodecsCore.h"

namespace vc::ff {

struct CFFEncoderInput {
  AvFramePtr spFrame;  // the picture or the interleaved samples
  K_TIME time{};
  double dblRate = 0;  // video frame rate, 0 unknown
};

// The part of pFrame that eType encodes. E_INVALIDARG (logged) when the frame
// has none of it or a layout FFmpeg has no format for.
HRESULT ReadEncoderInput(IVCFrame* pFrame, eVCMediaType eType, CFFEncoderInput* pInput);

}  // namespace vc::ff
