// Generated media for the general media module's suites: empty frames,
// moving pictures and tones as frames with times, and the luma PSNR that
// judges a lossy round trip. Each picture differs from the last, so an
// encoder has motion and detail to lose. Test-thread helpers; failures are
// reported through gtest and give a null frame.
#pragma once

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
}

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FFFrame.h"
#include "FFFrameScale.h"
#include "FFPointers.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace vc::fftest {

inline constexpr LONGLONG kFrame25 = VC_TIME_SECOND / 25;  // one frame at 25 fps

// A frame of the module with nothing in it.
inline ComPtr<IVCFrame> NewFrame() {
  ComPtr<IVCFrame> cpFrame;
  EXPECT_EQ(vc::ff::CreateFFFrame(nullptr, vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpFrame.AddressOf())),
            S_OK);
  return cpFrame;
}

// Empty video properties of a format and size at 25 fps; nRowBytes 0 lets
// the frame choose its own row length.
inline K_AV_PROPS VideoProps(eVCCC fcc, int nWidth, int nHeight, int nRowBytes = 0) {
  K_AV_PROPS props{};
  props.vidProps.fccType = fcc;
  props.vidProps.nWidth = nWidth;
  props.vidProps.nHeight = nHeight;
  props.vidProps.nRowBytes = nRowBytes;
  props.vidProps.dblRate = 25.0;
  return props;
}

inline K_AV_PROPS PropsOf(IVCFrame* pFrame, LONG* plSamples = nullptr) {
  K_AV_PROPS props{};
  EXPECT_EQ(pFrame->VCAVPropsGet(&props, plSamples), S_OK);
  return props;
}

// The frame's 16-bit samples, interleaved.
inline std::vector<int16_t> Samples16(IVCFrame* pFrame) {
  LONG cb = 0;
  LONGLONG ll = 0;
  EXPECT_EQ(pFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  const auto* p = reinterpret_cast<const int16_t*>(ll);
  return std::vector<int16_t>(p, p + cb / 2);
}

// A file name in the temporary folder that parallel test runs do not share.
inline std::string TempPath(const char* pszName) {
  return (std::filesystem::temp_directory_path() / (std::string("ffframe_") + std::to_string(getpid()) + "_" + pszName))
      .string();
}

// Picture n of a moving gradient, YUV 4:2:0, luma and chroma both moving.
inline vc::ff::AvFramePtr MovingGradient(int n, int nWidth = 320, int nHeight = 240) {
  vc::ff::AvFramePtr sp(av_frame_alloc());
  sp->format = AV_PIX_FMT_YUV420P;
  sp->width = nWidth;
  sp->height = nHeight;
  if (av_frame_get_buffer(sp.get(), 0) < 0) return nullptr;
  for (int y = 0; y < nHeight; ++y)
    for (int x = 0; x < nWidth; ++x)
      sp->data[0][y * sp->linesize[0] + x] = static_cast<uint8_t>(16 + ((x + y + 3 * n) % 200));
  for (int p = 1; p < 3; ++p)
    for (int y = 0; y < nHeight / 2; ++y)
      for (int x = 0; x < nWidth / 2; ++x)
        sp->data[p][y * sp->linesize[p] + x] = static_cast<uint8_t>(128 + ((x + n) % 32) * (p == 1 ? 1 : -1));
  return sp;
}

// A copy of picture as frame n of a 25 fps stream.
inline ComPtr<IVCFrame> PictureFrame(const AVFrame& picture, int n) {
  vc::ff::AvFramePtr sp(av_frame_clone(&picture));
  K_TIME time{n * kFrame25, (n + 1) * kFrame25, {}, eKFF_None};
  ComPtr<IVCFrame> cp;
  EXPECT_EQ(vc::ff::FrameFromAVFrame(sp.get(), time, 25.0, cp.AddressOf()), S_OK);
  return cp;
}

// nSamples of a 440 Hz stereo tone, 16-bit at nRate, from sample nFirst on.
inline ComPtr<IVCFrame> ToneFrame(int64_t nFirst, int nSamples, int nRate = 48000) {
  vc::ff::AvFramePtr sp;
  EXPECT_EQ(vc::ff::AllocAudio(AV_SAMPLE_FMT_S16, 2, nRate, nSamples, &sp), S_OK);
  if (!sp) return nullptr;
  auto* p = reinterpret_cast<int16_t*>(sp->data[0]);
  for (int i = 0; i < nSamples; ++i)
    p[2 * i] = p[2 * i + 1] = static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * double(nFirst + i) / nRate));
  const LONGLONG rtStart = nFirst * VC_TIME_SECOND / nRate;
  K_TIME time{rtStart, rtStart + int64_t(nSamples) * VC_TIME_SECOND / nRate, {}, eKFF_None};
  ComPtr<IVCFrame> cp;
  EXPECT_EQ(vc::ff::FrameFromAVFrame(sp.get(), time, 0, cp.AddressOf()), S_OK);
  return cp;
}

// Luma PSNR of a decoded picture against its source (both 8-bit planar, the
// source's size); 99 when they are equal.
inline double PsnrY(const AVFrame& source, const AVFrame& decoded) {
  double dblSum = 0;
  for (int y = 0; y < source.height; ++y)
    for (int x = 0; x < source.width; ++x) {
      const double d = double(source.data[0][y * source.linesize[0] + x]) -
                       double(decoded.data[0][y * decoded.linesize[0] + x]);
      dblSum += d * d;
    }
  const double dblMse = dblSum / (source.width * source.height);
  return dblMse == 0 ? 99 : 10 * std::log10(255.0 * 255.0 / dblMse);
}

}  // namespace vc::fftest
