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
// av_frame_move_ref leaves it); no pixel or sample is copied, except for
// the conversions FrameFromAVFrameEx names. time is the frame's time in
// reference time; dblRate its frame rate (video; 0 unknown).
HRESULT FrameFromAVFrame(AVFrame* pAvFrame, const K_TIME& time, double dblRate, IVCFrame** ppFrame);

// As FrameFromAVFrame, with the audio sample size wanted (8, 16 or 32; 0 for
// the default). Audio that is not interleaved PCM of that size (planar or
// float decoder output) is converted once here with libswresample; by
// default interleaved 8-, 16- and 32-bit input is kept as it is, 32-bit
// planar becomes 32-bit, 8-bit planar 8-bit and everything else 16-bit.
// Video in a layout without a public code (planar RGB, ...) is converted to
// the nearest one that has a code; hardware frames are copied to system
// memory first.
HRESULT FrameFromAVFrameEx(AVFrame* pAvFrame, const K_TIME& time, double dblRate, int nAudioBits,
                           IVCFrame** ppFrame);

// The AVFrame inside one of this module's frames, or null for a frame of
// another implementation. Owned by the frame; valid while it lives and is not
// changed.
// A frame with video gives its video; an audio-only frame its audio.
const AVFrame* FrameAVFrame(IVCFrame* pFrame);
// The audio AVFrame (interleaved U8, S16 or S32) of one of this module's
// frames, or null. Same ownership as FrameAVFrame.
const AVFrame* FrameAudioAVFrame(IVCFrame* pFrame);

// Pixel formats between the public codes and FFmpeg's. AV_PIX_FMT_NONE /
// eVCCC_Default where there is no counterpart.
AVPixelFormat PixelFormatFromFourcc(eVCCC fcc);
eVCCC FourccFromPixelFormat(AVPixelFormat fmt);

}  // namespace vc::ff
