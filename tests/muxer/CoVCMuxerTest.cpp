// The muxer facade over scripted candidates: which entries the walk tries
// for a format and how a failing one is skipped, when MuxerSet replaces the
// inner muxer and when it does nothing, the seamless hand-over, the
// pass-through calls with their codes and log lines, and a close racing a
// held packet.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "ScriptedMuxerFixture.h"

namespace vctest {
namespace {

using MuxerWalkTest = ScriptedMuxerTest;
using MuxerTargetTest = ScriptedMuxerTest;
using MuxerPassThroughTest = ScriptedMuxerTest;

// --- The candidate walk ------------------------------------------------------

TEST_F(MuxerWalkTest, OnlyTheNabletFormatTriesTheNabletEntryFirst) {
  RegisterScripted(kNablet);
  struct Case {
    const char* szProps;
    std::vector<std::string> vecCreated;
  };
  const Case cases[] = {
      {"format=mpeg_nablet", {"nablet"}},
      {"format=MPEG_Nablet", {"nablet"}},  // the whole name, case ignored
      {"format=mpeg", {"general"}},
      {"format=mpeg_nablet2", {"general"}},
      {nullptr, {"general"}},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.szProps ? c.szProps : "(no properties)");
    const size_t nMark = Mark();
    // A fresh path each round: the extension plays no part in the choice.
    ASSERT_EQ(Set("/out/a" + std::to_string(n++) + ".mpg", c.szProps), S_OK);
    EXPECT_EQ(Created(nMark), c.vecCreated);
    const std::vector<CallRecord> vecSet = Calls(eCall::MuxerSet, nMark);
    ASSERT_EQ(vecSet.size(), 1u);
    EXPECT_EQ(vecSet[0].strText, "/out/a" + std::to_string(n - 1) + ".mpg");
  }
}

TEST_F(MuxerWalkTest, NabletClassMissing_IsLoggedAndTheGeneralMuxerTakesTheTarget) {
  // Not registered: creation fails as it does on this system.
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Set("/out/a.mpg", "format=mpeg_nablet"), S_OK);
  EXPECT_EQ(Created(), std::vector<std::string>{"general"});
  EXPECT_TRUE(LogLineWith(
      log, {"Error create {090AD36C-B9C2-483C-97F7-4F7023D238DB} muxer (format:mpeg_nablet file:/out/a.mpg)"},
      vc::eVCLL_Retry));
  EXPECT_TRUE(LogLineWith(log, {"Create {96EB1F23-4CC0-4830-9CC3-F064196B2626} (format:mpeg_nablet Param:",
                                "File:/out/a.mpg)"},
                          vc::eVCLL_Progress));
}

TEST_F(MuxerWalkTest, NabletRefusingItsConfiguration_IsLoggedReleasedAndSkipped) {
  RegisterScripted(kNablet);
  m_pScript->Expect(Step::For(eClass::NabletMuxer, eCall::MuxerSet, E_FAIL));
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Set("/out/a.mpg", "format=mpeg_nablet"), S_OK);
  EXPECT_EQ(Created(), (std::vector<std::string>{"nablet", "general"}));
  EXPECT_TRUE(LogLineWith(log, {"Error set props'<", "' for {090AD36C-B9C2-483C-97F7-4F7023D238DB} muxer "
                                                     "(format:mpeg_nablet file:/out/a.mpg)"},
                          vc::eVCLL_Retry));
  // The refused one is gone: later calls reach the general muxer only.
  m_pScript->Allow(eCall::MuxerPacketPut, S_OK);
  ASSERT_EQ(m_cpMuxer->MuxerPacketPut(0, Packet(0, 0, 400000).Get(), nullptr), S_OK);
  const std::vector<CallRecord> vecPut = Calls(eCall::MuxerPacketPut);
  ASSERT_EQ(vecPut.size(), 1u);
  EXPECT_EQ(vecPut[0].objClass, eClass::GeneralMuxer);
}

