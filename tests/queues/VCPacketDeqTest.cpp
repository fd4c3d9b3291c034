// One stream's packet queue: segment numbering and stamping, time
// bookkeeping and the duration estimate, the ready event through fill, drain
// and end of stream, the drop valve, resets, and the reports (description,
// log lines, invariant failures) with their exact texts.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "QueueTestUtil.h"
#include "VCAssert.h"
#include "VCCodecs/VCPackets.h"
#include "VCLog.h"

namespace {

using queuetest::InfoOf;
using queuetest::kMs;
using queuetest::kSec;
using queuetest::MakePacket;
using queuetest::PacketSpec;
using queuetest::RefCount;

constexpr LONGLONG kNeverReady = std::numeric_limits<LONGLONG>::max();
constexpr HRESULT kEmpty = static_cast<HRESULT>(0x800710D2u);
constexpr HRESULT kEndOfMedia = static_cast<HRESULT>(0x8007044Cu);
constexpr const char* kPath = "Include/VCCodecs/VCPackets";

struct PutOptions {
  LONGLONG rtReady = kNeverReady;
  LONGLONG rtMax = 5 * kSec;
  bool bDrop = false;
};

// Always ready, with the drop valve set to rtMax.
PutOptions Dropping(LONGLONG rtMax, bool bDrop = true) {
  PutOptions opt;
  opt.rtReady = 0;
  opt.rtMax = rtMax;
  opt.bDrop = bDrop;
  return opt;
}

class VCPacketDeqTest : public ::testing::Test {
 protected:
  LONGLONG Put(const PacketSpec& shape, const PutOptions& opt, K_TIME* pTime = nullptr,
               K_PACKET_INFO* pInfo = nullptr) {
    vc::ComPtr<IVCPacket> cpPacket = MakePacket(shape);
    return m_deq.DeqPut(cpPacket.Get(), opt.rtReady, opt.rtMax, opt.bDrop, pTime, pInfo);
  }
  LONGLONG Put(const PacketSpec& shape) { return Put(shape, PutOptions()); }
  // n packets of rtStep each, back to back from rtFrom, numbered by Pts from nFirst.
  LONGLONG PutTimed(int n, LONGLONG rtFrom = 0, LONGLONG rtStep = 40 * kMs, const PutOptions& opt = PutOptions(),
                    int nFirst = 0) {
    LONGLONG rtDuration = 0;
    for (int i = 0; i < n; ++i) {
      const LONGLONG rtStart = rtFrom + i * rtStep;
      rtDuration = Put(PacketSpec().Time(rtStart, rtStart + rtStep).Pts(nFirst + i), opt);
    }
    return rtDuration;
  }
  vc::ComPtr<IVCPacket> Take(bool bRemove = true) {
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(m_deq.DeqGet(cpPacket.AddressOf(), bRemove), S_OK);
    return cpPacket;
  }
  std::string Description() {
    vc::CBstr bsText;
    m_deq.DeqDescription(nullptr, &bsText, nullptr);
    return bsText.Utf8();
  }
  bool Ready() { return m_deq.ReadyEventGet()->IsSet(); }

