// The frame object's first layer: pixel-format codes, wrapping decoded
// FFmpeg frames without copying, the public one-buffer layout, properties,
// time and flags, and the argument checks.
#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
}

#include <cstring>
#include <memory>
#include <vector>

#include "FFTestFrames.h"
#include "FFClasses.h"
#include "FFFormats.h"
#include "FFFrame.h"
#include "FFTestMedia.h"
#include "VCComPtr.h"
#include "VCObject.h"

namespace {

using vc::ComPtr;
using namespace vc::ff;

struct AvFrameDeleter {
  void operator()(AVFrame* p) const { av_frame_free(&p); }
};
using AvFrameOwner = std::unique_ptr<AVFrame, AvFrameDeleter>;

// A YUV420P picture with each plane in a buffer of its own (as FFmpeg's
// decoders hand them out), filled with a pattern that differs per plane.
AvFrameOwner MakeSplitPlanes(int nWidth, int nHeight) {
  AvFrameOwner spFrame(av_frame_alloc());
  spFrame->format = AV_PIX_FMT_YUV420P;
  spFrame->width = nWidth;
  spFrame->height = nHeight;
  for (int i = 0; i < 3; ++i) {
    const int nW = i ? (nWidth + 1) / 2 : nWidth;
    const int nH = i ? (nHeight + 1) / 2 : nHeight;
    const int nStride = FFALIGN(nW, 64) + 64;  // a stride no public layout derives
    spFrame->buf[i] = av_buffer_alloc(static_cast<size_t>(nStride) * nH);
    spFrame->data[i] = spFrame->buf[i]->data;
    spFrame->linesize[i] = nStride;
    for (int y = 0; y < nH; ++y) {
      for (int x = 0; x < nW; ++x) spFrame->data[i][y * nStride + x] = static_cast<uint8_t>(x + 3 * y + 50 * i);
    }
  }
  spFrame->extended_data = spFrame->data;
  return spFrame;
}

AvFrameOwner MakeAudio(AVSampleFormat eFmt, int nChannels, int nSamples) {
  AvFrameOwner spFrame(av_frame_alloc());
  spFrame->format = eFmt;
  spFrame->sample_rate = 48000;
  spFrame->nb_samples = nSamples;
  av_channel_layout_default(&spFrame->ch_layout, nChannels);
  EXPECT_EQ(av_frame_get_buffer(spFrame.get(), 0), 0);
  return spFrame;
}

ComPtr<IVCFrame> Wrap(AVFrame* pAvFrame, double dblRate = 25.0, int nBits = 0) {
  ComPtr<IVCFrame> cpFrame;
  K_TIME time{};
  time.rtStartTime = 400000;
  time.rtEndTime = 800000;
  EXPECT_EQ(FrameFromAVFrameEx(pAvFrame, time, dblRate, nBits, cpFrame.AddressOf()), S_OK);
  return cpFrame;
}

using vc::fftest::NewFrame;
using vc::fftest::VideoProps;

template <class T>
const T* At(LONGLONG ll) {
  return reinterpret_cast<const T*>(static_cast<uintptr_t>(ll));
}

// First decoded frame of the best stream of a type in a test file.
AvFrameOwner DecodeFirst(const std::string& strFile, AVMediaType eType) {
  AVFormatContext* pFormat = nullptr;
  if (avformat_open_input(&pFormat, vc::fftest::MediaPath(strFile).c_str(), nullptr, nullptr) < 0) return nullptr;
  std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> spFormat(
      pFormat, [](AVFormatContext* p) { avformat_close_input(&p); });
  avformat_find_stream_info(pFormat, nullptr);
  const AVCodec* pCodec = nullptr;
  const int nStream = av_find_best_stream(pFormat, eType, -1, -1, &pCodec, 0);
  if (nStream < 0) return nullptr;
  std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> spCodec(
      avcodec_alloc_context3(pCodec), [](AVCodecContext* p) { avcodec_free_context(&p); });
  avcodec_parameters_to_context(spCodec.get(), pFormat->streams[nStream]->codecpar);
  if (avcodec_open2(spCodec.get(), pCodec, nullptr) < 0) return nullptr;
  AVPacket* pPacket = av_packet_alloc();
  AvFrameOwner spFrame(av_frame_alloc());
  bool bGot = false;
  while (!bGot && av_read_frame(pFormat, pPacket) >= 0) {
    if (pPacket->stream_index == nStream && avcodec_send_packet(spCodec.get(), pPacket) >= 0)
      bGot = avcodec_receive_frame(spCodec.get(), spFrame.get()) >= 0;
    av_packet_unref(pPacket);
  }
  av_packet_free(&pPacket);
  return bGot ? std::move(spFrame) : nullptr;
}

// ---------------------------------------------------------------------------

TEST(FFFrameFormatsTest, FourccCodesMapBothWays) {
  const eVCCC arrCodes[] = {eVCCC_I420, eVCCC_NV12, eVCCC_YUY2, eVCCC_UYVY, eVCCC_YVYU, eVCCC_RGB24,
                            eVCCC_RGB32, eVCCC_ARGB32, eVCCC_r210, ePX_RGBX32, ePX_RGBA32_FULL,
                            ePX_1Channel8bit, ePX_YUV8_422_PLANE, ePX_YUV10_420_PLANE, ePX_YUV_PLANE};
  for (eVCCC fcc : arrCodes) {
    const AVPixelFormat eFmt = PixelFormatFromFourcc(fcc);
    ASSERT_NE(eFmt, AV_PIX_FMT_NONE) << std::hex << fcc;
    EXPECT_EQ(FourccFromPixelFormat(eFmt), fcc) << std::hex << fcc;
  }
}

TEST(FFFrameFormatsTest, AliasesAndColourBitsShareTheirLayout) {
  EXPECT_EQ(PixelFormatFromFourcc(eVCCC_YV12), AV_PIX_FMT_YUV420P);
  EXPECT_EQ(PixelFormatFromFourcc(ePX_YUV8_420_PLANE), AV_PIX_FMT_YUV420P);
  EXPECT_EQ(PixelFormatFromFourcc(ePX_NV12_C709), AV_PIX_FMT_NV12);
  EXPECT_EQ(PixelFormatFromFourcc(ePX_UYVY_C601), AV_PIX_FMT_UYVY422);
  EXPECT_EQ(PixelFormatFromFourcc(eVCCC_HDYC), AV_PIX_FMT_UYVY422);
  EXPECT_EQ(PixelFormatFromFourcc(ePX_BGRA32_FULL), AV_PIX_FMT_BGRA);
  EXPECT_EQ(PixelFormatFromFourcc(ePX_BGRX32), AV_PIX_FMT_BGR0);
  EXPECT_EQ(FourccFromPixelFormat(AV_PIX_FMT_YUVJ420P), eVCCC_I420);
  EXPECT_EQ(ColourSpaceFromFourcc(ePX_NV12_C709), AVCOL_SPC_BT709);
  EXPECT_EQ(ColourSpaceFromFourcc(eVCCC_HDYC), AVCOL_SPC_BT709);
  EXPECT_EQ(ColourSpaceFromFourcc(eVCCC_NV12), AVCOL_SPC_UNSPECIFIED);
}

TEST(FFFrameFormatsTest, CodesWithoutASystemMemoryCounterpartStayUnmapped) {
  EXPECT_EQ(PixelFormatFromFourcc(eVCCC_v210), AV_PIX_FMT_NONE);
  EXPECT_EQ(PixelFormatFromFourcc(eVCCC_MJPG), AV_PIX_FMT_NONE);
  EXPECT_EQ(PixelFormatFromFourcc(ePX_BGRA32_PREMULL), AV_PIX_FMT_NONE);
  EXPECT_EQ(PixelFormatFromFourcc(eVCCC_Default), AV_PIX_FMT_NONE);
  EXPECT_EQ(FourccFromPixelFormat(AV_PIX_FMT_GBRP), eVCCC_Default);
  EXPECT_EQ(FourccFromPixelFormat(AV_PIX_FMT_NONE), eVCCC_Default);
}

TEST(FFFrameFormatsTest, PublicLayoutDerivesChromaStridesFromRowBytes) {
  PlaneLayout layout;
  ASSERT_TRUE(LayoutFor(AV_PIX_FMT_YUV420P, eVCCC_I420, 320, 240, 384, &layout));
  EXPECT_EQ(layout.nPlanes, 3);
  EXPECT_EQ(layout.arrStride[1], 192);
  EXPECT_EQ(layout.arrOffset[1], 384u * 240);
  EXPECT_EQ(layout.arrOffset[2], 384u * 240 + 192u * 120);
  EXPECT_EQ(layout.cbTotal, 384u * 240 * 3 / 2);
  ASSERT_TRUE(LayoutFor(AV_PIX_FMT_NV12, eVCCC_NV12, 320, 241, 320, &layout));
  EXPECT_EQ(layout.arrStride[1], 320);
  EXPECT_EQ(layout.arrRows[1], 121);
  // Too small, and odd for a 16-bit planar format.
  EXPECT_FALSE(LayoutFor(AV_PIX_FMT_YUV420P, eVCCC_I420, 320, 240, 319, &layout));
  EXPECT_FALSE(LayoutFor(AV_PIX_FMT_YUV420P10LE, ePX_YUV10_420_PLANE, 320, 240, 641, &layout));
  // New frames align every plane's rows.
  const int nRow = DefaultRowBytes(AV_PIX_FMT_YUV420P, 100);
  EXPECT_EQ(nRow % 64, 0);
  EXPECT_GE(nRow, 100);
}

// ---------------------------------------------------------------------------

TEST(FFFrameWrapTest, VideoIsWrappedWithoutCopying) {
  AvFrameOwner spAv = MakeSplitPlanes(64, 48);
  spAv->interlaced_frame = 1;
  spAv->top_field_first = 1;
  spAv->sample_aspect_ratio = AVRational{4, 3};
  spAv->pict_type = AV_PICTURE_TYPE_B;
  const uint8_t* pLuma = spAv->data[0];
  ComPtr<IVCFrame> cpFrame = Wrap(spAv.get());
  ASSERT_TRUE(cpFrame);
  EXPECT_EQ(spAv->buf[0], nullptr);  // the references moved into the frame

  const AVFrame* pInside = FrameAVFrame(cpFrame.Get());
  ASSERT_NE(pInside, nullptr);
  EXPECT_EQ(pInside->data[0], pLuma);
  VC_VID_PTR ptr{};
  ASSERT_EQ(cpFrame->VCVideoGetBytesEx(&ptr), S_OK);
  EXPECT_EQ(At<uint8_t>(ptr.lpVideoPlanes[0]), pLuma);
  EXPECT_EQ(ptr.szVideoPlanes[1].cx, 32);
  EXPECT_EQ(ptr.szVideoPlanes[1].cy, 24);

  K_AV_PROPS props{};
  LONG lSamples = -1;
  ASSERT_EQ(cpFrame->VCAVPropsGet(&props, &lSamples), S_OK);
  EXPECT_EQ(props.vidProps.fccType, eVCCC_I420);
  EXPECT_EQ(props.vidProps.nWidth, 64);
  EXPECT_EQ(props.vidProps.nHeight, 48);
  EXPECT_EQ(props.vidProps.eInterlace, eKI_Field1First);
  EXPECT_EQ(props.vidProps.nAspectX, 16);  // 64 * 4 : 48 * 3
  EXPECT_EQ(props.vidProps.nAspectY, 9);
  EXPECT_DOUBLE_EQ(props.vidProps.dblRate, 25.0);
  EXPECT_EQ(lSamples, 0);
  K_TIME time{};
  ASSERT_EQ(cpFrame->VCTimeGet(&time), S_OK);
  EXPECT_EQ(time.rtStartTime, 400000);
  EXPECT_EQ(time.eFFlags & eKFF_Type_Mask, eKFF_Bidir_Predicted);
}

TEST(FFFrameWrapTest, SplitPlanesAreLaidOutInOneBufferOnDemand) {
  AvFrameOwner spAv = MakeSplitPlanes(40, 30);
  AvFrameOwner spCopy(av_frame_clone(spAv.get()));  // keeps the original pixels for comparison
  ComPtr<IVCFrame> cpFrame = Wrap(spAv.get());
  const AVFrame* pBefore = FrameAVFrame(cpFrame.Get());
  const uint8_t* pOldChroma = pBefore->data[1];

  LONG cbVideo = 0;
  LONGLONG llVideo = 0;
  ASSERT_EQ(cpFrame->VCVideoGetBytes(&cbVideo, &llVideo), S_OK);
  K_AV_PROPS props{};
  ASSERT_EQ(cpFrame->VCAVPropsGet(&props, nullptr), S_OK);
  const int nRow = props.vidProps.nRowBytes;
  ASSERT_GE(nRow, 40);
  EXPECT_EQ(cbVideo, nRow * 30 + 2 * (nRow / 2) * 15);
  const uint8_t* pBytes = At<uint8_t>(llVideo);
  for (int y = 0; y < 30; ++y) ASSERT_EQ(std::memcmp(pBytes + y * nRow, spCopy->data[0] + y * spCopy->linesize[0], 40), 0);
  const uint8_t* pV = pBytes + nRow * 30 + (nRow / 2) * 15;
  for (int y = 0; y < 15; ++y) {
    ASSERT_EQ(std::memcmp(pV + y * (nRow / 2), spCopy->data[2] + y * spCopy->linesize[2], 20), 0);
  }
  // The old planes stay readable while the frame lives.
  EXPECT_EQ(pOldChroma[0], spCopy->data[1][0]);
  // A second call finds the layout already in place.
  LONGLONG llAgain = 0;
  ASSERT_EQ(cpFrame->VCVideoGetBytes(nullptr, &llAgain), S_OK);
  EXPECT_EQ(llAgain, llVideo);
}

TEST(FFFrameWrapTest, YV12StoresVBeforeU) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AV_PROPS props = VideoProps(eVCCC_YV12, 32, 16);
  ASSERT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  const AVFrame* pAv = FrameAVFrame(cpFrame.Get());
  ASSERT_NE(pAv, nullptr);
  EXPECT_EQ(pAv->format, AV_PIX_FMT_YUV420P);
  VC_VID_PTR ptr{};
  ASSERT_EQ(cpFrame->VCVideoGetBytesEx(&ptr), S_OK);
  EXPECT_EQ(At<uint8_t>(ptr.lpVideoPlanes[1]), pAv->data[2]);
  EXPECT_EQ(At<uint8_t>(ptr.lpVideoPlanes[2]), pAv->data[1]);
  EXPECT_LT(pAv->data[2], pAv->data[1]);
}

