// The audio buffer's lines: formats, conversion between sample formats,
// channel lists, puts and gets in pieces, removal, and refused arguments.
#include <climits>
#include <thread>

#include "FFAudioBufferTestHelpers.h"
#include "VCLog.h"

namespace vc::fftest {
namespace {

using std::vector;

class FFAudioBufferTest : public AudioBufferFixture {};

TEST_F(FFAudioBufferTest, Creation_AggregationOnlyForIUnknown) {
  IUnknown* pOuter = m_cpBuf.Get();  // any unknown will do: refused before it is used
  void* pv = reinterpret_cast<void*>(1);
  EXPECT_EQ(ff::CreateFFAudioBuffer(pOuter, IidOf<IVCAudioBuffer>(), &pv), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(pv, nullptr);

  ComPtr<IVCAudioBuffer> cpByClass;
  ASSERT_EQ(CoCreateInstance(ff::CLSID_FFAudioBuffer, nullptr, CLSCTX_INPROC_SERVER, IidOf<IVCAudioBuffer>(),
                             reinterpret_cast<void**>(cpByClass.AddressOf())),
            S_OK);
  K_AUD_PROPS props = Aud(2, 16);
  EXPECT_EQ(cpByClass->BufferPropsSet(nullptr, &props, FALSE), S_OK);
}

TEST_F(FFAudioBufferTest, FirstPut_GivesTheLineItsFormatWithTheChosenChannels) {
  ASSERT_EQ(Put("a", Aud(4, 16, 44100), vector<int16_t>(40, 7), "2,0"), S_OK);
  const K_AUD_PROPS props = Props("a");
  EXPECT_EQ(props.nChannels, 2);
  EXPECT_EQ(props.nSamplesPerSec, 44100);
  EXPECT_EQ(props.nBitsPerSample, 16);
  EXPECT_EQ(Count("a"), 10);
  // Names ignore ASCII case; other names are other lines.
  EXPECT_EQ(Count("A"), 10);
  EXPECT_EQ(Count("b"), 0);
}

TEST_F(FFAudioBufferTest, Convert16To32_IsExact) {
  K_AUD_PROPS props32 = Aud(1, 32);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("x"), &props32, TRUE), S_OK);
  ASSERT_EQ(Put("x", Aud(1, 16), vector<int16_t>{0, 1, -1, 32767, -32768}), S_OK);
  EXPECT_EQ(Get<int32_t>("x", 5, 1), (vector<int32_t>{0, 65536, -65536, 32767 * 65536, INT32_MIN}));
}

TEST_F(FFAudioBufferTest, Convert32To16_RoundsToNearestAndSaturates) {
  K_AUD_PROPS props16 = Aud(1, 16);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("x"), &props16, TRUE), S_OK);
  ASSERT_EQ(Put("x", Aud(1, 32), vector<int32_t>{INT32_MAX, INT32_MIN, 0x18000, -0x18000, 0x17FFF, 0x7FFF8000}),
            S_OK);
  // Halves round upward (1.5 -> 2, -1.5 -> -1); 32767.5 would be 32768,
  // which saturates.
  EXPECT_EQ(Get<int16_t>("x", 6, 1), (vector<int16_t>{32767, -32768, 2, -1, 1, 32767}));
}

TEST_F(FFAudioBufferTest, Convert8BitUnsigned_BothWays) {
  K_AUD_PROPS props16 = Aud(1, 16);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("x"), &props16, TRUE), S_OK);
  ASSERT_EQ(Put("x", Aud(1, 8), vector<uint8_t>{128, 255, 0}), S_OK);
  EXPECT_EQ(Get<int16_t>("x", 3, 1), (vector<int16_t>{0, 127 * 256, -32768}));

  K_AUD_PROPS props8 = Aud(1, 8);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("y"), &props8, TRUE), S_OK);
  ASSERT_EQ(Put("y", Aud(1, 16), vector<int16_t>{0, 32767, -32768, 128}), S_OK);
  EXPECT_EQ(Get<uint8_t>("y", 4, 1), (vector<uint8_t>{128, 255, 0, 129}));
}