  vc::VCPacketDeq m_deq;
};

// --- Stamping and segments -------------------------------------------------

TEST_F(VCPacketDeqTest, Put_StampsIndexKeyDistanceAndFirstPacketFlag) {
  const eVCPacketFlags flags[] = {eVCPF_None, eVCPF_KeyFrame, eVCPF_None, eVCPF_None, eVCPF_KeyFrame};
  const LONG expectedKeyDistance[] = {-1, 0, 1, 2, 0};
  std::vector<vc::ComPtr<IVCPacket>> vecPackets;
  for (int i = 0; i < 5; ++i) {
    vecPackets.push_back(MakePacket(PacketSpec().Flags(flags[i])));
    K_PACKET_INFO out{};
    m_deq.DeqPut(vecPackets.back().Get(), kNeverReady, 5 * kSec, false, nullptr, &out);
    SCOPED_TRACE(i);
    EXPECT_EQ(out.nIndexInSegment, i);
    EXPECT_EQ(out.nKeyDistance, expectedKeyDistance[i]);
    EXPECT_EQ((out.eFlags & eVCPF_SegmentStart) != 0, i == 0);
    // Written back into the packet object too.
    const K_PACKET_INFO inPacket = InfoOf(vecPackets.back().Get());
    EXPECT_EQ(inPacket.nIndexInSegment, i);
    EXPECT_EQ(inPacket.nKeyDistance, expectedKeyDistance[i]);
    EXPECT_EQ(inPacket.eFlags, out.eFlags);
  }
}

TEST_F(VCPacketDeqTest, NewSegmentStart_ClearsAndRestartsNumbering) {
  vc::ComPtr<IVCPacket> cpOld = MakePacket(PacketSpec().Segment(0));
  m_deq.DeqPut(cpOld.Get(), kNeverReady, 5 * kSec, false);
  Put(PacketSpec().Segment(0));
  Put(PacketSpec().Segment(0));
  EXPECT_EQ(RefCount(cpOld.Get()), 2u);

  K_PACKET_INFO out{};
  Put(PacketSpec().Segment(3 * kSec).Pts(42), PutOptions(), nullptr, &out);

  EXPECT_EQ(m_deq.DeqSize(), 1);
  EXPECT_EQ(RefCount(cpOld.Get()), 1u);  // the queue let the old packets go
  EXPECT_EQ(out.nIndexInSegment, 0);
  EXPECT_EQ(out.nKeyDistance, -1);
  EXPECT_NE(out.eFlags & eVCPF_SegmentStart, 0);
  EXPECT_EQ(InfoOf(Take().Get()).llPts, 42);
}

TEST_F(VCPacketDeqTest, SetSegment_RestampsHeldPacketsWithoutClearing) {
  Put(PacketSpec().Segment(0));
  Put(PacketSpec().Segment(0));
  EXPECT_EQ(m_deq.DeqSetSegment(7 * kSec), 2);
  // The held packets now belong to the new segment: a put of it keeps them,
  // and a reset to it finds the segment held from its first packet.
  Put(PacketSpec().Segment(7 * kSec));
  EXPECT_EQ(m_deq.DeqSize(), 3);
  EXPECT_FALSE(m_deq.DeqReset(7 * kSec, false));
  EXPECT_EQ(m_deq.DeqSize(), 3);
}

TEST_F(VCPacketDeqTest, Reset_KeepsSegmentHeldFromItsFirstPacketOnly) {
  Put(PacketSpec().Segment(2 * kSec));
  Put(PacketSpec().Segment(2 * kSec));
  EXPECT_FALSE(m_deq.DeqReset(2 * kSec, false));
  EXPECT_EQ(m_deq.DeqSize(), 2);

  struct Case {
    const char* pszName;
    LONGLONG rtSegment;
    bool bForce;
    bool bEOS;
  } cases[] = {
      {"forced", 2 * kSec, true, false},
      {"other segment", 3 * kSec, false, false},
      {"negative segment", -1, false, false},
      {"at end of stream", 2 * kSec, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.pszName);
    m_deq.DeqClear();
    Put(PacketSpec().Segment(2 * kSec));
    Put(PacketSpec().Segment(2 * kSec));
    if (c.bEOS) m_deq.DeqEOS();
    EXPECT_TRUE(m_deq.DeqReset(c.rtSegment, c.bForce));
    EXPECT_EQ(m_deq.DeqSize(), 0);
    EXPECT_FALSE(m_deq.IsEOS());
  }
}

TEST_F(VCPacketDeqTest, Reset_ClearsWhenFirstPacketOfSegmentWasTaken) {
  Put(PacketSpec().Segment(2 * kSec));
  Put(PacketSpec().Segment(2 * kSec));
  Take();
  EXPECT_TRUE(m_deq.DeqReset(2 * kSec, false));
  EXPECT_EQ(m_deq.DeqSize(), 0);
}

TEST_F(VCPacketDeqTest, ResetOfEmptyQueue_ClearsAndAdoptsSegment) {
  m_deq.DeqEOS();
  EXPECT_TRUE(m_deq.DeqReset(4 * kSec, false));
  EXPECT_FALSE(m_deq.IsEOS());
  // The segment is adopted: its first packet is not a segment change, but
  // still the first of the segment.
  K_PACKET_INFO out{};
  Put(PacketSpec().Segment(4 * kSec), PutOptions(), nullptr, &out);
  EXPECT_EQ(out.nIndexInSegment, 0);
  EXPECT_NE(out.eFlags & eVCPF_SegmentStart, 0);
}

TEST_F(VCPacketDeqTest, Clear_KeepsStreamMediaTypeAndForgetsTheRest) {
  Put(PacketSpec().Stream(4).Type(eVCMT_Audio).Time(0, 40 * kMs));
  Put(PacketSpec().Stream(4).Type(eVCMT_Audio).Time(40 * kMs, 80 * kMs));
  m_deq.SetWaitStream(true);
  m_deq.DeqEOS();
  m_deq.DeqClear();

  EXPECT_EQ(m_deq.DeqSize(), 0);
  EXPECT_EQ(m_deq.DeqDuration(), -1);
  EXPECT_FALSE(m_deq.IsEOS());
  EXPECT_FALSE(m_deq.IsWaitStream());
  EXPECT_FALSE(Ready());
  EXPECT_EQ(m_deq.MediaTypeGet(), eVCMT_Audio);
  EXPECT_EQ(Description(), "Seg:-00:00:00.000 (Idx:0) Deq:UNSET...UNSET(-00:00:00.000, 0 items by 00:00:00.000) (0 bytes)");
  // The smallest gap is forgotten too: one packet counts 20 ms again.
  EXPECT_EQ(Put(PacketSpec().Stream(4).Type(eVCMT_Audio).Time(80 * kMs, 120 * kMs)), 200000);
}

// --- Time bookkeeping and duration ----------------------------------------

TEST_F(VCPacketDeqTest, Duration_EmptyIsMinusOneAndUntimedPacketsCount20ms) {
  EXPECT_EQ(m_deq.DeqDuration(), -1);
  LONGLONG rtDuration = 0;
  for (int i = 0; i < 100; ++i) rtDuration = Put(PacketSpec());
  EXPECT_EQ(rtDuration, 20000000);
  EXPECT_EQ(m_deq.DeqDuration(), 20000000);
  EXPECT_EQ(m_deq.DeqSize(), 100);
}

TEST_F(VCPacketDeqTest, Duration_IsCountTimesSmallestGap) {
  // Gaps of 40 ms, then one of 20 ms: the smallest wins.
  Put(PacketSpec().Time(0, 40 * kMs));
  Put(PacketSpec().Time(40 * kMs, 80 * kMs));
  EXPECT_EQ(m_deq.DeqDuration(), 2 * 40 * kMs);
  Put(PacketSpec().Time(80 * kMs, 100 * kMs));
  Put(PacketSpec().Time(100 * kMs, 140 * kMs));
  EXPECT_EQ(m_deq.DeqDuration(), 4 * 20 * kMs);
}

TEST_F(VCPacketDeqTest, GapsOutsideOneMillisecondToOneSecond_NeverSetTheMinimum) {
  struct Case {
    LONGLONG rtGap;
    bool bCounts;
  } cases[] = {{10000, false}, {10001, true}, {9999999, true}, {10000000, false}, {30000000, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rtGap);
    m_deq.DeqClear();
    Put(PacketSpec().Time(0, 1000));
    // The gap runs from the previous end to this packet's end.
    Put(PacketSpec().Time(1000, 1000 + c.rtGap));
    EXPECT_EQ(m_deq.DeqDuration(), c.bCounts ? 2 * c.rtGap : 400000);
  }
}

TEST_F(VCPacketDeqTest, GapAfterSmallerOne_DoesNotRaiseMinimum_AndOverlapIsIgnored) {
  Put(PacketSpec().Time(0, 20 * kMs));
  Put(PacketSpec().Time(20 * kMs, 40 * kMs));   // gap 20 ms
  Put(PacketSpec().Time(10 * kMs, 200 * kMs));  // starts before the last end: no gap taken
  Put(PacketSpec().Time(200 * kMs, 300 * kMs)); // gap 100 ms, larger
  EXPECT_EQ(m_deq.DeqDuration(), 4 * 20 * kMs);
}

TEST_F(VCPacketDeqTest, PacketWithoutTime_TakesLastPacketTime) {
  K_TIME out{};
  Put(PacketSpec(), PutOptions(), &out);  // nothing to inherit yet
  EXPECT_EQ(out.rtStartTime, 0);
  EXPECT_EQ(out.rtEndTime, 0);

  Put(PacketSpec().Time(100 * kMs, 140 * kMs), PutOptions(), &out);
  PacketSpec untimed;
  untimed.rtStart = untimed.rtEnd = VC_TIME_UNSET;
  Put(untimed, PutOptions(), &out);
  EXPECT_EQ(out.rtStartTime, 100 * kMs);
  EXPECT_EQ(out.rtEndTime, 140 * kMs);
  Put(PacketSpec(), PutOptions(), &out);
  EXPECT_EQ(out.rtStartTime, 100 * kMs);
}

TEST_F(VCPacketDeqTest, Description_TextSpanAndDroppedCount) {
  Put(PacketSpec().Time(0, 40 * kMs).Bytes(617));
  Put(PacketSpec().Time(40 * kMs, 80 * kMs).Bytes(617));
  LONGLONG rtSpan = -5;
  LONGLONG llDropped = -5;
  vc::CBstr bsText;
  EXPECT_EQ(m_deq.DeqDescription(&rtSpan, &bsText, &llDropped), 80 * kMs);
  EXPECT_EQ(bsText.Utf8(),
            "Seg:00:00:00.000 (Idx:2) Deq:00:00:00.000...00:00:00.080(00:00:00.080, 2 items by 00:00:00.040) "
            "(1,234 bytes)");
  EXPECT_EQ(rtSpan, 0);  // last after first: the span reads 0
  EXPECT_EQ(llDropped, 0);
  m_deq.DeqEOS();
  EXPECT_EQ(Description().substr(0, 22), "Seg:00:00:00.000 EOS (");
}

TEST_F(VCPacketDeqTest, Description_SpanIsLastMinusFirstOnlyWhenFirstPassedLast) {
  // A packet whose end lies before its start lets the first time pass the
  // last one once the packets before it are taken.
  Put(PacketSpec().Time(0, 10 * kMs));
  Put(PacketSpec().Time(500 * kMs, 20 * kMs));
  Put(PacketSpec().Time(30 * kMs, 40 * kMs));
  Take();
  Take();
  LONGLONG rtSpan = 0;
  m_deq.DeqDescription(&rtSpan, nullptr, nullptr);
  EXPECT_EQ(rtSpan, 40 * kMs - 500 * kMs);
}

TEST(CKRingTest, WrapsGrowsInOrderAndShrinksWhenEmptied) {
  vc::CKRing<int> ring;
  int nNext = 0;
  int nExpected = 0;
  // Interleaved pushes and pops wrap the head around before each growth.
  for (int nRound = 0; nRound < 200; ++nRound) {
    for (int i = 0; i < 3; ++i) ring.push_back(nNext++);
    ASSERT_EQ(ring.front(), nExpected);
    ring.pop_front();
    ++nExpected;
    ASSERT_EQ(ring.back(), nNext - 1);
  }
  ASSERT_EQ(ring.size(), 400u);
  EXPECT_GE(ring.capacity(), 400u);
  std::vector<int> vecSeen;
  ring.ForEach([&](int& n) { vecSeen.push_back(n); });
  ASSERT_EQ(vecSeen.size(), 400u);
  for (size_t i = 0; i < vecSeen.size(); ++i) ASSERT_EQ(vecSeen[i], nExpected + static_cast<int>(i));

  for (int i = 0; i < 3000; ++i) ring.push_back(nNext++);
  EXPECT_GT(ring.capacity(), vc::CKRing<int>::kKeptCapacity);
  ring.clear();
  EXPECT_TRUE(ring.empty());
  EXPECT_EQ(ring.capacity(), vc::CKRing<int>::kKeptCapacity);
  ring.push_back(7);
  EXPECT_EQ(ring.front(), 7);
  EXPECT_EQ(ring.back(), 7);
}

TEST(CKRingTest, ElementsLiveOnlyInOccupiedSlots) {
  auto spValue = std::make_shared<int>(1);
  {
    vc::CKRing<std::shared_ptr<int>> ring;
    for (int i = 0; i < 40; ++i) ring.push_back(std::shared_ptr<int>(spValue));  // grows twice
    EXPECT_EQ(spValue.use_count(), 41) << "growth moves elements: no copies left behind";
    for (int i = 0; i < 10; ++i) ring.pop_front();
    EXPECT_EQ(spValue.use_count(), 31) << "a pop destroys its element at once";
    ring.emplace_back(spValue);
    EXPECT_EQ(ring.size(), 31u);
  }
  EXPECT_EQ(spValue.use_count(), 1) << "the ring destroys what it still holds";
}

// A packet from another vendor answers only the public interface: the
// record is built through it (the codec name it hands out freed), and the
// stamps go back through PacketInfoSet.
TEST_F(VCPacketDeqTest, ForeignPacket_IsStampedAndTypedThroughPublicInterface) {
  vc::ComPtr<IVCPacket> cpInner = MakePacket(PacketSpec().Type(eVCMT_Audio).Flags(eVCPF_KeyFrame).Time(0, 20 * kMs));
  queuetest::CForeignPacket foreign(cpInner.Get());
  m_deq.DeqPut(&foreign, kNeverReady, 5 * kSec, false);
  EXPECT_EQ(foreign.StreamInfoReads(), 1);
  EXPECT_EQ(m_deq.MediaTypeGet(), eVCMT_Audio);
  const K_PACKET_INFO info = InfoOf(cpInner.Get());
  EXPECT_EQ(info.nIndexInSegment, 0);
  EXPECT_EQ(info.nKeyDistance, 0);
  EXPECT_NE(info.eFlags & eVCPF_SegmentStart, 0);
  EXPECT_EQ(foreign.Refs(), 2u) << "the queue holds one reference";
  IVCPacket* pOut = nullptr;
  ASSERT_EQ(m_deq.DeqGet(&pOut, true), S_OK);
  EXPECT_EQ(pOut, &foreign);
  pOut->Release();
  EXPECT_EQ(foreign.Refs(), 1u);
}

TEST_F(VCPacketDeqTest, PoppedAndClearedRecords_ReleaseTheirPackets) {
  vc::ComPtr<IVCPacket> cpFirst = MakePacket(PacketSpec());
  vc::ComPtr<IVCPacket> cpSecond = MakePacket(PacketSpec());
  m_deq.DeqPut(cpFirst.Get(), kNeverReady, 5 * kSec, false);
  m_deq.DeqPut(cpSecond.Get(), kNeverReady, 5 * kSec, false);
  EXPECT_EQ(m_deq.DeqGet(nullptr, true), S_OK);
  EXPECT_EQ(RefCount(cpFirst.Get()), 1u);
  EXPECT_EQ(RefCount(cpSecond.Get()), 2u);
  m_deq.DeqClear();
  EXPECT_EQ(RefCount(cpSecond.Get()), 1u);
}

TEST(VCSizeTextTest, GroupsDigitsInThrees) {
  EXPECT_EQ(vc::VCSizeText(0), "0");
  EXPECT_EQ(vc::VCSizeText(999), "999");
  EXPECT_EQ(vc::VCSizeText(1000), "1,000");
  EXPECT_EQ(vc::VCSizeText(1234567), "1,234,567");
  EXPECT_EQ(vc::VCSizeText(-1000), "-1,000");
  EXPECT_EQ(vc::VCSizeText(std::numeric_limits<LONGLONG>::min()), "-9,223,372,036,854,775,808");
}

// --- Ready event, get and end of stream -----------------------------------

TEST_F(VCPacketDeqTest, ReadyEvent_SetOnceDurationReachesReady) {
  PutOptions opt;
  opt.rtReady = 3 * 40 * kMs;
  PutTimed(2, 0, 40 * kMs, opt);
  EXPECT_FALSE(Ready());
  PutTimed(1, 80 * kMs, 40 * kMs, opt);
  EXPECT_TRUE(Ready());
  Take();  // not empty yet: stays set
  EXPECT_TRUE(Ready());
}

TEST_F(VCPacketDeqTest, LastRemoval_ResetsEventAndEmptyGetAnswersEmpty) {
  PutTimed(2, 0, 40 * kMs, Dropping(5 * kSec, false));
  Take();
  Take();
  EXPECT_FALSE(Ready());
  EXPECT_EQ(m_deq.DeqGet(nullptr, true), kEmpty);
  EXPECT_EQ(m_deq.DeqDescription(), -1);
}

TEST_F(VCPacketDeqTest, LastRemovalAfterEOS_KeepsEventAndGetAnswersEndOfMedia) {
  PutTimed(2);
  m_deq.DeqEOS();
  EXPECT_TRUE(Ready());
  Take();
  Take();
  EXPECT_TRUE(Ready());
  vc::ComPtr<IVCPacket> cpPacket;
  EXPECT_EQ(m_deq.DeqGet(cpPacket.AddressOf(), true), kEndOfMedia);
  EXPECT_FALSE(cpPacket);
  EXPECT_TRUE(m_deq.IsEOS());
}

TEST_F(VCPacketDeqTest, Get_TakesOldestFirstAndPeekLeavesIt) {
  PutTimed(3);
  vc::ComPtr<IVCPacket> cpPeek = Take(false);
  EXPECT_EQ(m_deq.DeqSize(), 3);
  EXPECT_EQ(RefCount(cpPeek.Get()), 2u);  // ours + the queue's
  EXPECT_EQ(m_deq.DeqGet(nullptr, false), S_OK);

  vc::ComPtr<IVCPacket> cpFirst = Take();
  EXPECT_EQ(cpFirst.Get(), cpPeek.Get());
  EXPECT_EQ(RefCount(cpFirst.Get()), 2u);  // ours + cpPeek: the queue's went to the caller
  EXPECT_EQ(InfoOf(Take().Get()).llPts, 1);
  EXPECT_EQ(m_deq.DeqGet(nullptr, true), S_OK);  // removes without handing out
  EXPECT_EQ(m_deq.DeqSize(), 0);
}

TEST_F(VCPacketDeqTest, Get_MovesFirstTimeAndEmptyingResetsBytes) {
  PutTimed(3, 0, 40 * kMs);
  Take();
  vc::CBstr bsText;
  m_deq.DeqDescription(nullptr, &bsText, nullptr);
  EXPECT_NE(bsText.Utf8().find("Deq:00:00:00.000...00:00:00.120(00:00:00.080, 2 items by 00:00:00.040) (200 bytes)"),
            std::string::npos)
      << bsText.Utf8();
  Take();
  EXPECT_NE(Description().find("Deq:00:00:00.040...00:00:00.120"), std::string::npos) << Description();
  Take();
  EXPECT_NE(Description().find("Deq:UNSET...UNSET(-00:00:00.000, 0 items by 00:00:00.040) (0 bytes)"),
            std::string::npos)
      << Description();
}

TEST_F(VCPacketDeqTest, CompareOrder_LowersOnlyForSmallerFront) {
  LONG nCompare = 10;
  EXPECT_FALSE(m_deq.DeqCompareOrder(&nCompare));
  Put(PacketSpec().Order(7));
  Put(PacketSpec().Order(3));  // not the front
  EXPECT_TRUE(m_deq.DeqCompareOrder(&nCompare));
  EXPECT_EQ(nCompare, 7);
  EXPECT_FALSE(m_deq.DeqCompareOrder(&nCompare));
  EXPECT_EQ(nCompare, 7);
}

// --- The drop valve --------------------------------------------------------

TEST_F(VCPacketDeqTest, Drop_OnlyPastTwiceMaxPlusTwoSecondsOnePerPut) {
  const PutOptions opt = Dropping(5 * kSec);
  // 300 packets of 40 ms hold exactly 12 s: not past the limit.
  EXPECT_EQ(PutTimed(300, 0, 40 * kMs, opt), 12 * kSec);
  LONGLONG llDropped = -1;
  m_deq.DeqDescription(nullptr, nullptr, &llDropped);
  EXPECT_EQ(llDropped, 0);

  EXPECT_EQ(PutTimed(1, 300 * 40 * kMs, 40 * kMs, opt, 300), 12 * kSec);
  EXPECT_EQ(m_deq.DeqSize(), 300);
  m_deq.DeqDescription(nullptr, nullptr, &llDropped);
  EXPECT_EQ(llDropped, 1);

  PutTimed(5, 301 * 40 * kMs, 40 * kMs, opt, 301);
  EXPECT_EQ(m_deq.DeqSize(), 300);
  m_deq.DeqDescription(nullptr, nullptr, &llDropped);
  EXPECT_EQ(llDropped, 6);
  EXPECT_EQ(InfoOf(Take().Get()).llPts, 6);  // the six oldest went
}

TEST_F(VCPacketDeqTest, Drop_NeverWhenNotAllowedOrNotReady) {
  PutOptions opt = Dropping(5 * kSec, false);
  PutTimed(320, 0, 40 * kMs, opt);
  EXPECT_EQ(m_deq.DeqSize(), 320);

  m_deq.DeqClear();
  opt.bDrop = true;
  opt.rtReady = 100 * kSec;  // the valve sits behind the ready test
  PutTimed(320, 0, 40 * kMs, opt);
  EXPECT_EQ(m_deq.DeqSize(), 320);
  EXPECT_FALSE(Ready());
}

TEST_F(VCPacketDeqTest, Drop_BytesFollowAndTimesStay) {
  const PutOptions opt = Dropping(0);  // limit 2 s: 50 packets of 40 ms
  PutTimed(51, 0, 40 * kMs, opt);
  EXPECT_EQ(m_deq.DeqSize(), 50);
  // The first time is not moved by a drop.
  EXPECT_NE(Description().find("Deq:00:00:00.000...00:00:02.040(00:00:02.000, 50 items by 00:00:00.040) (5,000 bytes)"),
            std::string::npos)
      << Description();
}

// --- Log lines -------------------------------------------------------------

TEST_F(VCPacketDeqTest, DropLine_IsLevelThreeWithItsText) {
  const PutOptions opt = Dropping(0);
  PutTimed(50, 0, 40 * kMs, opt);
  vc::CLogCapture capture(vc::eVCLL_Retry);
  PutTimed(1, 50 * 40 * kMs, 40 * kMs, opt, 50);
  const std::vector<vc::LogRecord> records = capture.Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].nLevel, vc::eVCLL_Retry);
  EXPECT_EQ(records[0].strMessage,
            "1 Packet dropped :[Stm:0 #50 Ord:0 Key:-1 Flags:0x0 Time:00:00:02.000..00:00:02.040 Pts:50 Size:100] "
            "DeqTime:00:00:02.040 Deq:50(5000 bytes) DeqTimes:00:00:00.000..00:00:02.040 (Seg:00:00:00.000)");
}

