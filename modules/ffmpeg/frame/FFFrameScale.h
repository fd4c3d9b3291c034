// The frame object's pixel and sample work: scaling and pixel-format
// conversion, resampling and sample-format conversion (all through the
// module's conversion component, FFConvert.h), and the views (a field, a
// rectangle) that cutting and field-wise resizing read from. Each call
// converts on its own; any thread.
#pragma once

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include <string>

#include "FFFrameContent.h"
#include "VCCodecsCore.h"

namespace vc::ff {

// Read-only window on a video picture: plane pointers and strides.
struct VideoView {
  const uint8_t* arrData[4] = {};
  int arrLinesize[4] = {};
  int nWidth = 0;
  int nHeight = 0;
  AVPixelFormat eFmt = AV_PIX_FMT_NONE;
  AVColorSpace eSpace = AVCOL_SPC_UNSPECIFIED;
  AVColorRange eRange = AVCOL_RANGE_UNSPECIFIED;
};

VideoView ViewOf(const AVFrame* pFrame);
// One field: nField 1 the lines 0, 2, 4..., nField 2 the lines 1, 3, 5...;
// 0 the whole picture. False for another value or a picture of one line.
bool FieldOf(const VideoView& src, int nField, VideoView* pOut);
// The rectangle [nLeft, nRight) x [nTop, nBottom), clipped to the picture
// and widened outwards to the chroma grid. False when nothing is left.
bool CropOf(const VideoView& src, int nLeft, int nTop, int nRight, int nBottom, VideoView* pOut);
// Upside down (negative strides), for bottom-up clones.
VideoView FlippedOf(const VideoView& src);

// A new frame in the public layout holding src converted to eDstFmt at
// nDstWidth x nDstHeight. eDstSpace AVCOL_SPC_UNSPECIFIED keeps the source's
// matrix (BT.601 when it has none). A plain copy when nothing changes.
HRESULT ScaleToNew(const VideoView& src, AVPixelFormat eDstFmt, eVCCC fccDst, int nDstWidth, int nDstHeight,
                   AVColorSpace eDstSpace, AvFramePtr* pOut);
// Scales src into a rectangle of an existing frame (letter-boxing and
// cropping place pictures so). The rectangle must lie on the chroma grid.
HRESULT ScaleInto(const VideoView& src, AVFrame* pDst, int nX, int nY, int nWidth, int nHeight);

// Packed (interleaved) audio of src converted to eDstFmt, nDstRate and
// dstLayout; the whole input comes out (the resampler is flushed), so
// nothing stays behind between calls.
HRESULT ResampleAudio(const AVFrame* pSrc, AVSampleFormat eDstFmt, int nDstRate, const AVChannelLayout& dstLayout,
                      AvFramePtr* pOut);

// Writes a picture to a file chosen by the extension: ".png", ".bmp",
// ".jpg"/".jpeg" through FFmpeg's image encoders, anything else as the raw
// bytes of the public one-buffer layout.
HRESULT SavePicture(const AVFrame* pVideo, eVCCC fcc, const std::string& strPath);

// A new interleaved audio frame (silence) of nSamples samples.
HRESULT AllocAudio(AVSampleFormat eFmt, int nChannels, int nRate, int nSamples, AvFramePtr* pOut);

}  // namespace vc::ff