TEST_F(MuxerWalkTest, NoCandidate_Gives80070032AndTheRunningMuxerGoesOn) {
  ASSERT_EQ(Set("/out/a.mp4"), S_OK);
  const uint64_t nRunning = LastObject(eCall::MuxerSet);
  struct Case {
    const char* szName;
    Step step;  // what makes the only candidate fail
  };
  const Case cases[] = {
      {"creation fails", Step::For(eClass::GeneralMuxer, eCall::Create, E_OUTOFMEMORY)},
      {"configuration refused", Step::For(eClass::GeneralMuxer, eCall::MuxerSet, E_ACCESSDENIED)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.szName);
    m_pScript->Expect(c.step);
    vc::CLogCapture log(vc::eVCLL_Progress);
    EXPECT_EQ(Set("/out/b.mp4", "x=1"), kNoCandidate);  // not the candidate's own code
    EXPECT_TRUE(LogLineWith(log, {"CreateMuxer_I(/out/b.mp4, <", "x=\"1\"", ") FAILED hr=80070032"}, vc::eVCLL_Error));
    EXPECT_EQ(m_pScript->CallCount(eCall::MuxerClose), 0u);
    EXPECT_EQ(StoredPath(), "/out/a.mp4");
  }
  m_pScript->Allow(eCall::MuxerPacketPut, S_OK);
  ASSERT_EQ(m_cpMuxer->MuxerPacketPut(0, Packet(0, 0, 400000).Get(), nullptr), S_OK);
  EXPECT_EQ(LastObject(eCall::MuxerPacketPut), nRunning);
}

// --- Target changes -----------------------------------------------------------

TEST_F(MuxerTargetTest, PropertiesDifferingOnlyInCase_AreUnchanged) {
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4 Title=One"), S_OK);
  const size_t nMark = Mark();
  EXPECT_EQ(Set("/out/a.mp4", "FORMAT=MP4 title=one"), S_FALSE);
  EXPECT_EQ(Mark(), nMark) << "no candidate was asked anything";
  // Present and absent differ.
  EXPECT_EQ(Set("/out/a.mp4"), S_OK);
  EXPECT_EQ(Created(nMark).size(), 1u);
  EXPECT_EQ(Set("/out/a.mp4", ""), S_FALSE);  // an empty text is no text
}

TEST_F(MuxerTargetTest, PathDifferingOnlyInCase_ReplacesTheMuxer) {
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4"), S_OK);
  const uint64_t nFirst = LastObject(eCall::MuxerSet);
  const size_t nMark = Mark();
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Set("/out/A.mp4", "format=mp4"), S_OK);
  EXPECT_EQ(Created(nMark), std::vector<std::string>{"general"});
  // The old one is closed once the new one took the target, with the line of
  // MuxerClose.
  ASSERT_EQ(Calls(eCall::MuxerClose, nMark).size(), 1u);
  EXPECT_EQ(Calls(eCall::MuxerClose, nMark)[0].nObject, nFirst);
  EXPECT_TRUE(LogLineWith(log, {"() = 00000000"}, vc::eVCLL_Progress));
  EXPECT_TRUE(LogLineWith(log, {"CreateMuxer_I(/out/A.mp4, <", "format=\"mp4\"", ") OK hr=00000000"},
                          vc::eVCLL_Progress));
  EXPECT_EQ(StoredPath(), "/out/A.mp4");
  m_pScript->Allow(eCall::MuxerPacketPut, S_OK);
  ASSERT_EQ(m_cpMuxer->MuxerPacketPut(0, Packet(0, 0, 400000).Get(), nullptr), S_OK);
  EXPECT_NE(LastObject(eCall::MuxerPacketPut), nFirst);
}

