// The muxer facade over the general media module's muxer, used the way a
// host uses it: the splitter facade reads a file and every packet goes
// through the muxer facade into another container, which reads back with
// the same streams, packet counts and times. Then a seamless switch through
// the facade in the middle of a 20 s run: two files that together hold every
// packet, the second starting on a key packet. The facades are linked in;
// the inner objects come from the built module through the runtime.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "CoVCMuxer.h"
#include "CoVCSplitter.h"
#include "FFClasses.h"
#include "FFTestMedia.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

namespace fs = std::filesystem;
using vc::CBstr;
using vc::ComPtr;

constexpr HRESULT kEndOfMedia = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);
constexpr LONGLONG kSec = VC_TIME_SECOND;
constexpr LONGLONG kMs = VC_TIME_SECOND / 1000;

struct CStreamRecord {
  eVCMediaType eType = eVCMT_Empty;
  std::string strCodec;
  LONG nWidth = 0, nHeight = 0, nSampleRate = 0, nChannels = 0;
  bool operator==(const CStreamRecord&) const = default;
};

struct CPacketRecord {
  LONGLONG rtStart = 0;
  bool bKey = false;
};

CStreamRecord RecordOf(const K_STREAM_INFO& info) {
  return {info.eMediaType, vc::ToUtf8(vc::InString(info.bsCodecNameOrTag)), info.nWidth, info.nHeight,
          info.nSampleRate, info.nChannels};
}

// A file's streams and, per stream, its packets in file order.
struct CFileSummary {
  std::vector<CStreamRecord> streams;
  std::map<LONG, std::vector<CPacketRecord>> packets;
  size_t Total() const {
    size_t n = 0;
    for (const auto& [nStream, vec] : packets) n += vec.size();
    return n;
  }
};

void AddPacket(IVCPacket* pPacket, CFileSummary* pSummary) {
  K_PACKET_INFO info{};
  K_TIME time{};
  pPacket->PacketInfoGet(&info);
  pPacket->PacketTimeGet(&time);
  pSummary->packets[info.nStreamIndex].push_back({time.rtStartTime, (info.eFlags & eVCPF_KeyFrame) != 0});
}

// Reads a written file back with the general splitter alone.
CFileSummary ReadBack(const std::string& strPath) {
  CFileSummary summary;
  ComPtr<IVCSplitter> cpSplitter;
  EXPECT_EQ(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                     reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  LONG nStreams = 0;
  EXPECT_EQ(cpSplitter->SplitterOpen(CBstr(std::string_view(strPath)), nullptr, &nStreams), S_OK) << strPath;
  for (LONG n = 0; n < nStreams; ++n) {
    K_STREAM_INFO info{};
    CBstr bsXml;
    EXPECT_EQ(cpSplitter->SplitterStreamInfoGet(n, &info, &bsXml), S_OK);
    summary.streams.push_back(RecordOf(info));
    SysFreeString(info.bsCodecNameOrTag);
  }
  for (;;) {
    ComPtr<IVCPacket> cpPacket;
    if (cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr) != S_OK || !cpPacket) break;
    AddPacket(cpPacket.Get(), &summary);
  }
  cpSplitter->SplitterClose();
  return summary;
}

class MuxerFacadeMediaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_dir = fs::temp_directory_path() / ("vcmuxfacade_" + std::to_string(getpid()) + "_" +
                                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(m_dir);
    ASSERT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCSplitter>(),
                                                  reinterpret_cast<void**>(m_cpSplitter.AddressOf())),
              S_OK);
    ASSERT_EQ(vc::CreateObject<vc::CCoVCMuxer>(nullptr, vc::IidOf<IVCMuxer>(),
                                               reinterpret_cast<void**>(m_cpMuxer.AddressOf())),
              S_OK);
  }
  void TearDown() override {
    if (m_cpMuxer) m_cpMuxer->MuxerClose();
    if (m_cpSplitter) m_cpSplitter->SplitterClose();
    for (K_STREAM_INFO& info : m_vecInfos) SysFreeString(info.bsCodecNameOrTag);
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }
  std::string Out(const std::string& strName) const { return (m_dir / strName).string(); }

  // Opens the source through the splitter facade and records its streams.
  void OpenSource(const std::string& strName) {
    ASSERT_TRUE(vc::fftest::MediaExists(strName)) << strName;
    LONG nStreams = 0;
    ASSERT_EQ(m_cpSplitter->SplitterOpen(CBstr(std::string_view(vc::fftest::MediaPath(strName))), nullptr, &nStreams),
              S_OK);
    ASSERT_GT(nStreams, 0);
    std::string strAll;
    for (LONG n = 0; n < nStreams; ++n) {
      K_STREAM_INFO info{};
      CBstr bsXml;
      ASSERT_EQ(m_cpSplitter->SplitterStreamInfoGet(n, &info, &bsXml), S_OK);
      m_vecInfos.push_back(info);  // codec data valid while the splitter lives
      m_in.streams.push_back(RecordOf(info));
      strAll += (n ? "," : "") + std::to_string(n);
    }
    ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, CBstr(std::string_view(strAll))), S_OK);
  }
  // Adds every source stream to the muxer facade, named by its index.
  void AddStreams() {
    for (size_t n = 0; n < m_vecInfos.size(); ++n) {
      LONG nIdx = -1;
      const std::string strProps = "stream_idx=" + std::to_string(n);
      ASSERT_EQ(m_cpMuxer->MuxerStreamAdd(&m_vecInfos[n], CBstr(std::string_view(strProps)), &nIdx), S_OK);
      EXPECT_EQ(nIdx, static_cast<LONG>(n));
    }
  }
  // Moves every packet from the splitter facade into the muxer facade;
  // fnBefore runs before each packet is put.
  template <class F>
  void Remux(F&& fnBefore) {
    for (;;) {
      ComPtr<IVCPacket> cpPacket;
      const HRESULT hr = m_cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
      if (hr == kEndOfMedia) break;
      ASSERT_EQ(hr, S_OK);
      ASSERT_TRUE(cpPacket);
      fnBefore(cpPacket.Get());
      AddPacket(cpPacket.Get(), &m_in);
      ASSERT_EQ(m_cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr), S_OK);
    }
  }

  fs::path m_dir;
  ComPtr<IVCSplitter> m_cpSplitter;
  ComPtr<IVCMuxer> m_cpMuxer;
  std::vector<K_STREAM_INFO> m_vecInfos;
  CFileSummary m_in;  // what went in
};

