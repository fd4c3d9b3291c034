// The frame's audio: allocation, per-channel access, gain ramps in dB,
// mixing with saturation, copying channels by list, WAV files and channel
// remapping through the properties.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "FFTestFrames.h"
#include "FFClasses.h"
#include "FFFrameChannels.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using namespace vc::ff;

using vc::fftest::NewFrame;
using vc::fftest::Samples16;
using vc::fftest::TempPath;

K_AUD_PROPS Aud(int nChannels, int nBits, int nRate = 48000) { return K_AUD_PROPS{nChannels, nRate, nBits, 0}; }

// A 16-bit frame whose sample s of channel c is value(s, c).
template <class F>
ComPtr<IVCFrame> Pcm16(int nChannels, int nSamples, F value) {
  std::vector<int16_t> vec(static_cast<size_t>(nChannels * nSamples));
  for (int s = 0; s < nSamples; ++s) {
    for (int c = 0; c < nChannels; ++c) vec[static_cast<size_t>(s * nChannels + c)] = static_cast<int16_t>(value(s, c));
  }
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AUD_PROPS aud = Aud(nChannels, 16);
  EXPECT_EQ(cpFrame->VCAudioSet(&aud, static_cast<LONG>(vec.size() * 2), reinterpret_cast<LONGLONG>(vec.data())), S_OK);
  return cpFrame;
}

K_AUD_PROPS AudOf(IVCFrame* pFrame, LONG* plSamples = nullptr) {
  return vc::fftest::PropsOf(pFrame, plSamples).audProps;
}

// ---------------------------------------------------------------------------

// Eight channels as four stereo tracks; channel c holds 100 * c.
ComPtr<IVCFrame> EightChannels() {
  std::vector<int16_t> vec(16);
  for (size_t i = 0; i < vec.size(); ++i) vec[i] = static_cast<int16_t>(100 * (i % 8));
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AUD_PROPS aud = Aud(8, 16);
  aud.nTrackSplitBits = 0x54;
  EXPECT_EQ(cpFrame->VCAudioSet(&aud, 32, reinterpret_cast<LONGLONG>(vec.data())), S_OK);
  return cpFrame;
}

std::vector<int16_t> FirstSample(IVCFrame* pFrame) {
  const std::vector<int16_t> vec = Samples16(pFrame);
  return std::vector<int16_t>(vec.begin(), vec.begin() + static_cast<ptrdiff_t>(AudOf(pFrame).nChannels));
}

TEST(FFFrameChannelListTest, ListsRouteChannelsAndTracks) {
  ComPtr<IVCFrame> cpFrame = EightChannels();
  struct Case {
    const char16_t* pszList;
    std::vector<int16_t> vecExpected;
  };
  const Case arrCases[] = {
      {u"track:2", {400, 500}},
      {u"2,0", {200, 0}},
      {u"5-3 7", {500, 400, 300, 700}},
      {u"1:0; 0:1", {100, 0}},
      {u"6:2", {0, 0, 600}},
  };
  for (const Case& c : arrCases) {
    ComPtr<IVCFrame> cpTarget = NewFrame();
    CBstr bsList(c.pszList);
    ASSERT_EQ(cpFrame->VCAudioCopyTo(bsList, cpTarget.Get()), S_OK) << vc::ToUtf8(c.pszList);
    EXPECT_EQ(FirstSample(cpTarget.Get()), c.vecExpected) << vc::ToUtf8(c.pszList);
  }
}

TEST(FFFrameChannelListTest, RejectsMalformedListsAndMissingChannels) {
  ComPtr<IVCFrame> cpFrame = EightChannels();
  for (const char16_t* psz : {u"a", u"1:", u"1-", u"-1", u"1:2:3", u"8", u"0:64", u"1x", u"track:4", u"track:"}) {
    CBstr bsList(psz);
    EXPECT_EQ(cpFrame->VCAudioGain(bsList, -6.0, -6.0), E_INVALIDARG) << vc::ToUtf8(psz);
  }
  EXPECT_EQ(FirstSample(cpFrame.Get())[7], 700);  // untouched
}