TEST_F(MuxerTargetTest, SamePathNewProperties_TheRunningMuxerFinishesTheFileFirst) {
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4"), S_OK);
  const uint64_t nFirst = LastObject(eCall::MuxerSet);
  const size_t nMark = Mark();
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4 title=two"), S_OK);
  // Two muxers on one file would truncate it under the first: the first
  // closes before the new one is created.
  const std::vector<CallRecord> vecAll = m_pScript->Calls();
  std::vector<eCall> vecOrder;
  for (size_t i = nMark; i < vecAll.size(); ++i) vecOrder.push_back(vecAll[i].call);
  ASSERT_GE(vecOrder.size(), 3u);
  EXPECT_EQ(vecOrder[0], eCall::MuxerClose);
  EXPECT_EQ(vecAll[nMark].nObject, nFirst);
  EXPECT_EQ(Created(nMark), std::vector<std::string>{"general"});
  EXPECT_EQ(Calls(eCall::MuxerClose, nMark).size(), 1u) << "closed once, not again at the swap";
  EXPECT_TRUE(LogLineWith(log, {"closes the running muxer first"}, vc::eVCLL_Detail));
  EXPECT_EQ(StoredPath(), "/out/a.mp4");
}

TEST_F(MuxerTargetTest, AfterClose_TheSamePathOpensANewMuxer) {
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4"), S_OK);
  ASSERT_EQ(m_cpMuxer->MuxerClose(), S_OK);
  EXPECT_EQ(m_pScript->CallCount(eCall::MuxerClose), 1u);
  EXPECT_EQ(StoredPath(), "");
  EXPECT_EQ(m_cpMuxer->MuxerClose(), S_OK);  // nothing left to close: no call
  EXPECT_EQ(m_pScript->CallCount(eCall::MuxerClose), 1u);
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4"), S_OK);
  EXPECT_EQ(Created().size(), 2u);
}

TEST_F(MuxerTargetTest, FacadeProperties_ReachTheCandidateWithTheCallsWinning) {
  SetProp("format", "mp4");
  SetProp("custom.marker", "m-4417");
  vc::CLogCapture log(vc::eVCLL_Progress);
  ASSERT_EQ(Set("/out/a.mkv", "format=matroska"), S_OK);
  const std::vector<CallRecord> vecSet = Calls(eCall::MuxerSet);
  ASSERT_EQ(vecSet.size(), 1u);
  // Copied into its properties before it was configured...
  EXPECT_NE(vecSet[0].strProps.find("m-4417"), std::string::npos) << vecSet[0].strProps;
  EXPECT_NE(vecSet[0].strProps.find("format=\"matroska\""), std::string::npos) << vecSet[0].strProps;
  // ...and in the text of its MuxerSet, which merges into a root.
  EXPECT_EQ(vecSet[0].strArg.rfind("<__root__ ", 0), 0u) << vecSet[0].strArg;
  EXPECT_NE(vecSet[0].strArg.find("m-4417"), std::string::npos) << vecSet[0].strArg;
  EXPECT_NE(vecSet[0].strArg.find("format=\"matroska\""), std::string::npos) << vecSet[0].strArg;
  EXPECT_EQ(vecSet[0].strArg.find("mp4"), std::string::npos) << vecSet[0].strArg;
  EXPECT_TRUE(LogLineWith(log, {"(format:matroska Param:<__root__ "}));
  // The facade's own tree keeps its value.
  vc::CBstr bsFormat;
  ASSERT_EQ(m_cpProps->PropsGet(vc::CBstr(std::string_view("format")), &bsFormat), S_OK);
  EXPECT_EQ(vc::ToUtf8(bsFormat.View()), "mp4");
}

TEST_F(MuxerTargetTest, PropertiesThatDoNotParse_FailAndChangeNothing) {
  ASSERT_EQ(Set("/out/a.mp4"), S_OK);
  const size_t nMark = Mark();
  EXPECT_EQ(Set("/out/b.mp4", "<unclosed"), E_INVALIDARG);
  EXPECT_EQ(Mark(), nMark);
  EXPECT_EQ(StoredPath(), "/out/a.mp4");
}

// --- Seamless switch ------------------------------------------------------------

TEST_F(MuxerTargetTest, SeamlessWithoutAMuxer_IsInvalid) {
  EXPECT_EQ(Set("/out/a.mp4", "seamless_switch=true"), E_INVALIDARG);
  EXPECT_TRUE(m_pScript->Calls().empty());
  // The facade's own property asks for it as well.
  SetProp("seamless_switch", "true");
  EXPECT_EQ(Set("/out/a.mp4", "format=mp4"), E_INVALIDARG);
  EXPECT_TRUE(m_pScript->Calls().empty());
}