TEST(FFFrameWrapTest, InterleavedAudioIsKeptAndPlanarFloatBecomes16Bit) {
  AvFrameOwner spS16 = MakeAudio(AV_SAMPLE_FMT_S16, 2, 100);
  const uint8_t* pSamples = spS16->data[0];
  ComPtr<IVCFrame> cpFrame = Wrap(spS16.get());
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  EXPECT_EQ(cb, 400);
  EXPECT_EQ(At<uint8_t>(ll), pSamples);
  EXPECT_EQ(FrameAVFrame(cpFrame.Get()), FrameAudioAVFrame(cpFrame.Get()));

  AvFrameOwner spFlt = MakeAudio(AV_SAMPLE_FMT_FLTP, 2, 10);
  for (int s = 0; s < 10; ++s) {
    reinterpret_cast<float*>(spFlt->data[0])[s] = 0.5f;
    reinterpret_cast<float*>(spFlt->data[1])[s] = -0.25f;
  }
  cpFrame = Wrap(spFlt.get());
  K_AV_PROPS props{};
  LONG lSamples = 0;
  ASSERT_EQ(cpFrame->VCAVPropsGet(&props, &lSamples), S_OK);
  EXPECT_EQ(props.audProps.nBitsPerSample, 16);
  EXPECT_EQ(props.audProps.nChannels, 2);
  EXPECT_EQ(props.audProps.nSamplesPerSec, 48000);
  EXPECT_EQ(lSamples, 10);
  ASSERT_EQ(cpFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  const int16_t* pPcm = At<int16_t>(ll);
  EXPECT_EQ(pPcm[0], 16384);
  EXPECT_EQ(pPcm[1], -8192);
  EXPECT_EQ(pPcm[18], 16384);

  AvFrameOwner spFlt32 = MakeAudio(AV_SAMPLE_FMT_FLTP, 1, 4);
  cpFrame = Wrap(spFlt32.get(), 0.0, 32);
  ASSERT_EQ(cpFrame->VCAVPropsGet(&props, nullptr), S_OK);
  EXPECT_EQ(props.audProps.nBitsPerSample, 32);
}

TEST(FFFrameWrapTest, DecodedMediaWrapsAsPublicFormats) {
  if (!vc::fftest::MediaExists("h264_aac.mp4")) GTEST_SKIP() << "test media not made";
  AvFrameOwner spVideo = DecodeFirst("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  ASSERT_TRUE(spVideo);
  ComPtr<IVCFrame> cpFrame = Wrap(spVideo.get());
  VC_FRAME_INFO info{};
  ASSERT_EQ(cpFrame->VCAllGet(&info), S_OK);
  EXPECT_EQ(info.avProps.vidProps.fccType, eVCCC_I420);
  EXPECT_EQ(info.avProps.vidProps.nWidth, 320);
  EXPECT_EQ(info.avProps.vidProps.nHeight, 240);
  EXPECT_EQ(info.cbVideo, static_cast<DWORD>(info.avProps.vidProps.nRowBytes) * 240 * 3 / 2);
  EXPECT_NE(info.lpVideo, 0);
  EXPECT_NE(info.llVideoID, 0);

  AvFrameOwner spAudio = DecodeFirst("h264_aac.mp4", AVMEDIA_TYPE_AUDIO);
  ASSERT_TRUE(spAudio);
  const int nSamples = spAudio->nb_samples;
  cpFrame = Wrap(spAudio.get());
  ASSERT_EQ(cpFrame->VCAllGet(&info), S_OK);
  EXPECT_EQ(info.avProps.audProps.nBitsPerSample, 16);
  EXPECT_EQ(info.avProps.audProps.nSamplesPerSec, 48000);
  EXPECT_EQ(info.lAudioSamples, nSamples);
  EXPECT_EQ(info.cbAudio, static_cast<DWORD>(nSamples * 2 * info.avProps.audProps.nChannels));
  EXPECT_EQ(info.cbVideo, 0u);
}

TEST(FFFrameWrapTest, PlanarRgbIsConvertedToAPublicFormat) {
  AvFrameOwner spAv(av_frame_alloc());
  spAv->format = AV_PIX_FMT_GBRP;
  spAv->width = 16;
  spAv->height = 8;
  ASSERT_EQ(av_frame_get_buffer(spAv.get(), 0), 0);
  ComPtr<IVCFrame> cpFrame = Wrap(spAv.get());
  K_AV_PROPS props{};
  ASSERT_EQ(cpFrame->VCAVPropsGet(&props, nullptr), S_OK);
  EXPECT_NE(props.vidProps.fccType, eVCCC_Default);
  EXPECT_NE(PixelFormatFromFourcc(props.vidProps.fccType), AV_PIX_FMT_NONE);
}

TEST(FFFrameWrapTest, RefusesEmptyFramesAndLeavesThemAlone) {
  ComPtr<IVCFrame> cpFrame;
  K_TIME time{};
  EXPECT_EQ(FrameFromAVFrame(nullptr, time, 0, cpFrame.AddressOf()), E_INVALIDARG);
  AvFrameOwner spEmpty(av_frame_alloc());
  EXPECT_EQ(FrameFromAVFrame(spEmpty.get(), time, 0, cpFrame.AddressOf()), E_INVALIDARG);
  EXPECT_EQ(FrameFromAVFrame(spEmpty.get(), time, 0, nullptr), E_POINTER);
  EXPECT_EQ(FrameAVFrame(nullptr), nullptr);
}

// ---------------------------------------------------------------------------

TEST(FFFrameObjectTest, CreatesStandAloneAndAggregated) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  ASSERT_TRUE(cpFrame);
  EXPECT_EQ(FrameAVFrame(cpFrame.Get()), nullptr);  // nothing inside yet

  // A minimal outer object that owns the inner unknown.
  struct COuter : IUnknown {
    ComPtr<IUnknown> cpInner;
    std::atomic<ULONG> nRef{1};
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
      if (IsEqualIID(riid, IID_IUnknown)) {
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
      }
      return cpInner->QueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++nRef; }
    ULONG STDMETHODCALLTYPE Release() override { return --nRef; }
  } outer;
  ASSERT_EQ(CreateFFFrame(&outer, vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(outer.cpInner.AddressOf())),
            CLASS_E_NOAGGREGATION);
  ASSERT_EQ(CreateFFFrame(&outer, IID_IUnknown, reinterpret_cast<void**>(outer.cpInner.AddressOf())), S_OK);
  ComPtr<IVCFrame> cpInnerFrame;
  ASSERT_EQ(outer.QueryInterface(vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpInnerFrame.AddressOf())), S_OK);
  const ULONG nBefore = outer.nRef;
  cpInnerFrame->AddRef();  // counts on the outer object
  EXPECT_EQ(outer.nRef, nBefore + 1);
  cpInnerFrame->Release();
  K_TIME time{};
  time.rtStartTime = 7;
  ASSERT_EQ(cpInnerFrame->VCTimeSet(&time), S_OK);
  cpInnerFrame.Release();
  outer.cpInner.Release();
}