TEST_F(FFAudioBufferTest, ChannelLists_PickAndOrderSourceAndLineChannels) {
  // Four channels, sample i of channel c = 10 * c + i.
  const vector<int16_t> quad{0, 10, 20, 30, 1, 11, 21, 31};
  ASSERT_EQ(Put("a", Aud(4, 16), quad, " 3 , 0 "), S_OK);
  EXPECT_EQ(Get<int16_t>("a", 2, 2), (vector<int16_t>{30, 0, 31, 1}));

  // Tracks {0,1} and {2,3}: "track:1" is channels 2 and 3, and the line
  // keeps a track start for every track item.
  ASSERT_EQ(Put("t", Aud(4, 16, 48000, 0x4), quad, "track:1,track:0"), S_OK);
  EXPECT_EQ(Props("t").nTrackSplitBits, 0x4);
  EXPECT_EQ(Get<int16_t>("t", 1, 2, "1,0"), (vector<int16_t>{30, 20}));
  EXPECT_EQ(Get<int16_t>("t", 1, 2, "TRACK:1"), (vector<int16_t>{1, 11}));

  // A channel may repeat.
  ASSERT_EQ(Put("r", Aud(4, 16), quad, "1,1"), S_OK);
  EXPECT_EQ(Get<int16_t>("r", 1, 2), (vector<int16_t>{10, 10}));
}

TEST_F(FFAudioBufferTest, ChannelLists_TargetsRangesAndSeparatorsAsForFrames) {
  const vector<int16_t> quad{0, 10, 20, 30};
  // Explicit targets: "1:0,0:1" swaps; an output no item reaches is silent.
  ASSERT_EQ(Put("swap", Aud(4, 16), quad, "1:0,0:1"), S_OK);
  EXPECT_EQ(Get<int16_t>("swap", 1, 2), (vector<int16_t>{10, 0}));
  ASSERT_EQ(Put("gap", Aud(4, 16), quad, "3:2"), S_OK);
  EXPECT_EQ(Props("gap").nChannels, 3);
  EXPECT_EQ(Get<int16_t>("gap", 1, 3), (vector<int16_t>{0, 0, 30}));
  // Ranges either way round, any of the separators.
  ASSERT_EQ(Put("range", Aud(4, 16), quad, "3-1; 0"), S_OK);
  EXPECT_EQ(Get<int16_t>("range", 1, 4), (vector<int16_t>{30, 20, 10, 0}));
  ASSERT_EQ(Put("range", Aud(4, 16), quad, "3-1; 0"), S_OK);
  EXPECT_EQ(Get<int16_t>("range", 1, 3, "0:2 2,,"), (vector<int16_t>{0, 10, 30}));
}

TEST_F(FFAudioBufferTest, ChannelLists_BadItemsAreRefusedAndLeaveTheLine) {
  const vector<int16_t> stereo{1, 2};
  ASSERT_EQ(Put("a", Aud(2, 16), stereo), S_OK);
  for (const char* pszBad : {"2", "-1", "x", "0-2", "1:", "0:64", "64", "1.0", "track:1", "track:", "trackx"}) {
    EXPECT_EQ(Put("a", Aud(2, 16), stereo, pszBad), E_INVALIDARG) << pszBad;
    HRESULT hr = S_OK;
    Get<int16_t>("a", 1, 2, pszBad, &hr);
    EXPECT_EQ(hr, E_INVALIDARG) << pszBad;
  }
  EXPECT_EQ(Count("a"), 1);
}

TEST_F(FFAudioBufferTest, ChannelPairing_MonoSpreadsExtraDestinationsSilentExtraSourcesDropped) {
  K_AUD_PROPS stereo = Aud(2, 16);
  K_AUD_PROPS three = Aud(3, 16);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("s"), &stereo, TRUE), S_OK);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("t"), &three, TRUE), S_OK);

  ASSERT_EQ(Put("s", Aud(1, 16), vector<int16_t>{5, 6}), S_OK);
  EXPECT_EQ(Get<int16_t>("s", 2, 2), (vector<int16_t>{5, 5, 6, 6}));

  ASSERT_EQ(Put("s", Aud(3, 16), vector<int16_t>{1, 2, 3}), S_OK);
  EXPECT_EQ(Get<int16_t>("s", 1, 2), (vector<int16_t>{1, 2}));

  ASSERT_EQ(Put("t", Aud(2, 16), vector<int16_t>{1, 2}), S_OK);
  EXPECT_EQ(Get<int16_t>("t", 1, 3), (vector<int16_t>{1, 2, 0}));
}

