// Audio through the software decoder: DecodeAudio into an audio line buffer
// (a strict fake that records what it is given), and audio frames from
// DecodePacket in a wanted sample width and rate.
#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FFDecoderTestSource.h"
#include "FFTestMedia.h"
#include "VCObject.h"

namespace {

using vc::ComPtr;
using vc::fftest::CTestPacketSource;

constexpr HRESULT kEndOfMedia = static_cast<HRESULT>(0x8007044Cu);

// Records BufferPutPtrEx calls; answers BufferPropsGet with the props it was
// told. Any other call fails the test.
class CFakeAudioBuffer : public vc::CKObjectRoot, public IVCAudioBuffer {
 public:
  struct CPut {
    std::string strLine;
    LONGLONG rtTime = 0;
    K_AUD_PROPS props{};
    LONG lSamples = 0;
    LONG cbAudioPlane = 0;
    int64_t llByteSum = 0;  // a fingerprint of the samples: they were readable
  };

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCAudioBuffer>(this, riid, ppv);
  }

  K_AUD_PROPS m_lineProps{};  // what BufferPropsGet reports; nChannels 0: the line is new
  std::vector<CPut> m_vecPuts;

  HRESULT STDMETHODCALLTYPE BufferPropsGet(BSTR, K_AUD_PROPS* _pAudProps, LONG* _plSamples) override {
    if (m_lineProps.nChannels == 0) return S_FALSE;
    *_pAudProps = m_lineProps;
    if (_plSamples) *_plSamples = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE BufferPutPtrEx(BSTR _bsLine, LONGLONG _rtTime, K_AUD_PROPS* _pAudProps, LONG _lSamples,
                                           LONGLONG _pbAudio, LONG _cbAudioPlane, BSTR) override {
    CPut put;
    put.strLine = vc::ToUtf8(vc::View(_bsLine));
    put.rtTime = _rtTime;
    put.props = *_pAudProps;
    put.lSamples = _lSamples;
    put.cbAudioPlane = _cbAudioPlane;
    const auto* p = reinterpret_cast<const uint8_t*>(_pbAudio);
    const size_t cb = static_cast<size_t>(_lSamples) * _pAudProps->nChannels * _pAudProps->nBitsPerSample / 8;
    for (size_t i = 0; i < cb; ++i) put.llByteSum += p[i];
    m_vecPuts.push_back(put);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE BufferLoadFromFile(BSTR, BSTR, LONG, LONG) override { return Unexpected("LoadFromFile"); }
  HRESULT STDMETHODCALLTYPE BufferPropsSet(BSTR, K_AUD_PROPS*, BOOL) override { return Unexpected("PropsSet"); }
  HRESULT STDMETHODCALLTYPE BufferPutPtr(BSTR, K_AUD_PROPS*, LONG, LONGLONG, BSTR) override {
    return Unexpected("PutPtr");
  }
  HRESULT STDMETHODCALLTYPE BufferFramePut(BSTR, IVCFrame*, BSTR) override { return Unexpected("FramePut"); }
  HRESULT STDMETHODCALLTYPE BufferFrameFill(BSTR, IVCFrame*, LONG*, BSTR) override { return Unexpected("FrameFill"); }
  HRESULT STDMETHODCALLTYPE BufferFrameMix(BSTR, IVCFrame*, LONG*, double, double, BSTR, BSTR) override {
    return Unexpected("FrameMix");
  }
  HRESULT STDMETHODCALLTYPE BufferFrameChannelsAppend(BSTR, IVCFrame*, LONG*, BSTR) override {
    return Unexpected("FrameChannelsAppend");
  }
  HRESULT STDMETHODCALLTYPE BufferLinesMix(BSTR, BSTR, LONG*, double, double, double, double, BSTR, BSTR) override {
    return Unexpected("LinesMix");
  }
  HRESULT STDMETHODCALLTYPE BufferLinesRemove(BSTR) override { return Unexpected("LinesRemove"); }
  HRESULT STDMETHODCALLTYPE BufferRemove(BSTR, LONG*) override { return Unexpected("Remove"); }
  HRESULT STDMETHODCALLTYPE BufferGet(BSTR, LONG*, LONGLONG*, LONG, BSTR) override { return Unexpected("Get"); }
  HRESULT STDMETHODCALLTYPE BufferTimesEnable(BSTR, BOOL, LONGLONG, LONGLONG) override {
    return Unexpected("TimesEnable");
  }
  HRESULT STDMETHODCALLTYPE BufferTimesIsEnabled(BSTR, BOOL*, LONGLONG*, LONGLONG*) override {
    return Unexpected("TimesIsEnabled");
  }
  HRESULT STDMETHODCALLTYPE BufferTimesGet(BSTR, LONGLONG*, LONGLONG*) override { return Unexpected("TimesGet"); }
  HRESULT STDMETHODCALLTYPE BufferTimesSet(BSTR, LONGLONG, LONGLONG) override { return Unexpected("TimesSet"); }

 private:
  static HRESULT Unexpected(const char* szMethod) {
    ADD_FAILURE() << "unexpected call of IVCAudioBuffer::Buffer" << szMethod;
    return E_NOTIMPL;
  }
};

class FFDecoderAudioTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vc::ff::CreateFFDecoder(nullptr, vc::IidOf<IVCDecoder>(), reinterpret_cast<void**>(m_cpDecoder.AddressOf())),
              S_OK);
    vc::CKComObject<CFakeAudioBuffer>* pBuffer = nullptr;
    ASSERT_EQ(vc::CKComObject<CFakeAudioBuffer>::CreateInstance(&pBuffer), S_OK);
    m_pBuffer = pBuffer;
    m_cpBuffer.Attach(pBuffer);
  }

  void OpenSource(const char* szFile, AVMediaType eType = AVMEDIA_TYPE_AUDIO) {
    ASSERT_TRUE(vc::fftest::MediaExists(szFile)) << "test media missing: run tests/media/make_media.sh";
    ASSERT_TRUE(m_source.Open(vc::fftest::MediaPath(szFile), eType)) << szFile;
    m_vecPackets = m_source.ReadAll();
    ASSERT_EQ(m_cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&m_source.StreamInfo()),
                                             m_vecPackets.front().Get(), nullptr),
              S_OK);
  }

  // DecodeAudio for every packet, then drains; the total the decoder reported.
  int64_t DecodeAllIntoBuffer(const char* szHints) {
    vc::CBstr bsHints{std::string_view(szHints)};
    int64_t llReported = 0;
    for (const auto& cpPacket : m_vecPackets) {
      LONG lSamples = -1;
      const HRESULT hr = m_cpDecoder->DecodeAudio(cpPacket.Get(), -1, m_cpBuffer.Get(), &lSamples, bsHints);
      EXPECT_TRUE(hr == S_OK || hr == S_FALSE) << std::hex << hr;
      EXPECT_EQ(hr == S_OK, lSamples > 0);
      llReported += lSamples;
    }
    for (;;) {
      LONG lSamples = -1;
      const HRESULT hr = m_cpDecoder->DecodeAudio(nullptr, -1, m_cpBuffer.Get(), &lSamples, bsHints);
      if (hr != S_OK) {
        EXPECT_EQ(hr, kEndOfMedia);
        EXPECT_EQ(lSamples, 0);
        break;
      }
      llReported += lSamples;
    }
    return llReported;
  }

  ComPtr<IVCDecoder> m_cpDecoder;
  CFakeAudioBuffer* m_pBuffer = nullptr;  // owned by m_cpBuffer
  ComPtr<IVCAudioBuffer> m_cpBuffer;
  CTestPacketSource m_source;
  std::vector<ComPtr<IVCPacket>> m_vecPackets;
};

