// The frame's picture work: clones in every system-memory mode, cutting,
// conversion (format, size, scale type, audio), resizing, picture files,
// the renderer calls it cannot answer, and concurrent readers.
#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <atomic>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "FFTestFrames.h"
#include "FFTestHttpServer.h"
#include "FFClasses.h"
#include "FFFrame.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using namespace vc::ff;

using vc::fftest::NewFrame;
using vc::fftest::PropsOf;
using vc::fftest::ReadFileBytes;
using vc::fftest::TempPath;
using vc::fftest::VideoProps;

VC_VID_PTR Planes(IVCFrame* pFrame) {
  VC_VID_PTR ptr{};
  EXPECT_EQ(pFrame->VCVideoGetBytesEx(&ptr), S_OK);
  return ptr;
}

uint8_t* PlaneRow(const VC_VID_PTR& ptr, int nPlane, int y) {
  return reinterpret_cast<uint8_t*>(ptr.lpVideoPlanes[nPlane]) + static_cast<ptrdiff_t>(y) * ptr.cbVideoRowBytes[nPlane];
}

// An I420 picture of smooth, legal-range gradients; fValue(plane, x, y).
template <class F>
ComPtr<IVCFrame> I420(int nWidth, int nHeight, F fValue) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AV_PROPS props = VideoProps(eVCCC_I420, nWidth, nHeight);
  EXPECT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  const VC_VID_PTR ptr = Planes(cpFrame.Get());
  for (int p = 0; p < 3; ++p) {
    for (int y = 0; y < ptr.szVideoPlanes[p].cy; ++y) {
      for (int x = 0; x < ptr.szVideoPlanes[p].cx; ++x) PlaneRow(ptr, p, y)[x] = static_cast<uint8_t>(fValue(p, x, y));
    }
  }
  return cpFrame;
}

// Smooth ramps with colours that stay inside what RGB can show, so that a
// round trip through RGB loses only rounding.
ComPtr<IVCFrame> Gradient(int nWidth, int nHeight) {
  return I420(nWidth, nHeight, [nWidth, nHeight](int p, int x, int y) {
    if (p == 0) return 40 + (x + y) * 150 / (nWidth + nHeight);
    return p == 1 ? 110 + x * 72 / nWidth : 110 + y * 72 / nHeight;
  });
}

LONGLONG VideoAddress(IVCFrame* pFrame, LONG* pcb = nullptr) {
  LONGLONG ll = 0;
  LONG cb = 0;
  EXPECT_EQ(pFrame->VCVideoGetBytes(&cb, &ll), S_OK);
  if (pcb) *pcb = cb;
  return ll;
}

// Peak signal-to-noise ratio of two same-sized planes.
double Psnr(const VC_VID_PTR& a, const VC_VID_PTR& b, int nPlane) {
  double dblSum = 0;
  const int nW = a.szVideoPlanes[nPlane].cx;
  const int nH = a.szVideoPlanes[nPlane].cy;
  for (int y = 0; y < nH; ++y) {
    for (int x = 0; x < nW; ++x) {
      const double d = PlaneRow(a, nPlane, y)[x] - PlaneRow(b, nPlane, y)[x];
      dblSum += d * d;
    }
  }
  const double dblMse = dblSum / (nW * nH);
  return dblMse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / dblMse);
}

// A frame with every part: picture, audio, a data block, a string, an object.
ComPtr<IVCFrame> FullFrame() {
  ComPtr<IVCFrame> cpFrame = Gradient(32, 16);
  K_AUD_PROPS aud{2, 48000, 16, 0};
  EXPECT_EQ(cpFrame->VCAudioAlloc(&aud, 10), S_OK);
  const uint8_t arrData[3] = {1, 2, 3};
  CBstr bsData(u"anc"), bsStr(u"title"), bsValue(u"hello"), bsObj(u"child");
  EXPECT_EQ(cpFrame->VCDataSet(bsData, 3, reinterpret_cast<LONGLONG>(arrData)), S_OK);
  EXPECT_EQ(cpFrame->VCStrSet(bsStr, bsValue), S_OK);
  EXPECT_EQ(cpFrame->VCObjSet(bsObj, NewFrame().Get()), S_OK);
  K_TIME time{};
  time.rtStartTime = 1234;
  time.rtEndTime = 5678;
  time.eFFlags = eKFF_Intra;
  EXPECT_EQ(cpFrame->VCTimeSet(&time), S_OK);
  return cpFrame;
}

