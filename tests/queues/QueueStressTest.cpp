// One producer and three consumers on a set of three queues, with segment
// resets and the drop valve at work: no invariant is reported, no packet is
// handed out twice or lost, and every packet put is accounted for as taken,
// cleared by a reset, dropped, or still queued.
//
// Runs kStressQuickSeconds by default, kStressFullSeconds when the
// environment variable CORVANE_STRESS_FULL is set to anything but "0" (the
// long run is meant for the sanitizer builds and nightly runs).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "QueueTestUtil.h"
#include "VCAssert.h"
#include "VCCodecs/VCPackets.h"
#include "VCLog.h"

namespace {

using queuetest::kMs;
using queuetest::kSec;

constexpr int kStressFullSeconds = 10;
constexpr int kStressQuickSeconds = 2;
constexpr LONG kStreams = 3;
constexpr size_t kMaxPackets = 4000000;
constexpr int kPacketsPerSegment = 5000;

int StressSeconds() {
  const char* psz = std::getenv("CORVANE_STRESS_FULL");
  return (psz && *psz && std::string(psz) != "0") ? kStressFullSeconds : kStressQuickSeconds;
}

enum : uint8_t { kTaken = 1, kReleased = 2 };

struct StressOwner {
  std::atomic<bool> bDrop{true};
  bool _DropPacketsAllowed() { return bDrop.load(std::memory_order_relaxed); }
};
using Streams = vc::VCPacketsStreams<StressOwner>;

class QueueStressTest : public ::testing::Test {
 protected:
  // The packet's payload owner marks the packet released: it fires exactly
  // when the last reference goes.
  static void OnRelease(void* pContext) { static_cast<std::atomic<uint8_t>*>(pContext)->fetch_or(kReleased); }

  vc::ComPtr<IVCPacket> MakeTracked(size_t nId, LONG nStream, LONGLONG rtStart, LONGLONG rtSegment) {
    K_PACKET_INFO info{};
    info.nStreamIndex = nStream;
    info.rtSegmentStart = rtSegment;
    info.nOrderInSegment = static_cast<LONG>(nId % 1000000);
    info.llPts = static_cast<LONGLONG>(nId);
    info.eFlags = (nId % 12 == 0) ? eVCPF_KeyFrame : eVCPF_None;
    K_STREAM_INFO stream{};
    stream.eMediaType = nStream == 0 ? eVCMT_Video : eVCMT_Audio;
    K_TIME time{};
    time.rtStartTime = rtStart;
    time.rtEndTime = rtStart + 40 * kMs;
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(vc::CreateVCPacketOver(&info, &stream, &time, m_payload, sizeof(m_payload), &OnRelease, &m_pFlags[nId],
                                     cpPacket.AddressOf()),
              S_OK);
    return cpPacket;
  }

  void Produce(std::chrono::steady_clock::time_point deadline) {
    LONGLONG rtSegment = 0;
    LONGLONG rtNext[kStreams] = {};
    size_t nId = 0;
    for (; nId < kMaxPackets && std::chrono::steady_clock::now() < deadline; ++nId) {
      if (nId > 0 && nId % kPacketsPerSegment == 0) {
        rtSegment += kSec;
        const int nSegment = static_cast<int>(nId / kPacketsPerSegment);
        m_streams.BeginSegment(-1, rtSegment, nSegment % 2 ? 1 : 2);
        m_owner.bDrop = nSegment % 3 != 0;
      }
      const LONG nStream = static_cast<LONG>(nId % kStreams);
      vc::ComPtr<IVCPacket> cpPacket = MakeTracked(nId, nStream, rtNext[nStream], rtSegment);
      rtNext[nStream] += 40 * kMs;
      // Ready at once; the valve opens past 2 x 0.2 s + 2 s.
      m_streams.PacketPut(cpPacket.Get(), true, 0.0, 0.2 * kSec);
    }
    m_nPut = nId;
  }

