// Cost of the statistics on the packet path: one per-packet statistics update
// publishing into a property tree (what a decoder or encoder facade adds to
// every packet), one sample added to a 64-sample window plus its statistics,
// and one packet fed to the byte-rate meter.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "CoXMLNode.h"
#include "KAverageCalc.h"
#include "KBitrateCalculator.h"
#include "KPacketStats.h"
#include "VCCodecsCore.h"

namespace {

// Only the description calls are used; the object lives on the stack.
class CBenchPacket final : public IVCPacket {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    if (ppv) *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE PacketInfoGet(K_PACKET_INFO* p) override {
    *p = m_info;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE PacketInfoSet(K_PACKET_INFO* p) override {
    m_info = *p;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE PacketStreamInfoGet(K_STREAM_INFO*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PacketTimeGet(K_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PacketAppendData(LONG, LONGLONG) override { return E_NOTIMPL; }

  K_PACKET_INFO m_info{};
};

// A key packet every 25, sizes varying as in a real stream.
void BM_PacketStatsUpdate(benchmark::State& state) {
  vc::KPacketStats stats("v_decode");
  XMLParse::XMLNodePtr pStat = XMLParse::CoXMLNode::Create(W("stat"));
  CBenchPacket packet;
  int64_t i = 0;
  for (auto _ : state) {
    const bool bKey = i % 25 == 0;
    packet.m_info.eFlags = bKey ? eVCPF_KeyFrame : eVCPF_None;
    packet.m_info.cbPacketData = static_cast<LONG>(bKey ? 60000 + i % 1000 : 8000 + i % 4000);
    benchmark::DoNotOptimize(stats.Update(&packet, pStat.get()));
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PacketStatsUpdate);

void BM_AverageCalcAddAndStatistics(benchmark::State& state) {
  vc::KAverageCalc calc(static_cast<int>(state.range(0)));
  double v = 0;
  for (auto _ : state) {
    calc.Add(v);
    v += 1.25;
    double dblAverage = 0, dblJitter = 0, dblMin = 0, dblMax = 0;
    benchmark::DoNotOptimize(calc.Statistics(&dblAverage, &dblJitter, &dblMin, &dblMax));
    benchmark::DoNotOptimize(dblAverage);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AverageCalcAddAndStatistics)->Arg(64);

// Timed packets, 40 ms apart, in a 1 s window.
void BM_BitrateCalculatorAdd(benchmark::State& state) {
  vc::KBitrateCalculator calc;
  calc.Setup(0, 64, VC_TIME_SECOND);
  int64_t llTime = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(calc.Add(10000 + llTime % 3000, llTime));
    llTime += 400000;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BitrateCalculatorAdd);

}  // namespace