TEST(FFFrameChannelListTest, PcmConversionSaturatesAndRounds) {
  uint8_t arr[4] = {};
  PcmWrite(arr, 16, int64_t{40000} << 16);
  EXPECT_EQ(PcmRead(arr, 16), int32_t{32767} << 16);
  PcmWrite(arr, 8, PcmRead(arr, 16));
  EXPECT_EQ(arr[0], 255);
  PcmWrite(arr, 8, -(int64_t{1} << 40));
  EXPECT_EQ(arr[0], 0);
  PcmWrite(arr, 32, int64_t{1} << 40);
  EXPECT_EQ(PcmRead(arr, 32), INT32_MAX);
  arr[0] = 128;
  EXPECT_EQ(PcmRead(arr, 8), 0);  // 8-bit silence is 128
}

// ---------------------------------------------------------------------------

TEST(FFFrameAudioTest, AllocGivesSilenceOfTheAskedShape) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AUD_PROPS aud = Aud(3, 8, 44100);
  aud.nTrackSplitBits = 2;
  ASSERT_EQ(cpFrame->VCAudioAlloc(&aud, 100), S_OK);
  LONG lSamples = 0;
  const K_AUD_PROPS got = AudOf(cpFrame.Get(), &lSamples);
  EXPECT_EQ(lSamples, 100);
  EXPECT_EQ(got.nChannels, 3);
  EXPECT_EQ(got.nSamplesPerSec, 44100);
  EXPECT_EQ(got.nTrackSplitBits, 2);
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  ASSERT_EQ(cb, 300);
  const auto* p = reinterpret_cast<const uint8_t*>(ll);
  EXPECT_EQ(std::count(p, p + cb, 128), 300);

  K_AUD_PROPS bad = Aud(2, 24);
  EXPECT_EQ(cpFrame->VCAudioAlloc(&bad, 10), E_INVALIDARG);
  bad = Aud(0, 16);
  EXPECT_EQ(cpFrame->VCAudioAlloc(&bad, 10), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCAudioAlloc(&aud, -1), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCAudioAlloc(nullptr, 1), E_POINTER);
  EXPECT_EQ(AudOf(cpFrame.Get()).nChannels, 3);  // unchanged
}