// ---------------------------------------------------------------------------

TEST(FFFrameCloneTest, ReferenceSharesPixelsAndCopyDoesNot) {
  ComPtr<IVCFrame> cpFrame = Gradient(32, 16);
  LONG cb = 0;
  const LONGLONG llPixels = VideoAddress(cpFrame.Get(), &cb);
  ComPtr<IVCFrame> cpRef;
  ComPtr<IVCFrame> cpCopy;
  ASSERT_EQ(cpFrame->VCClone(cpRef.AddressOf(), eKFC_VideoRef, eVCCC_Default), S_OK);
  ASSERT_EQ(cpFrame->VCClone(cpCopy.AddressOf(), eKFC_Video, eVCCC_Default), S_OK);
  EXPECT_EQ(VideoAddress(cpRef.Get()), llPixels);
  LONG cbCopy = 0;
  const LONGLONG llCopy = VideoAddress(cpCopy.Get(), &cbCopy);
  EXPECT_NE(llCopy, llPixels);
  ASSERT_EQ(cbCopy, cb);
  EXPECT_EQ(std::memcmp(reinterpret_cast<void*>(llCopy), reinterpret_cast<void*>(llPixels), static_cast<size_t>(cb)), 0);

  VC_FRAME_INFO infoOrig{}, infoRef{}, infoCopy{};
  ASSERT_EQ(cpFrame->VCAllGet(&infoOrig), S_OK);
  ASSERT_EQ(cpRef->VCAllGet(&infoRef), S_OK);
  ASSERT_EQ(cpCopy->VCAllGet(&infoCopy), S_OK);
  EXPECT_EQ(infoRef.llVideoID, infoOrig.llVideoID);
  EXPECT_NE(infoCopy.llVideoID, infoOrig.llVideoID);

  reinterpret_cast<uint8_t*>(llPixels)[0] = 77;
  EXPECT_EQ(reinterpret_cast<uint8_t*>(VideoAddress(cpRef.Get()))[0], 77);
  EXPECT_NE(reinterpret_cast<uint8_t*>(llCopy)[0], 77);
  // The reference lives on when the original goes.
  cpFrame.Release();
  EXPECT_EQ(reinterpret_cast<uint8_t*>(VideoAddress(cpRef.Get()))[0], 77);
}

struct CloneCase {
  eKFrameClone eType;
  bool bVideo, bAudio, bData, bObj;
};

class FFFrameCloneModeTest : public ::testing::TestWithParam<CloneCase> {};