TEST_F(VCPacketDeqTest, EventLines_EOSReadyAndClear) {
  vc::CLogCapture capture;
  m_deq.DeqEOS();
  m_deq.DeqClear();
  Put(PacketSpec().Stream(2).Pts(7));
  Put(PacketSpec().Stream(2).Pts(8));
  m_deq.DeqClear();
  Put(PacketSpec().Stream(2).Pts(9));
  Take();
  Put(PacketSpec().Stream(2).Pts(11));
  m_deq.DeqEOS();
  Take();

  std::vector<std::string> vecEvents;
  for (const vc::LogRecord& record : capture.Records()) {
    if (record.nLevel == vc::eVCLL_Info) vecEvents.push_back(record.strMessage);
  }
  const std::vector<std::string> expected = {
      "VCPacketDeq::DeqEOS(-1)\n",
      "VCPacketDeq::DeqClear() Seg:-00:00:00.000 Time:-00:00:00.000- RESET READY EVENT\n",
      "VCPacketDeq::DeqClear() Seg:-00:00:00.000 Time:-00:00:00.000- RESET READY EVENT\n",  // first put, new segment
      "VCPacketDeq::DeqClear() Seg:00:00:00.000 Time:00:00:00.040- RESET READY EVENT\n",
      "VCPacketDeq::DeqClear() Seg:-00:00:00.000 Time:-00:00:00.000- RESET READY EVENT\n",
      "(Stream:2) Seg:00:00:00.000 #0 Pts:9 - RESET READY EVENT\n",
      "VCPacketDeq::DeqEOS(2)\n",
      "(Stream:2) Seg:00:00:00.000 #1 Pts:11 - KEEP(EOS) READY EVENT\n",
  };
  EXPECT_EQ(vecEvents, expected);
}