class FFDecoderAudioFileTest : public FFDecoderAudioTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(FFDecoderAudioFileTest, DecodeAudio_SampleCountsMatchPlainLoop) {
  OpenSource(GetParam());
  const int64_t llReported = DecodeAllIntoBuffer("line=music");
  const auto ref = vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath(GetParam()), AVMEDIA_TYPE_AUDIO);
  ASSERT_GT(ref.llSamples, 0);
  EXPECT_EQ(llReported, ref.llSamples);

  int64_t llPut = 0;
  LONGLONG rtPrev = VC_TIME_UNSET;
  for (const auto& put : m_pBuffer->m_vecPuts) {
    EXPECT_EQ(put.strLine, "music");
    EXPECT_EQ(put.props.nChannels, m_source.StreamInfo().nChannels);
    EXPECT_EQ(put.props.nSamplesPerSec, m_source.StreamInfo().nSampleRate);
    EXPECT_EQ(put.props.nBitsPerSample, 16);
    EXPECT_EQ(put.cbAudioPlane, 0) << "interleaved samples";
    if (rtPrev != VC_TIME_UNSET) {
      EXPECT_GT(put.rtTime, rtPrev);
    }
    rtPrev = put.rtTime;
    llPut += put.lSamples;
  }
  EXPECT_EQ(llPut, ref.llSamples);
}

INSTANTIATE_TEST_SUITE_P(Media, FFDecoderAudioFileTest,
                         ::testing::Values("h264_aac.mp4", "hevc_opus.mkv", "mpeg2_mp2_2prog.ts", "mpeg2_pcm.mxf",
                                           "vp9_vorbis.webm"),
                         vc::fftest::MediaParamName);

