// Packet queue against the plainest queue that could carry the same packets
// (a std::mutex around a std::deque of counted packet pointers), in the same
// run: one put and one get per iteration with logging off. Plus the
// buffered-duration walk of the reading thread over 16 streams.
#include <benchmark/benchmark.h>

#include <deque>
#include <mutex>

#include "VCCodecs/VCPacket.h"
#include "VCCodecs/VCPackets.h"
#include "VCCodecs/VCPacketsStats.h"
#include "VCComPtr.h"
#include "VCLog.h"

namespace {

constexpr LONGLONG kMs = 10000;

vc::ComPtr<IVCPacket> MakePacket(LONG nStream, eVCMediaType eType, LONGLONG rtStart) {
  K_PACKET_INFO info{};
  info.nStreamIndex = nStream;
  K_STREAM_INFO stream{};
  stream.eMediaType = eType;
  K_TIME time{};
  time.rtStartTime = rtStart;
  time.rtEndTime = rtStart + 40 * kMs;
  static const uint8_t payload[1024] = {};
  vc::ComPtr<IVCPacket> cpPacket;
  vc::CreateVCPacket(&info, &stream, &time, payload, sizeof(payload), cpPacket.AddressOf());
  return cpPacket;
}

struct NoDropOwner {
  bool _DropPacketsAllowed() { return false; }
};

void BM_DeqPutGet(benchmark::State& state) {
  const int nPrevLevel = vc::LogSetLevel(vc::kLogOff);
  vc::VCPacketDeq deq;
  vc::ComPtr<IVCPacket> cpPacket = MakePacket(0, eVCMT_Video, 0);
  for (auto _ : state) {
    deq.DeqPut(cpPacket.Get(), 0, 50000000, false);
    IVCPacket* pOut = nullptr;
    deq.DeqGet(&pOut, true);
    pOut->Release();
  }
  vc::LogSetLevel(nPrevLevel);
}
BENCHMARK(BM_DeqPutGet);

void BM_MutexDequeBaseline(benchmark::State& state) {
  std::mutex mutex;
  std::deque<vc::ComPtr<IVCPacket>> deq;
  vc::ComPtr<IVCPacket> cpPacket = MakePacket(0, eVCMT_Video, 0);
  for (auto _ : state) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      deq.push_back(cpPacket);
    }
    vc::ComPtr<IVCPacket> cpOut;
    {
      std::lock_guard<std::mutex> lock(mutex);
      cpOut = std::move(deq.front());
      deq.pop_front();
    }
    benchmark::DoNotOptimize(cpOut.Get());
  }
}
BENCHMARK(BM_MutexDequeBaseline);

void BM_BufferedDuration16Streams(benchmark::State& state) {
  const int nPrevLevel = vc::LogSetLevel(vc::kLogOff);
  NoDropOwner owner;
  vc::VCPacketsStreams<NoDropOwner> streams(&owner);
  for (LONG n = 0; n < 16; ++n) {
    for (int i = 0; i < 50; ++i) {
      vc::ComPtr<IVCPacket> cpPacket = MakePacket(n, n % 2 ? eVCMT_Audio : eVCMT_Video, i * 40 * kMs);
      streams.PacketPut(cpPacket.Get(), true, 1e300, 1e300);
    }
  }
  for (auto _ : state) benchmark::DoNotOptimize(streams.BufferedDuration(-1, -1, 3));
  vc::LogSetLevel(nPrevLevel);
}
BENCHMARK(BM_BufferedDuration16Streams);

// One publication of a stream's buffering statistics into a property tree
// that already holds them (the steady state: eight values rewritten).
void BM_SplitterStatisticsPublication(benchmark::State& state) {
  const int nPrevLevel = vc::LogSetLevel(vc::kLogOff);
  NoDropOwner owner;
  vc::VCPacketsStreams<NoDropOwner> streams(&owner);
  for (int i = 0; i < 50; ++i) {
    vc::ComPtr<IVCPacket> cpPacket = MakePacket(0, eVCMT_Video, i * 40 * kMs);
    streams.PacketPut(cpPacket.Get(), true, 1e300, 1e300);
  }
  XMLParse::XMLNodePtr spRoot = XMLParse::CoXMLNode::Create();
  vc::CKCritSec csLock;
  for (auto _ : state) benchmark::DoNotOptimize(vc::VCPacketsUpdateStatistics(streams, 0, spRoot.get(), csLock, true));
  vc::LogSetLevel(nPrevLevel);
}
BENCHMARK(BM_SplitterStatisticsPublication);

}  // namespace