TEST_F(MuxerTargetTest, Seamless_HandsOnlyTheSwitchToTheRunningMuxerAndKeepsTheTarget) {
  ASSERT_EQ(Set("/out/a.mp4", "format=mp4 x=1"), S_OK);
  const uint64_t nRunning = LastObject(eCall::MuxerSet);
  const size_t nMark = Mark();
  m_pScript->Expect(Step::Answer(eCall::MuxerSet, S_FALSE));
  EXPECT_EQ(Set("/out/b.mkv", "format=matroska seamless_switch=true x=2"), S_FALSE);  // its answer
  const std::vector<CallRecord> vecSet = Calls(eCall::MuxerSet, nMark);
  ASSERT_EQ(vecSet.size(), 1u);
  EXPECT_EQ(vecSet[0].nObject, nRunning);
  EXPECT_EQ(vecSet[0].strText, "/out/b.mkv");
  EXPECT_EQ(vecSet[0].strArg, "seamless_switch=true");
  EXPECT_TRUE(Created(nMark).empty());
  EXPECT_EQ(m_pScript->CallCount(eCall::MuxerClose), 0u);
  // A failure comes back unchanged.
  m_pScript->Expect(Step::Answer(eCall::MuxerSet, E_ACCESSDENIED));
  EXPECT_EQ(Set("/out/c.mkv", "seamless_switch=true"), E_ACCESSDENIED);
  // The stored target is still the first one.
  EXPECT_EQ(StoredPath(), "/out/a.mp4");
  EXPECT_EQ(Set("/out/a.mp4", "format=mp4 x=1"), S_FALSE);
}

// --- Pass-through ------------------------------------------------------------------

TEST_F(MuxerPassThroughTest, BeforeMuxerSet_EveryCallFailsWithoutAnInnerMuxer) {
  const vc::CKStreamInfo stream = VideoStream();
  LONG nIdx = 7;
  EXPECT_EQ(m_cpMuxer->MuxerStreamAdd(const_cast<K_STREAM_INFO*>(&stream.Get()), nullptr, &nIdx), kNoMuxer);
  EXPECT_EQ(nIdx, -1);
  K_STREAM_INFO info{};
  vc::CBstr bsProps;
  EXPECT_EQ(m_cpMuxer->MuxerStreamInfoGet(0, &info, &bsProps), kNoMuxer);
  EXPECT_EQ(m_cpMuxer->MuxerPacketPut(0, Packet(0, 0, 400000).Get(), nullptr), kNoMuxer);
  EXPECT_EQ(m_cpMuxer->MuxerPacketPut(-1, Packet(0, 0, 400000).Get(), nullptr), kNoMuxer);
  vc::ComPtr<IVCSideData> cpSideData;
  ASSERT_EQ(m_cpMuxer.As(&cpSideData), S_OK);
  LONG nCount = 0;
  EXPECT_EQ(cpSideData->SideDataGetCount(0, &nCount), kNoMuxer);
  EXPECT_EQ(m_cpMuxer->MuxerClose(), S_OK);
  EXPECT_TRUE(m_pScript->Calls().empty());
}