class MuxerFacadeRemuxTest : public MuxerFacadeMediaTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(MuxerFacadeRemuxTest, SplitterToMuxerFacade_ReadsBackWithTheSameStreamsCountsAndTimes) {
  OpenSource("h264_aac.mp4");
  if (HasFatalFailure()) return;
  const std::string strOut = Out(std::string("out.") + GetParam());
  ASSERT_EQ(m_cpMuxer->MuxerSet(CBstr(std::string_view(strOut)), nullptr), S_OK);
  AddStreams();
  Remux([](IVCPacket*) {});
  if (HasFatalFailure()) return;
  ASSERT_EQ(m_cpMuxer->MuxerClose(), S_OK);

  const CFileSummary back = ReadBack(strOut);
  ASSERT_EQ(back.streams, m_in.streams);
  ASSERT_EQ(back.Total(), m_in.Total());
  // A container without negative times may move the whole file by one
  // offset; every packet must then move by the same one.
  const LONGLONG rtShift = back.packets.at(0).front().rtStart - m_in.packets.at(0).front().rtStart;
  EXPECT_LE(std::llabs(rtShift), 100 * kMs);
  for (const auto& [nStream, vecIn] : m_in.packets) {
    SCOPED_TRACE("stream " + std::to_string(nStream));
    const std::vector<CPacketRecord>& vecBack = back.packets.at(nStream);
    ASSERT_EQ(vecBack.size(), vecIn.size());
    for (size_t i = 0; i < vecIn.size(); ++i) {
      EXPECT_NEAR(static_cast<double>(vecBack[i].rtStart - rtShift), static_cast<double>(vecIn[i].rtStart),
                  static_cast<double>(kMs))
          << "packet " << i;
      EXPECT_EQ(vecBack[i].bKey, vecIn[i].bKey) << "packet " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Containers, MuxerFacadeRemuxTest, ::testing::Values("mp4", "mkv"),
                         [](const ::testing::TestParamInfo<const char*>& param) { return std::string(param.param); });

TEST_F(MuxerFacadeMediaTest, SeamlessSwitchThroughTheFacade_GivesTwoFilesHoldingEveryPacket) {
  OpenSource("h264_aac_20s.mp4");
  if (HasFatalFailure()) return;
  const std::string strFirst = Out("first.mkv");
  const std::string strSecond = Out("second.mkv");
  ASSERT_EQ(m_cpMuxer->MuxerSet(CBstr(std::string_view(strFirst)), nullptr), S_OK);
  AddStreams();
  bool bSwitched = false;
  Remux([&](IVCPacket* pPacket) {
    K_TIME time{};
    pPacket->PacketTimeGet(&time);
    if (!bSwitched && time.rtStartTime >= 10 * kSec) {
      // Mid-second: the running muxer goes on until the next key packet.
      EXPECT_EQ(m_cpMuxer->MuxerSet(CBstr(std::string_view(strSecond)), CBstr(u"seamless_switch=true")), S_OK);
      bSwitched = true;
    }
  });
  if (HasFatalFailure()) return;
  ASSERT_TRUE(bSwitched);
  // The facade still holds the first target: setting it again changes nothing.
  EXPECT_EQ(m_cpMuxer->MuxerSet(CBstr(std::string_view(strFirst)), nullptr), S_FALSE);
  ASSERT_EQ(m_cpMuxer->MuxerClose(), S_OK);

  const CFileSummary first = ReadBack(strFirst);
  const CFileSummary second = ReadBack(strSecond);
  ASSERT_EQ(first.streams, m_in.streams);
  ASSERT_EQ(second.streams, m_in.streams);
  EXPECT_EQ(first.Total() + second.Total(), m_in.Total());
  // Split at a video key packet, on whole seconds (a key packet every second).
  LONG nVideo = -1;
  for (size_t n = 0; n < m_in.streams.size(); ++n)
    if (m_in.streams[n].eType == eVCMT_Video) nVideo = static_cast<LONG>(n);
  ASSERT_GE(nVideo, 0);
  ASSERT_FALSE(first.packets.at(nVideo).empty());
  ASSERT_FALSE(second.packets.at(nVideo).empty());
  EXPECT_TRUE(second.packets.at(nVideo).front().bKey);
  EXPECT_EQ(first.packets.at(nVideo).size() + second.packets.at(nVideo).size(), m_in.packets.at(nVideo).size());
  EXPECT_GE(first.packets.at(nVideo).size(), 250u);  // at least the first 10 s at 25 fps
  EXPECT_LT(first.packets.at(nVideo).size(), 300u);  // the switch came at the next key packet
}

}  // namespace
