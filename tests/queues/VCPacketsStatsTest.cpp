// Publication of one stream's buffering statistics into the splitter's tree:
// keys, order and number texts, the 0.1 s rate limit per stream, the empty
// queue's buffer value, the log line, and that the facade lock is held only
// around the writes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CoXMLNode.h"
#include "QueueTestUtil.h"
#include "VCCodecs/VCPacketsStats.h"
#include "VCLog.h"

namespace {

using queuetest::kMs;
using queuetest::MakePacket;
using queuetest::PacketSpec;

struct FakeOwner {
  bool _DropPacketsAllowed() { return false; }
};
using Streams = vc::VCPacketsStreams<FakeOwner>;

class VCPacketsStatsTest : public ::testing::Test {
 protected:
  bool Update(LONG nStream) { return vc::VCPacketsUpdateStatistics(m_streams, nStream, m_spRoot.get(), m_csLock); }
  void Put(const PacketSpec& shape) {
    vc::ComPtr<IVCPacket> cpPacket = MakePacket(shape);
    m_streams.PacketPut(cpPacket.Get(), true, 1e300, 1e300);
  }
  std::string Read(const char* pszPath) {
    vc::String strValue;
    if (!m_spRoot->GetAttributePath(vc::FromUtf8(pszPath), &strValue, true)) return "<absent>";
    return vc::ToUtf8(strValue);
  }
  std::vector<std::string> StatNames() {
    std::vector<std::string> vecNames;
    XMLParse::XMLNodePtr spStat = m_spRoot->FindChild(vc::FromUtf8("stat"));
    if (!spStat) return vecNames;
    for (size_t i = 0; i < spStat->AttributeCount(); ++i) vecNames.push_back(vc::ToUtf8(spStat->AttributeAt(i)->strName));
    return vecNames;
  }
  // A queue publishes at most every 0.1 s, counted from its creation.
  static void WaitPastInterval() { std::this_thread::sleep_for(std::chrono::milliseconds(120)); }

