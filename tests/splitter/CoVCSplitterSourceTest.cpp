// The splitter facade's source handling over the scripted inner splitter:
// racing opens, a close while a segment request waits, the order counter,
// the first wait's rule and strings that hosts pass as plain literals.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <set>
#include <thread>

#include "ScriptedSplitterFixture.h"
#include "VCCodecs/VCCodecsBase.h"

namespace vctest {
namespace {

constexpr HRESULT kEndOfMedia = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);

// A zero-terminated UTF-16 string as a host may pass it: a literal with no
// length prefix of its own. The four bytes before it say "one character",
// so a reader that trusts the prefix sees only the first one.
template <size_t N>
struct PlainString {
  uint32_t nWrongPrefix = sizeof(char16_t);
  char16_t sz[N];
  BSTR Get() { return reinterpret_cast<BSTR>(sz); }
};
template <size_t N>
PlainString<N> Plain(const char16_t (&sz)[N]) {
  PlainString<N> str;
  for (size_t i = 0; i < N; ++i) str.sz[i] = sz[i];
  return str;
}

class ScriptedSplitterSourceTest : public ScriptedSplitterTest {
 protected:
  // The reading thread's next read blocks, delivering nothing, until the
  // splitter is stopped; the reads after it deliver nothing either, so no
  // end of stream reaches the queues by itself.
  void BlockNextReadUntilStopped() {
    Step blocked = Step::Answer(eCall::SplitterPacketGet, S_OK, eWait::UntilStopped);
    blocked.bNoPacket = true;
    m_pScript->Expect(blocked);
    Step empty = Step::Answer(eCall::SplitterPacketGet, S_OK);
    empty.bNoPacket = true;
    for (int i = 0; i < 1000; ++i) m_pScript->Expect(empty);
    m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  }
};

TEST_F(ScriptedSplitterSourceTest, RacingOpensEndWithOneSourceThatTheThreadReads) {
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  m_pScript->Allow(eCall::SplitterBeginSegment, S_OK);
  m_pScript->Allow(eCall::SplitterInfoGet, S_OK);
  for (int nRound = 0; nRound < 200; ++nRound) {
    // Both inner opens are held until both are in, then let go together:
    // the two facade calls race to install their source.
    m_pScript->Expect(Step::Answer(eCall::SplitterOpen, S_OK, eWait::UntilReleased));
    m_pScript->Expect(Step::Answer(eCall::SplitterOpen, S_OK, eWait::UntilReleased));
    const size_t nOpensBefore = m_pScript->CallCount(eCall::SplitterOpen);
    auto fnOpen = [this](const char* szPath) {
      LONG nStreams = 0;
      return m_cpSplitter->SplitterOpen(vc::CBstr(std::string_view(szPath)), nullptr, &nStreams);
    };
    auto futA = std::async(std::launch::async, fnOpen, "/media/a.mp4");
    auto futB = std::async(std::launch::async, fnOpen, "/media/b.mp4");
    ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterOpen, nOpensBefore + 2, 5000));
    ASSERT_TRUE(m_pScript->WaitWaiting(eCall::SplitterOpen, 5000));
    // A call counts as made a moment before it starts to wait: release
    // until both have gone (extra releases hold nothing back).
    const auto Done = [](std::future<HRESULT>& fut) {
      return fut.wait_for(std::chrono::milliseconds(5)) == std::future_status::ready;
    };
    for (int i = 0; i < 1000; ++i) {
      m_pScript->ReleaseHeld();
      const bool bDoneA = Done(futA);
      if (Done(futB) && bDoneA) break;
    }
    ASSERT_EQ(futA.get(), S_OK);
    ASSERT_EQ(futB.get(), S_OK);

