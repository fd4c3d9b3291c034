// Loading audio files into lines: WAV files written here (16 and 32 bits),
// raw PCM in the line's format, a part of a file, and a compressed track of
// the test media.
#include <cstdio>
#include <fstream>
#include <string>

#include "FFAudioBufferTestHelpers.h"
#include "FFTestMedia.h"

namespace vc::fftest {
namespace {

using std::vector;

// A canonical PCM WAV file: RIFF, "fmt " (format 1), "data".
template <class T>
void WriteWav(const std::string& strPath, int nChannels, int nRate, const vector<T>& vecSamples) {
  const auto u32 = [](std::ofstream& f, uint32_t v) { f.write(reinterpret_cast<const char*>(&v), 4); };
  const auto u16 = [](std::ofstream& f, uint16_t v) { f.write(reinterpret_cast<const char*>(&v), 2); };
  const auto cbData = static_cast<uint32_t>(vecSamples.size() * sizeof(T));
  const auto nBlock = static_cast<uint16_t>(nChannels * sizeof(T));
  std::ofstream f(strPath, std::ios::binary | std::ios::trunc);
  f.write("RIFF", 4);
  u32(f, 36 + cbData);
  f.write("WAVEfmt ", 8);
  u32(f, 16);
  u16(f, 1);
  u16(f, static_cast<uint16_t>(nChannels));
  u32(f, static_cast<uint32_t>(nRate));
  u32(f, static_cast<uint32_t>(nRate) * nBlock);
  u16(f, nBlock);
  u16(f, static_cast<uint16_t>(8 * sizeof(T)));
  f.write("data", 4);
  u32(f, cbData);
  f.write(reinterpret_cast<const char*>(vecSamples.data()), cbData);
  ASSERT_TRUE(f.good()) << strPath;
}

class FFAudioBufferFileTest : public AudioBufferFixture {
 protected:
  void TearDown() override {
    for (const std::string& str : m_vecFiles) std::remove(str.c_str());
  }
  std::string TempFile(const char* pszName) {
    const ::testing::TestInfo* pInfo = ::testing::UnitTest::GetInstance()->current_test_info();
    m_vecFiles.push_back(::testing::TempDir() + "vcab_" + pInfo->name() + "_" + pszName);
    return m_vecFiles.back();
  }
  HRESULT Load(const char* pszLine, const std::string& strPath, LONG lOffset = 0, LONG lCount = 0) {
    return m_cpBuf->BufferLoadFromFile(CBstr(std::string_view(pszLine)), CBstr(std::string_view(strPath)), lOffset,
                                       lCount);
  }
  // Stereo samples: channel 0 counts up from 0, channel 1 down from -1.
  static vector<int16_t> Ramp16(int nSamples) {
    vector<int16_t> vec;
    for (int i = 0; i < nSamples; ++i) {
      vec.push_back(static_cast<int16_t>(i));
      vec.push_back(static_cast<int16_t>(-1 - i));
    }
    return vec;
  }

  vector<std::string> m_vecFiles;
};

TEST_F(FFAudioBufferFileTest, Wav16_LoadsExactlyWithItsFormat) {
  const std::string strPath = TempFile("s16.wav");
  const vector<int16_t> vecSamples = Ramp16(3000);
  WriteWav(strPath, 2, 44100, vecSamples);
  ASSERT_EQ(Load("w", strPath), S_OK);
  const K_AUD_PROPS props = Props("w");
  EXPECT_EQ(props.nChannels, 2);
  EXPECT_EQ(props.nSamplesPerSec, 44100);
  EXPECT_EQ(props.nBitsPerSample, 16);
  EXPECT_EQ(Get<int16_t>("w", 5000, 2), vecSamples);
}

TEST_F(FFAudioBufferFileTest, Wav16_PartFromAnOffset) {
  const std::string strPath = TempFile("part.wav");
  WriteWav(strPath, 2, 48000, Ramp16(3000));
  ASSERT_EQ(Load("w", strPath, 2500, 50), S_OK);
  const vector<int16_t> vecGot = Get<int16_t>("w", 100, 2);
  ASSERT_EQ(vecGot.size(), 100u);
  EXPECT_EQ(vecGot.front(), 2500);
  EXPECT_EQ(vecGot[1], -2501);
  EXPECT_EQ(vecGot[98], 2549);

  // An offset past the end loads nothing.
  EXPECT_EQ(Load("w", strPath, 5000, 0), S_FALSE);
  EXPECT_EQ(Count("w"), 0);
}

TEST_F(FFAudioBufferFileTest, Wav32_KeepsThirtyTwoBitsAndConvertsIntoALineFormat) {
  const std::string strPath = TempFile("s32.wav");
  const vector<int32_t> vecSamples{INT32_MAX, INT32_MIN, 65536 * 3, -65536 * 5, 1, -1};
  WriteWav(strPath, 2, 48000, vecSamples);
  ASSERT_EQ(Load("w", strPath), S_OK);
  EXPECT_EQ(Props("w").nBitsPerSample, 32);
  EXPECT_EQ(Get<int32_t>("w", 3, 2), vecSamples);

  K_AUD_PROPS stereo16 = Aud(2, 16);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("l"), &stereo16, TRUE), S_OK);
  ASSERT_EQ(Load("l", strPath), S_OK);
  EXPECT_EQ(Get<int16_t>("l", 3, 2), (vector<int16_t>{32767, -32768, 3, -5, 0, 0}));
}