TEST(FFFrameAudioTest, SetCopiesAndChecksTheSize) {
  std::vector<int16_t> vec = {1, 2, 3, 4, 5, 6};
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AUD_PROPS aud = Aud(2, 16);
  ASSERT_EQ(cpFrame->VCAudioSet(&aud, 12, reinterpret_cast<LONGLONG>(vec.data())), S_OK);
  vec[0] = 99;  // the frame has its own copy
  EXPECT_EQ(Samples16(cpFrame.Get()), (std::vector<int16_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(cpFrame->VCAudioSet(&aud, 10, reinterpret_cast<LONGLONG>(vec.data())), E_INVALIDARG);  // half a sample
  EXPECT_EQ(cpFrame->VCAudioSet(&aud, 12, 0), E_POINTER);
  // Setting from the frame's own bytes is safe.
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  K_AUD_PROPS mono = Aud(1, 16);
  ASSERT_EQ(cpFrame->VCAudioSet(&mono, cb, ll), S_OK);
  EXPECT_EQ(Samples16(cpFrame.Get()), (std::vector<int16_t>{1, 2, 3, 4, 5, 6}));
  LONG lSamples = 0;
  AudOf(cpFrame.Get(), &lSamples);
  EXPECT_EQ(lSamples, 6);
}

TEST(FFFrameAudioTest, ChannelBytesWriteBackAndGrow) {
  ComPtr<IVCFrame> cpFrame = Pcm16(2, 4, [](int s, int c) { return 100 * c + s; });
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCAudioChannelGetBytes(1, FALSE, &cb, &ll), S_OK);
  ASSERT_EQ(cb, 8);
  auto* pRight = reinterpret_cast<int16_t*>(ll);
  EXPECT_EQ(pRight[0], 100);
  EXPECT_EQ(pRight[3], 103);
  pRight[2] = -7;
  EXPECT_EQ(Samples16(cpFrame.Get())[5], 102);  // not written back yet
  ASSERT_EQ(cpFrame->VCAudioChannelsUpdate(), S_OK);
  EXPECT_EQ(Samples16(cpFrame.Get())[5], -7);

  EXPECT_EQ(cpFrame->VCAudioChannelGetBytes(3, FALSE, &cb, &ll), E_INVALIDARG);
  ASSERT_EQ(cpFrame->VCAudioChannelGetBytes(3, TRUE, &cb, &ll), S_OK);
  EXPECT_EQ(AudOf(cpFrame.Get()).nChannels, 4);
  EXPECT_EQ(reinterpret_cast<int16_t*>(ll)[0], 0);
  const std::vector<int16_t> vec = Samples16(cpFrame.Get());
  ASSERT_EQ(vec.size(), 16u);
  EXPECT_EQ(vec[4], 1);    // sample 1, channel 0 kept
  EXPECT_EQ(vec[9], -7);   // sample 2, channel 1 kept
  EXPECT_EQ(vec[10], 0);   // new channel silent
  // A later change of the audio shows in the channel copy.
  ASSERT_EQ(cpFrame->VCAudioGain(nullptr, -6.0206, -6.0206), S_OK);
  EXPECT_EQ(reinterpret_cast<int16_t*>(ll)[0], 0);
  ASSERT_EQ(cpFrame->VCAudioChannelGetBytes(0, FALSE, &cb, &ll), S_OK);
  EXPECT_EQ(reinterpret_cast<int16_t*>(ll)[2], 1);  // 2 halved
}

TEST(FFFrameAudioTest, ChannelCallsWithoutAudio) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  LONG cb = 0;
  LONGLONG ll = 0;
  EXPECT_EQ(cpFrame->VCAudioChannelGetBytes(0, TRUE, &cb, &ll), HRESULT_FROM_WIN32(ERROR_EMPTY));
  EXPECT_EQ(cpFrame->VCAudioChannelsUpdate(), S_FALSE);
  EXPECT_EQ(cpFrame->VCAudioGain(nullptr, -6, -6), S_FALSE);
}

TEST(FFFrameAudioTest, GainOfMinus6dBHalvesTheListedChannels) {
  ComPtr<IVCFrame> cpFrame = Pcm16(3, 8, [](int, int) { return 1000; });
  CBstr bsList(u"0,2");
  ASSERT_EQ(cpFrame->VCAudioGain(bsList, -6.0206, -6.0206), S_OK);
  const std::vector<int16_t> vec = Samples16(cpFrame.Get());
  for (int s = 0; s < 8; ++s) {
    EXPECT_EQ(vec[static_cast<size_t>(s * 3)], 500);
    EXPECT_EQ(vec[static_cast<size_t>(s * 3 + 1)], 1000);
    EXPECT_EQ(vec[static_cast<size_t>(s * 3 + 2)], 500);
  }
  CBstr bsBad(u"3");
  EXPECT_EQ(cpFrame->VCAudioGain(bsBad, -6, -6), E_INVALIDARG);
  EXPECT_EQ(Samples16(cpFrame.Get())[0], 500);
}

TEST(FFFrameAudioTest, GainRampsLinearlyInAmplitudeBetweenTheDbEnds) {
  ComPtr<IVCFrame> cpFrame = Pcm16(1, 100, [](int, int) { return 10000; });
  ASSERT_EQ(cpFrame->VCAudioGain(nullptr, 0.0, -20.0), S_OK);
  const std::vector<int16_t> vec = Samples16(cpFrame.Get());
  EXPECT_EQ(vec[0], 10000);   // 0 dB at the first sample
  EXPECT_EQ(vec[99], 1000);   // -20 dB at the last
  EXPECT_NEAR(vec[33], 10000 - 9000 * 33 / 99, 1);
  for (size_t i = 1; i < vec.size(); ++i) ASSERT_LT(vec[i], vec[i - 1]);
  EXPECT_EQ(cpFrame->VCAudioGain(nullptr, 0.0, std::nan("")), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCAudioGain(nullptr, HUGE_VAL, 0.0), E_INVALIDARG);
  ASSERT_EQ(cpFrame->VCAudioGain(nullptr, -HUGE_VAL, -HUGE_VAL), S_OK);  // -inf dB is silence
  EXPECT_EQ(Samples16(cpFrame.Get())[0], 0);
}

