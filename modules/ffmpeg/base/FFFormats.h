// Pixel and sample formats between the public codes and FFmpeg's, and the
// one-buffer plane layout that the frame object hands to hosts. Pure
// functions of their arguments; any thread.
//
// The public video layout is the classic one of system-memory frames: all
// planes in one block, one after the other, plane 0's stride being the
// record's nRowBytes and every other plane's stride following from it (half
// of it for the chroma planes of 4:2:0 and 4:2:2 planar formats, all of it for
// the interleaved chroma of NV12). YV12 is I420 with the two chroma planes
// stored in the other order; FFmpeg has no YV12, so a YV12 frame keeps a
// YUV420P AVFrame and only the public order of its planes differs.
#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include <cstddef>

#include "VCCodecsCore.h"

struct AVFrame;

namespace vc::ff {

// Colour-matrix bits of a composed format (ePX_BT601/709/2020 without the
// format flag); they do not change the memory layout.
inline constexpr uint32_t kPxColourBits = 0x00700000;

// The matrix a public format names: AVCOL_SPC_UNSPECIFIED when it names none.
// HDYC is UYVY with BT.709 by definition.
AVColorSpace ColourSpaceFromFourcc(eVCCC fcc);

// Where plane k of the public layout lives in the AVFrame (YV12 swaps 1 and 2).
int AvPlaneOfPublicPlane(eVCCC fcc, int nPublicPlane);

// One frame's planes in the one-buffer layout, in public plane order.
struct PlaneLayout {
  int nPlanes = 0;
  int arrStride[4] = {};    // bytes per row
  int arrRows[4] = {};      // rows of the plane
  int arrSamples[4] = {};   // samples (pixels of the plane) per row, for VC_VID_PTR
  size_t arrOffset[4] = {}; // from the start of the block
  size_t cbTotal = 0;
};

// The layout of fmt at nWidth x nHeight with plane 0's stride nRowBytes.
// False when nRowBytes cannot be plane 0's stride (too small, or not a whole
// number of plane-0 samples where other planes derive their stride from it).
bool LayoutFor(AVPixelFormat fmt, eVCCC fcc, int nWidth, int nHeight, int nRowBytes, PlaneLayout* pLayout);

// The stride this module gives new frames: the smallest row, widened so that
// every plane's rows start 64-byte aligned.
int DefaultRowBytes(AVPixelFormat fmt, int nWidth);

// Whether the AVFrame's planes already sit in one buffer in the public layout
// with its own linesize[0] as nRowBytes.
bool IsPublicLayout(const AVFrame* pFrame, eVCCC fcc);

// Allocates a video AVFrame in the public layout (one buffer, zero-filled to
// black for YUV formats, zero elsewhere). nRowBytes 0 picks DefaultRowBytes.
// Null when the format cannot be laid out or memory runs out.
AVFrame* AllocPublicVideo(AVPixelFormat fmt, eVCCC fcc, int nWidth, int nHeight, int nRowBytes);

// Fills every plane of a video AVFrame with black (limited-range black for
// YUV, zero for RGB and grey; alpha zero).
void FillBlack(AVFrame* pFrame);

// Copies the pixels of pSrc into the public layout (a new AVFrame with the
// same format and size); null on failure.
AVFrame* CopyToPublicLayout(const AVFrame* pSrc, eVCCC fcc);

// Interleaved PCM of the frame's audio: 8 unsigned, 16 and 32 signed.
AVSampleFormat SampleFormatFromBits(int nBitsPerSample);
int BitsFromSampleFormat(AVSampleFormat fmt);

}  // namespace vc::ff
