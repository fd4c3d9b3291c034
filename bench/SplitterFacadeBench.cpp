// Packets per second through the splitter facade, created the way a host
// creates it (CoCreateInstance of the splitter class, which then chooses the
// general splitter of the media module), in one run:
//   queued  the reading thread fills the per-stream queues and the host
//           takes packets from them (the normal mode);
//   direct  every SplitterPacketGet carries the hint "direct=true" and goes
//           straight to the inner splitter;
//   plain   a bare libavformat loop over the same file, the floor.
// Each iteration opens the file, reads every packet of every stream in
// source order and closes it. Logging is off. The file is a 30 s 1080p
// H.264/AAC MP4 from bench/make_bench_media.sh (VC_BENCH_MEDIA_DIR, or the
// environment variable of the same name); the benchmarks skip without it.
#include <benchmark/benchmark.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdlib>
#include <filesystem>
#include <string>

#include "VCCodecs/VCCodecsBase.h"
#include "BenchMedia.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

using vcbench::BenchFile;
using vcbench::CLogOff;

// Opens the file through a new facade and asks for every stream from 0.
vc::ComPtr<IVCSplitter> OpenFacade(const std::string& strPath) {
  vc::ComPtr<IVCSplitter> cpSplitter;
  if (FAILED(CoCreateInstance(CLSID_VCSplitter, nullptr, CLSCTX_INPROC_SERVER, IID_IVCSplitter,
                              reinterpret_cast<void**>(cpSplitter.AddressOf()))))
    return nullptr;
  LONG nStreams = 0;
  if (FAILED(cpSplitter->SplitterOpen(vc::CBstr(std::string_view(strPath)), nullptr, &nStreams)) || nStreams < 1)
    return nullptr;
  std::string strStreams;
  for (LONG n = 0; n < nStreams; ++n) strStreams += (n ? "," : "") + std::to_string(n);
  if (FAILED(cpSplitter->SplitterBeginSegment(0, vc::CBstr(std::string_view(strStreams))))) return nullptr;
  return cpSplitter;
}

// Every packet to the end; -1 when the end is not reported as end of media.
int64_t ReadFacade(IVCSplitter* pSplitter, BSTR bsHints) {
  int64_t llPackets = 0;
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = pSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), bsHints);
    if (hr == vc::VC_E_END_OF_MEDIA) return llPackets;
    if (FAILED(hr) || !cpPacket) return -1;
    benchmark::DoNotOptimize(cpPacket.Get());
    ++llPackets;
  }
}

void BM_Facade(benchmark::State& state, bool bDirect) {
  const std::string strPath = BenchFile();
  if (!std::filesystem::exists(strPath)) return state.SkipWithError("bench media missing: bench/make_bench_media.sh");
  CLogOff logOff;
  if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return state.SkipWithError("no apartment");
  const vc::CBstr bsHints(bDirect ? std::string_view("direct=true") : std::string_view());
  int64_t llPackets = 0;
  for (auto _ : state) {
    vc::ComPtr<IVCSplitter> cpSplitter = OpenFacade(strPath);
    if (!cpSplitter) {
      state.SkipWithError("the facade could not open the file");
      break;
    }
    const int64_t llRead = ReadFacade(cpSplitter.Get(), bsHints.Get() && bDirect ? bsHints.Get() : nullptr);
    cpSplitter->SplitterClose();
    if (llRead < 0) {
      state.SkipWithError("reading stopped before the end");
      break;
    }
    llPackets += llRead;
  }
  state.SetItemsProcessed(llPackets);
  CoUninitialize();
}

void BM_FacadeQueued(benchmark::State& state) { BM_Facade(state, false); }
void BM_FacadeDirect(benchmark::State& state) { BM_Facade(state, true); }

void BM_FacadePlainLibavformat(benchmark::State& state) {
  const std::string strPath = BenchFile();
  if (!std::filesystem::exists(strPath)) return state.SkipWithError("bench media missing: bench/make_bench_media.sh");
  CLogOff logOff;
  AVPacket* pPacket = av_packet_alloc();
  int64_t llPackets = 0;
  for (auto _ : state) {
    AVFormatContext* pFormat = nullptr;
    if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0 ||
        avformat_find_stream_info(pFormat, nullptr) < 0) {
      avformat_close_input(&pFormat);
      state.SkipWithError("open failed");
      break;
    }
    while (av_read_frame(pFormat, pPacket) >= 0) {
      benchmark::DoNotOptimize(pPacket->data);
      av_packet_unref(pPacket);
      ++llPackets;
    }
    avformat_close_input(&pFormat);
  }
  av_packet_free(&pPacket);
  state.SetItemsProcessed(llPackets);
}

// Real time: the queued mode's work is shared with the reading thread.
BENCHMARK(BM_FacadeQueued)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FacadeDirect)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FacadePlainLibavformat)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