TEST(FFFrameAudioTest, MixSaturatesInsteadOfWrapping) {
  ComPtr<IVCFrame> cpFrame = Pcm16(2, 4, [](int, int c) { return c ? -20000 : 20000; });
  ComPtr<IVCFrame> cpOther = Pcm16(2, 4, [](int, int c) { return c ? -20000 : 20000; });
  ASSERT_EQ(cpFrame->VCAudioMix(cpOther.Get(), 0.0, 0.0, FALSE, nullptr), S_OK);
  const std::vector<int16_t> vec = Samples16(cpFrame.Get());
  EXPECT_EQ(vec[0], 32767);
  EXPECT_EQ(vec[1], -32768);
  // With -6 dB on the mixed-in frame: 20000 + 10000.
  cpFrame = Pcm16(1, 4, [](int, int) { return 20000; });
  cpOther = Pcm16(1, 4, [](int, int) { return 20000; });
  ASSERT_EQ(cpFrame->VCAudioMix(cpOther.Get(), -6.0206, -6.0206, FALSE, nullptr), S_OK);
  EXPECT_EQ(Samples16(cpFrame.Get())[3], 30000);
}

TEST(FFFrameAudioTest, MixDirectHonoursOffsetsAndLimit) {
  ComPtr<IVCFrame> cpFrame = Pcm16(1, 10, [](int, int) { return 0; });
  ComPtr<IVCFrame> cpOther = Pcm16(1, 6, [](int s, int) { return 10 * (s + 1); });
  LONG lDst = 7;
  LONG lMix = 2;
  ASSERT_EQ(cpFrame->VCAudioMixDirect(&lDst, cpOther.Get(), &lMix, 0, 0.0, 0.0, FALSE), S_OK);
  EXPECT_EQ(lDst, 10);  // three samples fit
  EXPECT_EQ(lMix, 5);
  EXPECT_EQ(Samples16(cpFrame.Get()), (std::vector<int16_t>{0, 0, 0, 0, 0, 0, 0, 30, 40, 50}));
  lDst = 0;
  lMix = 0;
  ASSERT_EQ(cpFrame->VCAudioMixDirect(&lDst, cpOther.Get(), &lMix, 2, 0.0, 0.0, FALSE), S_OK);
  EXPECT_EQ(lDst, 2);
  EXPECT_EQ(Samples16(cpFrame.Get())[1], 20);
  EXPECT_EQ(Samples16(cpFrame.Get())[2], 0);
  lDst = 10;
  EXPECT_EQ(cpFrame->VCAudioMixDirect(&lDst, cpOther.Get(), &lMix, 0, 0.0, 0.0, FALSE), S_FALSE);
  EXPECT_EQ(lDst, 10);
  lDst = -1;
  EXPECT_EQ(cpFrame->VCAudioMixDirect(&lDst, cpOther.Get(), &lMix, 0, 0.0, 0.0, FALSE), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCAudioMixDirect(nullptr, nullptr, nullptr, 0, 0.0, 0.0, FALSE), E_POINTER);
}

TEST(FFFrameAudioTest, SymmetricMixCrossFades) {
  ComPtr<IVCFrame> cpFrame = Pcm16(1, 100, [](int, int) { return 10000; });
  ComPtr<IVCFrame> cpOther = Pcm16(1, 100, [](int, int) { return 4000; });
  ASSERT_EQ(cpFrame->VCAudioMix(cpOther.Get(), -100.0, 0.0, TRUE, nullptr), S_OK);
  const std::vector<int16_t> vec = Samples16(cpFrame.Get());
  // The own samples fade out while the others fade in: the two gains add up
  // to one all the way, so the result walks from 10000 to 4000 in a line.
  EXPECT_EQ(vec[0], 10000);
  EXPECT_EQ(vec[99], 4000);
  for (int i = 0; i < 100; ++i) ASSERT_NEAR(vec[static_cast<size_t>(i)], 10000 - 6000 * i / 99.0, 1.0) << i;
}