TEST_F(MuxerPassThroughTest, Calls_ReachTheInnerMuxerUnchangedWithTheirLogLines) {
  ASSERT_EQ(Set("/out/a.mp4"), S_OK);
  const vc::CKStreamInfo stream = VideoStream();
  vc::CLogCapture log(vc::eVCLL_Progress);

  m_pScript->Allow(eCall::MuxerStreamAdd, S_OK);
  LONG nIdx = -1;
  ASSERT_EQ(m_cpMuxer->MuxerStreamAdd(const_cast<K_STREAM_INFO*>(&stream.Get()), vc::CBstr(W("stream_idx=0")), &nIdx),
            S_OK);
  EXPECT_EQ(nIdx, 0);
  ASSERT_EQ(Calls(eCall::MuxerStreamAdd).size(), 1u);
  EXPECT_EQ(Calls(eCall::MuxerStreamAdd)[0].strArg, "stream_idx=0");
  EXPECT_EQ(Calls(eCall::MuxerStreamAdd)[0].llValue, eVCMT_Video);
  EXPECT_TRUE(LogLineWith(log, {"(video h264 320x240", ", stream_idx=0) = 00000000"}, vc::eVCLL_Progress));

  m_pScript->Expect(Step::Answer(eCall::MuxerPacketPut, S_OK));
  m_pScript->Expect(Step::Answer(eCall::MuxerPacketPut, E_ACCESSDENIED));
  EXPECT_EQ(m_cpMuxer->MuxerPacketPut(-1, Packet(0, 0, 400000).Get(), vc::CBstr(W("hint=a"))), S_OK);
  EXPECT_EQ(m_cpMuxer->MuxerPacketPut(3, Packet(3, 400000, 800000).Get(), vc::CBstr(W("hint=b"))), E_ACCESSDENIED);
  const std::vector<CallRecord> vecPut = Calls(eCall::MuxerPacketPut);
  ASSERT_EQ(vecPut.size(), 2u);
  EXPECT_EQ(vecPut[0].llValue, -1);
  EXPECT_EQ(vecPut[0].strArg, "hint=a");
  EXPECT_EQ(vecPut[1].llValue, 3);
  EXPECT_EQ(vecPut[1].rtStart, 400000);
  EXPECT_TRUE(LogLineWith(log, {"(-1, Stm:0 ", ", hint=a) = 00000000"}, vc::eVCLL_Progress));
  EXPECT_TRUE(LogLineWith(log, {"(3, Stm:3 ", ", hint=b) = 80070005"}, vc::eVCLL_Error));

  m_pScript->Expect(Step::Answer(eCall::MuxerStreamInfoGet, S_OK));
  m_pScript->Expect(Step::Answer(eCall::MuxerStreamInfoGet, E_INVALIDARG));
  K_STREAM_INFO info{};
  vc::CBstr bsProps;
  EXPECT_EQ(m_cpMuxer->MuxerStreamInfoGet(0, &info, &bsProps), S_OK);
  EXPECT_EQ(info.eMediaType, eVCMT_Video);
  EXPECT_EQ(vc::ToUtf8(bsProps.View()), "scripted.stream=0");
  EXPECT_TRUE(LogLineWith(log, {"(video ", ", scripted.stream=0) = 00000000"}, vc::eVCLL_Progress));
  EXPECT_EQ(m_cpMuxer->MuxerStreamInfoGet(5, &info, &bsProps), E_INVALIDARG);
  EXPECT_TRUE(LogLineWith(log, {"(5) = 80070057"}, vc::eVCLL_Error));

  m_pScript->Expect(Step::Answer(eCall::MuxerClose, E_FAIL));
  EXPECT_EQ(m_cpMuxer->MuxerClose(), E_FAIL);
  EXPECT_TRUE(LogLineWith(log, {"() = 80004005"}, vc::eVCLL_Error));
  EXPECT_EQ(m_cpMuxer->MuxerPacketPut(0, Packet(0, 0, 400000).Get(), nullptr), kNoMuxer);  // released all the same
}

TEST_F(MuxerPassThroughTest, CloseWhileAPacketIsHeld_DoesNotWaitForIt) {
  ASSERT_EQ(Set("/out/a.mp4"), S_OK);
  m_pScript->Expect(Step::Answer(eCall::MuxerPacketPut, E_ABORT, eWait::UntilReleased));
  auto put = std::async(std::launch::async, [this] {
    return m_cpMuxer->MuxerPacketPut(0, Packet(0, 0, 400000).Get(), nullptr);
  });
  ASSERT_TRUE(m_pScript->WaitWaiting(eCall::MuxerPacketPut, 5000));
  // The close goes through while the put is still inside the muxer.
  EXPECT_EQ(m_cpMuxer->MuxerClose(), S_OK);
  EXPECT_EQ(m_pScript->CallCount(eCall::MuxerClose), 1u);
  m_pScript->ReleaseHeld();
  EXPECT_EQ(put.get(), E_ABORT);  // finished on its own reference
}

}  // namespace
}  // namespace vctest
