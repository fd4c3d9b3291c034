// The general splitter's pieces on their own: which streams the track and
// program settings select (on format contexts built in memory, so every
// layout can be tried), and the side-data entries.
#include <gtest/gtest.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <atomic>
#include <cstring>
#include <memory>

#include "CountedUnknown.h"
#include "FFSplitterSideData.h"
#include "FFSplitterSource.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCStrings.h"

namespace {

using vc::ff::CFFTrackSettings;
using vc::ff::SelectStreams;

// --- Stream selection ---------------------------------------------------------

struct CFormatFree {
  void operator()(AVFormatContext* p) const { avformat_free_context(p); }
};

class FFSplitterSelectTest : public ::testing::Test {
 protected:
  void SetUp() override { m_spFormat.reset(avformat_alloc_context()); }

  // Adds streams described by letters: V video, P cover picture, A audio,
  // S subtitles, D data, T attachment.
  void AddStreams(const char* szKinds) {
    for (const char* p = szKinds; *p; ++p) {
      AVStream* pStream = avformat_new_stream(m_spFormat.get(), nullptr);
      ASSERT_NE(pStream, nullptr);
      switch (*p) {
        case 'V': pStream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO; break;
        case 'P':
          pStream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
          pStream->disposition = AV_DISPOSITION_ATTACHED_PIC;
          break;
        case 'A': pStream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO; break;
        case 'S': pStream->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE; break;
        case 'D': pStream->codecpar->codec_type = AVMEDIA_TYPE_DATA; break;
        default: pStream->codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT; break;
      }
    }
  }
  void AddProgram(int nId, std::initializer_list<unsigned> streams) {
    ASSERT_NE(av_new_program(m_spFormat.get(), nId), nullptr);
    for (unsigned n : streams) av_program_add_stream_index(m_spFormat.get(), nId, n);
  }

  // The selection as a string of '1' and '0', or "error: ..." when refused.
  std::string Select(const char16_t* szVideo, const char16_t* szAudio, const char16_t* szSubtitle,
                     int64_t llProgram = -1) {
    CFFTrackSettings settings;
    settings.strVideo = szVideo;
    settings.strAudio = szAudio;
    settings.strSubtitle = szSubtitle;
    settings.llProgram = llProgram;
    std::vector<bool> vecSelected;
    std::string strError;
    if (!SelectStreams(m_spFormat.get(), settings, &vecSelected, &strError)) return "error: " + strError;
    std::string strOut;
    for (bool b : vecSelected) strOut += b ? '1' : '0';
    return strOut;
  }