TEST_F(FFDecoderAudioTest, NoLineInHints_FillsTheDefaultLine) {
  OpenSource("h264_aac.mp4");
  DecodeAllIntoBuffer("");
  ASSERT_FALSE(m_pBuffer->m_vecPuts.empty());
  for (const auto& put : m_pBuffer->m_vecPuts) EXPECT_EQ(put.strLine, "");
}

TEST_F(FFDecoderAudioTest, LineOf32BitSamples_Gets32BitSamples) {
  OpenSource("mpeg2_pcm.mxf");
  m_pBuffer->m_lineProps = K_AUD_PROPS{2, 48000, 32, 0};
  const int64_t llReported = DecodeAllIntoBuffer("line=wide");
  ASSERT_GT(llReported, 0);
  for (const auto& put : m_pBuffer->m_vecPuts) EXPECT_EQ(put.props.nBitsPerSample, 32);
  // The tone is not silence: the samples were really written.
  int64_t llSum = 0;
  for (const auto& put : m_pBuffer->m_vecPuts) llSum += put.llByteSum;
  EXPECT_GT(llSum, 0);
}

TEST_F(FFDecoderAudioTest, VideoStream_RefusedByDecodeAudio) {
  OpenSource("h264_aac.mp4", AVMEDIA_TYPE_VIDEO);
  LONG lSamples = -1;
  EXPECT_EQ(m_cpDecoder->DecodeAudio(m_vecPackets.front().Get(), -1, m_cpBuffer.Get(), &lSamples, nullptr),
            E_INVALIDARG);
  EXPECT_EQ(lSamples, 0);
  EXPECT_TRUE(m_pBuffer->m_vecPuts.empty());
}

TEST_F(FFDecoderAudioTest, ModuleAudioBuffer_HoldsEveryDecodedSample) {
  OpenSource("vp9_vorbis.webm");
  ComPtr<IVCAudioBuffer> cpBuffer;
  ASSERT_EQ(vc::ff::CreateFFAudioBuffer(nullptr, vc::IidOf<IVCAudioBuffer>(),
                                        reinterpret_cast<void**>(cpBuffer.AddressOf())),
            S_OK);
  vc::CBstr bsHints{std::string_view("line=main")};
  int64_t llReported = 0;
  for (const auto& cpPacket : m_vecPackets) {
    LONG lSamples = 0;
    ASSERT_TRUE(SUCCEEDED(m_cpDecoder->DecodeAudio(cpPacket.Get(), -1, cpBuffer.Get(), &lSamples, bsHints)));
    llReported += lSamples;
  }
  LONG lSamples = 0;
  while (m_cpDecoder->DecodeAudio(nullptr, -1, cpBuffer.Get(), &lSamples, bsHints) == S_OK) llReported += lSamples;

  vc::CBstr bsLine{std::string_view("main")};
  K_AUD_PROPS props{};
  LONG lHeld = 0;
  ASSERT_EQ(cpBuffer->BufferPropsGet(bsLine, &props, &lHeld), S_OK);
  EXPECT_EQ(lHeld, llReported);
  EXPECT_EQ(lHeld, vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath("vp9_vorbis.webm"), AVMEDIA_TYPE_AUDIO).llSamples);
  EXPECT_EQ(props.nChannels, 2);
  EXPECT_EQ(props.nSamplesPerSec, 48000);
  EXPECT_EQ(props.nBitsPerSample, 16);
}

// DecodePacket hands audio out as frames, in the sample width and rate asked for.
TEST_F(FFDecoderAudioTest, WantedWidthAndRate_FramesResampledAndHeldSamplesDrained) {
  OpenSource("mpeg2_mp2_2prog.ts");
  const auto ref = vc::fftest::DecodeWithPlainLoop(vc::fftest::MediaPath("mpeg2_mp2_2prog.ts"), AVMEDIA_TYPE_AUDIO);
  K_AV_PROPS wanted{};
  wanted.audProps.nBitsPerSample = 32;
  wanted.audProps.nSamplesPerSec = 24000;
  wanted.audProps.nChannels = 1;
  const auto run = vc::fftest::RunDecoder(m_cpDecoder.Get(), m_vecPackets, &wanted);
  EXPECT_EQ(run.hrEnd, kEndOfMedia);
  ASSERT_FALSE(run.vecFrames.empty());
  int64_t llSamples = 0;
  for (const auto& cpFrame : run.vecFrames) {
    LONG lSamples = 0;
    const K_AV_PROPS props = vc::fftest::FrameProps(cpFrame.Get(), &lSamples);
    EXPECT_EQ(props.audProps.nBitsPerSample, 32);
    EXPECT_EQ(props.audProps.nSamplesPerSec, 24000);
    EXPECT_EQ(props.audProps.nChannels, 1);
    llSamples += lSamples;
  }
  // Half the rate, every sample accounted for once the resampler is drained.
  EXPECT_NEAR(static_cast<double>(llSamples), ref.llSamples / 2.0, 2.0);
}

}  // namespace