TEST_F(FFAudioBufferTest, Get_AcrossTwoPutsThenWhatIsLeftThenNothing) {
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{1, -1, 2, -2, 3, -3}), S_OK);
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{4, -4, 5, -5}), S_OK);
  EXPECT_EQ(Get<int16_t>("a", 4, 2), (vector<int16_t>{1, -1, 2, -2, 3, -3, 4, -4}));

  HRESULT hr = E_FAIL;
  EXPECT_EQ(Get<int16_t>("a", 10, 2, "", &hr), (vector<int16_t>{5, -5}));
  EXPECT_EQ(hr, S_OK);
  EXPECT_EQ(Get<int16_t>("a", 10, 2, "", &hr), vector<int16_t>{});
  EXPECT_EQ(hr, S_FALSE);
  EXPECT_EQ(Get<int16_t>("missing", 1, 2, "", &hr), vector<int16_t>{});
  EXPECT_EQ(hr, S_FALSE);
}

TEST_F(FFAudioBufferTest, Get_ManySmallPiecesKeepOrder) {
  // Reading in pieces compacts the storage now and then; the order must
  // survive that, with puts arriving between the gets.
  vector<int16_t> vecGot;
  int16_t nNext = 0;
  for (int nRound = 0; nRound < 50; ++nRound) {
    vector<int16_t> vecPut(7);
    for (auto& v : vecPut) v = nNext++;
    ASSERT_EQ(Put("a", Aud(1, 16), vecPut), S_OK);
    const vector<int16_t> vecPiece = Get<int16_t>("a", 5, 1);
    vecGot.insert(vecGot.end(), vecPiece.begin(), vecPiece.end());
  }
  const vector<int16_t> vecRest = Get<int16_t>("a", 1000, 1);
  vecGot.insert(vecGot.end(), vecRest.begin(), vecRest.end());
  ASSERT_EQ(vecGot.size(), 350u);
  for (size_t i = 0; i < vecGot.size(); ++i) ASSERT_EQ(vecGot[i], static_cast<int16_t>(i)) << i;
}

TEST_F(FFAudioBufferTest, Threads_OnePutsOneGetsNothingLostOrReordered) {
  constexpr int kBlocks = 2000;
  constexpr int kBlock = 10;
  std::atomic<bool> bDone{false};
  std::thread producer([this, &bDone] {
    for (int nBlock = 0; nBlock < kBlocks; ++nBlock) {
      vector<int32_t> vec(kBlock);
      for (int k = 0; k < kBlock; ++k) vec[static_cast<size_t>(k)] = nBlock * kBlock + k;
      EXPECT_EQ(Put("a", Aud(1, 32), vec), S_OK);
    }
    bDone = true;
  });
  vector<int32_t> vecGot;
  while (true) {
    const bool bLast = bDone;  // read before the get: nothing can follow a get made after it
    const vector<int32_t> vecPiece = Get<int32_t>("a", 7, 1);
    vecGot.insert(vecGot.end(), vecPiece.begin(), vecPiece.end());
    if (vecPiece.empty()) {
      if (bLast) break;
      std::this_thread::yield();
    }
  }
  producer.join();
  ASSERT_EQ(vecGot.size(), static_cast<size_t>(kBlocks * kBlock));
  for (size_t i = 0; i < vecGot.size(); ++i) ASSERT_EQ(vecGot[i], static_cast<int32_t>(i));
}

TEST_F(FFAudioBufferTest, Get_AllocatesWhenNoAddressAndWritesPlanes) {
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{1, -1, 2, -2, 3, -3}), S_OK);
  LONG lSamples = 0;
  LONGLONG llAddr = 0;
  ASSERT_EQ(m_cpBuf->BufferGet(CBstr("a"), &lSamples, &llAddr, 0, CBstr("1")), S_OK);
  ASSERT_EQ(lSamples, 3);
  ASSERT_NE(llAddr, 0);
  const auto* pn = reinterpret_cast<const int16_t*>(llAddr);
  EXPECT_EQ(vector<int16_t>(pn, pn + 3), (vector<int16_t>{-1, -2, -3}));
  CoTaskMemFree(reinterpret_cast<void*>(llAddr));

  // Planes 8 bytes apart, room for 4 samples each; only 2 are there.
  ASSERT_EQ(Put("p", Aud(2, 16), vector<int16_t>{1, -1, 2, -2}), S_OK);
  vector<int16_t> vecPlanes(8, 99);
  llAddr = Addr(vecPlanes);
  lSamples = 4;
  ASSERT_EQ(m_cpBuf->BufferGet(CBstr("p"), &lSamples, &llAddr, 8, nullptr), S_OK);
  EXPECT_EQ(lSamples, 2);
  EXPECT_EQ(vecPlanes, (vector<int16_t>{1, 2, 99, 99, -1, -2, 99, 99}));
}