    // The facade's path, the inner object's own path and the object the
    // reading thread works on all name one source.
    vc::CBstr bsInnerPath;
    ASSERT_EQ(m_cpSplitter->SplitterInfoGet(&bsInnerPath, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(vc::ToUtf8(m_pFacade->_SourcePath()), bsInnerPath.Utf8()) << nRound;
    EXPECT_TRUE(m_pFacade->_IsThreadRunning());
    const size_t nSeeksBefore = m_pScript->CallCount(eCall::SplitterBeginSegment);
    ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, vc::CBstr(W("0"))), S_OK);
    ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterBeginSegment, nSeeksBefore + 1, 5000));

    uint64_t nInstalled = 0, nSeeking = 0;
    std::set<uint64_t> setClosed;
    for (const CallRecord& record : m_pScript->Calls()) {
      if (record.call == eCall::SplitterInfoGet) nInstalled = record.nObject;
      if (record.call == eCall::SplitterBeginSegment) nSeeking = record.nObject;
      if (record.call == eCall::SplitterClose) setClosed.insert(record.nObject);
    }
    EXPECT_EQ(nSeeking, nInstalled) << nRound;
    EXPECT_EQ(setClosed.count(nInstalled), 0u) << nRound;
  }
}

TEST_F(ScriptedSplitterSourceTest, CloseWhileASegmentRequestWaitsEndsTheRequestWithAborted) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  // The thread sits in a read that no stop breaks until the test lets it go.
  m_pScript->Expect(Step::Answer(eCall::SplitterPacketGet, HRESULT_FROM_WIN32(995), eWait::UntilReleased));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  ASSERT_EQ(SegmentAndRead(0, "0"), S_OK);
  ASSERT_TRUE(m_pScript->WaitWaiting(eCall::SplitterPacketGet, 5000));

  const size_t nStops = m_pScript->CallCount(eCall::SplitterStop);
  auto futSegment = std::async(std::launch::async, [this] {
    return m_cpSplitter->SplitterBeginSegment(2 * kSec, nullptr);
  });
  // The request's first wait has passed and its stop did not help.
  ASSERT_TRUE(m_pScript->WaitCalls(eCall::SplitterStop, nStops + 1, 5000));
  auto futClose = std::async(std::launch::async, [this] { return m_cpSplitter->SplitterClose(); });

  // The request ends while the read is still held: it does not wait for a
  // thread that is being stopped.
  ASSERT_EQ(futSegment.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(futSegment.get(), vc::VC_E_ABORTED);
  m_pScript->ReleaseHeld();
  ASSERT_EQ(futClose.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(futClose.get(), S_OK);
  EXPECT_FALSE(m_pFacade->_IsThreadRunning());
  EXPECT_EQ(m_cpSplitter->SplitterBeginSegment(0, nullptr), vc::VC_E_EMPTY);
}

TEST_F(ScriptedSplitterSourceTest, ConsumerWaitingOnAQueueIsWokenByClose) {
  ASSERT_EQ(Open("/media/a.mp4"), S_OK);
  ASSERT_EQ(Segment(0, "0"), S_OK);  // a queue, and the thread parked
  BlockNextReadUntilStopped();
  auto futGet = std::async(std::launch::async, [this] {
    vc::ComPtr<IVCPacket> cpPacket;
    return Get(0, &cpPacket);  // no limit on a file source
  });
  ASSERT_TRUE(m_pScript->WaitWaiting(eCall::SplitterPacketGet, 5000));  // woken by the consumer
  ASSERT_EQ(m_cpSplitter->SplitterClose(), S_OK);
  ASSERT_EQ(futGet.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_TRUE(FAILED(futGet.get()));
}

TEST_F(ScriptedSplitterSourceTest, OrderInSegmentCountsPacketsNotEmptyReads) {
  ASSERT_EQ(Open("/media/av.mp4"), S_OK);
  Step empty = Step::Answer(eCall::SplitterPacketGet, S_OK);
  empty.bNoPacket = true;
  m_pScript->Expect(Step::Packet(0, eVCMT_Video, 0, 40 * kMs));
  m_pScript->Expect(empty);
  m_pScript->Expect(empty);
  m_pScript->Expect(Step::Packet(1, eVCMT_Audio, 0, 20 * kMs));
  m_pScript->Expect(empty);
  m_pScript->Expect(Step::Packet(0, eVCMT_Video, 40 * kMs, 80 * kMs));
  m_pScript->Allow(eCall::SplitterPacketGet, kEndOfMedia);
  ASSERT_EQ(SegmentAndRead(0, "0,1"), S_OK);

  std::vector<LONG> vecOrders;
  vc::ComPtr<IVCPacket> cpPacket;
  while (Get(-1, &cpPacket) == S_OK) vecOrders.push_back(Info(cpPacket.Get()).nOrderInSegment);
  EXPECT_EQ(vecOrders, (std::vector<LONG>{0, 1, 2}));
}

TEST(CoVCSplitterFirstWaitTest, MxfAndLxfWaitRuleIsForFilesNotForUrlsEndingSo) {
  using vc::CCoVCSplitter;
  const auto Prop = [](const char* szPath) {
    const OLECHAR* sz = CCoVCSplitter::_FirstWaitProperty(vc::FromUtf8(szPath));
    return sz ? vc::ToUtf8(sz) : std::string("default");
  };
  EXPECT_EQ(Prop("/media/CLIP.MXF"), "read_file.max_wait");
  EXPECT_EQ(Prop("C:\\media\\clip.lxf"), "read_file.max_wait");
  EXPECT_EQ(Prop("http://server/clip.mxf"), "default");
  EXPECT_EQ(Prop("srt://host:9000/feed.lxf"), "default");
  EXPECT_EQ(Prop("RTSP://camera/stream.mxf"), "read_url.max_wait");
  EXPECT_EQ(Prop("/media/clip.mxf.mp4"), "default");
  EXPECT_EQ(Prop("/media.mxf/clip"), "default");
}

TEST_F(ScriptedSplitterSourceTest, PlainZeroTerminatedStringsFromTheHostAreReadWhole) {
  auto path = Plain(u"/media/plain.mp4");
  ASSERT_EQ(SysStringLen(path.Get()), 1u);  // what a prefix reader would see
  m_pScript->Expect(Step::Answer(eCall::SplitterOpen, S_OK));
  LONG nStreams = 0;
  ASSERT_EQ(m_cpSplitter->SplitterOpen(path.Get(), nullptr, &nStreams), S_OK);
  EXPECT_EQ(vc::ToUtf8(m_pFacade->_SourcePath()), "/media/plain.mp4");

  // Segment hints name two streams; the inner splitter gets them whole.
  auto streams = Plain(u"0,1");
  m_pScript->Expect(Step::Answer(eCall::SplitterBeginSegment, S_OK));
  ASSERT_EQ(m_cpSplitter->SplitterBeginSegment(0, streams.Get()), S_OK);

  // Packet hints: a wait of 0 ms, which a one-character read ("m") would
  // miss, leaving the call to wait without limit.
  BlockNextReadUntilStopped();
  auto hints = Plain(u"max_wait=0");
  vc::ComPtr<IVCPacket> cpPacket;
  auto futGet = std::async(std::launch::async, [&] {
    return m_cpSplitter->SplitterPacketGet(1, cpPacket.AddressOf(), hints.Get());
  });
  const bool bReturned = futGet.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  if (!bReturned) m_cpSplitter->SplitterClose();  // lets the waiting call go
  ASSERT_TRUE(bReturned);
  EXPECT_EQ(futGet.get(), vc::VC_E_TIMEOUT);

  std::vector<std::string> vecOpened, vecSegments;
  for (const CallRecord& record : m_pScript->Calls()) {
    if (record.call == eCall::SplitterOpen) vecOpened.push_back(record.strText);
    if (record.call == eCall::SplitterBeginSegment) vecSegments.push_back(record.strText);
  }
  EXPECT_EQ(vecOpened, (std::vector<std::string>{"/media/plain.mp4"}));
  EXPECT_EQ(vecSegments, (std::vector<std::string>{"0,1"}));
}

}  // namespace
}  // namespace vctest