TEST_P(FFFrameCloneModeTest, TakesThePartsTheModeNames) {
  const CloneCase& c = GetParam();
  ComPtr<IVCFrame> cpFrame = FullFrame();
  ComPtr<IVCFrame> cpClone;
  ASSERT_EQ(cpFrame->VCClone(cpClone.AddressOf(), c.eType, eVCCC_Default), S_OK);
  VC_FRAME_INFO orig{}, clone{};
  ASSERT_EQ(cpFrame->VCAllGet(&orig), S_OK);
  ASSERT_EQ(cpClone->VCAllGet(&clone), S_OK);
  EXPECT_EQ(clone.mTime.rtStartTime, 1234);
  EXPECT_EQ(clone.mTime.eFFlags, eKFF_Intra);
  EXPECT_EQ(clone.avProps.vidProps.nWidth, 32);  // properties always travel
  EXPECT_EQ(clone.avProps.audProps.nChannels, 2);
  EXPECT_EQ(clone.cbVideo != 0, c.bVideo);
  EXPECT_EQ(clone.cbAudio != 0, c.bAudio);
  if (c.bAudio) {
    EXPECT_NE(clone.lpAudio, orig.lpAudio);  // audio is always copied
    EXPECT_EQ(clone.lAudioSamples, 10);
  }
  EXPECT_EQ(clone.nDataCount, c.bData ? 1 : 0);
  EXPECT_EQ(clone.nStrCount, c.bData ? 1 : 0);
  EXPECT_EQ(clone.nObjCount, c.bObj ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    AllSystemMemoryModes, FFFrameCloneModeTest,
    ::testing::Values(CloneCase{eKFC_Props, false, false, false, false},
                      CloneCase{eKFC_Video, true, false, false, false},
                      CloneCase{eKFC_VideoRef, true, false, false, false},
                      CloneCase{eKFC_Audio, false, true, false, false},
                      CloneCase{eKFC_VideoRef_Audio, true, true, false, false},
                      CloneCase{eKFC_Data, false, false, true, false},
                      CloneCase{eKFC_Data_Audio, false, true, true, false},
                      CloneCase{eKFC_Obj, false, false, false, true},
                      CloneCase{eKFC_ObjData_Audio, false, true, true, true},
                      CloneCase{eKFC_Full, true, true, true, true},
                      CloneCase{eKFC_Reference, true, true, true, true},
                      CloneCase{eKFC_Full_ForceCPU, true, true, true, true},
                      CloneCase{eKFC_Reference_ForceCPU, true, true, true, true}));

TEST(FFFrameCloneTest, ConvertsTheFormatAndTurnsRowsBottomUp) {
  ComPtr<IVCFrame> cpFrame = I420(16, 8, [](int p, int, int y) { return p == 0 ? 20 + 25 * y : 128; });
  ComPtr<IVCFrame> cpRgb;
  ASSERT_EQ(cpFrame->VCClone(cpRgb.AddressOf(), eKFC_VideoRef, eVCCC_RGB32), S_OK);
  EXPECT_EQ(PropsOf(cpRgb.Get()).vidProps.fccType, eVCCC_RGB32);
  ComPtr<IVCFrame> cpFlipped;
  ASSERT_EQ(cpRgb->VCClone(cpFlipped.AddressOf(), static_cast<eKFrameClone>(eKFC_Video | eKFC_BottomTop_ARGB),
                           eVCCC_Default),
            S_OK);
  const VC_VID_PTR up = Planes(cpRgb.Get());
  const VC_VID_PTR down = Planes(cpFlipped.Get());
  for (int y = 0; y < 8; ++y) ASSERT_EQ(std::memcmp(PlaneRow(up, 0, y), PlaneRow(down, 0, 7 - y), 16 * 4), 0) << y;
  EXPECT_NE(PlaneRow(up, 0, 0)[1], PlaneRow(up, 0, 7)[1]);  // the rows really differ
}

TEST(FFFrameCloneTest, RefusesGpuAndUnknownModes) {
  ComPtr<IVCFrame> cpFrame = Gradient(16, 8);
  ComPtr<IVCFrame> cpClone;
  EXPECT_EQ(cpFrame->VCClone(cpClone.AddressOf(), eKFC_Full_ForceGPU, eVCCC_Default), E_NOTIMPL);
  EXPECT_EQ(cpFrame->VCClone(cpClone.AddressOf(), static_cast<eKFrameClone>(0x4), eVCCC_Default), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCClone(cpClone.AddressOf(), eKFC_Video, eVCCC_v210), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCClone(nullptr, eKFC_Full, eVCCC_Default), E_POINTER);
  EXPECT_FALSE(cpClone);
}

// ---------------------------------------------------------------------------

TEST(FFFrameCutTest, CopiesARectangleOnTheChromaGrid) {
  ComPtr<IVCFrame> cpFrame = I420(64, 48, [](int p, int x, int y) { return p == 0 ? x + 64 * (y % 3) : 100 + p; });
  ComPtr<IVCFrame> cpCut;
  RECT rect{10, 6, 30, 20};
  ASSERT_EQ(cpFrame->VCCut(0, &rect, cpCut.AddressOf()), S_OK);
  K_AV_PROPS props = PropsOf(cpCut.Get());
  EXPECT_EQ(props.vidProps.nWidth, 20);
  EXPECT_EQ(props.vidProps.nHeight, 14);
  const VC_VID_PTR src = Planes(cpFrame.Get());
  VC_VID_PTR cut = Planes(cpCut.Get());
  for (int y = 0; y < 14; ++y) ASSERT_EQ(std::memcmp(PlaneRow(cut, 0, y), PlaneRow(src, 0, y + 6) + 10, 20), 0);
  EXPECT_NE(VideoAddress(cpCut.Get()), VideoAddress(cpFrame.Get()));

  // Odd edges widen outwards to whole chroma samples.
  rect = RECT{11, 7, 31, 21};
  ASSERT_EQ(cpFrame->VCCut(0, &rect, cpCut.AddressOf()), S_OK);
  props = PropsOf(cpCut.Get());
  EXPECT_EQ(props.vidProps.nWidth, 22);
  EXPECT_EQ(props.vidProps.nHeight, 16);

  // The second field: the odd lines.
  ASSERT_EQ(cpFrame->VCCut(2, nullptr, cpCut.AddressOf()), S_OK);
  props = PropsOf(cpCut.Get());
  EXPECT_EQ(props.vidProps.nHeight, 24);
  EXPECT_EQ(props.vidProps.eInterlace, eKI_OneField);
  cut = Planes(cpCut.Get());
  for (int y = 0; y < 24; ++y) ASSERT_EQ(std::memcmp(PlaneRow(cut, 0, y), PlaneRow(src, 0, 2 * y + 1), 64), 0);
}

TEST(FFFrameCutTest, RefusesWhatCannotBeCut) {
  ComPtr<IVCFrame> cpFrame = Gradient(32, 16);
  ComPtr<IVCFrame> cpCut;
  RECT rect{40, 0, 50, 10};
  EXPECT_EQ(cpFrame->VCCut(0, &rect, cpCut.AddressOf()), E_INVALIDARG);
  rect = RECT{10, 10, 5, 12};
  EXPECT_EQ(cpFrame->VCCut(0, &rect, cpCut.AddressOf()), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCCut(3, nullptr, cpCut.AddressOf()), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCCut(0, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(NewFrame()->VCCut(0, nullptr, cpCut.AddressOf()), HRESULT_FROM_WIN32(ERROR_EMPTY));
}

// ---------------------------------------------------------------------------

TEST(FFFrameConvertTest, I420ToRgb32AndBackStaysClose) {
  ComPtr<IVCFrame> cpFrame = Gradient(320, 240);
  K_AV_PROPS rgb = PropsOf(cpFrame.Get());
  rgb.vidProps.fccType = eVCCC_RGB32;
  ComPtr<IVCFrame> cpRgb;
  LONG nRest = -1;
  ASSERT_EQ(cpFrame->VCConvert(&rgb, cpRgb.AddressOf(), &nRest, nullptr, nullptr), S_OK);
  EXPECT_EQ(nRest, 0);
  K_AV_PROPS props = PropsOf(cpRgb.Get());
  EXPECT_EQ(props.vidProps.fccType, eVCCC_RGB32);
  EXPECT_GE(props.vidProps.nRowBytes, 320 * 4);
  K_AV_PROPS yuv = props;
  yuv.vidProps.fccType = eVCCC_I420;
  ComPtr<IVCFrame> cpBack;
  ASSERT_EQ(cpRgb->VCConvert(&yuv, cpBack.AddressOf(), nullptr, nullptr, nullptr), S_OK);
  const VC_VID_PTR a = Planes(cpFrame.Get());
  const VC_VID_PTR b = Planes(cpBack.Get());
  EXPECT_GT(Psnr(a, b, 0), 40.0);
  EXPECT_GT(Psnr(a, b, 1), 35.0);
  EXPECT_GT(Psnr(a, b, 2), 35.0);
}

TEST(FFFrameConvertTest, LetterBoxLeavesBlackBarsAndStretchDoesNot) {
  ComPtr<IVCFrame> cpFrame = I420(320, 240, [](int p, int, int) { return p == 0 ? 180 : 128; });
  K_AV_PROPS wide = VideoProps(eVCCC_I420, 640, 240);
  wide.vidProps.eScaleType = eKST_LetterBox;
  ComPtr<IVCFrame> cpBoxed;
  ASSERT_EQ(cpFrame->VCConvert(&wide, cpBoxed.AddressOf(), nullptr, nullptr, nullptr), S_OK);
  VC_VID_PTR ptr = Planes(cpBoxed.Get());
  EXPECT_EQ(PlaneRow(ptr, 0, 120)[0], 16);     // bar
  EXPECT_EQ(PlaneRow(ptr, 0, 120)[639], 16);   // bar
  EXPECT_NEAR(PlaneRow(ptr, 0, 120)[320], 180, 1);  // picture, 320 wide in the middle
  EXPECT_NEAR(PlaneRow(ptr, 0, 120)[161], 180, 1);
  EXPECT_EQ(PlaneRow(ptr, 0, 120)[158], 16);
  EXPECT_EQ(PropsOf(cpBoxed.Get()).vidProps.eScaleType, eKST_LetterBox);

  wide.vidProps.eScaleType = eKST_IgnoreAR;
  ComPtr<IVCFrame> cpStretched;
  ASSERT_EQ(cpFrame->VCConvert(&wide, cpStretched.AddressOf(), nullptr, nullptr, nullptr), S_OK);
  ptr = Planes(cpStretched.Get());
  EXPECT_NEAR(PlaneRow(ptr, 0, 120)[0], 180, 1);
  EXPECT_NEAR(PlaneRow(ptr, 0, 0)[639], 180, 1);
}

TEST(FFFrameConvertTest, ResamplesAndRemixesAudio) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AUD_PROPS aud{2, 48000, 16, 0};
  ASSERT_EQ(cpFrame->VCAudioAlloc(&aud, 4800), S_OK);
  K_AV_PROPS dest{};
  dest.audProps = K_AUD_PROPS{1, 44100, 32, 0};
  ComPtr<IVCFrame> cpOut;
  ASSERT_EQ(cpFrame->VCConvert(&dest, cpOut.AddressOf(), nullptr, nullptr, nullptr), S_OK);
  K_AV_PROPS props{};
  LONG lSamples = 0;
  ASSERT_EQ(cpOut->VCAVPropsGet(&props, &lSamples), S_OK);
  EXPECT_EQ(props.audProps.nChannels, 1);
  EXPECT_EQ(props.audProps.nSamplesPerSec, 44100);
  EXPECT_EQ(props.audProps.nBitsPerSample, 32);
  EXPECT_NEAR(lSamples, 4410, 2);
  dest.audProps.nBitsPerSample = 24;
  EXPECT_EQ(cpFrame->VCConvert(&dest, cpOut.AddressOf(), nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCConvert(nullptr, cpOut.AddressOf(), nullptr, nullptr, nullptr), E_POINTER);
}

TEST(FFFrameConvertTest, ResizeGivesTheSizeAndAlignedStrides) {
  ComPtr<IVCFrame> cpFrame = Gradient(320, 240);
  ComPtr<IVCFrame> cpSmall;
  ASSERT_EQ(cpFrame->VCResize(eVCCC_NV12, 100, 50, 0, cpSmall.AddressOf(), nullptr, nullptr), S_OK);
  const K_AV_PROPS props = PropsOf(cpSmall.Get());
  EXPECT_EQ(props.vidProps.fccType, eVCCC_NV12);
  EXPECT_EQ(props.vidProps.nWidth, 100);
  EXPECT_EQ(props.vidProps.nHeight, 50);
  EXPECT_GE(props.vidProps.nRowBytes, 100);
  EXPECT_EQ(props.vidProps.nRowBytes % 32, 0);
  const VC_VID_PTR ptr = Planes(cpSmall.Get());
  EXPECT_EQ(ptr.cbVideoRowBytes[0], props.vidProps.nRowBytes);
  EXPECT_EQ(ptr.cbVideoRowBytes[1], props.vidProps.nRowBytes);  // interleaved chroma
  EXPECT_EQ(ptr.szVideoPlanes[1].cx, 50);
  EXPECT_EQ(ptr.szVideoPlanes[1].cy, 25);
  LONG cb = 0;
  VideoAddress(cpSmall.Get(), &cb);
  EXPECT_EQ(cb, props.vidProps.nRowBytes * 75);

  EXPECT_EQ(cpFrame->VCResize(eVCCC_I420, -1, 50, 0, cpSmall.AddressOf(), nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCResize(eVCCC_I420, 10, 50, 3, cpSmall.AddressOf(), nullptr, nullptr), E_INVALIDARG);
}

TEST(FFFrameConvertTest, FieldResizeReadsOnlyThatField) {
  ComPtr<IVCFrame> cpFrame = I420(64, 64, [](int p, int, int y) { return p ? 128 : (y % 2 ? 200 : 50); });
  for (int nField : {1, 2}) {
    ComPtr<IVCFrame> cpField;
    ASSERT_EQ(cpFrame->VCResize(eVCCC_Default, 32, 32, nField, cpField.AddressOf(), nullptr, nullptr), S_OK);
    const K_AV_PROPS props = PropsOf(cpField.Get());
    EXPECT_EQ(props.vidProps.eInterlace, eKI_OneField);
    const VC_VID_PTR ptr = Planes(cpField.Get());
    for (int y = 0; y < 32; ++y) ASSERT_NEAR(PlaneRow(ptr, 0, y)[5], nField == 1 ? 50 : 200, 1) << y;
  }
}

// ---------------------------------------------------------------------------

TEST(FFFramePictureFileTest, WritesImagesAndRawBytes) {
  ComPtr<IVCFrame> cpFrame = Gradient(64, 48);
  const std::string strPng = TempPath("picture.png");
  CBstr bsPng(strPng);
  ASSERT_EQ(cpFrame->VCVideoSaveToFile(bsPng), S_OK);
  const std::vector<uint8_t> vecPng = ReadFileBytes(strPng);
  ASSERT_GT(vecPng.size(), 8u);
  EXPECT_EQ(std::memcmp(vecPng.data(), "\x89PNG", 4), 0);
  // It decodes back to a picture of the same size.
  const AVCodec* pCodec = avcodec_find_decoder(AV_CODEC_ID_PNG);
  AVCodecContext* pCtx = avcodec_alloc_context3(pCodec);
  ASSERT_EQ(avcodec_open2(pCtx, pCodec, nullptr), 0);
  AVPacket* pPacket = av_packet_alloc();
  AVFrame* pPicture = av_frame_alloc();
  pPacket->data = const_cast<uint8_t*>(vecPng.data());
  pPacket->size = static_cast<int>(vecPng.size());
  EXPECT_EQ(avcodec_send_packet(pCtx, pPacket), 0);
  EXPECT_EQ(avcodec_receive_frame(pCtx, pPicture), 0);
  EXPECT_EQ(pPicture->width, 64);
  EXPECT_EQ(pPicture->height, 48);
  av_frame_free(&pPicture);
  av_packet_free(&pPacket);
  avcodec_free_context(&pCtx);

  const std::string strJpg = TempPath("picture.JPG");
  CBstr bsJpg(strJpg);
  ASSERT_EQ(cpFrame->VCVideoSaveToFile(bsJpg), S_OK);
  EXPECT_EQ(ReadFileBytes(strJpg).at(0), 0xFF);

  const std::string strRaw = TempPath("picture.yuv");
  CBstr bsRaw(strRaw);
  ASSERT_EQ(cpFrame->VCVideoSaveToFile(bsRaw), S_OK);
  LONG cb = 0;
  const LONGLONG ll = VideoAddress(cpFrame.Get(), &cb);
  const std::vector<uint8_t> vecRaw = ReadFileBytes(strRaw);
  ASSERT_EQ(vecRaw.size(), static_cast<size_t>(cb));
  EXPECT_EQ(std::memcmp(vecRaw.data(), reinterpret_cast<void*>(ll), vecRaw.size()), 0);
  for (const std::string& str : {strPng, strJpg, strRaw}) std::filesystem::remove(str);

  CBstr bsBadDir(u"/nonexistent-dir/x.png");
  EXPECT_TRUE(FAILED(cpFrame->VCVideoSaveToFile(bsBadDir)));
  EXPECT_EQ(NewFrame()->VCVideoSaveToFile(bsPng), HRESULT_FROM_WIN32(ERROR_EMPTY));
}

TEST(FFFrameRendererTest, DrawingCallsAreNotImplemented) {
  ComPtr<IVCFrame> cpFrame = Gradient(16, 8);
  ComPtr<IVCFrame> cpOther = Gradient(16, 8);
  VC_RECT rect{0, 0, 1, 1, eVCRT_Relative};
  LONGLONG llBitmap = 5;
  ComPtr<IVCFrame> cpOut;
  CBstr bsText(u"x");
  EXPECT_EQ(cpFrame->VCPrint(bsText, 10.0, &rect, eVCTF_Center, nullptr), E_NOTIMPL);
  EXPECT_EQ(cpFrame->VCOverlay(cpOther.Get(), nullptr, 0, 0, 1.0, nullptr, nullptr), E_NOTIMPL);
  EXPECT_EQ(cpFrame->VCOverlayRect(cpOther.Get(), nullptr, &rect, eVCOF_NoScale, 1.0, nullptr, nullptr), E_NOTIMPL);
  EXPECT_EQ(cpFrame->VCTransition(cpOther.Get(), cpOut.AddressOf(), 0.5, nullptr, nullptr, nullptr), E_NOTIMPL);
  EXPECT_EQ(cpFrame->VCVideoGetHbitmap(&llBitmap), E_NOTIMPL);
  EXPECT_EQ(llBitmap, 0);
  EXPECT_EQ(cpFrame->VCWaitAsync(), S_OK);
}

TEST(FFFrameThreadsTest, ConcurrentReadersSeeConsistentFrames) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  K_TIME first{};
  first.rtEndTime = 400000;
  ASSERT_EQ(cpFrame->VCTimeSet(&first), S_OK);
  std::atomic<bool> bStop{false};
  std::atomic<int> nFailures{0};
  std::vector<std::thread> vecThreads;
  for (int t = 0; t < 3; ++t) {
    vecThreads.emplace_back([&] {
      while (!bStop) {
        VC_FRAME_INFO info{};
        ComPtr<IVCFrame> cpClone;
        if (cpFrame->VCAllGet(&info) != S_OK || info.avProps.vidProps.nWidth != 32) ++nFailures;
        if (cpFrame->VCClone(cpClone.AddressOf(), eKFC_Reference, eVCCC_Default) != S_OK) ++nFailures;
        K_TIME time{};
        if (cpFrame->VCTimeGet(&time) != S_OK || time.rtEndTime - time.rtStartTime != 400000) ++nFailures;
      }
    });
  }
  for (int i = 0; i < 2000; ++i) {
    K_TIME time{};
    time.rtStartTime = i * 400000LL;
    time.rtEndTime = time.rtStartTime + 400000;
    ASSERT_EQ(cpFrame->VCTimeSet(&time), S_OK);
    CBstr bsName(u"anc");
    const uint8_t b = static_cast<uint8_t>(i);
    ASSERT_EQ(cpFrame->VCDataSet(bsName, 1, reinterpret_cast<LONGLONG>(&b)), S_OK);
  }
  bStop = true;
  for (std::thread& thread : vecThreads) thread.join();
  EXPECT_EQ(nFailures, 0);
}

}  // namespace