TEST_F(FFAudioBufferTest, PutPlanar_ReadsEachChannelFromItsPlane) {
  // Two planes of 3 samples, 8 bytes apart (one sample of padding each).
  const vector<int16_t> vecPlanes{1, 2, 3, 0, -1, -2, -3, 0};
  K_AUD_PROPS props = Aud(2, 16);
  ASSERT_EQ(m_cpBuf->BufferPutPtrEx(CBstr("a"), VC_TIME_UNSET, &props, 3, Addr(vecPlanes), 8, nullptr), S_OK);
  EXPECT_EQ(Get<int16_t>("a", 3, 2), (vector<int16_t>{1, -1, 2, -2, 3, -3}));
  EXPECT_EQ(m_cpBuf->BufferPutPtrEx(CBstr("a"), VC_TIME_UNSET, &props, 5, Addr(vecPlanes), 8, nullptr), E_INVALIDARG);
}

TEST_F(FFAudioBufferTest, Remove_TakesFromTheFrontAndCountsWhatWent) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{1, 2, 3, 4, 5}), S_OK);
  LONG lSamples = 3;
  EXPECT_EQ(m_cpBuf->BufferRemove(CBstr("a"), &lSamples), S_OK);
  EXPECT_EQ(lSamples, 3);
  EXPECT_EQ(Get<int16_t>("a", 1, 1), (vector<int16_t>{4}));
  lSamples = 10;
  EXPECT_EQ(m_cpBuf->BufferRemove(CBstr("a"), &lSamples), S_OK);
  EXPECT_EQ(lSamples, 1);
  EXPECT_EQ(m_cpBuf->BufferRemove(CBstr("a"), &lSamples), S_FALSE);
  EXPECT_EQ(lSamples, 0);

  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{1, 2, 3}), S_OK);
  EXPECT_EQ(m_cpBuf->BufferRemove(CBstr("a"), nullptr), S_OK);
  EXPECT_EQ(Count("a"), 0);
  // The line and its format stay.
  EXPECT_EQ(Props("a").nChannels, 1);
}

TEST_F(FFAudioBufferTest, LinesRemove_OneOrAll) {
  ASSERT_EQ(Put("a", Aud(1, 16), vector<int16_t>{1}), S_OK);
  ASSERT_EQ(Put("b", Aud(1, 16), vector<int16_t>{1}), S_OK);
  ASSERT_EQ(Put("c", Aud(1, 16), vector<int16_t>{1}), S_OK);
  EXPECT_EQ(m_cpBuf->BufferLinesRemove(CBstr("B")), S_OK);
  EXPECT_EQ(m_cpBuf->BufferLinesRemove(CBstr("b")), S_FALSE);
  EXPECT_EQ(Props("b").nChannels, 0);
  EXPECT_EQ(Count("a"), 1);
  EXPECT_EQ(m_cpBuf->BufferLinesRemove(nullptr), S_OK);
  EXPECT_EQ(Props("a").nChannels, 0);
  EXPECT_EQ(Props("c").nChannels, 0);
  EXPECT_EQ(m_cpBuf->BufferLinesRemove(nullptr), S_FALSE);
}

TEST_F(FFAudioBufferTest, PropsSet_ConvertsHeldSamplesUnlessReset) {
  ASSERT_EQ(Put("a", Aud(2, 16), vector<int16_t>{1, 2, 3, 4}), S_OK);
  K_AUD_PROPS mono32 = Aud(1, 32);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("a"), &mono32, FALSE), S_OK);
  EXPECT_EQ(Get<int32_t>("a", 2, 1), (vector<int32_t>{65536, 3 * 65536}));

  ASSERT_EQ(Put("a", Aud(1, 32), vector<int32_t>{5, 6}), S_OK);
  K_AUD_PROPS stereo16 = Aud(2, 16);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("a"), &stereo16, TRUE), S_OK);
  EXPECT_EQ(Count("a"), 0);
  EXPECT_EQ(Props("a").nChannels, 2);
}

TEST_F(FFAudioBufferTest, OtherRate_IsResampledAsOneStream) {
  K_AUD_PROPS props48 = Aud(1, 16, 48000);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("a"), &props48, TRUE), S_OK);
  // 0.2 s of a constant level at 44.1 kHz in two puts: about 0.2 s at 48 kHz,
  // the same level once the filter has settled, no step between the puts.
  for (int k = 0; k < 2; ++k) ASSERT_EQ(Put("a", Aud(1, 16, 44100), vector<int16_t>(4410, 1000)), S_OK);
  // A put at the line's own rate flushes what the resampler still holds.
  ASSERT_EQ(Put("a", Aud(1, 16, 48000), vector<int16_t>{-7}), S_OK);
  const vector<int16_t> vecGot = Get<int16_t>("a", 20000, 1);
  ASSERT_GE(vecGot.size(), 9590u);
  ASSERT_LE(vecGot.size(), 9610u);
  EXPECT_EQ(vecGot.back(), -7);
  for (size_t i = 200; i + 200 < vecGot.size(); ++i) ASSERT_NEAR(vecGot[i], 1000, 3) << i;
}