  std::unique_ptr<AVFormatContext, CFormatFree> m_spFormat;
};

TEST_F(FFSplitterSelectTest, EmptyOrAllSelectsEveryKindButAttachments) {
  AddStreams("VASDTPA");
  EXPECT_EQ(Select(u"", u"", u""), "1111011");
  EXPECT_EQ(Select(u"all", u"*", u"ALL"), "1111011");
}

TEST_F(FFSplitterSelectTest, IndicesCountWithinTheirKind) {
  AddStreams("VAVASA");
  EXPECT_EQ(Select(u"1", u"0,2", u"-1"), "011001");
  EXPECT_EQ(Select(u" 0 ; 1 ", u"2", u"0"), "101011");
  EXPECT_EQ(Select(u"-1", u"-1", u"-1"), "000000");
  EXPECT_EQ(Select(u"5", u"3", u"1"), "000000") << "indices past the streams select nothing";
}

TEST_F(FFSplitterSelectTest, CoverPicturesAreNoVideoTrack) {
  AddStreams("PVA");
  EXPECT_EQ(Select(u"0", u"0", u"-1"), "011");
  EXPECT_EQ(Select(u"all", u"-1", u"-1"), "110");
}

TEST_F(FFSplitterSelectTest, UnreadableTextIsRefusedWithTheSettingsName) {
  AddStreams("VA");
  EXPECT_EQ(Select(u"0", u"eng", u"-1"), "error: audio_track 'eng' is not a list of track indices");
  EXPECT_EQ(Select(u"1.5", u"0", u"-1"), "error: video_track '1.5' is not a list of track indices");
}

TEST_F(FFSplitterSelectTest, ProgramByIdThenByIndexWithTracksCountedInside) {
  AddStreams("VAVAD");
  AddProgram(101, {0, 1});
  AddProgram(102, {2, 3, 4});
  EXPECT_EQ(Select(u"", u"", u"", 102), "00111");
  EXPECT_EQ(Select(u"0", u"-1", u"", 101), "10000");
  EXPECT_EQ(Select(u"0", u"0", u"", 1), "00111") << "no id 1: the second program by index";
  EXPECT_EQ(Select(u"", u"", u"", -1), "11111");
  EXPECT_EQ(Select(u"", u"", u"", 7).rfind("error: ts_program 7", 0), 0u);
}

TEST_F(FFSplitterSelectTest, ProgramSettingIsIgnoredWithoutPrograms) {
  AddStreams("VA");
  EXPECT_EQ(Select(u"", u"", u"", 3), "11");
}

// --- Side-data entries ----------------------------------------------------------

constexpr HRESULT kBadStream = static_cast<HRESULT>(0x80070585);

LONGLONG Address(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }


TEST(FFSplitterSideDataTest, BytesAreCopiedAndTheirViewOutlivesOtherChanges) {
  vc::ff::CFFSideDataStore store;
  store.Reset(2);
  uint8_t bytes[4] = {1, 2, 3, 4};
  ASSERT_EQ(store.Set(1, vc::CBstr(u"hdr"), 4, Address(bytes)), S_OK);
  bytes[0] = 9;  // the store holds its own copy
  LONG cb = 0;
  LONGLONG lp = 0;
  ASSERT_EQ(store.Get(1, vc::CBstr(u"hdr"), &cb, &lp), S_OK);
  ASSERT_EQ(cb, 4);
  const uint8_t* pView = reinterpret_cast<const uint8_t*>(lp);
  EXPECT_EQ(pView[0], 1);

  // Many more entries later the first view still reads the same bytes.
  for (int n = 0; n < 50; ++n) store.PutString(1, vc::FromUtf8("tag" + std::to_string(n)), u"x");
  EXPECT_EQ(pView[3], 4);
  LONGLONG lpAgain = 0;
  ASSERT_EQ(store.Get(1, vc::CBstr(u"hdr"), nullptr, &lpAgain), S_OK);
  EXPECT_EQ(lpAgain, lp);

  // The entry is the first of its stream; the other stream is empty.
  vc::CBstr bsType;
  ASSERT_EQ(store.GetByIndex(1, 0, &bsType, &cb, &lp), S_OK);
  EXPECT_EQ(bsType.Utf8(), "hdr");
  ASSERT_EQ(store.GetByIndex(1, 50, &bsType, &cb, &lp), S_OK);
  EXPECT_EQ(bsType.Utf8(), "tag49");
  EXPECT_EQ(cb, 0) << "a string entry has no bytes";
  EXPECT_EQ(store.GetByIndex(1, 51, &bsType, &cb, &lp), S_FALSE);
  EXPECT_EQ(bsType.Get(), nullptr);
  EXPECT_EQ(store.GetByIndex(1, -1, &bsType, nullptr, nullptr), E_INVALIDARG);
  LONG nCount = -1;
  ASSERT_EQ(store.GetCount(0, &nCount), S_OK);
  EXPECT_EQ(nCount, 0);
}

TEST(FFSplitterSideDataTest, StringsAndBytesShareAnEntryUntilRemoved) {
  vc::ff::CFFSideDataStore store;
  store.Reset(1);
  const uint8_t byte = 7;
  ASSERT_EQ(store.StrSet(-1, vc::CBstr(u"title"), vc::CBstr(u"Main")), S_OK);
  ASSERT_EQ(store.Set(-1, vc::CBstr(u"title"), 1, Address(&byte)), S_OK);
  LONG nCount = 0;
  store.GetCount(-1, &nCount);
  EXPECT_EQ(nCount, 1);
  vc::CBstr bsValue;
  ASSERT_EQ(store.StrGet(-1, vc::CBstr(u"title"), &bsValue), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "Main");

  ASSERT_EQ(store.Remove(-1, vc::CBstr(u"title")), S_OK);
  EXPECT_EQ(store.Remove(-1, vc::CBstr(u"title")), S_FALSE);
  EXPECT_EQ(store.StrGet(-1, vc::CBstr(u"title"), &bsValue), S_FALSE);
  LONG cb = -1;
  EXPECT_EQ(store.Get(-1, vc::CBstr(u"title"), &cb, nullptr), S_FALSE);
  EXPECT_EQ(cb, 0);
}

TEST(FFSplitterSideDataTest, ObjectsAreKeptAndReleased) {
  vc::ff::CFFSideDataStore store;
  store.Reset(1);
  vctest::CCountedUnknown object;
  ASSERT_EQ(store.ObjSet(0, vc::CBstr(u"caption"), &object), S_OK);
  EXPECT_EQ(object.Refs(), 2u);
  IUnknown* pGot = nullptr;
  ASSERT_EQ(store.ObjGet(0, vc::CBstr(u"caption"), &pGot), S_OK);
  EXPECT_EQ(pGot, &object);
  EXPECT_EQ(object.Refs(), 3u);
  pGot->Release();

  ASSERT_EQ(store.ObjSet(0, vc::CBstr(u"caption"), nullptr), S_OK);
  EXPECT_EQ(object.Refs(), 1u);
  EXPECT_EQ(store.ObjGet(0, vc::CBstr(u"caption"), &pGot), S_FALSE);
  EXPECT_EQ(store.ObjSet(0, vc::CBstr(u"caption"), nullptr), S_FALSE);

  ASSERT_EQ(store.ObjSet(0, vc::CBstr(u"caption"), &object), S_OK);
  store.Reset(0);  // a close lets go of everything
  EXPECT_EQ(object.Refs(), 1u);
}

TEST(FFSplitterSideDataTest, StreamsOutsideTheSourceAndBadArgumentsAreRefused) {
  vc::ff::CFFSideDataStore store;
  store.Reset(2);
  const uint8_t byte = 1;
  EXPECT_EQ(store.Set(2, vc::CBstr(u"x"), 1, Address(&byte)), kBadStream);
  EXPECT_EQ(store.Set(-2, vc::CBstr(u"x"), 1, Address(&byte)), kBadStream);
  EXPECT_EQ(store.Set(0, vc::CBstr(u""), 1, Address(&byte)), E_INVALIDARG);
  EXPECT_EQ(store.Set(0, vc::CBstr(u"x"), -1, Address(&byte)), E_INVALIDARG);
  EXPECT_EQ(store.Set(0, vc::CBstr(u"x"), 1, 0), E_POINTER);
  EXPECT_EQ(store.Set(0, vc::CBstr(u"x"), 0, 0), S_OK) << "an empty block is a value";
  store.Reset(0);
  LONG nCount = 0;
  EXPECT_EQ(store.GetCount(-1, &nCount), S_OK) << "the source-wide entries exist even while closed";
  EXPECT_EQ(store.GetCount(0, &nCount), kBadStream);
}

}  // namespace