TEST(FFFrameObjectTest, PropsSetAllocatesBlackPictures) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AV_PROPS props = VideoProps(eVCCC_I420, 64, 32, 128);
  props.vidProps.eInterlace = eKI_Field2First;
  ASSERT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  K_AV_PROPS got{};
  ASSERT_EQ(cpFrame->VCAVPropsGet(&got, nullptr), S_OK);
  EXPECT_EQ(got.vidProps.nRowBytes, 128);
  EXPECT_EQ(got.vidProps.eInterlace, eKI_Field2First);
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCVideoGetBytes(&cb, &ll), S_OK);
  ASSERT_EQ(cb, 128 * 32 + 2 * 64 * 16);
  const uint8_t* p = At<uint8_t>(ll);
  EXPECT_EQ(p[0], 16);                // limited-range black
  EXPECT_EQ(p[128 * 32], 128);        // U
  EXPECT_EQ(p[cb - 1 - 64 + 32], 128);  // V, last row, a used byte
  // Same layout again: the pixels stay.
  const_cast<uint8_t*>(p)[0] = 99;
  props.vidProps.dblRate = 50.0;
  ASSERT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  LONGLONG llAgain = 0;
  ASSERT_EQ(cpFrame->VCVideoGetBytes(nullptr, &llAgain), S_OK);
  EXPECT_EQ(llAgain, ll);
  EXPECT_EQ(At<uint8_t>(llAgain)[0], 99);
  // No size: no video.
  props.vidProps.nWidth = props.vidProps.nHeight = 0;
  ASSERT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  ASSERT_EQ(cpFrame->VCVideoGetBytes(&cb, &ll), S_OK);
  EXPECT_EQ(cb, 0);
  EXPECT_EQ(ll, 0);
}