TEST_F(FFAudioBufferTest, BadArguments_AreRefusedWithALogLineAndChangeNothing) {
  CLogCapture log(eVCLL_Error);
  K_AUD_PROPS props = Aud(1, 16);
  const vector<int16_t> vec{1, 2};
  ASSERT_EQ(Put("a", props, vec), S_OK);

  EXPECT_EQ(m_cpBuf->BufferPropsSet(CBstr("a"), nullptr, FALSE), E_POINTER);
  for (K_AUD_PROPS bad : {Aud(0, 16), Aud(65, 16), Aud(1, 24), Aud(1, 16, 0)}) {
    EXPECT_EQ(m_cpBuf->BufferPropsSet(CBstr("a"), &bad, TRUE), E_INVALIDARG);
    EXPECT_EQ(m_cpBuf->BufferPutPtr(CBstr("a"), &bad, 2, Addr(vec), nullptr), E_INVALIDARG);
  }
  EXPECT_EQ(m_cpBuf->BufferPutPtr(CBstr("a"), &props, 2, 0, nullptr), E_POINTER);
  EXPECT_EQ(m_cpBuf->BufferPutPtr(CBstr("a"), &props, -1, Addr(vec), nullptr), E_INVALIDARG);
  EXPECT_EQ(m_cpBuf->BufferPutPtr(CBstr("new"), nullptr, 2, Addr(vec), nullptr), E_INVALIDARG);
  EXPECT_EQ(m_cpBuf->BufferPutPtrEx(CBstr("a"), 0, &props, 2, Addr(vec), -2, nullptr), E_INVALIDARG);

  LONG lSamples = 1;
  LONGLONG llAddr = 0;
  EXPECT_EQ(m_cpBuf->BufferGet(CBstr("a"), nullptr, &llAddr, 0, nullptr), E_POINTER);
  EXPECT_EQ(m_cpBuf->BufferGet(CBstr("a"), &lSamples, nullptr, 0, nullptr), E_POINTER);
  vector<int16_t> vecOut(4);
  llAddr = Addr(vecOut);
  lSamples = 0;
  EXPECT_EQ(m_cpBuf->BufferGet(CBstr("a"), &lSamples, &llAddr, 0, nullptr), E_INVALIDARG);
  lSamples = 2;
  EXPECT_EQ(m_cpBuf->BufferGet(CBstr("a"), &lSamples, &llAddr, 2, nullptr), E_INVALIDARG);  // plane < 2 samples
  EXPECT_EQ(m_cpBuf->BufferPropsGet(CBstr("a"), nullptr, &lSamples), E_POINTER);
  EXPECT_EQ(m_cpBuf->BufferTimesEnable(CBstr("a"), TRUE, 1, 10), E_INVALIDARG);
  EXPECT_EQ(m_cpBuf->BufferTimesEnable(CBstr("a"), TRUE, -10, -1), E_INVALIDARG);
  EXPECT_EQ(m_cpBuf->BufferTimesIsEnabled(CBstr("a"), nullptr, nullptr, nullptr), E_POINTER);
  EXPECT_EQ(m_cpBuf->BufferTimesGet(CBstr("a"), nullptr, nullptr), E_POINTER);
  EXPECT_EQ(m_cpBuf->BufferTimesSet(CBstr("nothing"), 0, VC_TIME_UNSET), E_INVALIDARG);
  EXPECT_EQ(m_cpBuf->BufferLoadFromFile(CBstr("a"), nullptr, 0, 0), E_POINTER);
  EXPECT_EQ(m_cpBuf->BufferLoadFromFile(CBstr("a"), CBstr("x.wav"), -1, 0), E_INVALIDARG);

  EXPECT_EQ(Count("a"), 2);
  EXPECT_EQ(Props("new").nChannels, 0);
  EXPECT_TRUE(log.Contains("bits per sample")) << "a refused format names its fault";
  EXPECT_GE(log.Messages().size(), 20u);
}

}  // namespace
}  // namespace vc::fftest