TEST_F(VCPacketDeqTest, PacketLines_PutGetAndGap) {
  Put(PacketSpec().Time(0, 40 * kMs));
  vc::CLogCapture capture;
  Put(PacketSpec().Time(40 * kMs, 80 * kMs).Pts(1).Bytes(50));
  Take();
  const std::vector<std::string> expected = {
      "Pkt Time:00:00:00.040 Min:00:00:00.000",
      "[Stm:0 #1 Ord:0 Key:-1 Flags:0x0 Time:00:00:00.040..00:00:00.080 Pts:1 Size:50] Deq:1(150 bytes) "
      "DeqTimes:00:00:00.000..00:00:00.080 (Seg:00:00:00.000)",
      "[Stm:0 #0 Ord:0 Key:-1 Flags:0x1 Time:00:00:00.000..00:00:00.040 Pts:0 Size:100] Deq:1(50 bytes) "
      "DeqTimes:00:00:00.000..00:00:00.080 (Seg:00:00:00.000)",
  };
  EXPECT_EQ(capture.Messages(), expected);
  for (const vc::LogRecord& record : capture.Records()) EXPECT_EQ(record.nLevel, vc::eVCLL_Progress);
}

// --- Invariants ------------------------------------------------------------

TEST_F(VCPacketDeqTest, PutAfterEOS_ReportsAndStillPuts) {
  vc::CAssertCounter asserts;
  Put(PacketSpec());
  m_deq.DeqEOS();
  Put(PacketSpec());
  EXPECT_EQ(asserts.Count(), 1);
  EXPECT_EQ(asserts.LastCondition(), "!m_bEOS");
  EXPECT_EQ(asserts.LastPath(), kPath);
  EXPECT_EQ(m_deq.DeqSize(), 2);
  EXPECT_FALSE(m_deq.IsEOS());
}