TEST(FFFrameObjectTest, BadPropertiesChangeNothing) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AV_PROPS props = VideoProps(eVCCC_NV12, 32, 32);
  ASSERT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  K_AV_PROPS bad = VideoProps(eVCCC_v210, 32, 32);
  EXPECT_EQ(cpFrame->VCAVPropsSet(&bad, nullptr), E_INVALIDARG);
  bad = VideoProps(eVCCC_I420, 32, 32, 16);  // row smaller than the picture
  EXPECT_EQ(cpFrame->VCAVPropsSet(&bad, nullptr), E_INVALIDARG);
  bad = VideoProps(eVCCC_I420, -2, 32);
  EXPECT_EQ(cpFrame->VCAVPropsSet(&bad, nullptr), E_INVALIDARG);
  bad = props;
  bad.audProps.nChannels = 2;
  bad.audProps.nSamplesPerSec = 48000;
  bad.audProps.nBitsPerSample = 24;
  EXPECT_EQ(cpFrame->VCAVPropsSet(&bad, nullptr), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCAVPropsSet(nullptr, nullptr), E_POINTER);
  K_AV_PROPS got{};
  ASSERT_EQ(cpFrame->VCAVPropsGet(&got, nullptr), S_OK);
  EXPECT_EQ(got.vidProps.fccType, eVCCC_NV12);
  EXPECT_EQ(got.audProps.nChannels, 0);
}