TEST(FFFrameAudioTest, MixIntoAFrameWithoutAudioAndItself) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  ComPtr<IVCFrame> cpOther = Pcm16(2, 3, [](int s, int) { return s; });
  ASSERT_EQ(cpFrame->VCAudioMix(cpOther.Get(), 0.0, 0.0, FALSE, nullptr), S_OK);
  EXPECT_EQ(Samples16(cpFrame.Get()), Samples16(cpOther.Get()));
  ASSERT_EQ(cpFrame->VCAudioMix(cpFrame.Get(), 0.0, 0.0, FALSE, nullptr), S_OK);  // doubles
  EXPECT_EQ(Samples16(cpFrame.Get())[4], 4);
  CBstr bsLine(u"line1");
  EXPECT_EQ(cpFrame->VCAudioMix(cpOther.Get(), 0.0, 0.0, FALSE, bsLine), E_NOTIMPL);
  ComPtr<IVCFrame> cpOtherRate = NewFrame();
  K_AUD_PROPS aud = Aud(2, 16, 44100);
  ASSERT_EQ(cpOtherRate->VCAudioAlloc(&aud, 3), S_OK);
  EXPECT_EQ(cpFrame->VCAudioMix(cpOtherRate.Get(), 0.0, 0.0, FALSE, nullptr), E_INVALIDARG);
}