  XMLParse::XMLNodePtr m_spRoot = XMLParse::CoXMLNode::Create();
  vc::CKCritSec m_csLock;
  FakeOwner m_owner;
  Streams m_streams{&m_owner};
};

TEST_F(VCPacketsStatsTest, StreamWithoutQueue_PublishesNothing) {
  EXPECT_FALSE(Update(0));
  EXPECT_EQ(m_spRoot->ChildCount(), 0u);
  EXPECT_EQ(m_spRoot->AttributeCount(), 0u);
  EXPECT_FALSE(m_streams._GetDeq(0, false));
}

TEST_F(VCPacketsStatsTest, Publish_WritesEveryKeyInOrder) {
  m_streams.SetAVIndex(0, 0);
  Put(PacketSpec().Stream(0).Time(0, 40 * kMs).Bytes(617));
  Put(PacketSpec().Stream(0).Time(40 * kMs, 80 * kMs).Bytes(617));
  WaitPastInterval();
  ASSERT_TRUE(Update(0));

  const std::vector<std::string> expectedNames = {"buffer.video.0", "buffer_details.video.0", "kbps_avg_video.0",
                                                  "kbps_avg", "packets_dropped.video.0", "packets_fps.video.0"};
  EXPECT_EQ(StatNames(), expectedNames);
  EXPECT_EQ(Read("stat::buffer.video.0"), "0.08");
  EXPECT_EQ(Read("buffer.video.0"), "0.08");
  EXPECT_EQ(Read("stat::buffer_details.video.0"),
            "Seg:00:00:00.000 (Idx:2) Deq:00:00:00.000...00:00:00.080(00:00:00.080, 2 items by 00:00:00.040) "
            "(1,234 bytes)");
  // 617 bytes over the 40 ms before the newest packet: 123400 bit/s.
  EXPECT_EQ(Read("stat::kbps_avg_video.0"), "123.4");
  EXPECT_EQ(Read("stat::kbps_avg"), "123.4");
  EXPECT_EQ(Read("info::kbps_avg"), "123.4");
  EXPECT_EQ(Read("stat::packets_dropped.video.0"), "0");
  const std::string strFps = Read("stat::packets_fps.video.0");
  EXPECT_EQ(strFps.rfind("Avg:", 0), 0u) << strFps;
  EXPECT_NE(strFps.find(" fps) Min:"), std::string::npos) << strFps;
}

TEST_F(VCPacketsStatsTest, StreamName_IsMediaTypeAndAVIndex) {
  m_streams.SetAVIndex(3, 1);
  Put(PacketSpec().Stream(3).Type(eVCMT_Audio).Time(0, 20 * kMs));
  WaitPastInterval();
  ASSERT_TRUE(Update(3));
  EXPECT_EQ(Read("stat::buffer.audio.1"), "0.02");
  EXPECT_EQ(Read("stat::packets_dropped.audio.1"), "0");
}

TEST_F(VCPacketsStatsTest, UpdatesWithinATenthOfASecond_PublishOnce) {
  m_streams.SetAVIndex(0, 0);
  Put(PacketSpec().Stream(0).Time(0, 40 * kMs));
  EXPECT_FALSE(Update(0));  // the queue is younger than 0.1 s
  EXPECT_EQ(Read("stat::buffer.video.0"), "<absent>");

  WaitPastInterval();
  EXPECT_TRUE(Update(0));
  Put(PacketSpec().Stream(0).Time(40 * kMs, 80 * kMs));
  EXPECT_FALSE(Update(0));
  EXPECT_EQ(Read("stat::buffer.video.0"), "0.02");

  WaitPastInterval();
  EXPECT_TRUE(Update(0));
  EXPECT_EQ(Read("stat::buffer.video.0"), "0.08");
}

TEST_F(VCPacketsStatsTest, EmptyQueue_PublishesMinusOneHundredNanoseconds) {
  Put(PacketSpec().Stream(1).Type(eVCMT_Audio).Time(0, 40 * kMs));
  m_streams.PacketGet(nullptr, 1, true);
  WaitPastInterval();
  ASSERT_TRUE(Update(1));
  EXPECT_EQ(Read("stat::buffer.audio.0"), "-0.0000001");
  EXPECT_EQ(Read("buffer.audio.0"), "-0.0000001");
}

TEST_F(VCPacketsStatsTest, LogLine_CarriesDescriptionAndRates) {
  Put(PacketSpec().Stream(0).Time(0, 40 * kMs).Bytes(617));
  Put(PacketSpec().Stream(0).Time(40 * kMs, 80 * kMs).Bytes(617));
  WaitPastInterval();
  vc::CLogCapture capture;
  ASSERT_TRUE(Update(0));
  const std::string strPrefix =
      "Idx:0 Deq:Seg:00:00:00.000 (Idx:2) Deq:00:00:00.000...00:00:00.080(00:00:00.080, 2 items by 00:00:00.040) "
      "(1,234 bytes) Bitrate:123.400 Kbps (Total:123.400 Kbps) Rate:Avg:";
  const std::vector<std::string> vecMessages = capture.Messages();
  ASSERT_EQ(vecMessages.size(), 1u);
  EXPECT_EQ(vecMessages[0].rfind(strPrefix, 0), 0u) << vecMessages[0];
}

TEST_F(VCPacketsStatsTest, NoTree_StillCountsAsPublished) {
  Put(PacketSpec().Stream(0));
  WaitPastInterval();
  EXPECT_TRUE(vc::VCPacketsUpdateStatistics(m_streams, 0, nullptr, m_csLock));
  EXPECT_FALSE(vc::VCPacketsUpdateStatistics(m_streams, 0, nullptr, m_csLock));
}

TEST_F(VCPacketsStatsTest, Writes_WaitForTheFacadeLock) {
  Put(PacketSpec().Stream(0));
  WaitPastInterval();
  std::unique_lock<vc::CKCritSec> facadeLock(m_csLock);
  std::atomic<bool> bDone{false};
  std::thread publisher([&] {
    Update(0);
    bDone = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(bDone);
  facadeLock.unlock();
  publisher.join();
  EXPECT_TRUE(bDone);
  EXPECT_EQ(Read("stat::buffer.video.0"), "0.02");
}

TEST(VCStatDoubleTextTest, SevenDecimalsWithoutTrailingZeros) {
  const struct {
    double dbl;
    const char* pszText;
  } cases[] = {{2.0, "2"},          {-0.0000001, "-0.0000001"}, {1234.5, "1234.5"}, {0.08, "0.08"},
               {123.4, "123.4"},     {0.0, "0"},                 {-0.00000001, "0"}, {-2.5, "-2.5"},
               {1e-7, "0.0000001"}, {16.000000049, "16"}};
  for (const auto& c : cases) EXPECT_EQ(vc::ToUtf8(vc::VCStatDoubleText(c.dbl)), c.pszText) << c.dbl;
}

}  // namespace