TEST(FFFrameObjectTest, NullOutPointersAreRefused) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  EXPECT_EQ(cpFrame->VCGetProcessID(nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCAVPropsGet(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCTimeGet(nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCTimeSet(nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCFlagCheck(eKFF_Break, nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCAllGet(nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCAudioGetBytes(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCVideoGetBytes(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCVideoGetBytesEx(nullptr), E_POINTER);
  DWORD dwPid = 0;
  EXPECT_EQ(cpFrame->VCGetProcessID(&dwPid), S_OK);
  EXPECT_EQ(dwPid, GetCurrentProcessId());
}

TEST(FFFrameObjectTest, FlagCheckTreatsPictureTypeAsAValue) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_TIME time{};
  time.eFFlags = static_cast<eKFrameFlags>(eKFF_Dup | eKFF_Bidir_Predicted | eKFF_Live);
  ASSERT_EQ(cpFrame->VCTimeSet(&time), S_OK);
  auto check = [&](uint32_t uFlag) {
    LONG nRes = -1;
    EXPECT_EQ(cpFrame->VCFlagCheck(static_cast<eKFrameFlags>(uFlag), &nRes), S_OK);
    return nRes;
  };
  EXPECT_EQ(check(eKFF_Break), 1);  // a duplicate is a break too
  EXPECT_EQ(check(eKFF_Dup), 1);
  EXPECT_EQ(check(eKFF_Live_Break), 1);
  EXPECT_EQ(check(eKFF_Pause), 0);
  EXPECT_EQ(check(eKFF_Bidir_Predicted), 1);
  EXPECT_EQ(check(eKFF_Predicted), 0);  // shares a bit with B, still not P
  EXPECT_EQ(check(eKFF_Intra), 0);
  EXPECT_EQ(check(eKFF_None), 0);
  time.eFFlags = eKFF_None;
  ASSERT_EQ(cpFrame->VCTimeSet(&time), S_OK);
  EXPECT_EQ(check(eKFF_None), 1);
}

}  // namespace