  void Consume(int nConsumer) {
    std::vector<vc::CKEventPtr> vecEvents;
    for (LONG n = 0; n < kStreams; ++n) vecEvents.push_back(m_streams.ReadyEventGet(n, false));
    size_t nTaken = 0;
    while (!m_bStop) {
      const int nIndex = vc::CKEvent::WaitAny(vecEvents, 20);
      if (nIndex < 0) continue;
      vc::ComPtr<IVCPacket> cpPacket;
      const HRESULT hr = m_streams.PacketGet(cpPacket.AddressOf(), nIndex, true);
      if (hr == HRESULT_FROM_WIN32(ERROR_EMPTY)) continue;  // another consumer was first
      if (hr != S_OK || !cpPacket) {
        ++m_nUnexpected;
        continue;
      }
      K_PACKET_INFO info{};
      cpPacket->PacketInfoGet(&info);
      if (info.nStreamIndex != nIndex) ++m_nUnexpected;
      if (m_pFlags[static_cast<size_t>(info.llPts)].fetch_or(kTaken) & kTaken) ++m_nDuplicates;
      ++nTaken;
      // A slow consumer now and then, so that queues fill and the valve opens.
      if (nConsumer == 0 && nTaken % 4096 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    m_nTaken += nTaken;
  }

  const uint8_t m_payload[16] = {};
  std::unique_ptr<std::atomic<uint8_t>[]> m_pFlags{new std::atomic<uint8_t>[kMaxPackets]()};
  StressOwner m_owner;
  Streams m_streams{&m_owner};
  std::atomic<bool> m_bStop{false};
  std::atomic<size_t> m_nTaken{0};
  std::atomic<int> m_nDuplicates{0};
  std::atomic<int> m_nUnexpected{0};
  size_t m_nPut = 0;
};

TEST_F(QueueStressTest, ProducerAndThreeConsumers_EveryPacketAccountedFor) {
  vc::CAssertCounter asserts;
  size_t nDropped = 0;
  {
    vc::CLogCapture dropLines(vc::eVCLL_Retry);  // one level-3 line per dropped packet
    for (LONG n = 0; n < kStreams; ++n) m_streams.ReadyEventGet(n, true);
    std::vector<std::thread> vecConsumers;
    for (int i = 0; i < 3; ++i) vecConsumers.emplace_back([this, i] { Consume(i); });
    Produce(std::chrono::steady_clock::now() + std::chrono::seconds(StressSeconds()));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    m_bStop = true;
    for (std::thread& t : vecConsumers) t.join();
    for (const std::string& str : dropLines.Messages()) {
      if (str.find(" Packet dropped :[") != std::string::npos) ++nDropped;
    }
  }

  EXPECT_EQ(asserts.Count(), 0) << asserts.LastCondition();
  EXPECT_EQ(m_nDuplicates, 0);
  EXPECT_EQ(m_nUnexpected, 0);

  size_t nLeft = 0;
  for (LONG n = 0; n < kStreams; ++n) nLeft += static_cast<size_t>(m_streams._GetDeq(n, false)->DeqSize());
  size_t nTakenFlags = 0, nGoneUntaken = 0, nHeld = 0, nTakenButHeld = 0;
  for (size_t i = 0; i < m_nPut; ++i) {
    const uint8_t flags = m_pFlags[i].load();
    if ((flags & kTaken) && (flags & kReleased)) ++nTakenFlags;
    else if (flags & kTaken) ++nTakenButHeld;  // consumers release what they take
    else if (flags & kReleased) ++nGoneUntaken;
    else ++nHeld;
  }
  ASSERT_GE(nGoneUntaken, nDropped);
  const size_t nCleared = nGoneUntaken - nDropped;
  EXPECT_EQ(nTakenButHeld, 0u);
  EXPECT_EQ(nTakenFlags, m_nTaken.load());
  EXPECT_EQ(nHeld, nLeft);
  EXPECT_EQ(m_nPut, m_nTaken + nCleared + nDropped + nLeft);
  EXPECT_GT(m_nTaken, 0u);
  std::printf("[ stress   ] put %zu = taken %zu + cleared %zu + dropped %zu + left %zu\n", m_nPut, m_nTaken.load(),
              nCleared, nDropped, nLeft);

  // Removing the queues lets the rest go: nothing leaks.
  m_streams.DeqRemove(-1);
  for (size_t i = 0; i < m_nPut; ++i) ASSERT_NE(m_pFlags[i].load() & kReleased, 0) << "packet " << i;
}

}  // namespace
