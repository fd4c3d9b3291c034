// KPacketStats: what one compressed packet does to the statistics of a
// decoder or encoder facade — key distance and running index written back
// into the packet, the four report values published under the "stat" node,
// and the error paths of the packet's description calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CoXMLNode.h"
#include "FakeCounter.h"
#include "KPacketStats.h"
#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace {

using vc::KPacketStats;
using vctest::CFakeCounter;

// A packet that only carries its description. Lives on the stack: the
// reference count is not used.
class CFakePacket final : public IVCPacket {
 public:
  CFakePacket(bool bKey, LONG cbData) {
    m_info.eFlags = bKey ? eVCPF_KeyFrame : eVCPF_None;
    m_info.cbPacketData = cbData;
    m_info.nKeyDistance = -99;
    m_info.nIndexInSegment = -99;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IVCPacket)) return E_NOINTERFACE;
    *ppv = static_cast<IVCPacket*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  HRESULT STDMETHODCALLTYPE PacketInfoGet(K_PACKET_INFO* pInfo) override {
    if (FAILED(m_hrGet)) return m_hrGet;
    *pInfo = m_info;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE PacketInfoSet(K_PACKET_INFO* pInfo) override {
    ++m_nSetCalls;
    if (FAILED(m_hrSet)) return m_hrSet;
    m_info = *pInfo;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE PacketStreamInfoGet(K_STREAM_INFO*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PacketTimeGet(K_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PacketAppendData(LONG, LONGLONG) override { return E_NOTIMPL; }

  K_PACKET_INFO m_info{};
  HRESULT m_hrGet = S_OK;
  HRESULT m_hrSet = S_OK;
  int m_nSetCalls = 0;
};

class KPacketStatsTest : public ::testing::Test {
 protected:
  KPacketStatsTest() : m_stats("v_decode", m_counter.Fn(), CFakeCounter::kFrequency) {}

  // Feeds one packet 40 ms after the previous one; returns what was written back.
  K_PACKET_INFO Feed(bool bKey, LONG cbData = 1000, int64_t llWallTicks = 400000) {
    CFakePacket packet(bKey, cbData);
    m_counter.Advance(llWallTicks);
    EXPECT_EQ(m_stats.Update(&packet, m_pStat.get()), S_OK);
    return packet.m_info;
  }
  // Feeds a group of pictures given as "KPPP..." letters.
  std::vector<LONG> FeedSequence(const std::string& strKinds) {
    std::vector<LONG> vecDistances;
    for (char c : strKinds) vecDistances.push_back(Feed(c == 'K').nKeyDistance);
    return vecDistances;
  }
  std::string Stat(const std::string& strName) const {
    vc::String strValue;
    if (!m_pStat->GetAttributePath(vc::FromUtf8(strName), &strValue)) return "<absent>";
    return vc::ToUtf8(strValue);
  }

  CFakeCounter m_counter;
  KPacketStats m_stats;
  XMLParse::XMLNodePtr m_pStat = XMLParse::CoXMLNode::Create(W("stat"));
};

TEST_F(KPacketStatsTest, FirstKeyPacketOfTheStream_ReportsKeyDistanceZero) {
  const K_PACKET_INFO info = Feed(true);
  EXPECT_EQ(info.nKeyDistance, 0);
  EXPECT_EQ(info.nIndexInSegment, 0);
  EXPECT_EQ(Stat("v_decode.key_distance"), "Avg:0.000 Min:0.000 Max:0.000 Jitter:0.000");
  EXPECT_EQ(Stat("v_decode.pkt_size_pb"), "<absent>");
}

TEST_F(KPacketStatsTest, GroupsOfPictures_WriteDistanceSinceKeyAndRunningIndexBack) {
  EXPECT_EQ(FeedSequence("KPPPKPPK"), (std::vector<LONG>{0, 1, 2, 3, 0, 1, 2, 0}));
  EXPECT_EQ(m_stats.PacketCount(), 8);
  EXPECT_EQ(Feed(false).nIndexInSegment, 8);
  // Key distances 0, 3, 2: mean 5/3, sample deviation sqrt(7/3).
  EXPECT_EQ(Stat("v_decode.key_distance"), "Avg:1.667 Min:0.000 Max:3.000 Jitter:1.528");
}

TEST_F(KPacketStatsTest, StreamStartingWithoutKey_CountsThoseIntoTheFirstDistance) {
  EXPECT_EQ(FeedSequence("PPK"), (std::vector<LONG>{1, 2, 0}));
  EXPECT_EQ(Stat("v_decode.key_distance"), "Avg:2.000 Min:2.000 Max:2.000 Jitter:0.000");
}

TEST_F(KPacketStatsTest, PacketSizes_AreAveragedInKilobytesPerKind) {
  Feed(true, 5000);
  Feed(false, 1000);
  Feed(false, 2000);
  Feed(false, 3000);
  Feed(true, 7000);
  EXPECT_EQ(Stat("v_decode.pkt_size_key"), "Avg:6.000 Min:5.000 Max:7.000 Jitter:1.414");
  EXPECT_EQ(Stat("v_decode.pkt_size_pb"), "Avg:2.000 Min:1.000 Max:3.000 Jitter:1.000");
}

TEST_F(KPacketStatsTest, Kbps_IsTheByteRateInKilobitsOverTheWallClock) {
  Feed(true, 5000);
  EXPECT_EQ(Stat("v_decode.kbps"), "0");  // one packet: no span yet
  for (int i = 0; i < 5; ++i) Feed(false, 5000);
  EXPECT_EQ(Stat("v_decode.kbps"), "1000");  // 5000 bytes per 40 ms
}

TEST_F(KPacketStatsTest, Kbps_IsRoundedHalfAwayFromZero) {
  Feed(true, 100);
  Feed(false, 100, 16000000);  // 100 bytes over 1.6 s: 62.5 B/s, 0.5 kbit/s
  EXPECT_EQ(Stat("v_decode.kbps"), "1");
}

TEST_F(KPacketStatsTest, PacketDescriptionUnreadable_ChangesNothing) {
  CFakePacket packet(true, 1000);
  packet.m_hrGet = E_FAIL;
  EXPECT_EQ(m_stats.Update(&packet, m_pStat.get()), E_FAIL);
  EXPECT_EQ(packet.m_nSetCalls, 0);
  EXPECT_EQ(m_stats.PacketCount(), 0);
  EXPECT_EQ(m_pStat->AttributeCount(), 0u);
  EXPECT_EQ(m_stats.Update(nullptr, m_pStat.get()), E_POINTER);
}

TEST_F(KPacketStatsTest, PacketDescriptionUnwritable_IsReportedAfterMeasuring) {
  CFakePacket packet(false, 2000);
  packet.m_hrSet = E_ACCESSDENIED;
  EXPECT_EQ(m_stats.Update(&packet, m_pStat.get()), E_ACCESSDENIED);
  EXPECT_EQ(packet.m_nSetCalls, 1);
  EXPECT_EQ(m_stats.PacketCount(), 1);
  EXPECT_EQ(Stat("v_decode.pkt_size_pb"), "Avg:2.000 Min:2.000 Max:2.000 Jitter:0.000");
  EXPECT_EQ(Stat("v_decode.kbps"), "0");
}

TEST_F(KPacketStatsTest, NoStatNode_StillWritesThePacketBack) {
  CFakePacket packet(false, 2000);
  EXPECT_EQ(m_stats.Update(&packet, nullptr), S_OK);
  EXPECT_EQ(packet.m_info.nKeyDistance, 1);
  EXPECT_EQ(packet.m_info.nIndexInSegment, 0);
}

class KPacketStatsPrefixTest : public ::testing::TestWithParam<const char*> {};

TEST_P(KPacketStatsPrefixTest, EachPrefix_PublishesExactlyItsFourNames) {
  const std::string strPrefix = GetParam();
  KPacketStats stats(strPrefix);
  XMLParse::XMLNodePtr pStat = XMLParse::CoXMLNode::Create(W("stat"));
  CFakePacket key(true, 4000), other(false, 1000);
  ASSERT_EQ(stats.Update(&key, pStat.get()), S_OK);
  ASSERT_EQ(stats.Update(&other, pStat.get()), S_OK);

  std::vector<std::string> vecNames;
  for (size_t i = 0; i < pStat->AttributeCount(); ++i) vecNames.push_back(vc::ToUtf8(pStat->AttributeAt(i)->strName));
  EXPECT_EQ(vecNames, (std::vector<std::string>{strPrefix + ".key_distance", strPrefix + ".pkt_size_key",
                                                strPrefix + ".kbps", strPrefix + ".pkt_size_pb"}));
  EXPECT_EQ(pStat->ChildCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(FacadePrefixes, KPacketStatsPrefixTest, ::testing::Values("v_decode", "a_decode", "encode"));

}  // namespace
