// The set of per-stream queues: creation races, routing and the drop switch
// read on every put, segment starts in their three modes, the next-stream
// choice, the buffered-duration rules the reading thread stops on, and the
// aggregate bit rate.
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include "QueueTestUtil.h"
#include "VCAssert.h"
#include "VCCodecs/VCPackets.h"

namespace {

using queuetest::InfoOf;
using queuetest::kMs;
using queuetest::kSec;
using queuetest::MakePacket;
using queuetest::PacketSpec;

constexpr LONGLONG kNone = std::numeric_limits<LONGLONG>::max();
constexpr double kNeverReady = 1e300;

// Stands in for the splitter: answers the drop switch and counts the reads.
struct FakeOwner {
  std::atomic<bool> bDrop{false};
  std::atomic<int> nReads{0};
  bool _DropPacketsAllowed() {
    ++nReads;
    return bDrop;
  }
};

using Streams = vc::VCPacketsStreams<FakeOwner>;

class VCPacketsStreamsTest : public ::testing::Test {
 protected:
  LONGLONG Put(const PacketSpec& shape, double dblReady = kNeverReady, double dblMax = 5.0 * kSec) {
    vc::ComPtr<IVCPacket> cpPacket = MakePacket(shape);
    return m_streams.PacketPut(cpPacket.Get(), true, dblReady, dblMax);
  }
  // n back-to-back packets of rtStep on one stream, numbered by order.
  void Fill(LONG nStream, eVCMediaType eType, int n, LONGLONG rtStep, LONGLONG rtSegment = 0, LONG nFirstOrder = 0) {
    for (int i = 0; i < n; ++i) {
      Put(PacketSpec().Stream(nStream).Type(eType).Time(i * rtStep, (i + 1) * rtStep).Segment(rtSegment).Order(
          nFirstOrder + i));
    }
  }
  LONG Size(LONG nStream) {
    auto pDeq = m_streams._GetDeq(nStream, false);
    return pDeq ? pDeq->DeqSize() : -1;
  }