TEST_F(FFAudioBufferFileTest, OtherRate_TheWholeFileArrivesResampled) {
  const std::string strPath = TempFile("s16_44k.wav");
  WriteWav(strPath, 1, 44100, vector<int16_t>(4410, -2000));
  K_AUD_PROPS mono48 = Aud(1, 16, 48000);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("l"), &mono48, TRUE), S_OK);
  ASSERT_EQ(Load("l", strPath), S_OK);
  // 0.1 s at 48 kHz: nothing of the file's end stays behind in the resampler.
  EXPECT_NEAR(Count("l"), 4800, 2);
  const vector<int16_t> vecGot = Get<int16_t>("l", 4800, 1);
  ASSERT_GT(vecGot.size(), 2500u);
  EXPECT_NEAR(vecGot[2400], -2000, 3);
}

TEST_F(FFAudioBufferFileTest, RawPcm_IsReadInTheLineFormat) {
  const std::string strPath = TempFile("mono.pcm");
  const vector<int16_t> vecSamples{5, -6, 7, -8, 9};
  {
    std::ofstream f(strPath, std::ios::binary);
    f.write(reinterpret_cast<const char*>(vecSamples.data()), static_cast<std::streamsize>(vecSamples.size() * 2));
  }
  EXPECT_EQ(Load("r", strPath), E_INVALIDARG) << "a raw file needs the line's format";
  K_AUD_PROPS mono = Aud(1, 16, 8000);
  ASSERT_EQ(m_cpBuf->BufferPropsSet(CBstr("r"), &mono, TRUE), S_OK);
  ASSERT_EQ(Load("r", strPath, 1, 3), S_OK);
  EXPECT_EQ(Get<int16_t>("r", 10, 1), (vector<int16_t>{-6, 7, -8}));
}

TEST_F(FFAudioBufferFileTest, MissingOrForeignFile_FailsAndLeavesTheLine) {
  ASSERT_EQ(Put("w", Aud(1, 16), vector<int16_t>{1, 2}), S_OK);
  EXPECT_TRUE(FAILED(Load("w", TempFile("absent.wav"))));
  if (MediaExists("video_only.mp4")) {
    EXPECT_TRUE(FAILED(Load("w", MediaPath("video_only.mp4"))));
  }
  EXPECT_EQ(Count("w"), 2);
}

TEST_F(FFAudioBufferFileTest, CompressedTrack_DecodesToTheExpectedLength) {
  if (!MediaExists("h264_aac.mp4")) GTEST_SKIP() << "test media not made";
  ASSERT_EQ(Load("m", MediaPath("h264_aac.mp4")), S_OK);
  const K_AUD_PROPS props = Props("m");
  EXPECT_EQ(props.nSamplesPerSec, 48000);
  EXPECT_EQ(props.nBitsPerSample, 32) << "AAC decodes to floats, kept at 32 bits";
  // Two seconds, give or take the encoder's priming and padding.
  EXPECT_NEAR(Count("m"), 96000, 2048);
}

}  // namespace
}  // namespace vc::fftest