TEST(FFFrameAudioTest, CopyToRoutesChannelsAndKeepsTheRest) {
  ComPtr<IVCFrame> cpFrame = Pcm16(2, 3, [](int s, int c) { return 10 * c + s + 1; });
  ComPtr<IVCFrame> cpTarget = Pcm16(3, 3, [](int, int) { return -5; });
  CBstr bsSwap(u"1:0,0:1");
  ASSERT_EQ(cpFrame->VCAudioCopyTo(bsSwap, cpTarget.Get()), S_OK);
  EXPECT_EQ(Samples16(cpTarget.Get()), (std::vector<int16_t>{11, 1, -5, 12, 2, -5, 13, 3, -5}));

  // A target of another shape gets fresh audio of ours with just the routes.
  ComPtr<IVCFrame> cpOther = Pcm16(1, 7, [](int, int) { return 9; });
  CBstr bsTo3(u"1:3");
  ASSERT_EQ(cpFrame->VCAudioCopyTo(bsTo3, cpOther.Get()), S_OK);
  LONG lSamples = 0;
  EXPECT_EQ(AudOf(cpOther.Get(), &lSamples).nChannels, 4);
  EXPECT_EQ(lSamples, 3);
  EXPECT_EQ(Samples16(cpOther.Get()), (std::vector<int16_t>{0, 0, 0, 11, 0, 0, 0, 12, 0, 0, 0, 13}));

  CBstr bsBad(u"2");
  EXPECT_EQ(cpFrame->VCAudioCopyTo(bsBad, cpTarget.Get()), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCAudioCopyTo(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(NewFrame()->VCAudioCopyTo(nullptr, cpTarget.Get()), HRESULT_FROM_WIN32(ERROR_EMPTY));
}

TEST(FFFrameAudioTest, PropsSetRemapsChannelsAndConvertsSampleSize) {
  ComPtr<IVCFrame> cpFrame = Pcm16(2, 2, [](int s, int c) { return (c ? -1 : 1) * (256 * (s + 1)); });
  K_AV_PROPS props{};
  ASSERT_EQ(cpFrame->VCAVPropsGet(&props, nullptr), S_OK);
  props.audProps.nBitsPerSample = 8;
  props.audProps.nChannels = 3;
  CBstr bsRemap(u"1:0,0:2");
  ASSERT_EQ(cpFrame->VCAVPropsSet(&props, bsRemap), S_OK);
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  ASSERT_EQ(cb, 6);
  const auto* p = reinterpret_cast<const uint8_t*>(ll);
  EXPECT_EQ(p[0], 127);  // -256 in 8 bits
  EXPECT_EQ(p[1], 128);  // silent
  EXPECT_EQ(p[2], 129);  // +256
  EXPECT_EQ(p[3], 126);
  EXPECT_EQ(p[5], 130);
  CBstr bsBad(u"5:0");
  EXPECT_EQ(cpFrame->VCAVPropsSet(&props, bsBad), E_INVALIDARG);
}

TEST(FFFrameAudioTest, WavFilesRoundTripAndAppend) {
  const std::string strPath = TempPath("audio.wav");
  CBstr bsPath(strPath);
  ComPtr<IVCFrame> cpFrame = Pcm16(2, 5, [](int s, int c) { return 1000 * c + s; });
  ASSERT_EQ(cpFrame->VCAudioSaveToFile(bsPath, FALSE), S_OK);
  EXPECT_EQ(std::filesystem::file_size(strPath), 44u + 20u);
  ASSERT_EQ(cpFrame->VCAudioSaveToFile(bsPath, TRUE), S_OK);
  EXPECT_EQ(std::filesystem::file_size(strPath), 44u + 40u);

  ComPtr<IVCFrame> cpLoaded = NewFrame();
  ASSERT_EQ(cpLoaded->VCAudioLoadFromFile(bsPath, 0, 0), S_OK);
  LONG lSamples = 0;
  const K_AUD_PROPS aud = AudOf(cpLoaded.Get(), &lSamples);
  EXPECT_EQ(lSamples, 10);
  EXPECT_EQ(aud.nChannels, 2);
  EXPECT_EQ(aud.nSamplesPerSec, 48000);
  EXPECT_EQ(aud.nBitsPerSample, 16);
  std::vector<int16_t> vecTwice = Samples16(cpFrame.Get());
  vecTwice.insert(vecTwice.end(), vecTwice.begin(), vecTwice.end());
  EXPECT_EQ(Samples16(cpLoaded.Get()), vecTwice);

  ASSERT_EQ(cpLoaded->VCAudioLoadFromFile(bsPath, 3, 4), S_OK);
  EXPECT_EQ(Samples16(cpLoaded.Get()), (std::vector<int16_t>{3, 1003, 4, 1004, 0, 1000, 1, 1001}));
  EXPECT_EQ(cpLoaded->VCAudioLoadFromFile(bsPath, 10, 0), S_FALSE);  // past the end: unchanged
  EXPECT_EQ(Samples16(cpLoaded.Get()).size(), 8u);

  // Appending another format is refused and leaves the file alone.
  ComPtr<IVCFrame> cpMono = Pcm16(1, 5, [](int, int) { return 0; });
  EXPECT_EQ(cpMono->VCAudioSaveToFile(bsPath, TRUE), E_INVALIDARG);
  EXPECT_EQ(std::filesystem::file_size(strPath), 44u + 40u);
  std::filesystem::remove(strPath);
}

TEST(FFFrameAudioTest, WavReadingRejectsOtherFiles) {
  const std::string strPath = TempPath("not.wav");
  {
    std::FILE* pFile = std::fopen(strPath.c_str(), "wb");
    ASSERT_NE(pFile, nullptr);
    static const char kBytes[] = "RIFF\x10\0\0\0WAVEjunk";
    std::fwrite(kBytes, 1, sizeof(kBytes) - 1, pFile);
    std::fclose(pFile);
  }
  ComPtr<IVCFrame> cpFrame = Pcm16(1, 2, [](int, int) { return 7; });
  CBstr bsPath(strPath);
  EXPECT_EQ(cpFrame->VCAudioLoadFromFile(bsPath, 0, 0), HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
  CBstr bsMissing(TempPath("missing.wav"));
  EXPECT_EQ(cpFrame->VCAudioLoadFromFile(bsMissing, 0, 0), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(cpFrame->VCAudioLoadFromFile(bsPath, -1, 0), E_INVALIDARG);
  EXPECT_EQ(Samples16(cpFrame.Get()), (std::vector<int16_t>{7, 7}));
  EXPECT_EQ(NewFrame()->VCAudioSaveToFile(bsPath, FALSE), HRESULT_FROM_WIN32(ERROR_EMPTY));
  std::filesystem::remove(strPath);
}

}  // namespace