  FakeOwner m_owner;
  Streams m_streams{&m_owner};
};

// --- Creation and lookup ---------------------------------------------------

TEST_F(VCPacketsStreamsTest, TwoThreadsCreatingOneStream_OneQueueOneCreator) {
  for (int nRound = 0; nRound < 200; ++nRound) {
    Streams streams(&m_owner);
    std::atomic<int> nArrived{0};
    bool bCreated[2] = {false, false};
    Streams::DeqPtr pDeq[2];
    auto create = [&](int i) {
      ++nArrived;
      while (nArrived < 2) std::this_thread::yield();
      pDeq[i] = streams._GetDeq(5, true, &bCreated[i]);
    };
    std::thread first(create, 0);
    std::thread second(create, 1);
    first.join();
    second.join();
    ASSERT_TRUE(pDeq[0]);
    ASSERT_EQ(pDeq[0], pDeq[1]) << "round " << nRound;
    ASSERT_EQ(bCreated[0] + bCreated[1], 1) << "round " << nRound;
  }
}

TEST_F(VCPacketsStreamsTest, SetAVIndex_SetsOnCreationAndChecksLater) {
  EXPECT_TRUE(m_streams.SetAVIndex(2, 1));
  vc::CAssertCounter asserts;
  EXPECT_FALSE(m_streams.SetAVIndex(2, 1));
  EXPECT_EQ(asserts.Count(), 0);
  EXPECT_FALSE(m_streams.SetAVIndex(2, 4));
  EXPECT_EQ(asserts.Count(), 1);
  EXPECT_EQ(asserts.LastCondition(), "pDeq->m_nAVIndex == _nAVStreamIdx");
  EXPECT_EQ(asserts.LastPath(), "Include/VCCodecs/VCPackets");
  LONG nAVIndex = -1;
  m_streams._GetDeq(2, false)->MediaTypeGet(&nAVIndex);
  EXPECT_EQ(nAVIndex, 1);
}

TEST_F(VCPacketsStreamsTest, ReadyEventGet_CreatesOnlyWhenAsked) {
  EXPECT_FALSE(m_streams.ReadyEventGet(1, false));
  vc::CKEventPtr hEvent = m_streams.ReadyEventGet(1, true);
  ASSERT_TRUE(hEvent);
  EXPECT_EQ(m_streams.ReadyEventGet(1, false), hEvent);
  Put(PacketSpec().Stream(1), 0.0);
  EXPECT_TRUE(hEvent->IsSet());
}

TEST_F(VCPacketsStreamsTest, StreamsChangedAndRemove) {
  Fill(0, eVCMT_Video, 1, 40 * kMs);
  Fill(2, eVCMT_Audio, 1, 40 * kMs);
  EXPECT_FALSE(m_streams.StreamsChanged(std::vector<LONG>{2, 0}));
  EXPECT_TRUE(m_streams.StreamsChanged(std::vector<LONG>{0}));
  EXPECT_TRUE(m_streams.StreamsChanged(std::vector<LONG>{0, 1}));
  EXPECT_TRUE(m_streams.StreamsChanged(std::vector<LONG>{0, 2, 3}));

  EXPECT_FALSE(m_streams.DeqRemove(7));
  EXPECT_TRUE(m_streams.DeqRemove(0));
  EXPECT_FALSE(m_streams.StreamsChanged(std::vector<LONG>{2}));
  EXPECT_TRUE(m_streams.DeqRemove(-1));
  EXPECT_FALSE(m_streams.StreamsChanged(std::vector<LONG>{}));
}

TEST_F(VCPacketsStreamsTest, RemovedQueue_StaysUsableByItsHolder) {
  Fill(0, eVCMT_Video, 2, 40 * kMs);
  auto pDeq = m_streams._GetDeq(0, false);
  m_streams.DeqRemove(0);
  EXPECT_EQ(pDeq->DeqSize(), 2);
  EXPECT_EQ(pDeq->DeqGet(nullptr, true), S_OK);
}

// --- Put and get -----------------------------------------------------------

TEST_F(VCPacketsStreamsTest, PacketPut_RoutesByStreamAndGivesAVIndex) {
  m_streams.SetAVIndex(4, 1);
  vc::ComPtr<IVCPacket> cpPacket = MakePacket(PacketSpec().Stream(4).Type(eVCMT_Audio).Time(0, 40 * kMs));
  LONG nAVIndex = -1;
  EXPECT_EQ(m_streams.PacketPut(cpPacket.Get(), false, kNeverReady, 5.0 * kSec, &nAVIndex), 200000);
  EXPECT_EQ(nAVIndex, 1);
  EXPECT_EQ(Size(4), 1);
}

TEST_F(VCPacketsStreamsTest, PacketPut_FailsForNullPacketOrMissingQueue) {
  vc::CAssertCounter asserts;
  EXPECT_EQ(m_streams.PacketPut(nullptr, true, 0, 0), -10000000);
  EXPECT_EQ(asserts.LastCondition(), "_pPacket");
  vc::ComPtr<IVCPacket> cpPacket = MakePacket(PacketSpec().Stream(9));
  EXPECT_EQ(m_streams.PacketPut(cpPacket.Get(), false, 0, 0), -10000000);
  EXPECT_EQ(Size(9), -1);
  EXPECT_EQ(asserts.Count(), 1);
}

TEST_F(VCPacketsStreamsTest, DropSwitch_ReadOnEveryPutAndEffectiveOnNext) {
  // Limit 2 * 0 + 2 s: the 51st packet of 40 ms is past it.
  for (int i = 0; i < 51; ++i) {
    Put(PacketSpec().Time(i * 40 * kMs, (i + 1) * 40 * kMs), 0.0, 0.0);
  }
  EXPECT_EQ(m_owner.nReads, 51);
  EXPECT_EQ(Size(0), 51);
  m_owner.bDrop = true;
  Put(PacketSpec().Time(51 * 40 * kMs, 52 * 40 * kMs), 0.0, 0.0);
  EXPECT_EQ(Size(0), 51);
  EXPECT_EQ(m_owner.nReads, 52);
}

TEST_F(VCPacketsStreamsTest, PacketGet_UnknownStreamAnswersBadIndexAndChangesNothing) {
  Fill(0, eVCMT_Video, 1, 40 * kMs);
  vc::ComPtr<IVCPacket> cpPacket;
  eVCMediaType eType = eVCMT_Data;
  LONGLONG rtDuration = 5;
  EXPECT_EQ(m_streams.PacketGet(cpPacket.AddressOf(), 1, true, &eType, nullptr, &rtDuration),
            static_cast<HRESULT>(0x80070585u));
  EXPECT_FALSE(cpPacket);
  EXPECT_EQ(eType, eVCMT_Data);
  EXPECT_EQ(rtDuration, 5);
  EXPECT_FALSE(m_streams._GetDeq(1, false));
  EXPECT_EQ(Size(0), 1);
}

TEST_F(VCPacketsStreamsTest, PacketGet_GivesPacketWithMediaInfoAndPriorDuration) {
  m_streams.SetAVIndex(1, 2);
  Fill(1, eVCMT_Audio, 3, 40 * kMs);
  vc::ComPtr<IVCPacket> cpPacket;
  eVCMediaType eType = eVCMT_Empty;
  LONG nAVIndex = -1;
  LONGLONG rtDuration = 0;
  ASSERT_EQ(m_streams.PacketGet(cpPacket.AddressOf(), 1, true, &eType, &nAVIndex, &rtDuration), S_OK);
  EXPECT_EQ(eType, eVCMT_Audio);
  EXPECT_EQ(nAVIndex, 2);
  EXPECT_EQ(rtDuration, 3 * 40 * kMs);
  EXPECT_EQ(InfoOf(cpPacket.Get()).nOrderInSegment, 0);
  EXPECT_EQ(Size(1), 2);
}

TEST_F(VCPacketsStreamsTest, DeqEOS_OneAllOrMissing) {
  Fill(0, eVCMT_Video, 1, 40 * kMs);
  Fill(1, eVCMT_Audio, 1, 40 * kMs);
  EXPECT_FALSE(m_streams.DeqEOS(5, false));
  EXPECT_TRUE(m_streams.DeqEOS(5, true));
  EXPECT_TRUE(m_streams._GetDeq(5, false)->IsEOS());
  EXPECT_FALSE(m_streams._GetDeq(0, false)->IsEOS());
  EXPECT_TRUE(m_streams.DeqEOS(-1, false));
  EXPECT_TRUE(m_streams._GetDeq(0, false)->IsEOS());
  EXPECT_TRUE(m_streams._GetDeq(1, false)->ReadyEventGet()->IsSet());
}

// --- Segments --------------------------------------------------------------

TEST_F(VCPacketsStreamsTest, BeginSegment_KeepsAllWhenEveryQueueHoldsSegmentFromStart) {
  Fill(0, eVCMT_Video, 3, 40 * kMs, 2 * kSec);
  Fill(1, eVCMT_Audio, 2, 20 * kMs, 2 * kSec);
  EXPECT_FALSE(m_streams.BeginSegment(-1, 2 * kSec, 1));
  EXPECT_EQ(Size(0), 3);
  EXPECT_EQ(Size(1), 2);
}

TEST_F(VCPacketsStreamsTest, BeginSegment_ClearsAllWhenOneQueueMustClear) {
  Fill(0, eVCMT_Video, 3, 40 * kMs, 2 * kSec);
  Fill(1, eVCMT_Audio, 2, 20 * kMs, 2 * kSec);
  Fill(2, eVCMT_Audio, 2, 20 * kMs, 2 * kSec);
  m_streams.PacketGet(nullptr, 1, true);  // stream 1 lost the first packet of the segment
  EXPECT_TRUE(m_streams.BeginSegment(-1, 2 * kSec, 1));
  EXPECT_EQ(Size(0), 0);  // kept at first, cleared on the restart
  EXPECT_EQ(Size(1), 0);
  EXPECT_EQ(Size(2), 0);
}

TEST_F(VCPacketsStreamsTest, BeginSegment_WithoutQueuesReturnsFalse) {
  EXPECT_FALSE(m_streams.BeginSegment(-1, 2 * kSec, 1));
  EXPECT_FALSE(m_streams.BeginSegment(-1, 2 * kSec, 2));
}

TEST_F(VCPacketsStreamsTest, BeginSegment_ModeTwoClearsAndModeZeroRestamps) {
  Fill(0, eVCMT_Video, 3, 40 * kMs, 2 * kSec);
  EXPECT_FALSE(m_streams.BeginSegment(-1, 5 * kSec, 0));
  EXPECT_EQ(Size(0), 3);
  // Restamped: the queue now holds segment 5 s from its first packet.
  EXPECT_FALSE(m_streams.BeginSegment(-1, 5 * kSec, 1));
  EXPECT_EQ(Size(0), 3);
  EXPECT_TRUE(m_streams.BeginSegment(-1, 5 * kSec, 2));
  EXPECT_EQ(Size(0), 0);
}

TEST_F(VCPacketsStreamsTest, BeginSegment_OneStreamTouchesOnlyIt) {
  Fill(0, eVCMT_Video, 2, 40 * kMs, 0);
  Fill(1, eVCMT_Audio, 2, 40 * kMs, 0);
  EXPECT_TRUE(m_streams.BeginSegment(7, 3 * kSec, 1));  // missing stream
  EXPECT_TRUE(m_streams.BeginSegment(1, 3 * kSec, 1));
  EXPECT_EQ(Size(0), 2);
  EXPECT_EQ(Size(1), 0);
}

// --- Next stream -----------------------------------------------------------

TEST_F(VCPacketsStreamsTest, NextStream_PicksSmallestFrontOrder) {
  EXPECT_EQ(m_streams.NextStream(), -1);
  Put(PacketSpec().Stream(0).Order(7));
  Put(PacketSpec().Stream(1).Order(5));
  Put(PacketSpec().Stream(1).Order(9));
  EXPECT_EQ(m_streams.NextStream(), 1);
  m_streams.PacketGet(nullptr, 1, true);  // front of stream 1 is now 9
  EXPECT_EQ(m_streams.NextStream(), 0);
}

TEST_F(VCPacketsStreamsTest, NextStream_AllEmptyGivesFirstStream) {
  m_streams.SetAVIndex(3, 0);
  m_streams.SetAVIndex(6, 0);
  EXPECT_EQ(m_streams.NextStream(), 3);
  Put(PacketSpec().Stream(6).Order(100));
  EXPECT_EQ(m_streams.NextStream(), 6);
}

// --- Buffered duration -----------------------------------------------------

TEST_F(VCPacketsStreamsTest, BufferedDuration_ShortestOfAudioAndVideo) {
  Fill(0, eVCMT_Audio, 50, 40 * kMs);  // 2 s
  Fill(1, eVCMT_Video, 25, 40 * kMs);  // 1 s
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), 1 * kSec);
  EXPECT_EQ(m_streams.BufferedDuration(0, -1, 3), 2 * kSec);
  EXPECT_EQ(m_streams.BufferedDuration(4, -1, 3), -1);

  m_streams.SetAVIndex(2, 0);
  m_streams.SetWaitStream(2, true);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), -1);
}

