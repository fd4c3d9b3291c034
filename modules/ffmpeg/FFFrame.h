// The frame object (IVCFrame) of the general media module, as the module's
// other classes use it: decoders wrap what FFmpeg decodes, encoders and
// converters read the FFmpeg frame behind one of our frames without a copy.
#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "VCCodecsCore.h"
#include "VCGuid.h"

namespace vc::ff {

// Wraps a decoded video or audio AVFrame in a new frame object. The frame
// object takes the AVFrame's buffer references (pAvFrame is left blank, as
// av_frame_move_ref leaves it); no pixel or sample is copied. time is the
// frame's time in reference time; dblRate its frame rate (video; 0 unknown).
HRESULT FrameFromAVFrame(AVFrame* pAvFrame, const K_TIME& time, double dblRate, IVCFrame** ppFrame);

// The AVFrame inside one of this module's frames, or null for a frame of
// another implementation. Owned by the frame; valid while it lives and is not
// changed.
const AVFrame* FrameAVFrame(IVCFrame* pFrame);

// Pixel formats between the public codes and FFmpeg's. AV_PIX_FMT_NONE /
// eVCCC_Default where there is no counterpart.
AVPixelFormat PixelFormatFromFourcc(eVCCC fcc);
eVCCC FourccFromPixelFormat(AVPixelFormat fmt);

}  // namespace vc::ff
