// Hardware decoding through FFmpeg's device layer, for the NVIDIA (CUDA:
// NVDEC through FFmpeg's own decoders, or the CUVID wrappers) and Intel
// QuickSync (the *_qsv wrappers) decoder classes: opening the device,
// choosing the FFmpeg decoder that decodes a codec on it, and bringing
// pictures from device memory into system memory. Device contexts are
// reference-counted FFmpeg buffers owned by the caller. Any thread.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/buffer.h>
#include <libavutil/hwcontext.h>
}

#include <string>

namespace vc::ff {

// A decoder that can decode a codec on one kind of device.
struct CFFHwDecoderChoice {
  const AVCodec* pCodec = nullptr;          // null when there is none
  AVPixelFormat eHwPixFmt = AV_PIX_FMT_NONE;  // the picture format in device memory
};

// Opens a device of eType; strSelector picks one (a CUDA device index, a
// render node path; empty: the default). 0 with *ppDevice set (the caller
// owns the reference), or the AVERROR of FFmpeg's device layer (missing
// driver or library, no device).
int OpenHwDevice(AVHWDeviceType eType, const std::string& strSelector, AVBufferRef** ppDevice);

// The decoder for id on eType devices: FFmpeg's own decoder when it has an
// acceleration for that device, else a wrapper decoder of the device
// ("h264_cuvid", "hevc_qsv"). Both must take a device context.
CFFHwDecoderChoice FindHwDecoder(AVCodecID id, AVHWDeviceType eType);

// Brings a picture into system memory: one in device memory is copied (its
// properties with it), one already in system memory is referenced. 0 or an
// AVERROR. pDst is blank on entry.
int DownloadFrame(const AVFrame& src, AVFrame* pDst);

// Why a device of eType could not be opened, where this machine shows it
// (the NVIDIA driver library that cannot be loaded, no render node for an
// Intel GPU); empty when there is nothing to add to FFmpeg's error.
std::string HwDeviceMissingReason(AVHWDeviceType eType);

// "cuda", "qsv".
std::string HwDeviceTypeName(AVHWDeviceType eType);

}  // namespace vc::ff