TEST_F(VCPacketsStreamsTest, BufferedDuration_SkipsEOSExcludedAndOtherTypes) {
  Fill(0, eVCMT_Audio, 50, 40 * kMs);  // 2 s
  Fill(1, eVCMT_Video, 25, 40 * kMs);  // 1 s
  Fill(2, eVCMT_Subtitles, 5, 40 * kMs);
  EXPECT_EQ(m_streams.BufferedDuration(-1, 1, 3), 2 * kSec);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 1), 1 * kSec);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 4), 5 * 40 * kMs);
  m_streams.DeqEOS(1, false);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), 2 * kSec);
}

TEST_F(VCPacketsStreamsTest, BufferedDuration_NothingCounted) {
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), kNone);
  EXPECT_EQ(m_streams.BufferedDuration(-1, 0, 3), -1);  // fewer than 2 queues
  Fill(0, eVCMT_Audio, 5, 40 * kMs);
  Fill(1, eVCMT_Subtitles, 5, 40 * kMs);
  EXPECT_EQ(m_streams.BufferedDuration(-1, 0, 3), kNone);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 8), kNone);
}

TEST_F(VCPacketsStreamsTest, BufferedDuration_SilentStreamsPullDownUnlessMoreThan1000Packets) {
  m_streams.SetAVIndex(5, 0);  // created, never delivered, not waited for
  Fill(0, eVCMT_Audio, 1000, 10 * kMs);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), -1);
  Fill(0, eVCMT_Audio, 1, 10 * kMs, 0, 1000);
  // 1001 packets: the silent stream no longer holds reading back.
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), 1001 * 10 * kMs);
  // A waited stream counts in the first walk whatever the counts.
  m_streams.SetWaitStream(5, true);
  EXPECT_EQ(m_streams.BufferedDuration(-1, -1, 3), -1);
}

// --- Aggregate bit rate ----------------------------------------------------

TEST_F(VCPacketsStreamsTest, AggregateBitrate_OverAllStreamsResetBySegment) {
  Put(PacketSpec().Stream(0).Time(0, 40 * kMs).Bytes(1000));
  Put(PacketSpec().Stream(1).Type(eVCMT_Audio).Time(kSec / 2, kSec / 2 + 20 * kMs).Bytes(500));
  // 1000 bytes over the half second up to the newest packet's start.
  EXPECT_EQ(m_streams.AggregateBitrateGet(), 16000);
  m_streams.BeginSegment(-1, 0, 0);
  EXPECT_EQ(m_streams.AggregateBitrateGet(), 0);
}

}  // namespace
