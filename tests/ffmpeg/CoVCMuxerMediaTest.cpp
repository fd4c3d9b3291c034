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
#include "muxer/FFMuxerTestUtil.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using namespace vc::fftest::mux;
using vc::CBstr;
using vc::ComPtr;

constexpr HRESULT kEndOfMedia = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);
constexpr LONGLONG kSec = VC_TIME_SECOND;

class MuxerFacadeMediaTest : public FFMuxerTestBase {
 protected:
  void SetUp() override {
    FFMuxerTestBase::SetUp();
    if (IsSkipped()) return;
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
    FFMuxerTestBase::TearDown();
  }
  // A written file as the general splitter reads it back.
  static void ReadBack(const std::string& strPath, CSource* pBack) {
    ReadSource(strPath, pBack);
    ASSERT_EQ(pBack->hrOpen, S_OK) << strPath;
  }

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
      m_in.infos.push_back(info);  // codec data valid while the splitter lives
      m_in.streams.push_back(SummariseStream(info));
      strAll += (n ? "," : "") + std::to_string(n);
    }
    ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, CBstr(std::string_view(strAll))), S_OK);
  }
  // Adds every source stream to the muxer facade, named by its index.
  void AddStreams() {
    for (size_t n = 0; n < m_in.infos.size(); ++n) {
      LONG nIdx = -1;
      const std::string strProps = "stream_idx=" + std::to_string(n);
      ASSERT_EQ(m_cpMuxer->MuxerStreamAdd(&m_in.infos[n], CBstr(std::string_view(strProps)), &nIdx), S_OK);
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
      m_in.summaries.push_back(Summarise(cpPacket.Get()));
      ASSERT_EQ(m_cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr), S_OK);
    }
  }

  ComPtr<IVCSplitter> m_cpSplitter;
  ComPtr<IVCMuxer> m_cpMuxer;
  CSource m_in;  // what went in (its packets are not kept)
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

  CSource back;
  ReadBack(strOut, &back);
  if (HasFatalFailure()) return;
  ASSERT_EQ(back.streams, m_in.streams);
  ASSERT_EQ(back.summaries.size(), m_in.summaries.size());
  ASSERT_FALSE(m_in.OfStream(0).empty());
  ASSERT_FALSE(back.OfStream(0).empty());
  // A container without negative times may move the whole file by one
  // offset; every packet must then move by the same one.
  const LONGLONG rtShift = back.OfStream(0).front().rtStart - m_in.OfStream(0).front().rtStart;
  EXPECT_LE(std::llabs(rtShift), 100 * kMs);
  for (LONG nStream = 0; nStream < static_cast<LONG>(m_in.streams.size()); ++nStream) {
    SCOPED_TRACE("stream " + std::to_string(nStream));
    const std::vector<CPacketSummary> vecIn = m_in.OfStream(nStream);
    const std::vector<CPacketSummary> vecBack = back.OfStream(nStream);
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

  CSource first, second;
  ReadBack(strFirst, &first);
  ReadBack(strSecond, &second);
  if (HasFatalFailure()) return;
  ASSERT_EQ(first.streams, m_in.streams);
  ASSERT_EQ(second.streams, m_in.streams);
  EXPECT_EQ(first.summaries.size() + second.summaries.size(), m_in.summaries.size());
  // Split at a video key packet, on whole seconds (a key packet every second).
  const LONG nVideo = m_in.FirstOfType(eVCMT_Video);
  ASSERT_GE(nVideo, 0);
  const std::vector<CPacketSummary> vecFirst = first.OfStream(nVideo);
  const std::vector<CPacketSummary> vecSecond = second.OfStream(nVideo);
  ASSERT_FALSE(vecFirst.empty());
  ASSERT_FALSE(vecSecond.empty());
  EXPECT_TRUE(vecSecond.front().bKey);
  EXPECT_EQ(vecFirst.size() + vecSecond.size(), m_in.OfStream(nVideo).size());
  EXPECT_GE(vecFirst.size(), 250u);  // at least the first 10 s at 25 fps
  EXPECT_LT(vecFirst.size(), 300u);  // the switch came at the next key packet
}

}  // namespace