TEST_F(VCPacketDeqTest, ForeignStream_ReportsBothStreamChecks) {
  Put(PacketSpec().Stream(1));
  {
    vc::CAssertCounter asserts;
    Put(PacketSpec().Stream(2));
    EXPECT_EQ(asserts.Count(), 2);
    EXPECT_EQ(asserts.LastCondition(), "m_deqPackets.back().pktInfo.nStreamIndex == packetInfo.pktInfo.nStreamIndex");
    EXPECT_EQ(asserts.LastPath(), kPath);
  }
  m_deq.DeqClear();  // the queue keeps serving stream 2 now
  vc::CAssertCounter asserts;
  Put(PacketSpec().Stream(3));
  EXPECT_EQ(asserts.Count(), 1);
  EXPECT_EQ(asserts.LastCondition(), "m_nStream < 0 || m_nStream == packetInfo.pktInfo.nStreamIndex");
}

TEST_F(VCPacketDeqTest, MediaTypeChecks_ReportChangeAndEmptyType) {
  Put(PacketSpec().Type(eVCMT_Video));
  vc::CAssertCounter asserts;
  Put(PacketSpec().Type(eVCMT_Audio));
  EXPECT_EQ(asserts.Count(), 1);
  EXPECT_EQ(asserts.LastCondition(),
            "m_eMediaType == eVCMT_Empty || m_eMediaType == packetInfo.stmInfo.eMediaType");
  EXPECT_EQ(m_deq.MediaTypeGet(), eVCMT_Audio);
  Put(PacketSpec().Type(eVCMT_Empty));
  EXPECT_EQ(asserts.Count(), 3);
  EXPECT_EQ(asserts.LastCondition(), "packetInfo.stmInfo.eMediaType != eVCMT_Empty");
}

TEST_F(VCPacketDeqTest, NullArguments_ReportAndChangeNothing) {
  vc::CAssertCounter asserts;
  EXPECT_FALSE(m_deq.DeqCompareOrder(nullptr));
  EXPECT_EQ(asserts.LastCondition(), "_pnCompare");
  EXPECT_EQ(m_deq.DeqPut(nullptr, 0, 0, true), -1);
  EXPECT_EQ(asserts.LastCondition(), "_pPacket");
  EXPECT_EQ(asserts.Count(), 2);
  EXPECT_EQ(m_deq.DeqSize(), 0);
}

}  // namespace
